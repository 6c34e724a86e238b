#include "form/check.h"

namespace shadermachine::form {
namespace {

bool isPlain(Kind kind) { return kind == Kind::Plain || kind == Kind::PlainCall; }

bool isFlow(Kind kind) {
  return kind == Kind::Branch || kind == Kind::Jump || kind == Kind::JumpBack;
}

bool namesPlace(Kind kind) {
  return kind == Kind::Load || kind == Kind::Store || kind == Kind::ReadMember ||
         kind == Kind::ReadElement || kind == Kind::CheckIndex || kind == Kind::StorePart ||
         kind == Kind::StoreIndexed || kind == Kind::LoadIndexed || kind == Kind::CopyWords ||
         kind == Kind::OpenStorage || kind == Kind::FillStorage;
}

bool needsSite(Kind kind) {
  switch (kind) {
    case Kind::CheckBound:
    case Kind::OpenStorage:
    case Kind::ReserveStorage:
    case Kind::Renew:
    case Kind::Element:
    case Kind::Column:
    case Kind::ReadElement:
    case Kind::CheckIndex:
    case Kind::InitLocals:
    case Kind::CopyBlock:
    case Kind::StoreBlock:
    case Kind::Clock:
    case Kind::JumpBack:
    case Kind::Finish:
    case Kind::Stop:
      return true;
    default:
      return isSeen(kind);
  }
}

// Reads through the reference in its slot, or gives it away.
bool usesReference(const Operation& operation, Place slot) {
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement:
    case Kind::CheckIndex:
    case Kind::StorePart:
    case Kind::ReleaseSlot:
      return operation.place == slot;
    case Kind::ShareView:
    case Kind::MoveSlot:
    case Kind::CopyBlock:
    case Kind::StoreBlock:
      return operation.other == slot;
    default:
      return false;
  }
}

class Checker {
 public:
  explicit Checker(const Form& form) : form_(form) {}

  Fault run() {
    if (form_.blocks.size() == 0) return {"no blocks", 0};
    uint32_t at = 0;
    for (uint32_t b = 0; b < form_.blocks.size() && fault_.text == nullptr; ++b) {
      if (form_.blocks[b].begin != at) return {"blocks do not follow each other", at};
      at = form_.blocks[b].end;
      checkBlock(form_.blocks[b]);
    }
    if (fault_.text == nullptr && at != form_.operations.size())
      return {"code behind the blocks", at};
    if (fault_.text == nullptr) checkReferences();
    return fault_;
  }

 private:
  void expect(bool holds, const char* text, uint32_t i) {
    if (!holds && fault_.text == nullptr) fault_ = {text, i};
  }

  // Some operation puts a reference where others find one, in what control can reach.
  void checkReferences() {
    for (Place slot = 0; slot < form_.slotCount; ++slot) isGiven_.append(slot < form_.globalCount);
    for (uint32_t b = 0; b < form_.blocks.size(); ++b) isReached_.append(0);
    if (isGiven_.failed() || isReached_.failed()) return;
    for (uint32_t i = 0; i < form_.operations.size(); ++i) noteGiven(form_.operations[i]);
    reach(0);
    while (waiting_.size() > 0 && !waiting_.failed()) {
      const uint32_t b = waiting_.back();
      waiting_.removeLast();
      findReferences(b);
    }
  }

  void give(Place first, Place end) {
    for (Place slot = first; slot < end && slot < form_.slotCount; ++slot) isGiven_[slot] = 1;
  }

  void noteGiven(const Operation& operation) {
    const bool puts = operation.kind == Kind::ShareView || operation.kind == Kind::MoveSlot;
    if (puts) give(operation.place, operation.place + 1);
    if (operation.kind == Kind::OpenStorage) give(operation.other, operation.other + 1);
    if (operation.kind == Kind::InitLocals)
      give(operation.place, operation.place + operation.count);
    if (isPlain(operation.kind)) give(operation.site->call->localsSlot, form_.slotCount);
  }

  void reach(uint32_t block) {
    if (isReached_[block] != 0) return;
    isReached_[block] = 1;
    waiting_.append(block);
  }

  void findReferences(uint32_t b) {
    const Block& block = form_.blocks[b];
    for (uint32_t i = block.begin; i < block.end; ++i) {
      const Operation& operation = form_.operations[i];
      if (isFlow(operation.kind)) reach(form_.order[operation.block]);
      for (const Place slot : {operation.place, operation.other}) {
        const bool isUsed = slot < form_.slotCount && usesReference(operation, slot);
        expect(!isUsed || isGiven_[slot] != 0, "finds no reference", i);
      }
    }
    const bool ends = block.end > block.begin && endsBlock(form_.operations[block.end - 1].kind);
    if (!ends && b + 1 < form_.blocks.size()) reach(b + 1);
  }

  void checkBlock(const Block& block) {
    first_ = block.begin;
    for (uint32_t i = block.begin; i < block.end; ++i) {
      const Operation& operation = form_.operations[i];
      checkOperands(operation, i);
      checkPlaces(operation, i);
      checkStorages(operation, i);
      expect(isInCheckedElement(block, i), "lies in an element that nobody has checked", i);
      expect(isBehindCheck(block, i), "uses an index that nobody has checked", i);
      expect(!isFlow(operation.kind) || (operation.block < form_.order.size() &&
                                         form_.order[operation.block] < form_.blocks.size()),
             "leads to no block", i);
      expect(!needsSite(operation.kind) || operation.site != nullptr, "has no site", i);
      expect(!endsBlock(operation.kind) || i + 1 == block.end, "code behind the block's end", i);
      if (isPlain(operation.kind)) first_ = i;
    }
    const bool last = block.end == form_.operations.size();
    expect(!last || (block.end > block.begin && endsBlock(form_.operations[block.end - 1].kind)),
           "control runs out of the form", block.end);
  }

