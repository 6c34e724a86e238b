// Reference-counted data blocks and the views onto them. None of these operations ends a run: they
// report false and leave an empty view, and the instruction decides.
#pragma once

#include <shadermachine/machine.h>

#include <cstdlib>
#include <cstring>

namespace shadermachine {

inline DataBlock* blockOf(const BlockView& view) {
  // data points at the viewed part; the count sits right before the block's first data byte.
  return reinterpret_cast<DataBlock*>(view.data - view.offset - sizeof(DataBlock));
}

inline void clearView(BlockView* view) { *view = BlockView{nullptr, 0, 0}; }

// New zero-filled block of `size` bytes with count 1, a copy of `init` if that is given. The old
// content of the view is overwritten without release.
bool blockAlloc(BlockView* view, uint32_t size, const void* init);

// Deep copy of the viewed bytes into a new block with count 1. dst is overwritten without release.
bool blockClone(BlockView* dst, const BlockView* src);

bool blockEqual(const BlockView* a, const BlockView* b);

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
  if (--block->referenceCount == 0) std::free(block);
  clearView(view);
}

inline uint32_t blockRefCount(const BlockView* view) {
  return view == nullptr || view->data == nullptr ? 0 : blockOf(*view)->referenceCount;
}

// Makes a variable's view a copy of another value, which names another block or none. A block that
// only the variable holds is written over when it has the size, else released.
bool blockCopyInto(BlockView* variable, const BlockView* source);

// Value semantics: the variable takes over a block that nobody but `source` holds and copies any
// other. The variable's own hold does not count, so that a value loaded from the variable itself is
// taken back. The source keeps its reference.
bool blockStore(BlockView* variable, const BlockView* source);

}  // namespace shadermachine
