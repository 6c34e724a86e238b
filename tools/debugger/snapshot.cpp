#include "debugger/snapshot.h"

#include <cassert>
#include <cstring>
#include <map>

namespace shadermachine::tools {
namespace {

size_t usedSlots(const Machine& machine) {
  const CallFrame& frame = machine.frames[machine.frameIndex];
  return static_cast<size_t>(frame.locals + frame.top + 1 - machine.stack);
}

}  // namespace

Snapshot::Snapshot(const Machine& machine)
    : fields_(machine),
      heldGlobalCount_(machine.heldGlobalCount),
      stack_(machine.stack, machine.stack + machine.stackCapacity),
      frames_(machine.frames, machine.frames + machine.frameIndex + 1) {
  assert(machine.runState == VM_RUN_RUNNING);
  std::map<const DataBlock*, size_t> known;
  for (size_t slot = 0; slot < usedSlots(machine); ++slot) {
    if (stack_[slot].view.data == nullptr) continue;
    DataBlock* const block = blockOf(stack_[slot].view);
    const auto [entry, isNew] = known.emplace(block, blocks_.size());
    if (isNew) {
      const auto* data = reinterpret_cast<const uint8_t*>(block + 1);
      blocks_.push_back({block->referenceCount, {data, data + headOf(block)->size}});
    }
    holders_.push_back({slot, entry->second});
  }
}

bool Snapshot::restore(Machine& machine) const {
  assert(machine.runState == VM_RUN_IDLE && machine.heldGlobalCount == 0);
  std::vector<BlockHead*> made;
  for (const Block& block : blocks_) {
    BlockHead* const head = allocateBlock(machine, static_cast<uint32_t>(block.data.size()), false);
    if (head == nullptr) {
      for (BlockHead* other : made) freeBlock(&other->counted);
      return false;
    }
    std::memcpy(head + 1, block.data.data(), block.data.size());
    head->counted.referenceCount = block.referenceCount;
    made.push_back(head);
  }
  std::memcpy(machine.stack, stack_.data(), stack_.size() * sizeof(ValueSlot));
  for (const Holder& holder : holders_) {
    BlockView& view = machine.stack[holder.slot].view;
    view.data = reinterpret_cast<uint8_t*>(made[holder.block] + 1) + view.offset;
  }
  // Calls since then may have moved the frames and made room for more.
  ShaderMachine fields = fields_;
  fields.frames = machine.frames;
  fields.frameCapacity = machine.frameCapacity;
  static_cast<ShaderMachine&>(machine) = fields;
  std::memcpy(machine.frames, frames_.data(), frames_.size() * sizeof(CallFrame));
  machine.heldGlobalCount = heldGlobalCount_;
  return true;
}

size_t Snapshot::bytes() const {
  size_t bytes = sizeof *this + stack_.size() * sizeof(ValueSlot) +
                 frames_.size() * sizeof(CallFrame) + holders_.size() * sizeof(Holder);
  for (const Block& block : blocks_) bytes += sizeof block + block.data.size();
  return bytes;
}

}  // namespace shadermachine::tools
