// What each instruction does to the stack, seen without running it.
#pragma once

#include "engine/decode.h"

namespace shadermachine::engine {

// Words of a basic variable, rounded up.
inline uint32_t variableWords(const VarInfo& info) { return (inlineByteSize(info) + 3) / 4; }

class FlowRules {
 public:
  FlowRules(Decoder& decoder, const Machine& machine) : decoder_(decoder), machine_(machine) {}

  // Applies an instruction. False when the function must be left to the plain handlers: the stack
  // would fall below the locals or outgrow the state, or an operand names nothing.
  bool apply(DecodedFunction& function, const Instruction& item, StackState& state) const;

 private:
  bool applyCall(uint32_t callee, StackState& state) const;
  bool applyVariable(const DecodedFunction& function, const Instruction& item,
                     StackState& state) const;
  bool applyElementRead(const DecodedFunction& function, const Instruction& item,
                        StackState& state) const;
  bool applyAggregate(const DecodedFunction& function, const Instruction& item,
                      StackState& state) const;
  bool applyHostCall(const uint8_t* code, const Instruction& item, StackState& state) const;
  bool applyByTable(const uint8_t* code, const Instruction& item, StackState& state) const;
  bool applyRest(DecodedFunction& function, const Instruction& item, StackState& state) const;

  Decoder& decoder_;
  const Machine& machine_;
};

// Joins `from` into `into`. False when the depths differ.
bool mergeStates(StackState& into, const StackState& from, bool& changed);

}  // namespace shadermachine::engine
