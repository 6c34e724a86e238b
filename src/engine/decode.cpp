#include "engine/decode.h"

#include "engine/flow.h"

namespace shadermachine::engine {
namespace {

constexpr uint32_t kNoInstruction = UINT32_MAX;
// Steps of work between two looks at the clock; the largest take some microseconds.
constexpr uint32_t kWorkPerCheck = 256;

enum PcFlag : uint8_t { kStart = 1, kTarget = 2, kEntry = 4 };

bool endsFlow(Opcode opcode) {
  using enum Opcode;
  return opcode == JUMP || opcode == RETURN || opcode == RETURN_VALUE || opcode == RETURN_VALUE_2 ||
         opcode == DISCARD || opcode == HALT;
}

bool isJump(Opcode opcode) { return opcode == Opcode::JUMP || opcode == Opcode::JUMP_IF_FALSE; }

// Finds the reachable instructions of one function, then follows the stack through them.
class FunctionScan {
 public:
  FunctionScan(Arena& arena, Decoder& decoder, const FlowRules& rules, DecodedFunction& function)
      : arena_(arena),
        decoder_(decoder),
        rules_(rules),
        function_(function),
        length_(function.record->codeLength) {
    flags_ = static_cast<uint8_t*>(std::calloc(length_, 1));
    indices_ = static_cast<uint32_t*>(std::malloc(length_ * sizeof(uint32_t)));
  }
  ~FunctionScan() {
    std::free(flags_);
    std::free(indices_);
  }
  FunctionScan(const FunctionScan&) = delete;
  FunctionScan& operator=(const FunctionScan&) = delete;

  bool run() {
    return flags_ != nullptr && indices_ != nullptr && findInstructions() && listInstructions() &&
           followStack();
  }

 private:
  bool mark(uint32_t pc, PcFlag flag) {
    if (pc >= length_) return false;
    const bool known = (flags_[pc] & kStart) != 0;
    flags_[pc] = static_cast<uint8_t>(flags_[pc] | flag);
    return known || pending_.append(pc);
  }

  uint32_t jumpTarget(uint32_t end) const { return end + operandU32(function_.code, end - 4); }

  bool findInstructions() {
    if (!mark(0, kEntry)) return false;
    while (pending_.size() > 0) {
      const uint32_t pc = pending_.back();
      pending_.removeLast();
      if (!scanFrom(pc)) return false;
    }
    return true;
  }

  bool scanFrom(uint32_t pc) {
    while (pc < length_ && (flags_[pc] & kStart) == 0) {
      if (decoder_.isOverTime(1)) return false;
      const uint32_t size = instructionLength(function_.code + pc, length_ - pc);
      if (size == 0) return false;
      flags_[pc] = static_cast<uint8_t>(flags_[pc] | kStart);
      const auto opcode = static_cast<Opcode>(function_.code[pc]);
      pc += size;
      if (isJump(opcode) && !mark(jumpTarget(pc), kTarget)) return false;
      if (endsFlow(opcode)) return true;
    }
    return pc < length_;
  }

  bool listInstructions() {
    uint32_t count = 0;
    for (uint32_t pc = 0; pc < length_; ++pc) count += flags_[pc] & kStart;
    function_.instructions = arena_.allocate<Instruction>(count);
    if (function_.instructions == nullptr) return false;
    function_.count = 0;
    for (uint32_t pc = 0; pc < length_; ++pc) {
      indices_[pc] = kNoInstruction;
      if ((flags_[pc] & kStart) == 0) continue;
      indices_[pc] = function_.count;
      Instruction& item = function_.instructions[function_.count++];
      item.pc = pc;
      item.end = pc + instructionLength(function_.code + pc, length_ - pc);
      item.opcode = static_cast<Opcode>(function_.code[pc]);
      item.isTarget = (flags_[pc] & kTarget) != 0;
    }
    return true;
  }

  bool followStack() {
    const StackState start = {};
    if (!flowInto(0, start)) return false;
    while (pending_.size() > 0) {
      const uint32_t index = pending_.back();
      pending_.removeLast();
      if (!followFrom(index)) return false;
    }
    return true;
  }

