#include "support/allocations.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<int64_t> live = 0;
thread_local int64_t allocationsLeft = -1;  // negative: no limit

bool mayAllocate() {
  if (allocationsLeft < 0) return true;
  if (allocationsLeft == 0) return false;
  --allocationsLeft;
  return true;
}

void* counted(void* memory) {
  if (memory != nullptr) ++live;
  return memory;
}

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void __real_free(void* memory);

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* memory, size_t size);
void __wrap_free(void* memory);

void* __wrap_malloc(size_t size) { return mayAllocate() ? counted(__real_malloc(size)) : nullptr; }

void* __wrap_calloc(size_t count, size_t size) {
  return mayAllocate() ? counted(__real_calloc(count, size)) : nullptr;
}

void* __wrap_realloc(void* memory, size_t size) {
  if (memory == nullptr) return __wrap_malloc(size);
  return mayAllocate() ? __real_realloc(memory, size) : nullptr;
}

void __wrap_free(void* memory) {
  if (memory != nullptr) --live;
  __real_free(memory);
}

}  // extern "C"

namespace shadermachine::tests {

int64_t liveAllocations() { return live; }

AllocationFailure::AllocationFailure(int64_t index) { allocationsLeft = index; }
AllocationFailure::~AllocationFailure() { allocationsLeft = -1; }

}  // namespace shadermachine::tests
