// The selector's structures and arrays. A variable's block has the variable's size for ever:
// shaders that store another into it are left to the machine. So its words are rows like others,
// and references (row_references.cpp) need no record.
#include <algorithm>

#include "batch/row_selector.h"
#include "machine/types.h"

namespace shadermachine::batch {

using form::Kind;

namespace {

// How many elements an index can name in a part of so many bytes.
uint32_t elementCount(const form::Operation& read, uint32_t bytes) {
  const bool byBlock = read.size == 0 && read.steps == nullptr;
  return byBlock ? bytes / read.stride : read.count;
}

// How often the stride fits behind what ends there.
uint32_t placesFor(uint32_t stride, uint64_t end, uint32_t bytes) {
  return static_cast<uint32_t>((bytes - end) / stride) + 1;
}

// Behind the last byte that can be read, but for the indices of the steps.
uint64_t endOfRead(const form::Operation& read, uint32_t bytes) {
  if (read.kind == Kind::ShareView)
    return uint64_t{read.first} + (read.size == 0 ? bytes : read.size);
  const uint64_t end = uint64_t{read.first} + read.words * kRowWordBytes;
  if (read.kind == Kind::ReadMember) return end;
  const uint64_t element = read.kind == Kind::CheckIndex ? uint64_t{read.first} + read.stride : end;
  const uint32_t last = elementCount(read, bytes) - 1;
  return element + uint64_t{last} * read.stride;
}

bool isWholeRows(uint32_t bytes) { return bytes != 0 && bytes % kRowWordBytes == 0; }

}  // namespace

// What is known -----------------------------------------------------------------------------------

// Whether all that is read lies in a part of so many bytes.
bool RowSelector::isReadable(const Operation& read, uint32_t bytes) {
  if (read.first % kRowWordBytes != 0 || read.size > bytes) return false;
  const bool indexes = read.kind == Kind::ReadElement || read.kind == Kind::CheckIndex;
  if (indexes && (!isWholeRows(read.stride) || elementCount(read, bytes) == 0)) return false;
  if (read.steps != nullptr && !isWholeRows(read.steps->stride)) return false;
  return endOfRead(read, bytes) <= bytes;
}

// A store into an element needs more of the block the further the first index leads.
uint32_t RowSelector::storeBound(const Operation& store, uint32_t step, uint32_t bytes) {
  const uint32_t bound = store.steps[step].bound;
  const bool isLimited = step == 0 && store.kind == Kind::StorePart && store.stride != 0;
  return isLimited ? std::min(bound, placesFor(store.stride, store.size, bytes)) : bound;
}

bool RowSelector::isStorable(const Operation& store, uint32_t bytes) {
  if (store.first % kRowWordBytes != 0 || store.size > bytes) return false;
  uint64_t end = uint64_t{store.first} + store.n * kRowWordBytes;
  for (uint32_t k = 0; k < store.count; ++k) {
    const uint32_t bound = storeBound(store, k, bytes);
    if (bound == 0 || !isWholeRows(store.steps[k].stride)) return false;
    end += uint64_t{bound - 1} * store.steps[k].stride;
  }
  return end <= bytes;
}

// Where words are ---------------------------------------------------------------------------------

// The first of the slots whose words an instruction on references reads or writes; they end with
// the top one.
form::Place RowSelector::firstWordSlot(const Operation& plain) const {
  const auto behind = static_cast<Place>(plain.site->topSlot() + 1);
  switch (plain.opcode) {
    case Opcode::CTOR_STRUCT:
    case Opcode::CTOR_ARRAY:
      return behind - slotsOf(plain);
    case Opcode::STRUCT_FIELD:
    case Opcode::ARRAY_ELEMENT:
      return behind - 1;
    case Opcode::SWAP:
    case Opcode::EQ_AGG:
    case Opcode::NE_AGG:
      return behind - 2;
    default:
      return storesPart(plain.opcode) ? behind - slotsOf(plain) : behind;
  }
}

uint32_t RowSelector::rowOf(const Reference& reference) const {
  return aggregates_[reference.aggregate].row + reference.first / kRowWordBytes;
}

void RowSelector::changeAggregate(uint32_t i, uint32_t k) {
  const Reference& reference = referenceOf(i, k);
  if (reference.aggregate == kNone) return;
  aggregates_[reference.aggregate].block = block_;
  aggregates_[reference.aggregate].store = i;
}

void RowSelector::lookBackAtAggregates(uint32_t i) {
  const Operation& operation = form_.operations[i];
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement: {
      const Aggregate& aggregate = aggregates_[referenceOf(i).aggregate];
      info_[i].nextStore = aggregate.block == block_ ? aggregate.store : kNone;
      return;
    }
    case Kind::StorePart:
    case Kind::CopyBlock:
    case Kind::StoreBlock:
    case Kind::HostAggregate:
      return changeAggregate(i, 0);
    case Kind::ShareView:
      if (operation.steps != nullptr) changeAggregate(i, 1);
      return;
    case Kind::InitLocals:
      for (uint32_t k = 0; k < operation.count; ++k) changeAggregate(i, k);
      return;
    case Kind::Plain:
      if (operation.opcode == Opcode::MAKE_UNIQUE || operation.opcode == Opcode::ARRAY_ELEMENT) {
        changeAggregate(i, 1);
      } else if (operation.opcode == Opcode::CTOR_STRUCT ||
                 operation.opcode == Opcode::CTOR_ARRAY) {
        changeAggregate(i, 0);
      } else if (storesPart(operation.opcode) && instructionOf(operation).operands[1] != 0) {
        changeAggregate(i, 0);
      }
      return;
    default:
      return;
  }
}

