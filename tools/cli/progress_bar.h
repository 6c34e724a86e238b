// A line on the terminal that says how far a picture is.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace shadermachine::tools {

// Draws on standard error when that is a terminal, else does nothing.
class ProgressBar {
 public:
  explicit ProgressBar(std::string title);
  ~ProgressBar();

  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // `done` of `total` rows of `rowWidth` fragments.
  void update(uint32_t done, uint32_t total, uint32_t rowWidth);

 private:
  using Clock = std::chrono::steady_clock;

  std::string title_;
  bool isTerminal_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point lastDrawn_ = {};
};

// "title  [=====     ] 50%  1.20 Mfragments/s  3 s left", of at most `columns` characters: the bar
// becomes narrower first, then the title loses its beginning.
std::string progressLine(std::string title, uint32_t done, uint32_t total, uint32_t rowWidth,
                         double seconds, size_t columns);

}  // namespace shadermachine::tools
