#include "machine/time_limit.h"

#include <chrono>

namespace shadermachine {
namespace {

constexpr uint32_t kFirstInterval = 64;
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
  limit = {UINT32_MAX, UINT32_MAX, 0, 0};
  if (milliseconds == 0) return;
  limit.ticksLeft = limit.interval = kFirstInterval;
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
    limit.interval = limit.interval > 16 ? limit.interval / 16 : 1;
  } else if (gap < kTargetGap / 4 && limit.interval < kLongestInterval) {
    limit.interval *= 2;
  }
  limit.ticksLeft = limit.interval;
  return now >= limit.deadline;
}

}  // namespace shadermachine