// Constant indices lead to other rows; those that are outside are left to the record.
void RowSelector::addStep(Path& path, Operand index, uint32_t stride, uint32_t bound) const {
  const Operand word = root(index);
  const Operation& made = form_.operations[word.value];
  const uint32_t rows = stride / kRowWordBytes;
  if (made.kind == Kind::Constant && *form_.constantWords(made, word.first) < bound) {
    path.row += *form_.constantWords(made, word.first) * rows;
    return;
  }
  path.in[path.limits.count] = index;
  path.limits.steps[path.limits.count++] = {rows, bound};
}

// What an earlier CheckIndex has checked is below the bound that the part's size gives.
RowSelector::Path RowSelector::readPath(uint32_t i) const {
  const Operation& read = form_.operations[i];
  const Reference& whole = referenceOf(i);
  Path path = {rowOf(whole) + read.first / kRowWordBytes, {}, {}};
  if (read.kind == Kind::ReadElement) {
    addStep(path, read.in[0], read.stride, elementCount(read, whole.bytes));
    path.limits.checked = path.limits.count;
  }
  if (read.steps != nullptr) {
    const uint32_t stride = read.steps->stride;
    addStep(path, read.in[form::operandCount(read) - 1], stride,
            placesFor(stride, endOfRead(read, whole.bytes), whole.bytes));
  }
  return path;
}

RowSelector::Path RowSelector::storePath(uint32_t i, uint32_t row, uint32_t bytes) const {
  const Operation& store = form_.operations[i];
  Path path = {row + store.first / kRowWordBytes, {}, {}};
  for (uint32_t k = 0; k < store.count; ++k) {
    addStep(path, store.in[1 + k], store.steps[k].stride, storeBound(store, k, bytes));
  }
  return path;
}

// Members, and elements at constant indices, are the variable's rows when nobody changes these
// before the last use.
void RowSelector::placeRead(uint32_t i) {
  const Operation& read = form_.operations[i];
  if (info_[i].lastUse == kNone || info_[i].lastUse > info_[i].nextStore) return;
  const Path path = readPath(i);
  if (path.limits.count != 0) return;
  for (uint32_t w = 0; w < read.words; ++w) rows_[info_[i].rows + w] = path.row + w;
}

// Records -----------------------------------------------------------------------------------------

void RowSelector::copyRows(uint32_t to, uint32_t from, uint32_t bytes) {
  for (uint32_t w = 0; w < bytes / kRowWordBytes; ++w) copy(to + w, from + w);
}

void RowSelector::namePath(Draft& made, const Path& path) {
  made.path = paths_.size();
  paths_.append(path.limits);
  uint32_t indices[RowPath::kMost];
  for (uint32_t k = 0; k < path.limits.count; ++k) indices[k] = rowOf(path.in[k]);
  made.in[1] = operands_.size();
  for (uint32_t k = 0; k < path.limits.count; ++k) operands_.append(indices[k]);
}

