#include "machine/blocks.h"

#include "machine/machine.h"

namespace shadermachine {
namespace {

// What may happen between two looks at the clock: also to memory that was never touched before.
constexpr uint32_t kPiece = 1u << 16;

bool isInOnePiece(const Machine& machine, uint32_t size) {
  return size <= kPiece || machine.timeLimit.deadline == 0;
}

// Does `work` on pieces of at most kPiece bytes, each by its offset and size. False when it gave
// false, or the run's time ended.
template <class Work>
bool inPieces(Machine& machine, uint32_t size, Work work) {
  for (uint32_t offset = 0; offset < size;) {
    const uint32_t piece = size - offset < kPiece ? size - offset : kPiece;
    if (!work(offset, piece)) return false;
    if (readTimeLimit(machine.timeLimit)) {
      stopRun(machine, VM_ERR_TIMEOUT);
      return false;
    }
    offset += piece;
  }
  return true;
}

}  // namespace

bool moveBytes(Machine& machine, void* to, const void* from, uint32_t size) {
  if (isInOnePiece(machine, size)) {
    std::memmove(to, from, size);
    return true;
  }
  auto* target = static_cast<uint8_t*>(to);
  auto* source = static_cast<const uint8_t*>(from);
  // Both can be parts of one block: pieces go in the order that leaves no byte of the source
  // written before it is read.
  const bool fromEnd = target > source;
  return inPieces(machine, size, [&](uint32_t offset, uint32_t piece) {
    const uint32_t at = fromEnd ? size - offset - piece : offset;
    std::memmove(target + at, source + at, piece);
    return true;
  });
}

bool clearBytes(Machine& machine, void* bytes, uint32_t size) {
  if (isInOnePiece(machine, size)) {
    std::memset(bytes, 0, size);
    return true;
  }
  return inPieces(machine, size, [&](uint32_t offset, uint32_t piece) {
    std::memset(static_cast<uint8_t*>(bytes) + offset, 0, piece);
    return true;
  });
}

bool blockAlloc(Machine& machine, BlockView* view, uint32_t size, const void* init) {
  clearView(view);
  if (size == 0) return false;
  BlockHead* const head = allocateBlock(machine, size, init == nullptr);
  if (head == nullptr) return false;
  *view = {reinterpret_cast<uint8_t*>(head + 1), size, 0};
  // A block that is copied half when the time ends is nobody's.
  if (init == nullptr || moveBytes(machine, view->data, init, size)) return true;
  blockRelease(view);
  return false;
}

bool blockClone(Machine& machine, BlockView* dst, const BlockView* src) {
  if (dst == src) return true;
  if (src == nullptr) {
    clearView(dst);
    return false;
  }
  return blockAlloc(machine, dst, src->size, src->data);
}

bool blockCopyInto(Machine& machine, BlockView* variable, const BlockView* source) {
  if (source->data != nullptr && variable->size == source->size && variable->offset == 0 &&
      blockRefCount(variable) == 1 && variable->data != source->data) {
    return moveBytes(machine, variable->data, source->data, source->size);
  }
  blockRelease(variable);
  return blockClone(machine, variable, source);
}

bool blockStore(Machine& machine, BlockView* variable, const BlockView* source) {
  const bool same = variable->data != nullptr && source->data != nullptr &&
                    blockOf(*variable) == blockOf(*source);
  // The source's other holders must not see later writes to the variable.
  if (!same && blockRefCount(source) > 1) return blockCopyInto(machine, variable, source);
  // Released first, so that of a value that was loaded from the variable the source is the only
  // holder left.
  blockRelease(variable);
  return blockRefCount(source) == 1 ? blockShare(variable, source)
                                    : blockClone(machine, variable, source);
}

bool blockEqual(Machine& machine, const BlockView* a, const BlockView* b) {
  if (a == nullptr || b == nullptr || a->data == nullptr || b->data == nullptr) return false;
  if (a->data == b->data) return true;
  if (a->size != b->size) return false;
  if (isInOnePiece(machine, a->size)) return std::memcmp(a->data, b->data, a->size) == 0;
  return inPieces(machine, a->size, [&](uint32_t offset, uint32_t piece) {
    return std::memcmp(a->data + offset, b->data + offset, piece) == 0;
  });
}

}  // namespace shadermachine
