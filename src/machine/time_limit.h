// The time limit of a run.
#pragma once

#include <cstdint>

namespace shadermachine {

// Checked on backward jumps and calls through a counter, so that straight-line code pays nothing
// and loops one decrement. The clock is read when the counter reaches 0; the interval adapts so
// that a loop of slow host calls is stopped as promptly as a tight one.
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

// Work between jumps that may take as long as so many of them: the clock is read the sooner.
inline void chargeTimeLimit(TimeLimit& limit, uint64_t ticks) {
  limit.ticksLeft = limit.ticksLeft > ticks ? limit.ticksLeft - static_cast<uint32_t>(ticks) : 1;
}

// One backward jump or call; true when the run is over its time.
inline bool tickTimeLimit(TimeLimit& limit) {
  return --limit.ticksLeft == 0 && readTimeLimit(limit);
}

}  // namespace shadermachine
