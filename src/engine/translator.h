// Third stage of a translation: chooses the records of each instruction, inlines calls, and links
// jumps to their targets.
#pragma once

#include <array>

#include "engine/emitter.h"

namespace shadermachine::engine {

class Translator {
 public:
  Translator(Arena& arena, Decoder& decoder, Machine& machine);

  // The first record of the entry function's program; null when it must be left to the plain
  // handlers.
  const Record* translate(uint32_t entryFunction);
  bool retry() const { return out_.retry(); }

 private:
  // One function being translated, inlined or not.
  struct Instance {
    const DecodedFunction* function;
    InlinedCall* call;
    Instance* caller;
    uint32_t* labels;  // record of each instruction
    uint32_t current;  // instruction
    bool flowEnded;    // control does not come from the instruction before
    bool joinsAtEnd;   // some return jumps to the end
  };
  struct Link {
    uint32_t record;
    uint32_t instruction;  // of the current instance; kEnd: its end
    bool back;             // the way back of a loop: the record's c
  };
  struct Target {
    uint32_t record;
    uint32_t target;
    bool back;
  };
  // The operation that the last record carries out, for records that join two.
  struct LastOperation {
    uint32_t record;
    unsigned opcode;  // or kScaleOperation, or kSplat
    unsigned form;
    uint32_t n;
  };
  // The comparison that the last record branches by, for loops.
  struct LastBranch {
    uint32_t record;
    RecordHandler loop;
  };
  static constexpr uint32_t kEnd = UINT32_MAX;
  static constexpr unsigned kSplat = kScaleOperation + 1;

  // select_flow.cpp
  void translateFunction(Instance& instance);
  void beginInstruction(Instance& instance, const Instruction& item);
  bool selectJump(Instance& instance, Instruction& item);
  bool selectBranch(Instance& instance, Instruction& item);
  bool selectCall(Instance& instance, Instruction& item);
  bool canInline(const Instance& caller, uint32_t function) const;
  void inlineCall(Instance& instance, Instruction& item, const DecodedFunction& callee);
  uint64_t argumentsWithRest(const Instance& callee);
  void enterLocals(Instance& instance);
  bool selectReturn(Instance& instance, Instruction& item);
  void selectEntryReturn(Instance& instance, const Instruction& item);
  void moveReturnValue(Instance& instance);
  void leaveLocals(Instance& instance);
  bool selectStop(Instance& instance, Instruction& item);
  bool selectNothing(Instance& instance, Instruction& item);
  void selectPlain(Instance& instance, const Instruction& item);
  void lookAtClock(const Instruction& item);
  void setIndexHome(int32_t i);
  void linkTo(Instance& instance, uint32_t record, uint32_t pc, bool back = false);

  // select_values.cpp
  bool selectConstant(Instance& instance, Instruction& item);
  bool selectVariable(Instance& instance, Instruction& item);
  bool loadVariable(int32_t s, const VarInfo& info);
  bool storeVariable(int32_t s, const VarInfo& info, bool global);
  bool storePart(int32_t s, const VarInfo& info, const uint8_t* code, const Instruction& item);
  bool writePart(int32_t s, uint32_t firstWord, uint32_t n);
  bool writeSelected(int32_t s, uint32_t words, uint32_t pattern);
  bool selectStack(Instance& instance, Instruction& item);
  bool selectIndexPush(Instance& instance, Instruction& item);

  // select_host.cpp
  bool loadHostVariable(uint32_t number, const Instruction& item);
  bool selectBuiltin(Instance& instance, Instruction& item);
  bool storeAggregate(int32_t s, const Instruction& item);

  // select_math.cpp
  bool selectKernel(Instance& instance, Instruction& item);
  // Joins the operation to the one before it, when it works on that one's result.
  bool selectJoined(const Instruction& item, uint32_t n);
  bool selectScale(uint32_t n);
  bool selectDotMax();
  bool selectPair(const Instruction& item, uint32_t n);
  bool selectGeometry(Instance& instance, Instruction& item);
  bool selectProduct(Instance& instance, Instruction& item);
  bool selectNoise(Instance& instance, Instruction& item);
  // True when the value can be read as n words.
  bool isReadable(const Entry& entry, uint32_t n);
  // Starts an instruction that writes n words over its first operand's: false when only the plain
  // handler can.
  bool beginResult(const Instruction& item, uint32_t operands, uint32_t n);
  // After the result was produced: what became of the first operand's other words.
  void endResult(Instruction& item, const Entry& first, uint32_t n);

  // select_parts.cpp
  bool selectConstructor(Instance& instance, Instruction& item);
  bool selectSplat(Instruction& item, uint32_t n);
  bool selectAppend(Instruction& item, uint32_t n, const uint8_t* counts, uint32_t operands);
  bool selectGather(Instruction& item, uint32_t n, const uint8_t* counts, uint32_t operands);
  bool selectSwizzle(Instance& instance, Instruction& item);
  bool selectComponent(Instance& instance, Instruction& item);
  bool selectColumn(Instance& instance, Instruction& item);
  bool selectArrayElement(Instance& instance, Instruction& item);
  bool selectMember(Instance& instance, Instruction& item);
  bool takeIndexOperand(Record& record);
  void emitElement(const Instruction& item, const Entry& view, uint32_t stride, uint32_t offset,
                   uint32_t bytes);
  bool readMember(const Entry& view, uint32_t offset, uint32_t bytes);

  // Appends the records of an instruction. False when it must be left to its plain handler; nothing
  // has been appended then that does harm.
  using Selector = bool (Translator::*)(Instance& instance, Instruction& item);
  using Selectors = std::array<Selector, kOpcodeCount>;
  struct SelectorRange {
    Opcode first;
    Opcode last;
    Selector selector;
  };
  static const SelectorRange kSelectorRanges[];
  static consteval Selectors makeSelectors();
  bool select(Instance& instance, Instruction& item);

  Arena& arena_;
  Decoder& decoder_;
  Machine& machine_;
  const CompiledShader& shader_;
  Emitter out_;
  Array<Link> links_;
  Array<Target> targets_;
  LastOperation lastOperation_ = {UINT32_MAX - 1, 0, 0, 0};
  LastBranch lastBranch_ = {UINT32_MAX - 1, nullptr};
  RecordHandler loopForm_ = nullptr;  // looping form of the last comparison
  int32_t inlineDepth_ = 0;
  uint32_t lastClock_ = 0;  // the last record that looks at the clock, or the first
  bool outgrown_ = false;
};

}  // namespace shadermachine::engine
