// What a piece of work takes of the things that nobody may take without bounds.
#pragma once

#include <cstdint>
#include <functional>

namespace shadermachine::fuzz {

struct Cost {
  double milliseconds;  // processor time
  uint64_t bytes;       // resident memory at its highest; 0 where it cannot be told
};

// Runs the work on a thread with this much native stack. Work that needs more faults. Builds with
// larger frames than release builds get as much more.
Cost costOf(size_t stackBytes, const std::function<void()>& work);

// How much more than a release build's everything may cost in this build.
extern const uint32_t kCostFactor;

}  // namespace shadermachine::fuzz
