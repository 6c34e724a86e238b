// Pictures of GLSL fragment shaders by Mesa's software drivers, for comparison.
#pragma once

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

namespace shadermachine::benchmarks {

constexpr float kTime = 1.5f;  // seconds; what time uniforms are set to

struct Picture {
  double nanoseconds = 0;     // per fragment
  std::vector<float> pixels;  // four components each, bottom row first
};

struct Size {
  int width = 240;
  int height = 135;
  size_t fragments() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
};

inline double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Least processor time of a few repetitions: other programs disturb it little.
template <class Work>
double bestNanoseconds(const Work& work, size_t fragments) {
  double best = 1e30;
  for (int i = 0; i < 5; ++i) {
    const double start = processorSeconds();
    work();
    best = std::min(best, (processorSeconds() - start) * 1e9 / static_cast<double>(fragments));
  }
  return best;
}

struct MissingDriver : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// `driver`: "softpipe" or "llvmpipe". The driver is chosen by the environment, so each picture is
// made in a process of its own. Throws MissingDriver, and std::runtime_error when the source fails.
Picture renderWithMesa(const char* driver, const std::string& source, const Size& size);

}  // namespace shadermachine::benchmarks
