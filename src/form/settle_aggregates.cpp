// Aggregates whose block is memory of the translation.
//
// A local structure or array gets a storage when each operation that names its slot only reads or
// stores parts that surely lie inside it, or copies all of it. Nobody else then ever has a
// reference to its block, and no other block ever becomes the variable's. What the host sees of it
// stays the same: its slot names a block of its size, counted once, that the machine's memory limit
// knows.

#include <algorithm>

#include "form/passes.h"

namespace shadermachine::form {
namespace {

constexpr uint32_t kWordBytes = sizeof(uint32_t);
// Beyond these, variables keep their blocks.
constexpr uint32_t kMostBytes = kMostSmallBytes;
constexpr uint32_t kMostStorages = 64;

class Settling {
 public:
  explicit Settling(Form& form) : form_(form) {}

  void run() {
    if (form_.isHidden || !findVariables()) return;
    for (uint32_t i = 0; i < form_.operations.size(); ++i) examine(form_.operations[i]);
    for (uint32_t k = 0; k < storages().size(); ++k) storages()[k].isUsable &= canBeDivided(k);
    // Every round but the last takes a storage away.
    while (!copiesAgree()) {
    }
    if (!givePlaces()) return;
    for (uint32_t i = 0; i < form_.operations.size(); ++i) rewrite(form_.operations[i]);
  }

 private:
  static constexpr uint32_t kNone = UINT32_MAX;

  Array<Storage>& storages() { return form_.storages; }

  // Variables -------------------------------------------------------------------------------------

  bool findVariables() {
    for (Place slot = 0; slot < form_.slotCount; ++slot) numbers_.append(kNone);
    if (numbers_.failed()) return false;
    for (uint32_t i = 0; i < form_.aggregates.size(); ++i) {
      const SlotBytes& found = form_.aggregates[i];
      if (found.slot < form_.slotCount) addVariable(found.slot, found.bytes);
    }
    for (uint32_t k = 0; k < storages().size(); ++k) {
      firstWords_.append(isJoined_.size());
      for (uint32_t w = 0; w <= storages()[k].bytes / kWordBytes; ++w) isJoined_.append(0);
    }
    return storages().size() > 0 && !storages().failed() && !isJoined_.failed() &&
           !firstWords_.failed();
  }

  void addVariable(Place slot, uint32_t bytes) {
    const bool isUsable = bytes != 0 && bytes % kWordBytes == 0 && bytes <= kMostBytes;
    if (numbers_[slot] != kNone) {
      Storage& known = storages()[numbers_[slot]];
      known.isUsable = known.isUsable && known.bytes == bytes;
    } else if (storages().size() < kMostStorages) {
      numbers_[slot] = storages().size();
      storages().append({slot, isUsable ? bytes : 0, 0, 0, isUsable});
    }
  }

  Storage* storageOf(Place slot) {
    if (slot >= form_.slotCount || numbers_[slot] == kNone) return nullptr;
    return &storages()[numbers_[slot]];
  }

  Storage* usableOf(Place slot) {
    Storage* storage = storageOf(slot);
    return storage != nullptr && storage->isUsable ? storage : nullptr;
  }

  void keepBlock(Place slot) {
    if (Storage* storage = storageOf(slot)) storage->isUsable = false;
  }

  // What operations do ----------------------------------------------------------------------------

  void examine(const Operation& operation) {
    switch (operation.kind) {
      case Kind::ReadMember:
      case Kind::ReadElement:
      case Kind::CheckIndex:
      case Kind::StorePart:
      case Kind::Renew:
        if (Storage* storage = usableOf(operation.place)) {
          storage->isUsable = isInside(operation, *storage);
          if (storage->isUsable) joinWords(operation);
        }
        return;
      case Kind::ShareView:
      case Kind::StoreBlock:
      case Kind::MoveSlot:
        // A temporary that shares the block may be anywhere when the variable changes: nobody
        // follows it.
        keepBlock(operation.other);
        return keepBlock(operation.place);
      case Kind::ClearSlot:
      case Kind::HostAggregate:
        return keepBlock(operation.place);
      default:
        return;
    }
  }

