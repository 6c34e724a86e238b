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

bool blockEqual(const BlockView* a, const BlockView* b) {
  if (a == nullptr || b == nullptr || a->data == nullptr || b->data == nullptr) return false;
  if (a->data == b->data) return true;
  return a->size == b->size && std::memcmp(a->data, b->data, a->size) == 0;
}

}  // namespace shadermachine
