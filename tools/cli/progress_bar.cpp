#include "cli/progress_bar.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace shadermachine::tools {
namespace {

constexpr uint32_t kBarWidth = 30;
constexpr auto kRedraw = std::chrono::milliseconds(100);

}  // namespace

ProgressBar::ProgressBar(std::string title)
    : title_(std::move(title)), isTerminal_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
  if (lastDrawn_ != Clock::time_point()) std::fputs("\r\x1b[K", stderr);
}

void ProgressBar::update(uint32_t done, uint32_t total, uint32_t rowWidth) {
  if (!isTerminal_) return;
  const Clock::time_point now = Clock::now();
  if (now - start_ < kRedraw || now - lastDrawn_ < kRedraw) return;
  lastDrawn_ = now;
  const std::chrono::duration<double> elapsed = now - start_;
  const std::string line = progressLine(title_, done, total, rowWidth, elapsed.count());
  std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
  std::fflush(stderr);
}

std::string progressLine(const std::string& title, uint32_t done, uint32_t total, uint32_t rowWidth,
                         double seconds) {
  const double part = total > 0 ? double(done) / total : 1;
  const auto filled = static_cast<uint32_t>(part * kBarWidth);
  const std::string bar = std::string(filled, '=') + std::string(kBarWidth - filled, ' ');
  const double rate = seconds > 0 ? double(done) * rowWidth / seconds / 1e6 : 0;
  const double left = done > 0 ? std::ceil(seconds / done * (total - done)) : 0;
  char numbers[96];
  std::snprintf(numbers, sizeof numbers, "%3.0f%%  %.2f Mfragments/s  %.0f s left", part * 100,
                rate, left);
  return title + "  [" + bar + "] " + numbers;
}

}  // namespace shadermachine::tools