  static uint64_t reach(uint32_t bound, uint32_t stride) {
    return bound == 0 ? UINT32_MAX : (bound - uint64_t{1}) * stride;
  }

  // Elements that an index can name.
  static uint32_t boundOf(const Operation& read, const Storage& storage) {
    return read.count != 0 ? read.count : storage.bytes / read.stride;
  }

  // Where the part ends, whatever its indices are; far away when nobody knows.
  static uint64_t endOf(const Operation& operation, const Storage& storage) {
    uint64_t end = operation.first;
    if (operation.kind == Kind::StorePart) {
      for (uint32_t k = 0; k < operation.count; ++k) {
        end += reach(operation.steps[k].bound, operation.steps[k].stride);
      }
      return end + operation.n * uint64_t{kWordBytes};
    }
    if (operation.kind != Kind::ReadMember) {
      end += reach(boundOf(operation, storage), operation.stride);
    }
    if (operation.steps != nullptr) {
      const IndexStep& step = operation.steps[0];
      const uint32_t bound = step.bound != 0 ? step.bound : storage.bytes / step.stride;
      end += reach(bound, step.stride);
    }
    const bool isCheck = operation.kind == Kind::CheckIndex;
    return end + (isCheck ? operation.stride : operation.words * uint64_t{kWordBytes});
  }

  static bool isInside(const Operation& operation, const Storage& storage) {
    if (operation.kind == Kind::Renew) return operation.size == storage.bytes;
    // What the plain handlers ask of the block.
    uint64_t needed = operation.size;
    if (operation.kind == Kind::StorePart && operation.count > 0 && operation.stride != 0) {
      needed += reach(operation.steps[0].bound, operation.stride);
    }
    return needed <= storage.bytes && operation.first % kWordBytes == 0 &&
           operation.stride % kWordBytes == 0 && endOf(operation, storage) <= storage.bytes;
  }

  // The constant byte at which a part begins.
  bool isConstant(const Operation& operation, const Storage& storage, uint32_t& at) const {
    at = operation.first;
    if (operation.kind == Kind::StorePart) return operation.count == 0;
    if (operation.steps != nullptr) return false;
    return operation.kind == Kind::ReadMember || addElement(operation, storage, at);
  }

  bool addElement(const Operation& read, const Storage& storage, uint32_t& at) const {
    const Operation& index = form_.operations[read.in[0].value];
    if (read.kind != Kind::ReadElement || index.kind != Kind::Constant) return false;
    const uint32_t element = *form_.constantWords(index, read.in[0].first);
    if (element >= boundOf(read, storage)) return false;
    at += element * read.stride;
    return true;
  }

  // No place ends inside what one operation reads or stores.
  void joinWords(const Operation& operation) {
    uint32_t at = 0;
    // Parts behind an index may cross places: they are read and stored by address.
    if (!isConstant(operation, *storageOf(operation.place), at)) return;
    const uint32_t n = operation.kind == Kind::StorePart ? operation.n : operation.words;
    const uint32_t word = firstWords_[numbers_[operation.place]] + at / kWordBytes;
    for (uint32_t w = 1; w < n; ++w) isJoined_[word + w] = 1;
  }

  // Places ----------------------------------------------------------------------------------------

  // Where the place that begins at a word ends; the same word when it would be too long.
  uint32_t placeEnd(uint32_t storage, uint32_t word) const {
    const uint32_t words = form_.storages[storage].bytes / kWordBytes;
    uint32_t end = std::min(word + kPlaceWords, words);
    // Back to a word that no part goes on from; what one operation reads is then in one place.
    while (end > word && end < words && isJoined_[firstWords_[storage] + end] != 0) --end;
    return end;
  }

