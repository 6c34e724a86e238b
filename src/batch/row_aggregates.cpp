// The selector's structures and arrays. A variable's block has the variable's size for ever:
// shaders that store another into it are left to the machine. So its words are rows like others,
// and references need no record.
#include <algorithm>

#include "batch/row_selector.h"
#include "machine/types.h"

namespace shadermachine::batch {

using form::Kind;

namespace {

constexpr uint32_t kWordBytes = sizeof(uint32_t);

bool isInRows(uint32_t bytes) {
  return bytes != 0 && bytes % kWordBytes == 0 && bytes <= RowProgram::kMaxBlockBytes;
}

}  // namespace

// What is known -----------------------------------------------------------------------------------

void RowSelector::addAggregate(Place place, uint32_t bytes) {
  if (isInRows(bytes)) aggregates_[place].bytes = bytes;
}

// The variables: globals, and locals. Inlined functions with aggregates of their own are left to
// the machine: see isKnownAggregate().
void RowSelector::findAggregates() {
  for (uint32_t g = 0; g < shader_.globalCount; ++g) {
    if (!isBasicVar(shader_.globals[g])) addAggregate(g, shader_.globals[g].byteSize);
  }
  for (uint32_t i = 0; i < form_.operations.size(); ++i) {
    const Operation& init = form_.operations[i];
    if (init.kind != Kind::InitLocals) continue;
    const VarInfo* const locals = shader_.functions[init.site->call->function]->locals;
    for (uint32_t k = 0; k < init.count; ++k) {
      const VarInfo& info = locals[init.first + k];
      if (!isBasicVar(info)) addAggregate(init.place + k, info.byteSize);
    }
  }
  for (uint32_t p = 0; p < VM_STACK_CAPACITY; ++p) {
    aggregates_[p].row = rowCount_;
    aggregates_[p].block = kNone;
    aggregates_[p].store = kNone;
    rowCount_ += aggregates_[p].bytes / kWordBytes;
  }
}

bool RowSelector::isKnownAggregate(const Operation& operation) const {
  if (operation.steps != nullptr) return false;
  const auto bytesOf = [this](Place place) {
    return place < VM_STACK_CAPACITY ? aggregates_[place].bytes : 0;
  };
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement:
      return isReadable(operation);
    case Kind::InitLocals: {
      const VarInfo* const locals = shader_.functions[operation.site->call->function]->locals;
      for (uint32_t k = 0; k < operation.count; ++k) {
        const bool isBasic = isBasicVar(locals[operation.first + k]);
        if (!isBasic && bytesOf(operation.place + k) == 0) return false;
      }
      return operation.site->call->caller == nullptr;
    }
    case Kind::CopyBlock:
      return bytesOf(operation.place) != 0 && bytesOf(operation.place) == bytesOf(operation.other);
    case Kind::StoreBlock:
      return bytesOf(operation.place) != 0;
    case Kind::HostAggregate:
      return bytesOf(operation.first) != 0;
    case Kind::ClearSlot:
    case Kind::ReleaseSlot:
      return true;
    default:
      return false;
  }
}

// How many elements an index can name.
uint32_t RowSelector::elementCount(const Operation& read) const {
  return read.size == 0 ? aggregates_[read.place].bytes / read.stride : read.count;
}

// Whether all that is read lies in the variable.
bool RowSelector::isReadable(const Operation& read) const {
  if (read.place >= VM_STACK_CAPACITY) return false;
  const uint64_t bytes = aggregates_[read.place].bytes;
  const uint64_t end = uint64_t{read.first} + read.words * kWordBytes;
  if (read.first % kWordBytes != 0 || read.size > bytes || end > bytes) return false;
  if (read.kind == Kind::ReadMember) return true;
  if (read.stride % kWordBytes != 0 || read.stride == 0) return false;
  const uint64_t count = elementCount(read);
  return count != 0 && end + (count - 1) * read.stride <= bytes;
}

bool RowSelector::isConstructor(Opcode opcode) const {
  return opcode == Opcode::CTOR_STRUCT || opcode == Opcode::CTOR_ARRAY;
}

uint32_t RowSelector::operandWord(const Operation& plain, uint32_t at) const {
  const ShaderFunction& function = *shader_.functions[plain.site->call->function];
  const uint8_t* const code = shader_.code + function.codeOffset + plain.site->pc + at;
  return code[0] | uint32_t{code[1]} << 8;
}

uint32_t RowSelector::constructorOperands(const Operation& plain) const {
  if (plain.opcode == Opcode::CTOR_ARRAY) return operandWord(plain, sizeof(uint16_t));
  const auto type = static_cast<int16_t>(operandWord(plain, 0));
  const StructInfo* const info = type < 0 ? nullptr : structType(machine_, type);
  return info == nullptr ? 0 : info->memberCount;
}

// Where words are ---------------------------------------------------------------------------------

void RowSelector::lookBackAtAggregates(uint32_t i) {
  const Operation& operation = form_.operations[i];
  const auto stores = [&](Place place) {
    aggregates_[place].block = block_;
    aggregates_[place].store = i;
    aggregates_[place].isStored = true;
  };
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement: {
      const Aggregate& aggregate = aggregates_[operation.place];
      info_[i].nextStore = aggregate.block == block_ ? aggregate.store : kNone;
      return;
    }
    case Kind::CopyBlock:
    case Kind::StoreBlock:
      return stores(operation.place);
    case Kind::HostAggregate:
      return stores(operation.first);
    case Kind::InitLocals:
      for (Place p = operation.place; p < operation.place + operation.count; ++p) stores(p);
      return;
    default:
      return;
  }
}

