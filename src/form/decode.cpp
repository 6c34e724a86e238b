#include "form/decode.h"

namespace shadermachine::form {
namespace {

enum PcFlag : uint8_t { kStart = 1, kTarget = 2 };

bool bitOf(const uint64_t* bits, uint32_t i) { return (bits[i / 64] >> (i % 64) & 1) != 0; }

void setBit(uint64_t* bits, uint32_t i, bool value) {
  const uint64_t mask = uint64_t{1} << (i % 64);
  bits[i / 64] = value ? bits[i / 64] | mask : bits[i / 64] & ~mask;
}

uint32_t wordsFor(uint32_t count) { return (count + 63) / 64; }

}  // namespace

// Reachable code ----------------------------------------------------------------------------------

// Finds the reachable instructions of one function and lists them.
class Decoder::Scan {
 public:
  Scan(Decoder& decoder, DecodedFunction& function)
      : decoder_(decoder), function_(function), length_(function.record->codeLength) {
    flags_ = static_cast<uint8_t*>(std::calloc(length_, 1));
  }
  ~Scan() { std::free(flags_); }
  Scan(const Scan&) = delete;
  Scan& operator=(const Scan&) = delete;

  bool failed() const { return flags_ == nullptr || pending_.failed() || decoder_.arena_.failed(); }
  bool run() { return flags_ != nullptr && findInstructions() && listInstructions(); }

 private:
  bool mark(uint32_t pc) {
    if (pc >= length_) return false;
    // Code that has been scanned is not scanned again: each instruction is decoded here once,
    // however many jumps lead to it.
    const bool known = (flags_[pc] & kStart) != 0;
    flags_[pc] = static_cast<uint8_t>(flags_[pc] | kTarget);
    return known || pending_.append(pc);
  }

  bool findInstructions() {
    if (!pending_.append(0)) return false;
    while (pending_.size() > 0) {
      const uint32_t pc = pending_.back();
      pending_.removeLast();
      if (!scanFrom(pc)) return false;
    }
    return true;
  }

  bool scanFrom(uint32_t pc) {
    while (pc < length_ && (flags_[pc] & kStart) == 0) {
      DecodedInstruction item;
      if (decoder_.outOfTime()) return false;
      if (!decodeInstruction(function_.code, pc, length_, item)) return false;
      flags_[pc] = static_cast<uint8_t>(flags_[pc] | kStart);
      ++function_.count;
      if (isJump(item.opcode) && !mark(item.operands[0])) return false;
      if (endsFlow(item.opcode)) return true;
      pc = item.end;
    }
    // The loop ends at an instruction that is known, and so is what follows it, or where the range
    // ends without anything that ends the flow: there a run reads on in what comes after.
    return pc < length_;
  }

  bool listInstructions() {
    // A second pass, since only now their number is known: the arena does not take memory back from
    // a list that grows.
    function_.instructions = decoder_.arena_.allocate<Instruction>(function_.count);
    if (function_.instructions == nullptr) return false;
    uint32_t i = 0;
    uint32_t end = 0;
    for (uint32_t pc = 0; pc < length_; ++pc) {
      if ((flags_[pc] & kStart) == 0) continue;
      if (decoder_.outOfTime()) return false;
      Instruction& item = function_.instructions[i++];
      decodeInstruction(function_.code, pc, length_, item);
      item.isTarget = (flags_[pc] & kTarget) != 0;
      if (pc < end) return false;  // overlapping instructions have no order
      end = item.end;
      function_.returnsValue =
          function_.returnsValue || (isReturn(item.opcode) && item.opcode != Opcode::RETURN);
    }
    return true;
  }

  Decoder& decoder_;
  DecodedFunction& function_;
  uint32_t length_;
  uint8_t* flags_;
  Array<uint32_t> pending_;
};

// Depths ------------------------------------------------------------------------------------------

// Follows the stacks through the instructions of a function whose callees have been followed.
class Decoder::StackWalk {
 public:
  StackWalk(Decoder& decoder, DecodedFunction& function) : decoder_(decoder), function_(function) {}
  ~StackWalk() { std::free(blocks_); }
  StackWalk(const StackWalk&) = delete;
  StackWalk& operator=(const StackWalk&) = delete;

  bool outOfMemory() const { return outOfMemory_ || pending_.failed(); }

  bool run() {
    blocks_ = static_cast<uint64_t*>(std::calloc(wordsFor(kMostTemporaries), sizeof(uint64_t)));
    outOfMemory_ = blocks_ == nullptr;
    if (outOfMemory_) return false;
    known_ = decoder_.arena_.allocate<uint8_t>(function_.count);
    if (known_ == nullptr || !flowInto(0)) return false;
    while (pending_.size() > 0) {
      const uint32_t index = pending_.back();
      pending_.removeLast();
      if (!followFrom(index)) return false;
    }
    return true;
  }

 private:
  static constexpr uint32_t kMostTemporaries = VM_STACK_CAPACITY;