  bool canBeDivided(uint32_t storage) const {
    const uint32_t words = form_.storages[storage].bytes / kWordBytes;
    uint32_t word = 0;
    while (word < words) {
      const uint32_t end = placeEnd(storage, word);
      if (end == word) return false;
      word = end;
    }
    return true;
  }

  bool copiesAll(const Operation& copy, const Storage& target) const {
    if (copy.size != 0) return copy.size == target.bytes;
    const uint32_t number = copy.other < form_.slotCount ? numbers_[copy.other] : kNone;
    return number == kNone || form_.storages[number].bytes == target.bytes;
  }

  bool isCopyInside(const Operation& copy, const Storage& source) const {
    uint64_t end = copy.first + uint64_t{copy.size};
    if (copy.steps != nullptr) {
      const IndexStep& step = copy.steps[0];
      end += reach(step.bound != 0 ? step.bound : source.bytes / step.stride, step.stride);
    }
    return end <= source.bytes && copy.first % kWordBytes == 0;
  }

  // Of variables between which there is a copy all have storages or none. False when that has
  // changed anything.
  bool copiesAgree() {
    bool agree = true;
    for (uint32_t i = 0; i < form_.operations.size(); ++i) {
      const Operation& copy = form_.operations[i];
      if (copy.kind != Kind::CopyBlock) continue;
      const Storage* const target = usableOf(copy.place);
      const Storage* const source = usableOf(copy.other);
      const bool fromGlobal = copy.other < form_.globalCount;
      const bool isKept = target != nullptr && copiesAll(copy, *target) &&
                          (fromGlobal || (source != nullptr && isCopyInside(copy, *source)));
      if (isKept || (target == nullptr && source == nullptr)) continue;
      keepBlock(copy.place);
      keepBlock(copy.other);
      agree = false;
    }
    return agree;
  }

  bool givePlaces() {
    form_.firstStorage = kFirstScratchPlace + form_.scratchPlaces;
    uint32_t words = 0;
    form_.storageWords.append(0);
    for (uint32_t k = 0; k < storages().size(); ++k) {
      Storage& storage = storages()[k];
      storage.first = kFirstScratchPlace + form_.scratchPlaces;
      for (uint32_t at = 0; storage.isUsable && at < storage.bytes / kWordBytes;) {
        const uint32_t end = placeEnd(k, at);
        form_.storageWords.append(words += end - at);
        at = end;
        ++storage.count;
        ++form_.scratchPlaces;
      }
    }
    // Without their tables the variables keep their blocks.
    if (form_.storageWords.failed()) storages().clear();
    return !form_.storageWords.failed();
  }

  // Rewriting -------------------------------------------------------------------------------------

  void nameWords(Operation& made, const Storage& storage, uint32_t byte) const {
    uint32_t word = byte / kWordBytes;
    made.place = storage.first;
    while (word >= form_.wordsOf(made.place)) word -= form_.wordsOf(made.place++);
    made.first = word;
    made.size = made.stride = made.count = 0;
  }

  void nameStorage(Operation& made, const Storage& storage) const {
    made.place = storage.first;
    made.size = storage.count;
    made.stride = 0;
  }

  const Operation& made(Operand operand) const { return form_.operations[operand.value]; }

  bool isConstantOf(const Operation& operation, uint32_t operand, uint32_t component,
                    uint32_t& word) const {
    const Operand in = operation.in[operand];
    if (made(in).kind != Kind::Constant) return false;
    word = *form_.constantWords(made(in), in.first + component);
    return true;
  }

  // x & constant, x + constant: the step does that itself.
  void takeIntoStep(IndexStep& step, Operand& index) const {
    // In this order: a step adds before it masks.
    takeIntoStep(Opcode::BIT_AND, index, step.mask);
    takeIntoStep(Opcode::ADD_I, index, step.add);
  }

  void takeIntoStep(Opcode opcode, Operand& index, uint32_t& constant) const {
    const Operation operation = made(index);
    if (operation.kind != Kind::Operate || operation.opcode != opcode) return;
    for (uint32_t k = 0; k < 2; ++k) {
      if (!isConstantOf(operation, k, index.first, constant)) continue;
      index = {operation.in[1 - k].value, operation.in[1 - k].first + index.first};
      return;
    }
  }

