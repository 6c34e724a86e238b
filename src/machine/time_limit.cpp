#include "machine/time_limit.h"

#include <algorithm>
#include <chrono>

namespace shadermachine {
namespace {

// Of a run: what the run before came to, within bounds. The longest is some host calls, so that a
// host whose calls have become slow is noticed soon.
constexpr uint32_t kShortestFirst = 64;
constexpr uint32_t kLongestFirst = 1024;
constexpr uint32_t kLongestInterval = 1u << 12;
constexpr uint64_t kNanosecondsPerMillisecond = 1000000;
// Clock reads further apart than this make the limit imprecise; much closer ones cost time.
constexpr uint64_t kTargetGap = 200000;

uint64_t steadyNanoseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

}  // namespace

void beginTimeLimit(TimeLimit& limit, uint32_t milliseconds) {
  if (milliseconds == 0) {
    limit = {UINT32_MAX, UINT32_MAX, 0, 0};
    return;
  }
  // Runs of one shader are alike: the interval that suited the last one is tried again.
  const uint32_t before = limit.deadline == 0 ? 0 : limit.interval;
  limit.ticksLeft = limit.interval = std::clamp(before, kShortestFirst, kLongestFirst);
  limit.lastRead = steadyNanoseconds();
  limit.deadline = limit.lastRead + milliseconds * kNanosecondsPerMillisecond;
}

bool isHalfOver(const TimeLimit& limit) {
  if (limit.deadline == 0) return false;
  return steadyNanoseconds() >= limit.lastRead + (limit.deadline - limit.lastRead) / 2;
}

bool readTimeLimit(TimeLimit& limit) {
  limit.ticksLeft = limit.interval;
  if (limit.deadline == 0) return false;
  const uint64_t now = steadyNanoseconds();
  const uint64_t gap = now - limit.lastRead;
  limit.lastRead = now;
  if (gap > kTargetGap) {
    // Shorter at once, longer step by step: one slow host call late is a limit missed, one look too
    // many is some nanoseconds.
    limit.interval = limit.interval > 16 ? limit.interval / 16 : 1;
  } else if (gap < kTargetGap / 4 && limit.interval < kLongestInterval) {
    limit.interval *= 2;
  }
  limit.ticksLeft = limit.interval;
  return now >= limit.deadline;
}

}  // namespace shadermachine
