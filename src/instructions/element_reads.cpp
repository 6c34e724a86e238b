// Parts of the top value: swizzles, vector components, matrix columns, array elements and members.

#include "instructions/handlers.h"
#include "instructions/operand_shapes.h"
#include "machine/types.h"

namespace shadermachine {
namespace {

constexpr uint32_t kMaxSwizzle = 4;

// Replaces T by `size` bytes at `offset` of the viewed block, as an inline value.
void takeInlinePart(ValueSlot& slot, BlockView view, uint32_t offset, uint32_t size) {
  // The slot's words lie over its view, and the release may free the block: copied from the view
  // before, which the caller has taken out of the slot.
  std::memcpy(slot.value.words, view.data + offset, size);
  slot.value.block = nullptr;
  blockRelease(&view);
}

// Replaces T by a view of a part of its block.
void takeSubView(ValueSlot& slot, BlockView view, uint32_t offset, uint32_t size) {
  // Held before the whole is released, whose reference may be the last.
  blockSubView(&slot.view, &view, size, offset);
  blockRelease(&view);
}

// The checks that reads by the index stack share. The index is tested against the bound first, then
// the bound against what a slot can hold.
bool checkIndex(Machine& machine, int32_t index, uint32_t bound, uint32_t limit) {
  if (index < 0 || static_cast<uint32_t>(index) >= bound) {
    stopRun(machine, VM_ERR_INDEX_OUT_OF_BOUNDS);
    return false;
  }
  if (bound > limit) {
    stopRun(machine, VM_ERR_INVALID_SHADER);
    return false;
  }
  return true;
}

const VarInfo* structMember(const Machine& machine, uint32_t type, uint32_t member) {
  const StructInfo* info = structType(machine, static_cast<int32_t>(type));
  if (info == nullptr || info->members == nullptr || member >= info->memberCount) return nullptr;
  return &info->members[member];
}

bool fitsInline(const VarInfo& member, const BlockView& view) {
  return view.data != nullptr && member.byteSize <= kInlineBytes &&
         member.memberOffset <= view.size && member.byteSize <= view.size - member.memberOffset;
}

}  // namespace

void swizzle(Machine& machine) {
  fetchU8(machine);
  uint32_t n;
  const bool valid = fetchCount(machine, kMaxSwizzle, n);
  // Fetched even where the count is refused: the run then ends behind the whole instruction.
  const uint32_t mask = fetchU8(machine);
  if (!valid) return;
  ValueSlot& slot = topSlot(machine);
  uint32_t result[kMaxSwizzle];
  for (uint32_t i = 0; i < n; ++i) result[i] = slot.value.words[swizzleSelector(mask, i)];
  setInline(slot, result, n);
}

void vectorElement(Machine& machine) {
  const int32_t index = currentIndex(machine);
  const uint32_t n = fetchU8(machine);
  if (!checkIndex(machine, index, n, VM_COMPONENT_COUNT)) return;
  uint32_t* words = topSlot(machine).value.words;
  // The index is taken only by a read that succeeds: a run that ends here leaves its stack as it
  // was.
  words[0] = words[index];
  --machine.indexTop;
}

void matrixColumn(Machine& machine) {
  const int32_t index = currentIndex(machine);
  const uint32_t n = fetchU8(machine);
  if (!checkIndex(machine, index, n, kMaxDimension)) return;
  uint32_t* words = topSlot(machine).value.words;
  // Column 0 is in place, and a copy must not overlap itself.
  if (index > 0) std::memcpy(words, words + static_cast<uint32_t>(index) * n, n * sizeof(uint32_t));
  --machine.indexTop;
}

void arrayElement(Machine& machine) {
  const int16_t type = fetchI16(machine);
  const int32_t index = currentIndex(machine);
  ValueSlot& slot = topSlot(machine);
  const BlockView view = slot.view;
  uint32_t size = typeByteSize(type);
  if (type >= 0) {
    const StructInfo* info = structType(machine, type);
    if (info == nullptr) return stopRun(machine, VM_ERR_INVALID_SHADER);
    size = info->size;
  }
  // By what the block holds and not by what a table says, so that no read leaves the block.
  const uint32_t count = view.data == nullptr || size == 0 ? 0 : view.size / size;
  if (index < 0 || static_cast<uint32_t>(index) >= count) {
    return stopRun(machine, VM_ERR_INDEX_OUT_OF_BOUNDS);
  }
  const uint32_t offset = static_cast<uint32_t>(index) * size;
  if (type < 0) {
    takeInlinePart(slot, view, offset, size);
  } else {
    takeSubView(slot, view, offset, size);
  }
  --machine.indexTop;
}

void structField(Machine& machine) {
  const uint32_t type = fetchU16(machine);
  const uint32_t number = fetchU32(machine);
  const VarInfo* member = structMember(machine, type, number);
  if (member == nullptr) return stopRun(machine, VM_ERR_INVALID_SHADER);
  ValueSlot& slot = topSlot(machine);
  BlockView view = slot.view;
  if (!isBasicVar(*member)) {
    takeSubView(slot, view, member->memberOffset, member->byteSize);
  } else if (fitsInline(*member, view)) {
    takeInlinePart(slot, view, member->memberOffset, member->byteSize);
  } else {
    clearView(&slot.view);
    blockRelease(&view);
  }
}

}  // namespace shadermachine