  void rewrite(Operation& operation) {
    const Storage* const storage = usableOf(operation.place);
    if (storage == nullptr) return;
    switch (operation.kind) {
      case Kind::ReadMember:
      case Kind::ReadElement:
        return rewriteRead(operation, *storage);
      case Kind::CheckIndex:
        return rewriteCheck(operation, *storage);
      case Kind::StorePart:
        return rewriteStore(operation, *storage);
      case Kind::CopyBlock:
        return rewriteCopy(operation, *storage);
      case Kind::Renew:
        operation.kind = Kind::ReserveStorage;
        operation.count = operation.size;
        return nameStorage(operation, *storage);
      case Kind::InitLocals:
        operation.kind = Kind::OpenStorage;
        operation.other = storage->slot;
        return nameStorage(operation, *storage);
      default:
        return;
    }
  }

  // In place of nothing when memory is short: the form has failed then.
  IndexStep* newSteps() { return form_.arena.allocate<IndexStep>(2); }

  void rewriteRead(Operation& read, const Storage& storage) {
    uint32_t at = 0;
    if (isConstant(read, storage, at)) {
      read.kind = Kind::Load;
      read.site = nullptr;
      return nameWords(read, storage, at);
    }
    IndexStep* const steps = newSteps();
    if (steps == nullptr) return;
    at = read.first;
    uint32_t n = 0;
    if (read.kind == Kind::ReadElement && !addElement(read, storage, at)) {
      steps[n] = {read.stride, boundOf(read, storage)};
      takeIntoStep(steps[n], read.in[n]);
      ++n;
    }
    if (read.steps != nullptr) {
      read.in[n] = read.in[operandCount(read) - 1];
      steps[n++] = {read.steps[0].stride};
    }
    read.kind = Kind::LoadIndexed;
    read.n = static_cast<uint8_t>(n);
    read.first = at;
    read.count = 0;
    read.steps = steps;
    nameStorage(read, storage);
  }

  void rewriteCheck(Operation& check, const Storage& storage) {
    IndexStep* const steps = newSteps();
    if (steps == nullptr) return;
    steps[0] = {check.stride, boundOf(check, storage)};
    check.kind = Kind::CheckBound;
    check.steps = steps;
    check.count = 0;
    nameStorage(check, storage);
  }

  void rewriteStore(Operation& store, const Storage& storage) {
    if (store.count == 0) {
      store.kind = Kind::Store;
      store.steps = nullptr;
      return nameWords(store, storage, store.first);
    }
    auto* const steps = form_.arena.allocate<IndexStep>(kMaxStoreIndices);
    if (steps == nullptr) return;
    for (uint32_t k = 0; k < store.count; ++k) {
      steps[k] = store.steps[k];
      takeIntoStep(steps[k], store.in[1 + k]);
    }
    store.kind = Kind::StoreIndexed;
    store.steps = steps;
    nameStorage(store, storage);
  }

  void rewriteCopy(Operation& copy, const Storage& target) {
    if (copy.other < form_.globalCount) {
      copy.kind = Kind::FillStorage;
      copy.count = copy.size;
      return nameStorage(copy, target);
    }
    const Storage& source = *storageOf(copy.other);
    copy.kind = Kind::CopyWords;
    copy.count = target.bytes / kWordBytes;
    copy.other = source.first;
    nameStorage(copy, target);
    copy.stride = source.count;
  }

  Form& form_;
  Array<uint32_t> numbers_;     // of storages, by slot
  Array<uint32_t> firstWords_;  // in isJoined_, by storage
  Array<uint8_t> isJoined_;     // by word: some operation needs it and the one before
};

}  // namespace

void settleAggregates(Form& form) { Settling(form).run(); }

}  // namespace shadermachine::form
