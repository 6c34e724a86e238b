// Second stage: the form of an entry function and of the calls that are inlined into it, in one
// pass over the decoded instructions.
//
// The builder runs the instructions on a stack of descriptions. A slot of a temporary is described
// by the values that its words are: a list of parts, the first ones on top of the ones below,
// because an instruction on n components writes n words and leaves the rest of the slot. Locals,
// globals and indices that were pushed before the current block are places; the passes find out
// which of them nobody needs.
//
// What holds between two instructions:
//  1. Words of a slot beyond its described parts, and beyond its first `dirty` words, are in the
//     slot's place.
//  2. Descriptions by values are of the current block only: at its end, and before any operation at
//     which the host can look, everything dirty is stored.
//  3. A lazy view names an aggregate variable that has not been stored to since.
#pragma once

#include "form/decode.h"
#include "form/form.h"
#include "instructions/access_path.h"

namespace shadermachine::form {

enum class BuildResult : uint8_t {
  Built,
  LeftPlain,    // the entry function must be left to the plain handlers
  OutOfMemory,  // or beyond the arena's limit
  OutOfTime,    // the run's time limit
};

class Builder {
 public:
  // `working`: of what is needed while building only.
  Builder(Form& form, Decoder& decoder, Arena& working, Machine& machine);
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;

  BuildResult build(uint32_t entryFunction);

 private:
  // Words up to `end` that the parts before do not cover, from the operand: word i of the slot is
  // word i of the operand.
  struct Part {
    Operand operand;
    uint32_t end;
    const Part* below;
  };
  enum class Content : uint8_t {
    Words,  // by parts and place
    Block,  // the slot itself may hold a reference
    View,   // an aggregate variable, loaded when somebody needs it in the slot
  };
  struct Slot {
    Content content;
    uint32_t epoch;     // the parts mean something in this epoch only
    uint32_t dirty;     // words that are not in the place yet
    bool wholeInParts;  // words beyond the parts mean nothing
    bool isListed;      // in dirtySlots_
    const Part* parts;
    Place variable;  // of a view
    uint32_t offset;
    uint32_t size;  // 0: the whole block
    // Of a view in an element that was checked: its index, which counts baseStep->stride bytes.
    Operand base;
    const IndexStep* baseStep;
  };
  struct Index {
    Operand operand;
    uint32_t epoch;
    bool dirty;
  };
  // One function being built, inlined or not.
  struct Instance {
    const DecodedFunction* function;
    InlinedCall* call;
    Instance* caller;
    uint32_t* labels;  // block of each instruction that is a target
    uint32_t endBlock;
    uint32_t current;
    int32_t indexBase;
    bool flowEnded;   // control does not come from the instruction before
    bool joinsAtEnd;  // some return jumps to the end
  };
  struct BackBranch {
    uint32_t block;
    uint32_t target;
    const Site* site;
  };
  static constexpr uint32_t kNoBlock = UINT32_MAX;
  static constexpr uint32_t kOperationsPerClock = 1024;

  // builder.cpp: blocks, slots, sites
  uint32_t newBlock();
  void placeBlock(uint32_t block);
  Operation operation(Kind kind, uint32_t words = 0) const;
  Value append(const Operation& operation);
  Operand constant(const uint32_t* words, uint32_t n);
  Operand constantWord(uint32_t word) { return constant(&word, 1); }
  bool constantOf(Operand operand, uint32_t& word) const;
  Operand load(Place place, uint32_t first, uint32_t n);
  void store(Place place, uint32_t first, uint32_t n, Operand value, bool spare = false);
  Slot& slot(int32_t s) { return slots_[s]; }
  Slot& topSlot(int32_t k = 0) { return slots_[top_ - k]; }
  bool isCurrent(const Slot& slot) const { return slot.epoch == epoch_; }
  void resetSlot(int32_t s, Content content = Content::Words);
  void pushOperand(Operand value, uint32_t n);
  void writeSlot(int32_t s, Operand value, uint32_t n, bool replaces);
  bool holdsWords(int32_t k) const { return slots_[top_ - k].content == Content::Words; }
  Operand read(int32_t s, uint32_t n);
  Operand readTop(int32_t k, uint32_t n) { return read(top_ - k, n); }
  Operand composeParts(const Slot& slot, uint32_t n);
  Operand word(Operand value, uint32_t i) const { return {value.value, value.first + i}; }
  void pop(uint32_t n = 1) { top_ -= static_cast<int32_t>(n); }
  void copySlot(int32_t from, int32_t to);
  void noteDirty(int32_t s);
  void flushSlot(int32_t s);
  void flushIndex(int32_t i);
  void flushViews(Place variable);
  void flush();
  const Site* site(uint32_t pc, uint32_t opcode, int32_t slotTop);
  const Site* site(uint32_t pc) { return site(pc, 0, top_); }
  bool outOfTime();
  void countPlaces();
  bool failed() const { return form_.failed() || working_.failed(); }

