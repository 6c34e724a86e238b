#include <shadermachine-tools/renderer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <numeric>
#include <thread>

#include "render/quad.h"

namespace shadermachine::tools {
namespace {

MachineHandle createMachine() {
  const HostCallbacks callbacks = FragmentHost::callbacks();
  const MachineCreateInfo info = {&callbacks};
  MachineHandle machine(vmShaderMachineCreate(&info));
  if (machine == nullptr) throw std::bad_alloc();
  return machine;
}

double threadNanoseconds() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The picture being rendered, shared by the threads.
class Job {
 public:
  Job(const ShaderView& view, const HostInputs& inputs, const RenderSettings& settings)
      : view_(view), inputs_(inputs), settings_(settings) {
    const FrameInputs& frame = settings.frame;
    result_.colour = FloatImage(frame.width, frame.height);
    result_.depth.assign(size_t{frame.width} * frame.height, 1);
    for (size_t i = 0; i < result_.colour.rgba.size(); ++i) {
      result_.colour.rgba[i] = settings.background[i % 4];
    }
  }

  // Renders pairs of rows, from the top, until none are left. Every thread does this with a machine
  // of its own.
  void work(ShaderMachine& machine) {
    Share share = {{view_, inputs_, machine, settings_.timeout}, {}, {}};
    const double start = threadNanoseconds();
    const uint32_t pairs = (settings_.frame.height + 1) / 2;
    while (!cancelled_.load(std::memory_order_relaxed)) {
      const uint32_t pair = nextPair_.fetch_add(1, std::memory_order_relaxed);
      if (pair >= pairs) break;
      renderPair(share, pairs - 1 - pair);
    }
    merge(share, threadNanoseconds() - start);
  }

  RenderResult finish(double seconds, uint32_t threads) && {
    RenderStatistics& statistics = result_.statistics;
    statistics.seconds = seconds;
    statistics.threads = threads;
    statistics.nanosecondsPerFragment =
        nanoseconds_ / static_cast<double>(std::max<uint64_t>(statistics.total(), 1));
    return std::move(result_);
  }

 private:
  // What one thread works with and collects.
  struct Share {
    QuadRunner runner;
    std::array<uint64_t, VM_ERROR_COUNT> runs;
    std::optional<RunFailure> failure;
  };

  // Rows 2 * blockY and the next, counted from the bottom as fragments are.
  void renderPair(Share& share, uint32_t blockY) {
    const auto [width, height] = std::pair(settings_.frame.width, settings_.frame.height);
    for (uint32_t blockX = 0; blockX < (width + 1) / 2; ++blockX) {
      const QuadRunner::Results& results = share.runner.run(blockX, blockY, width, height);
      for (uint32_t i = 0; i < results.size(); ++i) {
        if (!results[i].isComplete) continue;
        take(share, results[i], 2 * blockX + (i & 1), height - 1 - (2 * blockY + (i >> 1)));
      }
      if (share.runs[VM_ERR_TIMEOUT] > 0) return;
    }
    const uint32_t rows = std::min(height - 2 * blockY, 2u);
    for (uint32_t i = 0; i < rows; ++i) reportRow();
  }

  void take(Share& share, const FragmentResult& result, uint32_t x, uint32_t y) {
    ++share.runs[std::min<VmError>(result.error, VM_ERROR_COUNT - 1)];
    if (isFailure(result.error)) {
      RunFailure failure = result.failure;
      failure.x = x;
      failure.y = y;
      takeFailure(share.failure, failure);
      if (result.error == VM_ERR_TIMEOUT) cancelled_.store(true, std::memory_order_relaxed);
    } else if (result.error != VM_ERR_DISCARDED) {
      std::ranges::copy(result.colour, result_.colour.pixel(x, y));
      result_.depth[size_t{y} * result_.colour.width + x] = result.depth;
    }
  }

  // The first one in reading order counts.
  static void takeFailure(std::optional<RunFailure>& first, const RunFailure& failure) {
    const auto place = [](const RunFailure& f) { return std::pair(f.y, f.x); };
    if (!first || place(failure) < place(*first)) first = failure;
  }

  void reportRow() {
    if (!settings_.progress) return;
    const std::lock_guard lock(mutex_);
    settings_.progress(++rowsDone_, settings_.frame.height);
  }

  void merge(const Share& share, double nanoseconds) {
    const std::lock_guard lock(mutex_);
    for (size_t code = 0; code < share.runs.size(); ++code) {
      result_.statistics.runs[code] += share.runs[code];
    }
    nanoseconds_ += nanoseconds;
    if (share.failure) takeFailure(result_.failure, *share.failure);
  }

  const ShaderView& view_;
  const HostInputs& inputs_;
  const RenderSettings& settings_;
  RenderResult result_;
  std::atomic<uint32_t> nextPair_ = 0;
  std::atomic<bool> cancelled_ = false;
  std::mutex mutex_;  // guards what follows, and the statistics of the result
  uint32_t rowsDone_ = 0;
  double nanoseconds_ = 0;
};

uint32_t threadCount(const RenderSettings& settings) {
  const uint32_t wanted =
      settings.threads != 0 ? settings.threads : std::thread::hardware_concurrency();
  return std::clamp(wanted, 1u, std::max(settings.frame.height, 1u));
}

}  // namespace

ByteImage quantize(const FloatImage& image) {
  ByteImage result(image.width, image.height);
  std::ranges::transform(image.rgba, result.rgba.begin(), [](float value) {
    const float inside = value > 0 ? std::min(value, 1.0f) : 0;
    return static_cast<uint8_t>(std::lround(inside * 255));
  });
  return result;
}

uint64_t RenderStatistics::total() const {
  return std::accumulate(runs.begin(), runs.end(), uint64_t{0});
}

uint64_t RenderStatistics::failed() const {
  return total() - runs[VM_OK] - runs[VM_ERR_DISCARDED] - runs[VM_ERR_HALTED];
}

RenderResult Renderer::render(const RenderSettings& settings) {
  const auto start = std::chrono::steady_clock::now();
  vmInitialize();
  inputs_.startFrame(settings.frame);
  Job job(view_, inputs_, settings);
  const uint32_t count = threadCount(settings);
  std::vector<MachineHandle> machines;
  for (uint32_t i = 0; i < count; ++i) machines.push_back(createMachine());
  {
    std::vector<std::jthread> threads;
    for (uint32_t i = 1; i < count; ++i) {
      threads.emplace_back([&job, machine = machines[i].get()] { job.work(*machine); });
    }
    job.work(*machines[0]);
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return std::move(job).finish(elapsed.count(), count);
}

}  // namespace shadermachine::tools