  // Merges the state into that of a target; the target is followed (again) when that changed it.
  bool flowInto(uint32_t index) {
    Instruction& target = function_.instructions[index];
    if (known_[index] == 0) {
      known_[index] = 1;
      target.count = count_;
      target.indexDepth = indexDepth_;
      target.blocks = decoder_.arena_.allocate<uint64_t>(wordsFor(count_));
      if (target.blocks == nullptr) return false;
      std::memcpy(target.blocks, blocks_, wordsFor(count_) * sizeof(uint64_t));
      return pending_.append(index);
    }
    // A slot would have a different number on each way, and slot addresses are final.
    if (target.count != count_ || target.indexDepth != indexDepth_) return false;
    // Bits are only ever added, one per slot at most, so that following again comes to an end.
    bool changed = false;
    for (uint32_t w = 0; w < wordsFor(count_); ++w) {
      changed = changed || (blocks_[w] & ~target.blocks[w]) != 0;
      target.blocks[w] |= blocks_[w];
    }
    return !changed || pending_.append(index);
  }

  void takeState(const Instruction& item) {
    // Bits above the top stay clear: flowInto() merges whole words of them.
    const uint32_t words = wordsFor(count_);
    std::memset(blocks_, 0, words * sizeof(uint64_t));
    count_ = item.count;
    indexDepth_ = item.indexDepth;
    std::memcpy(blocks_, item.blocks, wordsFor(count_) * sizeof(uint64_t));
  }

  bool followFrom(uint32_t index) {
    takeState(function_.instructions[index]);
    for (bool first = true;; first = false) {
      if (decoder_.outOfTime()) return false;
      Instruction& item = function_.instructions[index];
      // What leads here otherwise must be merged in before anybody goes on from it.
      if (item.isTarget && !first) return flowInto(index);
      item.count = count_;
      item.indexDepth = indexDepth_;
      if (!apply(item)) return false;
      if (count_ > function_.maxTemporaries) function_.maxTemporaries = count_;
      if (isJump(item.opcode) && !flowInto(indexOf(function_, item.operands[0]))) return false;
      if (endsFlow(item.opcode)) return true;
      ++index;
      if (index >= function_.count || function_.instructions[index].pc != item.end) return false;
    }
  }

  bool apply(const Instruction& item) {
    const StackEffect effect = stackEffect(item, decoder_.shader_, *function_.record);
    if (!effect.known || effect.pops > count_) return false;
    if (count_ - effect.pops + effect.pushes > kMostTemporaries) return false;
    if (effect.indices < 0 && indexDepth_ < -effect.indices) return false;
    // Read before the pops clear them.
    const bool top = count_ > 0 && bitOf(blocks_, count_ - 1);
    const bool second = count_ > 1 && bitOf(blocks_, count_ - 2);
    const bool first = effect.pops > 0 && bitOf(blocks_, count_ - effect.pops);
    if (isReturn(item.opcode)) noteReturn(item, top);
    if (storesToParam(item)) function_.storesToParam = true;
    for (uint32_t i = 0; i < effect.pops; ++i) setBit(blocks_, --count_, false);
    for (uint32_t i = 0; i < effect.pushes; ++i) setBit(blocks_, count_++, false);
    indexDepth_ += effect.indices;
    switch (effect.reference) {
      case Reference::None:
        return true;
      case Reference::OfFirst:
        setBit(blocks_, count_ - 1, first);
        return true;
      case Reference::OfTop:
        setBit(blocks_, count_ - 1, top);
        setBit(blocks_, count_ - 2, top);
        return true;
      case Reference::Swapped:
        setBit(blocks_, count_ - 1, second);
        setBit(blocks_, count_ - 2, top);
        return true;
      case Reference::Fresh:
        setBit(blocks_, count_ - 1, true);
        return true;
      case Reference::Result:
        return applyCall(item.operands[0]);
    }
    return false;
  }

  bool applyCall(uint32_t callee) {
    if (decoder_.isPlainCall(callee)) return true;
    const ShaderFunction& record = *decoder_.shader_.functions[callee];
    if (record.paramCount > count_) return false;
    // Callees have been followed before, but for those of a cycle.
    const Entry& entry = decoder_.functions_[callee];
    const uint32_t below = record.paramCount + 1u;
    // A function that cannot be followed may or may not return a value.
    const bool known = entry.visit == Visit::Usable;
    if (known && !entry.decoded.returnsValue) return true;
    if (count_ < below) return !known;
    setBit(blocks_, count_ - below, !known || entry.decoded.returnsBlock);
    return true;
  }

  void noteReturn(const Instruction& item, bool top) {
    // A caller's index stack would be deeper behind the call than before it.
    function_.keepsIndices = function_.keepsIndices || indexDepth_ != 0;
    if (item.opcode != Opcode::RETURN) function_.returnsBlock = function_.returnsBlock || top;
  }

