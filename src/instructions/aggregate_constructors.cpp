// Constructors of structures and arrays: a new block from values on the stack.

#include "instructions/handlers.h"
#include "machine/types.h"

namespace shadermachine {
namespace {

uint32_t smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

// Copies an operand into its place and, for an aggregate, drops the operand's reference: only
// then, because it may be the last one.
void moveIntoBlock(Machine& machine, uint8_t* target, ValueSlot& operand, uint32_t size,
                   bool aggregate) {
  if (!aggregate) {
    std::memcpy(target, operand.value.words, smaller(size, kInlineBytes));
  } else if (operand.view.data != nullptr) {
    moveBytes(machine, target, operand.view.data, smaller(size, operand.view.size));
    blockRelease(&operand.view);
  }
}

void finishConstructor(Machine& machine, uint32_t operands, const BlockView& block) {
  popSlots(machine, operands - 1);
  topSlot(machine).view = block;
}

uint64_t membersByteSize(const StructInfo& info) {
  uint64_t size = 0;
  for (uint32_t i = 0; i < info.memberCount; ++i) size += info.members[i].byteSize;
  return size;
}

VmError checkStruct(const StructInfo* info) {
  if (info == nullptr) return VM_ERR_INVALID_SHADER;
  if (info->size == 0) return VM_ERR_OUT_OF_MEMORY;
  const bool usable =
      info->memberCount > 0 && info->members != nullptr && membersByteSize(*info) <= info->size;
  return usable ? VM_OK : VM_ERR_INVALID_SHADER;
}

}  // namespace

void constructStruct(Machine& machine) {
  const int32_t type = fetchI16(machine);
  const StructInfo* info = type < 0 ? nullptr : structType(machine, type);
  const VmError error = checkStruct(info);
  if (error != VM_OK) return stopRun(machine, error);
  if (!checkStackDepth(machine, info->memberCount)) return;
  if (!chargeBytes(machine, info->size)) return;
  BlockView block;
  if (!blockAlloc(machine, &block, info->size, nullptr)) return stopWithoutBlock(machine);
  uint8_t* target = block.data;
  for (uint32_t i = 0; i < info->memberCount; ++i) {
    const VarInfo& member = info->members[i];
    ValueSlot& operand = topSlot(machine, static_cast<int32_t>(info->memberCount - 1 - i));
    moveIntoBlock(machine, target, operand, member.byteSize, !isBasicVar(member));
    target += member.byteSize;
  }
  finishConstructor(machine, info->memberCount, block);
}

void constructArray(Machine& machine) {
  const int16_t type = fetchI16(machine);
  const uint32_t n = fetchU16(machine);
  uint32_t elementSize = typeByteSize(type);
  if (type >= 0) {
    const StructInfo* info = structType(machine, type);
    if (info == nullptr) return stopRun(machine, VM_ERR_INVALID_SHADER);
    elementSize = info->size;
  }
  const uint64_t size = uint64_t{elementSize} * n;
  if (size == 0 || size > UINT32_MAX) return stopRun(machine, VM_ERR_OUT_OF_MEMORY);
  if (!checkStackDepth(machine, n)) return;
  if (!chargeBytes(machine, size)) return;
  BlockView block;
  if (!blockAlloc(machine, &block, static_cast<uint32_t>(size), nullptr)) {
    return stopWithoutBlock(machine);
  }
  for (uint32_t i = 0; i < n; ++i) {
    ValueSlot& operand = topSlot(machine, static_cast<int32_t>(n - 1 - i));
    moveIntoBlock(machine, block.data + size_t{i} * elementSize, operand, elementSize, type >= 0);
  }
  finishConstructor(machine, n, block);
}

}  // namespace shadermachine
