// Reference-counted data blocks and the views onto them. Operations that need memory report false
// and leave an empty view, and the instruction decides. Those that touch a whole block look at the
// clock now and then, and leave their work half done once they have ended a run that is over its
// time.
#pragma once

#include <shadermachine/machine.h>

#include <cstring>

#include "machine/memory.h"

namespace shadermachine {

inline DataBlock* blockOf(const BlockView& view) {
  // data points at the viewed part; the count sits right before the block's first data byte.
  return objectAt<DataBlock>(view.data - view.offset - sizeof(DataBlock));
}

inline BlockHead* headOf(DataBlock* block) {
  return objectAt<BlockHead>(reinterpret_cast<uint8_t*>(block + 1) - sizeof(BlockHead));
}

inline void clearView(BlockView* view) { *view = BlockView{nullptr, 0, 0}; }

// memmove() and memset() to 0; false when the time of the run ended before them.
bool moveBytes(Machine& machine, void* to, const void* from, uint32_t size);
bool clearBytes(Machine& machine, void* bytes, uint32_t size);

// New zero-filled block of `size` bytes with count 1, a copy of `init` if that is given. The old
// content of the view is overwritten without release.
bool blockAlloc(Machine& machine, BlockView* view, uint32_t size, const void* init);

// Deep copy of the viewed bytes into a new block with count 1. dst is overwritten without release.
bool blockClone(Machine& machine, BlockView* dst, const BlockView* src);

bool blockEqual(Machine& machine, const BlockView* a, const BlockView* b);

inline bool blockShare(BlockView* dst, const BlockView* src) {
  if (src == nullptr || src->data == nullptr) {
    clearView(dst);
    return false;
  }
  ++blockOf(*src)->referenceCount;
  *dst = *src;
  return true;
}

// A view of `size` bytes at `offset` of src, sharing its block.
inline bool blockSubView(BlockView* dst, const BlockView* src, uint32_t size, uint32_t offset) {
  if (src == nullptr || src->data == nullptr || size == 0 || offset > src->size ||
      size > src->size - offset) {
    clearView(dst);
    return false;
  }
  ++blockOf(*src)->referenceCount;
  *dst = BlockView{src->data + offset, size, src->offset + offset};
  return true;
}

inline void blockRelease(BlockView* view) {
  if (view == nullptr || view->data == nullptr) return;
  DataBlock* block = blockOf(*view);
  if (--block->referenceCount == 0) freeBlock(block);
  clearView(view);
}

inline uint32_t blockRefCount(const BlockView* view) {
  return view == nullptr || view->data == nullptr ? 0 : blockOf(*view)->referenceCount;
}

// Makes a variable's view a copy of another value, which names another block or none. A block that
// only the variable holds is written over when it has the size, else released.
bool blockCopyInto(Machine& machine, BlockView* variable, const BlockView* source);

// Value semantics: the variable takes over a block that nobody but `source` holds and copies any
// other. The variable's own hold does not count, so that a value loaded from the variable itself is
// taken back. The source keeps its reference.
bool blockStore(Machine& machine, BlockView* variable, const BlockView* source);

}  // namespace shadermachine