  // What reads behind a run-time index does no check of its own.
  bool isInCheckedElement(const Block& block, uint32_t i) const {
    const Operation& operation = form_.operations[i];
    const bool shares = operation.kind == Kind::ShareView;
    const bool reads = operation.kind == Kind::ReadMember || operation.kind == Kind::ReadElement;
    if (operation.steps == nullptr || (!shares && !reads)) return true;
    const Place variable = shares ? operation.other : operation.place;
    const Operand index = operation.in[operandCount(operation) - 1];
    // A check in another block may not have been passed on every way here.
    for (uint32_t k = i; k-- > block.begin;) {
      const Operation& check = form_.operations[k];
      if (check.kind == Kind::CheckIndex && check.place == variable && check.in[0] == index) {
        return true;
      }
    }
    return false;
  }

  void checkOperands(const Operation& operation, uint32_t i) {
    const uint32_t operands = operandCount(operation);
    for (uint32_t k = 0; k < operands; ++k) {
      const Operand operand = operation.in[k];
      expect(operand.value < i, "uses a value before it is made", i);
      // kNoValue, or an operation behind, is no operation to look at.
      if (fault_.text != nullptr) return;
      const Operation& made = form_.operations[operand.value];
      expect(made.words > 0, "uses an operation without a value", i);
      expect(operand.first + operandWords(operation, k) <= made.words,
             "reads words that the value does not have", i);
      expect(operand.value >= first_ || made.kind == Kind::Constant,
             "uses a value of another block, or from before a plain handler", i);
    }
  }

  void checkPlaces(const Operation& operation, uint32_t i) {
    const uint32_t n = operation.kind == Kind::Store  ? operation.n
                       : operation.kind == Kind::Load ? operation.words
                                                      : 0;
    expect(!namesPlace(operation.kind) || form_.placeNumber(operation.place) < form_.placeCount(),
           "names no place", i);
    expect(operation.kind != Kind::Store || n > 0, "stores nothing", i);
    const bool part = operation.kind == Kind::StorePart || operation.kind == Kind::StoreIndexed;
    expect(!part || (operation.n > 0 && operation.count <= kMaxStoreIndices &&
                     (operation.count == 0 || operation.steps != nullptr)),
           "stores along no path", i);
    expect(n == 0 || operation.first + n <= form_.wordsOf(operation.place),
           "words outside the place", i);
    if (isSeen(operation.kind) && operation.site != nullptr) {
      expect(seenTop(operation) < VM_STACK_CAPACITY, "a top above the stack", i);
      expect(operation.site->indexTop < VM_INDEX_STACK_CAPACITY, "an index above the stack", i);
    }
  }

  // An index without a bound of its own has been checked before.
  bool isBehindCheck(const Block& block, uint32_t i) const {
    const Operation& load = form_.operations[i];
    if (load.kind != Kind::LoadIndexed && load.kind != Kind::CopyWords) return true;
    for (uint32_t k = 0; k < operandCount(load); ++k) {
      const bool checksItself = load.kind == Kind::LoadIndexed && load.steps[k].bound != 0;
      if (!checksItself && !isChecked(block, i, load.in[k])) return false;
    }
    return true;
  }

  bool isChecked(const Block& block, uint32_t i, Operand index) const {
    while (i-- > block.begin) {
      const Operation& check = form_.operations[i];
      if (check.kind == Kind::CheckBound && check.in[0] == index) return true;
    }
    return false;
  }

  // What a storage's variable is, nobody but its own operations knows.
  void checkStorages(const Operation& operation, uint32_t i) {
    for (uint32_t k = 0; k < form_.storages.size(); ++k) {
      const Storage& storage = form_.storages[k];
      if (!storage.isUsable) continue;
      const bool isOwn = operation.kind == Kind::OpenStorage || operation.kind == Kind::ReleaseSlot;
      expect(isOwn || !touchesReference(operation, storage.slot), "shares a storage", i);
      if (operation.kind != Kind::Nothing && operation.place == storage.first) {
        expect(endOf(operation) <= storage.bytes, "leads out of the storage", i);
      }
    }
  }

  static uint64_t endOf(const Operation& operation) {
    const bool loads = operation.kind == Kind::LoadIndexed;
    if (!loads && operation.kind != Kind::StoreIndexed) return 0;
    uint64_t end = operation.first + 4 * uint64_t{loads ? operation.words : operation.n};
    for (uint32_t k = 0; k < (loads ? operation.n : operation.count); ++k) {
      const IndexStep& step = operation.steps[k];
      // How far an index leads that a CheckBound has bounded, is not known here.
      if (step.bound != 0) end += (step.bound - uint64_t{1}) * step.stride;
    }
    return end;
  }

  const Form& form_;
  uint32_t first_ = 0;        // of the operations whose values can be used
  Array<uint8_t> isGiven_;    // by slot
  Array<uint8_t> isReached_;  // by block
  Array<uint32_t> waiting_;   // reached, and not looked at yet
  Fault fault_;
};

}  // namespace

Fault check(const Form& form) { return Checker(form).run(); }

}  // namespace shadermachine::form