  // Merges a state into that of a jump target; the target is followed (again) when that changed it.
  bool flowInto(uint32_t pc, const StackState& state) {
    Instruction& target = function_.instructions[indices_[pc]];
    if (target.state == nullptr) {
      target.state = arena_.allocate<StackState>();
      if (target.state == nullptr) return false;
      *target.state = state;
      return pending_.append(indices_[pc]);
    }
    bool changed = false;
    if (!mergeStates(*target.state, state, changed)) return false;
    return !changed || pending_.append(indices_[pc]);
  }

  bool followFrom(uint32_t index) {
    StackState state = *function_.instructions[index].state;
    for (bool first = true;; first = false) {
      if (decoder_.isOverTime(1)) return false;
      Instruction& item = function_.instructions[index];
      if (item.isTarget && !first) return flowInto(item.pc, state);
      item.count = state.count;
      item.indexDepth = state.indexDepth;
      if (!rules_.apply(function_, item, state)) return false;
      if (state.count > function_.maxTemporaries) function_.maxTemporaries = state.count;
      if (isJump(item.opcode) && !flowInto(jumpTarget(item.end), state)) return false;
      if (endsFlow(item.opcode)) return true;
      ++index;
      // Overlapping instructions have no order to translate them in.
      if (index >= function_.count || function_.instructions[index].pc != item.end) return false;
    }
  }

  Arena& arena_;
  Decoder& decoder_;
  const FlowRules& rules_;
  DecodedFunction& function_;
  uint32_t length_;
  uint8_t* flags_;
  uint32_t* indices_;
  Array<uint32_t> pending_;
};

}  // namespace

uint32_t operandU8(const uint8_t* code, uint32_t at) { return code[at]; }

uint32_t operandU16(const uint8_t* code, uint32_t at) {
  return uint32_t{code[at]} | uint32_t{code[at + 1]} << 8;
}

uint32_t operandU32(const uint8_t* code, uint32_t at) {
  return operandU16(code, at) | operandU16(code, at + 2) << 16;
}

Decoder::Decoder(Arena& arena, const Machine& machine)
    : shader_(*machine.shader),
      machine_(machine),
      arena_(arena),
      functions_(arena.allocate<Entry>(machine.shader->functionCount)) {}

const DecodedFunction* Decoder::decode(uint32_t function) {
  if (functions_ == nullptr) return nullptr;
  Entry& entry = functions_[function];
  if (entry.visit == Visit::Usable) return &entry.decoded;
  if (entry.visit != Visit::None || depth_ > kMaxCallDepth) return nullptr;
  entry.visit = Visit::InProgress;
  entry.consulted = true;
  const ShaderFunction* record = shader_.functions[function];
  bool usable = false;
  if (record != nullptr && record->codeLength != 0 && record->paramCount <= record->localCount) {
    entry.decoded = {};
    entry.decoded.record = record;
    entry.decoded.code = shader_.code + record->codeOffset;
    entry.decoded.returnWidth = -1;
    const FlowRules rules(*this, machine_);
    ++depth_;
    usable = FunctionScan(arena_, *this, rules, entry.decoded).run();
    --depth_;
    entry.decoded.order = completed_++;
  }
  entry.visit = usable ? Visit::Usable : Visit::Unusable;
  return usable ? &entry.decoded : nullptr;
}

bool Decoder::isOverTime(uint32_t work) {
  work_ += work;
  if (work_ < kWorkPerCheck) return overTime_;
  work_ = 0;
  overTime_ = overTime_ || isHalfOver(machine_.timeLimit);
  return overTime_;
}

bool Decoder::isPlainCall(uint32_t function) const {
  foundCalls_ = true;
  if (function >= shader_.functionCount || functions_ == nullptr) return true;
  functions_[function].consulted = true;
  const HostCallbacks& callbacks = machine_.callbacks;
  const int64_t hostOffset = int64_t{function} - shader_.hostFunctionBase;
  if (callbacks.hostFunction != nullptr && shader_.hostFunctionBase != -1 && hostOffset >= 0 &&
      hostOffset < shader_.hostFunctionCount) {
    return true;
  }
  if (callbacks.overrideB != nullptr && shader_.hostFunctionB == int64_t{function}) return true;
  if (callbacks.overrideA != nullptr && shader_.hostFunctionA == int64_t{function}) return true;
  const ShaderFunction* record = shader_.functions[function];
  return record == nullptr || record->codeLength == 0;
}

}  // namespace shadermachine::engine
