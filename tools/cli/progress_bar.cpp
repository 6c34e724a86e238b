#include "cli/progress_bar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "cli/system.h"

namespace shadermachine::tools {
namespace {

constexpr size_t kBarWidth = 30;
constexpr size_t kLeastBarWidth = 10;
constexpr auto kRedraw = std::chrono::milliseconds(100);

// A line that reaches the last column would wrap on some terminals.
size_t usableColumns() {
  const size_t columns = terminalColumns();
  return columns > 1 ? columns - 1 : 79;
}

}  // namespace

ProgressBar::ProgressBar(std::string title)
    : title_(std::move(title)), isTerminal_(isTerminal(stderr)) {}

ProgressBar::~ProgressBar() {
  if (lastDrawn_ != Clock::time_point()) std::fputs("\r\x1b[K", stderr);
}

void ProgressBar::update(uint32_t done, uint32_t total, uint32_t rowWidth) {
  if (!isTerminal_) return;
  const Clock::time_point now = Clock::now();
  if (now - start_ < kRedraw || now - lastDrawn_ < kRedraw) return;
  lastDrawn_ = now;
  const std::chrono::duration<double> elapsed = now - start_;
  const std::string line =
      progressLine(title_, done, total, rowWidth, elapsed.count(), usableColumns());
  std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
  std::fflush(stderr);
}

std::string progressLine(std::string title, uint32_t done, uint32_t total, uint32_t rowWidth,
                         double seconds, size_t columns) {
  const double part = total > 0 ? double(done) / total : 1;
  const double rate = seconds > 0 ? double(done) * rowWidth / seconds / 1e6 : 0;
  const double left = done > 0 ? std::ceil(seconds / done * (total - done)) : 0;
  char numbers[96];
  std::snprintf(numbers, sizeof numbers, " %3.0f%%  %.2f Mfragments/s  %.0f s left", part * 100,
                rate, left);
  const size_t room = columns - std::min(columns, std::strlen(numbers) + 4);
  const size_t titleRoom = room - std::min(room, kLeastBarWidth);
  if (title.size() > titleRoom) {
    const std::string end = title.substr(title.size() - titleRoom);
    title = titleRoom < 4 ? "" : "..." + end.substr(3);
  }
  const size_t width = std::min(kBarWidth, room - title.size());
  const auto filled = static_cast<size_t>(part * static_cast<double>(width));
  const std::string bar = std::string(filled, '=') + std::string(width - filled, ' ');
  return (title + "  [" + bar + "]" + numbers).substr(0, columns);
}

}  // namespace shadermachine::tools