// Into rows of a slot or an aggregate, one after another.
void RowSelector::appendRead(const Path& path, uint32_t to, uint32_t words) {
  if (path.limits.count == 0) return copyRows(to, path.row, words * kRowWordBytes);
  for (uint32_t at = 0; at < words; at += VM_COMPONENT_COUNT) {
    flushCopies();
    Draft made = draft(functions_.readPart.masked);
    made.n = std::min<uint32_t>(words - at, VM_COMPONENT_COUNT);
    namePath(made, path);
    made.in[0] = operands_.size();
    operands_.append(path.row + at);
    made.result = operands_.size();
    for (uint32_t w = 0; w < made.n; ++w) operands_.append(to + at + w);
    append(made);
  }
}

void RowSelector::selectAggregate(uint32_t i) {
  const Operation& operation = form_.operations[i];
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement:
      return selectRead(i);
    case Kind::CheckIndex:
      return selectCheck(i);
    case Kind::StorePart:
      return selectPartStore(i, storePath(i, rowOf(referenceOf(i)), referenceOf(i).bytes));
    case Kind::StoreIndexed:
      return selectPartStore(i, storePath(i, slotRows(operation.place), kSlotBytes));
    case Kind::InitLocals:
      return selectInitLocals(i);
    case Kind::ShareView:
      if (operation.steps == nullptr) return;
      return appendRead(readPath(i), rowOf(referenceOf(i, 1)),
                        referenceOf(i, 1).bytes / kRowWordBytes);
    case Kind::CopyBlock:
    case Kind::StoreBlock:
      return copyRows(rowOf(referenceOf(i)), rowOf(referenceOf(i, 1)), referenceOf(i).bytes);
    case Kind::HostAggregate:
      return selectAnswerInBlock(i);
    default:
      return;
  }
}

void RowSelector::selectInitLocals(uint32_t i) {
  const Operation& init = form_.operations[i];
  const uint32_t zero = constantRow(0);
  for (uint32_t k = 0; k < init.count; ++k) {
    const Reference& local = referenceOf(i, k);
    for (uint32_t w = 0; w < local.bytes / kRowWordBytes; ++w) copy(rowOf(local) + w, zero);
    for (uint32_t w = 0; local.bytes == 0 && w < form::kPlaceWords; ++w) {
      if (placeWord(init.place + k, w).isLoaded) copy(placeRow(init.place + k, w), zero);
    }
  }
}

void RowSelector::selectRead(uint32_t i) {
  const Operation& read = form_.operations[i];
  const bool isUnused = info_[i].lastUse == kNone && read.kind == Kind::ReadMember;
  if (isUnused || rows_[info_[i].rows] != kNone) return;
  const Path path = readPath(i);
  takeRows(i);
  if (path.limits.count == 0) {
    for (uint32_t w = 0; w < read.words; ++w) copy(rows_[info_[i].rows + w], path.row + w);
    return;
  }
  flushCopies();
  Draft made = draft(functions_.readPart.plain);
  made.n = read.words;
  made.result = listResult(i);
  namePath(made, path);
  made.in[0] = operands_.size();
  operands_.append(path.row);
  append(made);
}

void RowSelector::selectCheck(uint32_t i) {
  const Operation& check = form_.operations[i];
  const uint32_t count = elementCount(check, referenceOf(i).bytes);
  Path path = {};
  addStep(path, check.in[0], check.stride, count);
  if (path.limits.count == 0) return;
  flushCopies();
  Draft made = draft(functions_.checkIndex);
  made.n = count;
  made.in[0] = listOperand(check.in[0], 1);
  append(made);
}

void RowSelector::selectPartStore(uint32_t i, const Path& path) {
  const Operation& store = form_.operations[i];
  if (path.limits.count == 0) {
    uint32_t to[form::kPlaceWords];
    uint32_t from[form::kPlaceWords];
    for (uint32_t w = 0; w < store.n; ++w) {
      to[w] = path.row + w;
      from[w] = rowOf({store.in[0].value, store.in[0].first + w});
    }
    return copyParallel(to, from, store.n);
  }
  flushCopies();
  Draft made = draft(functions_.storePart);
  made.n = store.n;
  made.in[0] = listOperand(store.in[0], store.n);
  namePath(made, path);
  made.result = operands_.size();
  operands_.append(path.row);
  append(made);
}

// Instructions on references in slots -------------------------------------------------------------

