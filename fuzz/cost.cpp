#include "fuzz/cost.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SHADERMACHINE_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SHADERMACHINE_SANITIZED 1
#endif

namespace shadermachine::fuzz {
namespace {

#ifdef SHADERMACHINE_SANITIZED
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif
#ifdef __OPTIMIZE__
constexpr uint32_t kUnoptimised = 1;
#else
constexpr uint32_t kUnoptimised = 5;
#endif

double threadMilliseconds() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

uint64_t statusBytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::stoull(line.substr(field.size() + 1)) * 1024;
  }
  return 0;
}

struct Job {
  const std::function<void()>& work;
  double milliseconds = 0;
};

void* runJob(void* data) {
  auto& job = *static_cast<Job*>(data);
  const double before = threadMilliseconds();
  job.work();
  job.milliseconds = threadMilliseconds() - before;
  return nullptr;
}

}  // namespace

const uint32_t kCostFactor = kIsSanitized ? 12 : kUnoptimised;

Cost costOf(size_t stackBytes, const std::function<void()>& work) {
  Job job = {work};
  // From here on, the highest is that of the work.
  const bool isFromHere =
      !kIsSanitized && (std::ofstream("/proc/self/clear_refs") << 5 << std::flush);
  const uint64_t before = statusBytes("VmRSS:");
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stackBytes * kCostFactor);
  pthread_t thread;
  if (pthread_create(&thread, &attributes, &runJob, &job) != 0) {
    std::perror("thread");
    std::abort();
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const uint64_t highest = statusBytes("VmHWM:");
  return {job.milliseconds, isFromHere && highest > before ? highest - before : 0};
}

}  // namespace shadermachine::fuzz
