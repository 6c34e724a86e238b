#include "view/frame.h"

#include <algorithm>
#include <chrono>

namespace shadermachine::tools {
namespace {

using Clock = std::chrono::steady_clock;

// Between two things that are shown of one frame.
constexpr double kPatience = 0.1;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

class FrameTask {
 public:
  FrameTask(Scene& scene, const FrameRequest& request, std::stop_token stop, Sheet& sheet)
      : scene_(scene), request_(request), settings_(request.settings), sheet_(sheet) {
    settings_.stop = std::move(stop);
  }

  void run() {
    if (request_.isNext && !renderBuffers()) return;
    for (uint32_t size = request_.pixelSize; size > 0; size /= 2) {
      const double seconds = renderLevel(size);
      if (settings_.stop.stop_requested() || hasFailed_) break;
      const double next = 4 * seconds;
      if (!request_.isPatient && secondsSince(start_) + next > kPatience) break;
    }
    if (!settings_.stop.stop_requested()) sheet_.setFailure(failure_);
  }

 private:
  bool renderBuffers() {
    const auto look = [this](size_t pass, const RenderResult& result) { note(pass, result); };
    return scene_.passes().renderBuffers(settings_, look);
  }

  void note(size_t pass, const RenderResult& result) {
    if (!result.failure || hasFailed_) return;
    failure_ = scene_.failureText(pass, result);
    // The same would happen to finer pixels, only later.
    hasFailed_ = result.failure->error == VM_ERR_TIMEOUT;
  }

  // Returns how long it took.
  double renderLevel(uint32_t size) {
    const Clock::time_point start = Clock::now();
    settings_.pixelSize = size;
    // Few pixels are not worth what batches take to begin with.
    settings_.batches = size > 2 ? nullptr : request_.settings.batches;
    const uint32_t width = (settings_.frame.width - 1) / size + 1;
    const uint32_t height = (settings_.frame.height - 1) / size + 1;
    const uint32_t rows = rowsOfBand(height, size);
    for (uint32_t y = 0; y < height && !hasFailed_; y += rows) {
      settings_.region = {0, y, width, std::min(rows, height - y)};
      const RenderResult result = scene_.passes().picture().render(settings_);
      if (settings_.stop.stop_requested()) return 0;
      note(scene_.passes().count() - 1, result);
      sheet_.draw(result, settings_);
    }
    sheet_.setPixelSize(size);
    const double seconds = secondsSince(start);
    estimate_ = seconds * size * size;
    sheet_.setSeconds(estimate_);
    return seconds;
  }

  // So many that a band is no longer than one likes to wait.
  uint32_t rowsOfBand(uint32_t height, uint32_t size) const {
    const double seconds = estimate_ / (double{1} * size * size);
    if (seconds <= kPatience) return height;
    const uint32_t least = 2 * std::max(std::thread::hardware_concurrency(), 1u);
    return std::max(static_cast<uint32_t>(height * kPatience / seconds) & ~1u, least);
  }

  Scene& scene_;
  const FrameRequest& request_;
  RenderSettings settings_;
  Sheet& sheet_;
  const Clock::time_point start_ = Clock::now();
  double estimate_ = 0;  // seconds for a sharp picture
  bool hasFailed_ = false;
  std::string failure_;
};

}  // namespace

Sheet::State Sheet::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

FloatImage Sheet::picture() const {
  const std::lock_guard lock(mutex_);
  return picture_;
}

void Sheet::draw(const RenderResult& result, const RenderSettings& settings) {
  const std::lock_guard lock(mutex_);
  const auto [width, height] = std::pair(settings.frame.width, settings.frame.height);
  if (picture_.width != width || picture_.height != height) picture_ = FloatImage(width, height);
  const uint32_t size = settings.pixelSize;
  const uint32_t wholeHeight = (height - 1) / size + 1;
  for (uint32_t row = 0; row < result.colour.height; ++row) {
    // Larger pixels begin at the bottom.
    const uint32_t bottom = (wholeHeight - 1 - (settings.region->y + row)) * size;
    for (uint32_t above = bottom; above < std::min(bottom + size, height); ++above) {
      float* to = picture_.pixel(0, height - 1 - above);
      for (uint32_t x = 0; x < width; ++x, to += 4) {
        std::copy_n(result.colour.pixel(x / size, row), 4, to);
      }
    }
  }
  state_.pixelSize = std::max(state_.pixelSize, size);
  ++state_.version;
}

void Sheet::setPixelSize(uint32_t size) {
  const std::lock_guard lock(mutex_);
  state_.pixelSize = size;
}

void Sheet::setSeconds(double seconds) {
  const std::lock_guard lock(mutex_);
  state_.seconds = seconds;
}

void Sheet::setFailure(std::string text) {
  const std::lock_guard lock(mutex_);
  if (text == state_.failure) return;
  state_.failure = std::move(text);
  ++state_.version;
}

void renderFrame(Scene& scene, const FrameRequest& request, std::stop_token stop, Sheet& sheet) {
  FrameTask(scene, request, std::move(stop), sheet).run();
}

void Worker::start(std::function<void(std::stop_token)> task) {
  isIdle_ = false;
  thread_ = std::jthread([this, task = std::move(task)](const std::stop_token& stop) {
    task(stop);
    isIdle_ = true;
  });
}

}  // namespace shadermachine::tools