  bool storesToParam(const Instruction& item) const {
    const OpcodeInfo& info = item.info();
    return info.operands[0] == OperandKind::Local && item.opcode != Opcode::LOAD_LOCAL &&
           item.operands[0] < function_.record->paramCount;
  }

  Decoder& decoder_;
  DecodedFunction& function_;
  uint64_t* blocks_ = nullptr;
  uint8_t* known_ = nullptr;
  uint32_t count_ = 0;
  int32_t indexDepth_ = 0;
  Array<uint32_t> pending_;
  bool outOfMemory_ = false;
};

// Functions ---------------------------------------------------------------------------------------

Decoder::Decoder(Arena& arena, const Machine& machine)
    : shader_(*machine.shader),
      machine_(machine),
      arena_(arena),
      functions_(arena.allocate<Entry>(machine.shader->functionCount)) {}

bool Decoder::scan(uint32_t number) {
  Entry& entry = functions_[number];
  // Until the scan has succeeded; what fails is not scanned again for the next caller.
  entry.visit = Visit::Unusable;
  const ShaderFunction* record = shader_.functions[number];
  if (record == nullptr || record->codeLength == 0 || record->paramCount > record->localCount) {
    return false;
  }
  entry.decoded = {};
  entry.decoded.record = record;
  entry.decoded.code = shader_.code + record->codeOffset;
  Scan scan(*this, entry.decoded);
  const bool usable = scan.run();
  failed_ = failed_ || scan.failed();
  if (usable) entry.visit = Visit::Scanned;
  return usable;
}

void Decoder::follow(uint32_t number) {
  Entry& entry = functions_[number];
  StackWalk walk(*this, entry.decoded);
  entry.visit = walk.run() ? Visit::Usable : Visit::Unusable;
  failed_ = failed_ || walk.outOfMemory() || arena_.failed();
}

bool Decoder::decodeFrom(uint32_t entryFunction) {
  if (functions_ == nullptr) return false;
  return decodeInOrder(entryFunction) && !failed_;
}

// From then on all that is left to do fails.
bool Decoder::outOfTime() {
  constexpr uint32_t kInstructionsPerLook = 1024;
  if (!isOutOfTime_ && ++looks_ % kInstructionsPerLook == 0) {
    isOutOfTime_ = isHalfOver(machine_.timeLimit);
    failed_ = failed_ || isOutOfTime_;
  }
  return isOutOfTime_;
}

// Callees before their callers, without recursion: the depth is the shader's to choose. In a cycle
// of calls the function met first is followed last; its callees find it not usable, as they must,
// since nobody inlines a function into itself.
bool Decoder::decodeInOrder(uint32_t entryFunction) {
  struct Visiting {
    uint32_t function;
    uint32_t next;  // instruction to look at
  };
  Array<Visiting> path;
  if (scan(entryFunction) && !path.append({entryFunction, 0})) return false;
  while (path.size() > 0 && !failed_) {
    Visiting& visiting = path.back();
    const DecodedFunction& function = functions_[visiting.function].decoded;
    while (visiting.next < function.count &&
           function.instructions[visiting.next].opcode != Opcode::CALL) {
      ++visiting.next;
    }
    if (visiting.next == function.count) {
      follow(visiting.function);
      path.removeLast();
      continue;
    }
    const uint32_t callee = function.instructions[visiting.next++].operands[0];
    foundCalls_ = true;
    if (callee >= shader_.functionCount || functions_[callee].visit != Visit::None) continue;
    if (isPlainCall(callee)) {
      functions_[callee].visit = Visit::Unusable;
    } else if (scan(callee) && !path.append({callee, 0})) {
      return false;
    }
  }
  return true;
}

bool Decoder::isPlainCall(uint32_t number) const {
  if (number >= shader_.functionCount) return true;
  // What CALL asks before it enters the function's own code: none is inlined that the host would
  // have been handed.
  const HostCallbacks& callbacks = machine_.callbacks;
  const int64_t hostOffset = int64_t{number} - shader_.hostFunctionBase;
  if (callbacks.hostFunction != nullptr && shader_.hostFunctionBase != -1 && hostOffset >= 0 &&
      hostOffset < shader_.hostFunctionCount) {
    return true;
  }
  if (callbacks.overrideB != nullptr && shader_.hostFunctionB == int64_t{number}) return true;
  if (callbacks.overrideA != nullptr && shader_.hostFunctionA == int64_t{number}) return true;
  const ShaderFunction* record = shader_.functions[number];
  return record == nullptr || record->codeLength == 0;
}

uint32_t Decoder::indexOf(const DecodedFunction& function, uint32_t pc) {
  // Jumps lead to instructions that the scan has found, so the search cannot miss.
  uint32_t low = 0;
  uint32_t high = function.count;
  while (high - low > 1) {
    const uint32_t middle = (low + high) / 2;
    (function.instructions[middle].pc <= pc ? low : high) = middle;
  }
  return low;
}

}  // namespace shadermachine::form
