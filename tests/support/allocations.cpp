#include "support/allocations.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<int64_t> live = 0;
thread_local int64_t requested = 0;
thread_local int64_t firstFailing = INT64_MAX;
thread_local int64_t failing = 0;  // from the first one on

bool mayAllocate() {
  const int64_t number = requested++;
  return number < firstFailing || number - firstFailing >= failing;
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

int64_t requestedAllocations() { return requested; }

AllocationFailure::AllocationFailure(int64_t index, int64_t count) {
  firstFailing = requested + index;
  failing = count;
}
AllocationFailure::~AllocationFailure() { firstFailing = INT64_MAX; }

}  // namespace shadermachine::tests
