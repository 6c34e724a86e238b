// Counts and fails the library's heap allocations. The test program is linked with
// --wrap=malloc,calloc,realloc,free, so every call from the library comes by here.
#pragma once

#include <cstdint>

namespace shadermachine::tests {

// Allocations that are not freed yet.
int64_t liveAllocations();

// Allocations that this thread has asked for, refused ones included.
int64_t requestedAllocations();

// While it lives, allocation number `index` (from 0) of this thread fails, and `count` - 1 after
// it.
class AllocationFailure {
 public:
  explicit AllocationFailure(int64_t index, int64_t count = INT64_MAX);
  ~AllocationFailure();
};

}  // namespace shadermachine::tests
