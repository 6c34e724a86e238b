#include "machine/blocks.h"

namespace shadermachine {

bool blockAlloc(BlockView* view, uint32_t size, const void* init) {
  clearView(view);
  if (size == 0) return false;
  void* memory = std::calloc(1, sizeof(DataBlock) + size_t{size});
  if (memory == nullptr) return false;
  static_cast<DataBlock*>(memory)->referenceCount = 1;
  view->data = static_cast<uint8_t*>(memory) + sizeof(DataBlock);
  view->size = size;
  if (init != nullptr) std::memcpy(view->data, init, size);
  return true;
}

bool blockClone(BlockView* dst, const BlockView* src) {
  if (dst == src) return true;
  if (src == nullptr) {
    clearView(dst);
    return false;
  }
  return blockAlloc(dst, src->size, src->data);
}

bool blockCopyInto(BlockView* variable, const BlockView* source) {
  if (source->data != nullptr && variable->size == source->size && variable->offset == 0 &&
      blockRefCount(variable) == 1 && variable->data != source->data) {
    std::memcpy(variable->data, source->data, source->size);
    return true;
  }
  blockRelease(variable);
  return blockClone(variable, source);
}

bool blockStore(BlockView* variable, const BlockView* source) {
  const bool same = variable->data != nullptr && source->data != nullptr &&
                    blockOf(*variable) == blockOf(*source);
  if (!same && blockRefCount(source) > 1) return blockCopyInto(variable, source);
  blockRelease(variable);
  return blockRefCount(source) == 1 ? blockShare(variable, source) : blockClone(variable, source);
}

bool blockEqual(const BlockView* a, const BlockView* b) {
  if (a == nullptr || b == nullptr || a->data == nullptr || b->data == nullptr) return false;
  if (a->data == b->data) return true;
  return a->size == b->size && std::memcmp(a->data, b->data, a->size) == 0;
}

}  // namespace shadermachine
