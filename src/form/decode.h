// First stage: what the functions' code is, seen without running it. For every reachable
// instruction the depth of both stacks is known before it runs, or the function is left to the
// plain handlers.
//
// What holds of a usable function: its instructions do not overlap and end inside its code; on
// every way to an instruction the depths are the same; no instruction takes slots that the function
// has not pushed, nor indices; variables that instructions name exist.
#pragma once

#include "form/arena.h"
#include "instructions/stack_effect.h"
#include "machine/machine.h"

namespace shadermachine::form {

struct Instruction : DecodedInstruction {
  bool isTarget;   // control can come here other than from the instruction before
  uint32_t count;  // temporaries above the locals before it runs
  int32_t
      indexDepth;    // entries of the index stack before it runs, relative to the function's entry
  uint64_t* blocks;  // of targets: a bit per temporary that may hold a reference to a block
};

struct DecodedFunction {
  const ShaderFunction* record;
  const uint8_t* code;
  Instruction* instructions;  // in code order
  uint32_t count;
  uint32_t maxTemporaries;
  bool returnsValue;
  bool returnsBlock;
  bool keepsIndices;   // returns with entries of its own on the index stack
  bool storesToParam;  // some instruction may write a parameter
};

// All functions that a shader's entry function can reach by calls that the host does not serve.
class Decoder {
 public:
  Decoder(Arena& arena, const Machine& machine);

  // Decodes them; false when memory is short or half of the run's time is over. Memory is linear in
  // the code reached.
  bool decodeFrom(uint32_t entryFunction);
  bool isOutOfTime() const { return isOutOfTime_; }

  // Null for a function that must be left to the plain handlers.
  const DecodedFunction* function(uint32_t number) const {
    return functions_[number].visit == Visit::Usable ? &functions_[number].decoded : nullptr;
  }
  // True when CALL of the function goes to the host or ends the run, whatever is on the stack.
  bool isPlainCall(uint32_t number) const;

  // True when any CALL has been looked at: then the numbers that decide who serves it matter.
  bool foundCalls() const { return foundCalls_; }
  // True when anything of the function's record has been looked at.
  bool consulted(uint32_t number) const { return functions_[number].visit != Visit::None; }

  // A structure type whose table decides what is built; null when the shader lacks it.
  const StructInfo* consultStruct(int32_t type) {
    structs_.append(static_cast<uint32_t>(type));
    return structType(machine_, type);
  }
  // All of them, some more than once.
  Array<uint32_t>& consultedStructs() { return structs_; }

  // The index of the instruction at a pc that a jump leads to.
  static uint32_t indexOf(const DecodedFunction& function, uint32_t pc);

 private:
  enum class Visit : uint8_t { None, Scanned, Usable, Unusable };
  struct Entry {
    Visit visit;
    DecodedFunction decoded;
  };
  class Scan;
  class StackWalk;

  bool outOfTime();
  bool scan(uint32_t number);
  void follow(uint32_t number);
  bool decodeInOrder(uint32_t entryFunction);

  const CompiledShader& shader_;
  const Machine& machine_;
  Arena& arena_;
  Entry* functions_;
  Array<uint32_t> structs_;
  bool foundCalls_ = false;
  bool failed_ = false;
  bool isOutOfTime_ = false;
  uint32_t looks_ = 0;
};

}  // namespace shadermachine::form