  // build_calls.cpp: functions, control flow, instructions left to their plain handlers
  Instance* enter(const DecodedFunction& function, InlinedCall* call, Instance* caller);
  void enterLocals(Instance& instance);
  void initAggregate(int32_t base, int32_t k, const VarInfo& info);
  void noteAggregate(int32_t slot, const VarInfo& info, bool canSettle);
  void releaseSlot(int32_t s);
  void releaseLocals(const ShaderFunction& record, int32_t base, int32_t first);
  void step(Instance& instance);
  Instance* leave(Instance& instance);
  void lookAtClock(const Instruction& item);
  void joinAt(Instance& instance, const Instruction& item);
  uint32_t labelOf(Instance& instance, uint32_t pc);
  bool buildJump(Instance& instance, const Instruction& item);
  bool buildBranch(Instance& instance, const Instruction& item);
  bool buildCall(Instance& instance, const Instruction& item);
  bool canInline(const Instance& instance, uint32_t number, const DecodedFunction* callee) const;
  bool buildReturn(Instance& instance, const Instruction& item);
  void buildEntryReturn(Instance& instance, const Instruction& item);
  void moveResult(Instance& instance);
  void leaveLocals(const Instance& instance);
  bool buildStop(Instance& instance, const Instruction& item);
  bool buildNothing(Instance&, const Instruction&) { return true; }
  void buildPlain(const Instance& instance, const Instruction& item);
  void notePlainCall(uint32_t number);

  // build_variables.cpp: constants, variables, the stack
  bool buildConstant(Instance& instance, const Instruction& item);
  bool buildVariable(Instance& instance, const Instruction& item);
  bool loadVariable(Place place, const VarInfo& info);
  bool storeVariable(Place place, const VarInfo& info, bool exact);
  bool storeAggregate(Place place, const Instruction& item);
  bool loadComponent(Place place, const VarInfo& info, const Instruction& item);
  bool loadHostVariable(uint32_t number, const VarInfo& info, const Instruction& item);
  bool buildBuiltin(Instance& instance, const Instruction& item);
  bool buildStack(Instance& instance, const Instruction& item);
  bool buildSwap();
  bool buildIndexPush(Instance& instance, const Instruction& item);

  // build_operations.cpp: arithmetic, constructors, parts of values
  bool buildOperation(Instance& instance, const Instruction& item);
  bool buildWide(const Instruction& item, uint32_t n);
  bool buildConstructor(Instance& instance, const Instruction& item);
  bool buildDiagonal(uint32_t dimension);
  bool buildSubMatrix(uint32_t from, uint32_t dimension);
  bool buildSwizzle(Instance& instance, const Instruction& item);
  bool buildElement(Instance& instance, const Instruction& item);
  bool buildColumn(Instance& instance, const Instruction& item);
  Operand compose(const Operand* words, uint32_t n);
  Operand gatherWords(const Operand* words, uint32_t n);
  Operand takeIndex();

  // build_stores.cpp: stores at access paths
  struct StorePath {
    PartType part;
    uint32_t size;      // bytes of the part
    uint32_t offset;    // with all run-time indices 0
    uint32_t firstEnd;  // of the first step's part
    uint32_t indices;   // run-time ones
    bool firstIsIndex;  // the first step is one of them
    SwizzlePattern pattern;
    Operand index[kMaxStoreIndices];
    IndexStep steps[kMaxStoreIndices];
  };
  bool buildPartStore(Instance& instance, const Instruction& item);
  bool isNeverNegative(Operand index) const;
  bool walkPath(const VarInfo& info, const Operand* indices, uint32_t n, StorePath& path);
  bool walkStep(Operand index, StorePath& path, uint64_t limit);
  bool storeAtPath(Place place, const VarInfo& info, const StorePath& path, int32_t valueDepth);
  void storeWords(Place place, const VarInfo& info, const StorePath& path, uint32_t at, uint32_t n,
                  Operand value);

  // build_aggregates.cpp: parts of structures and arrays
  bool buildArrayElement(Instance& instance, const Instruction& item);
  bool buildMember(Instance& instance, const Instruction& item);
  Operation elementOf(Kind kind, const Instruction& item, const Slot& view, uint32_t stride);
  void nameBase(Operation& made, uint32_t operand, const Slot& view);
  void readElement(const Instruction& item, const Slot& view, uint32_t stride, uint32_t offset,
                   uint32_t bytes);
  const VarInfo* memberReadNext(const Instance& instance, const StructInfo& element) const;
  bool enterElement(const Instruction& item, uint32_t stride);
  const VarInfo* storedNext(const Instance& instance, Place& place) const;
  uint32_t constructedBytes(const Instruction& item, uint32_t k) const;
  bool buildAggregate(Instance& instance, const Instruction& item);
  void storeConstructed(const Instruction& item, Place place, uint32_t n, uint32_t bytes);

  using Method = bool (Builder::*)(Instance& instance, const Instruction& item);
  struct MethodRange {
    Opcode first;
    Opcode last;
    Method method;
  };
  using Methods = std::array<Method, kOpcodeCount>;
  static const MethodRange kMethodRanges[];
  static consteval Methods makeMethods();
  bool buildInstruction(Instance& instance, const Instruction& item);

  Form& form_;
  Decoder& decoder_;
  Arena& working_;
  Machine& machine_;
  const CompiledShader& shader_;
  Slot* slots_;
  Index indices_[VM_INDEX_STACK_CAPACITY] = {};
  int32_t top_ = -1;
  int32_t indexTop_ = -1;
  uint32_t epoch_ = 1;
  const InlinedCall* call_ = nullptr;
  Instance* innermost_ = nullptr;
  int32_t inlineDepth_ = 0;
  uint32_t nextLook_ = 0;
  uint32_t nextClock_ = kOperationsPerClock;
  bool mustStayPlain_ = false;
  Array<int32_t> dirtySlots_;
  int32_t dirtyIndices_ = 0;  // indices from this one on may be dirty
  Array<BackBranch> backBranches_;
};

// By a builder on the heap: it is too large for the stacks that hosts give their threads.
BuildResult buildForm(Form& form, Decoder& decoder, Arena& working, Machine& machine);

}  // namespace shadermachine::form