void RowSelector::selectOnReferences(uint32_t i) {
  const Operation& plain = form_.operations[i];
  switch (plain.opcode) {
    case Opcode::CTOR_STRUCT:
    case Opcode::CTOR_ARRAY:
      return selectConstructor(i);
    case Opcode::MAKE_UNIQUE:
      return copyRows(rowOf(referenceOf(i, 1)), rowOf(referenceOf(i)), referenceOf(i).bytes);
    case Opcode::ARRAY_ELEMENT:
      return selectElement(i);
    case Opcode::STRUCT_FIELD: {
      const Place top = static_cast<Place>(plain.site->topSlot());
      const bool isInline = referenceOf(i, 1).aggregate == kNone;
      if (isInline) copyRows(slotRows(top), rowOf(referenceOf(i)), referenceOf(i).bytes);
      return;
    }
    case Opcode::SWAP:
      return swapWords(static_cast<Place>(plain.site->topSlot()));
    case Opcode::EQ_AGG:
    case Opcode::NE_AGG:
      return selectComparison(i);
    default:
      if (storesPart(plain.opcode)) selectStoredPart(i);
      return;
  }
}

void RowSelector::swapWords(Place top) {
  uint32_t to[2 * form::kPlaceWords];
  uint32_t from[2 * form::kPlaceWords];
  for (uint32_t w = 0; w < form::kPlaceWords; ++w) {
    to[w] = from[form::kPlaceWords + w] = placeRow(top, w);
    from[w] = to[form::kPlaceWords + w] = placeRow(top - 1, w);
  }
  copyParallel(to, from, 2 * form::kPlaceWords);
}

void RowSelector::selectComparison(uint32_t i) {
  const Operation& plain = form_.operations[i];
  const auto slot = static_cast<Place>(plain.site->topSlot() - 1);
  const Opcode byWords = plain.opcode == Opcode::EQ_AGG ? Opcode::EQ_I : Opcode::NE_I;
  flushCopies();
  Draft made = draft(functions_.byOpcode[static_cast<unsigned>(byWords)].masked);
  made.n = referenceOf(i).bytes / kRowWordBytes;
  for (uint32_t k = 0; k < 2; ++k) {
    made.in[k] = operands_.size();
    for (uint32_t w = 0; w < made.n; ++w) operands_.append(rowOf(referenceOf(i, k)) + w);
  }
  made.result = operands_.size();
  operands_.append(placeRow(slot, 0));
  append(made);
  copy(placeRow(slot, 1), constantRow(0));
}

void RowSelector::selectConstructor(uint32_t i) {
  const Operation& plain = form_.operations[i];
  const Place slot = firstWordSlot(plain);
  uint32_t row = rowOf(referenceOf(i));
  for (uint32_t k = 0; k < slotsOf(plain); ++k) {
    const Reference& operand = referenceOf(i, 1 + k);
    const bool isInline = operand.aggregate == kNone;
    copyRows(row, isInline ? slotRows(slot + k) : rowOf(operand), operand.bytes);
    row += operand.bytes / kRowWordBytes;
  }
}

// At the index on top of the index stack.
void RowSelector::selectElement(uint32_t i) {
  const Operation& plain = form_.operations[i];
  const Reference& whole = referenceOf(i);
  const Reference& element = referenceOf(i, 1);
  const bool isInline = element.aggregate == kNone;
  const uint32_t words = element.bytes / kRowWordBytes;
  const uint32_t to =
      isInline ? slotRows(static_cast<Place>(plain.site->topSlot())) : rowOf(element);
  for (uint32_t at = 0; at < words; at += VM_COMPONENT_COUNT) {
    flushCopies();
    Draft made = draft(functions_.readPart.masked);
    made.n = std::min<uint32_t>(words - at, VM_COMPONENT_COUNT);
    made.path = paths_.size();
    paths_.append({1, 1, {{words, whole.bytes / element.bytes}}});
    made.in[1] = operands_.size();
    operands_.append(indexRow(plain));
    made.in[0] = operands_.size();
    operands_.append(rowOf(whole) + at);
    made.result = operands_.size();
    for (uint32_t w = 0; w < made.n; ++w) operands_.append(to + at + w);
    append(made);
  }
}

// The host fills blocks one by one.
void RowSelector::selectAnswerInBlock(uint32_t i) {
  const Operation& ask = form_.operations[i];
  flushCopies();
  RequestRows rows = {{}, rowOf(referenceOf(i)), kNone, kNone, indexRow(ask)};
  rows.request.number = ask.first;
  rows.request.words = referenceOf(i).bytes / kRowWordBytes;
  rows.request.isFirst = aggregates_[referenceOf(i).aggregate].replacedBy == i ? 1 : 0;
  appendRequest(&askForBlock, rows);
}

}  // namespace shadermachine::batch