// Members, and elements at constant indices, are the variable's rows when nobody changes these
// before the last use.
void RowSelector::placeRead(uint32_t i) {
  const Operation& read = form_.operations[i];
  if (info_[i].lastUse == kNone || info_[i].lastUse > info_[i].nextStore) return;
  uint32_t first = read.first / kWordBytes;
  if (read.kind == Kind::ReadElement) {
    const Operand index = root(read.in[0]);
    const Operation& made = form_.operations[index.value];
    if (made.kind != Kind::Constant) return;
    const uint32_t element = *form_.constantWords(made, index.first);
    if (element >= elementCount(read)) return;
    first += element * read.stride / kWordBytes;
  }
  for (uint32_t w = 0; w < read.words; ++w) {
    rows_[info_[i].rows + w] = aggregates_[read.place].row + first + w;
  }
}

// Records -----------------------------------------------------------------------------------------

void RowSelector::copyAggregate(uint32_t to, uint32_t from, uint32_t bytes) {
  for (uint32_t w = 0; w < bytes / kWordBytes; ++w) copy(to + w, from + w);
}

void RowSelector::selectAggregate(uint32_t i) {
  const Operation& operation = form_.operations[i];
  switch (operation.kind) {
    case Kind::ReadMember:
      if (info_[i].lastUse == kNone || rows_[info_[i].rows] != kNone) return;
      takeRows(i);
      for (uint32_t w = 0; w < operation.words; ++w) {
        copy(rows_[info_[i].rows + w],
             aggregates_[operation.place].row + operation.first / kWordBytes + w);
      }
      return;
    case Kind::ReadElement:
      return selectElement(i);
    case Kind::InitLocals:
      return selectInitLocals(operation);
    case Kind::CopyBlock: {
      const Aggregate& target = aggregates_[operation.place];
      return copyAggregate(target.row, aggregates_[operation.other].row, target.bytes);
    }
    case Kind::StoreBlock: {
      const Aggregate& target = aggregates_[operation.place];
      const Aggregate& source = aggregates_[operation.other];
      // What a temporary is, is known in the block that makes it only.
      if (source.block != block_ || source.bytes != target.bytes) isUnknown_ = true;
      return copyAggregate(target.row, source.row, isUnknown_ ? 0 : target.bytes);
    }
    case Kind::HostAggregate:
      return selectAnswerInBlock(operation);
    default:
      return;
  }
}

void RowSelector::selectInitLocals(const Operation& init) {
  const uint32_t zero = constantRow(0);
  for (Place p = init.place; p < init.place + init.count; ++p) {
    for (uint32_t w = 0; w < aggregates_[p].bytes / kWordBytes; ++w) {
      copy(aggregates_[p].row + w, zero);
    }
    for (uint32_t w = 0; w < form::kPlaceWords; ++w) {
      if (placeWord(p, w).isLoaded) copy(placeRow(p, w), zero);
    }
  }
}

void RowSelector::selectElement(uint32_t i) {
  const Operation& read = form_.operations[i];
  if (rows_[info_[i].rows] != kNone) return;
  flushCopies();
  takeRows(i);
  Draft made = draft(functions_.arrayElement);
  made.n = read.words;
  made.count = elementCount(read);
  made.stride = read.stride / kWordBytes;
  made.result = listResult(i);
  made.in[0] = operands_.size();
  operands_.append(aggregates_[read.place].row + read.first / kWordBytes);
  made.in[1] = listOperand(read.in[0], 1);
  append(made);
}

// A temporary of rows of its own, in the slot of the first operand.
void RowSelector::selectConstructor(const Operation& plain) {
  const uint32_t count = constructorOperands(plain);
  const auto type = static_cast<int16_t>(operandWord(plain, 0));
  const bool isArray = plain.opcode == Opcode::CTOR_ARRAY;
  const StructInfo* const info = type < 0 ? nullptr : structType(machine_, type);
  if (count == 0 || (isArray ? type >= 0 : info == nullptr || info->members == nullptr)) {
    isUnknown_ = true;
    return;
  }
  const Place slot = static_cast<Place>(plain.site->topSlot() + 1) - count;
  const uint32_t bytes = isArray ? uint32_t{typeByteSize(type)} * count : info->size;
  if (!isInRows(bytes)) {
    isUnknown_ = true;
    return;
  }
  const uint32_t row = rowCount_;
  rowCount_ += bytes / kWordBytes;
  uint32_t at = 0;
  for (uint32_t k = 0; k < count && !isUnknown_; ++k) {
    const uint32_t size = isArray ? typeByteSize(type) : info->members[k].byteSize;
    const bool isBasic = isArray || isBasicVar(info->members[k]);
    const bool fits = size % kWordBytes == 0 && at + uint64_t{size} <= bytes &&
                      size <= form::kPlaceWords * kWordBytes;
    if (!isBasic || !fits) isUnknown_ = true;
    for (uint32_t w = 0; !isUnknown_ && w < size / kWordBytes; ++w) {
      copy(row + at / kWordBytes + w, placeRow(slot + k, w));
    }
    at += size;
  }
  aggregates_[slot] = {row, bytes, block_, kNone, false};
}

// The host fills blocks one by one.
void RowSelector::selectAnswerInBlock(const Operation& ask) {
  flushCopies();
  const Aggregate& aggregate = aggregates_[ask.first];
  RequestRows rows = {{}, aggregate.row, kNone, kNone, indexRow(ask)};
  rows.request.number = ask.first;
  rows.request.words = aggregate.bytes / kWordBytes;
  appendRequest(&askForBlock, rows);
}

}  // namespace shadermachine::batch
