// The time limit of a run.
#pragma once

#include <cstdint>

namespace shadermachine {

// Checked through a counter on backward jumps and calls, host calls and work on blocks, so that
// other code pays nothing and loops one decrement. The clock is read when the counter reaches 0;
// the interval adapts so that a loop of slow host calls is stopped as promptly as a tight one.
struct TimeLimit {
  uint32_t ticksLeft;
  uint32_t interval;
  uint64_t deadline;  // steady clock, nanoseconds; 0 when the run has no limit
  uint64_t lastRead;  // or the start
};

void beginTimeLimit(TimeLimit& limit, uint32_t milliseconds);

inline void startTimeLimit(TimeLimit& limit, uint32_t milliseconds) {
  // A run without a limit after another changes nothing.
  if (milliseconds != 0 || limit.deadline != 0) beginTimeLimit(limit, milliseconds);
}

// Reads the clock and sets the next interval; true when the deadline has passed.
bool readTimeLimit(TimeLimit& limit);

// True when half of the time is over, for preparations before the first instruction.
bool isHalfOver(const TimeLimit& limit);

// Work that may take as long as so many jumps; true when the run is over its time.
inline bool chargeTimeLimit(TimeLimit& limit, uint64_t ticks) {
  if (limit.ticksLeft <= ticks) return readTimeLimit(limit);
  limit.ticksLeft -= static_cast<uint32_t>(ticks);
  return false;
}

// One backward jump or call; true when the run is over its time.
inline bool tickTimeLimit(TimeLimit& limit) {
  return --limit.ticksLeft == 0 && readTimeLimit(limit);
}

}  // namespace shadermachine
