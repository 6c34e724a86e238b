// Counts and fails the library's heap allocations. The test program is linked with
// --wrap=malloc,calloc,realloc,free, so every call from the library comes by here.
#pragma once

#include <cstdint>

namespace shadermachine::tests {

// Allocations that are not freed yet.
int64_t liveAllocations();

// While it lives, allocation number `index` (from 0) and all later ones of this thread fail.
class AllocationFailure {
 public:
  explicit AllocationFailure(int64_t index);
  ~AllocationFailure();
};

}  // namespace shadermachine::tests
