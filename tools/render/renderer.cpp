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

#include "render/fragment_host.h"

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

  // Renders rows until none are left. Every thread does this with a machine of its own.
  void work(ShaderMachine* machine) {
    Share share = {machine, {view_, inputs_}, {}, {}};
    const double start = threadNanoseconds();
    while (!cancelled_.load(std::memory_order_relaxed)) {
      const uint32_t row = nextRow_.fetch_add(1, std::memory_order_relaxed);
      if (row >= settings_.frame.height) break;
      renderRow(share, row);
      reportRow();
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
    ShaderMachine* machine;
    FragmentHost host;
    std::array<uint64_t, VM_ERROR_COUNT> runs;
    std::optional<RunFailure> failure;
  };

  void renderRow(Share& share, uint32_t row) {
    const uint32_t width = settings_.frame.width;
    const StartupInfo startup = share.host.startupInfo(settings_.timeout);
    const float y = static_cast<float>(settings_.frame.height - 1 - row) + 0.5f;
    for (uint32_t x = 0; x < width; ++x) {
      share.host.startFragment(static_cast<float>(x) + 0.5f, y);
      const VmError error = vmShaderMachineExecuteShader(share.machine, view_.shader, &startup);
      ++share.runs[std::min<VmError>(error, VM_ERROR_COUNT - 1)];
      if (error == VM_OK || error == VM_ERR_HALTED) {
        std::ranges::copy(share.host.colour(), result_.colour.pixel(x, row));
        result_.depth[size_t{row} * width + x] = share.host.depth();
      } else if (isFailure(error)) {
        recordFailure(share, {.x = x, .y = row, .error = error});
        if (error == VM_ERR_TIMEOUT) {
          cancelled_.store(true, std::memory_order_relaxed);
          return;
        }
      }
    }
  }

  // Rows come to a thread in rising order, so its first failure is the one that counts.
  void recordFailure(Share& share, RunFailure failure) {
    if (share.failure) return;
    locateFailure(*share.machine, view_, failure);
    share.failure = failure;
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
    const auto place = [](const RunFailure& f) { return std::pair(f.y, f.x); };
    if (share.failure && (!result_.failure || place(*share.failure) < place(*result_.failure))) {
      result_.failure = share.failure;
    }
  }

  const ShaderView& view_;
  const HostInputs& inputs_;
  const RenderSettings& settings_;
  RenderResult result_;
  std::atomic<uint32_t> nextRow_ = 0;
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
      threads.emplace_back([&job, machine = machines[i].get()] { job.work(machine); });
    }
    job.work(machines[0].get());
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return std::move(job).finish(elapsed.count(), count);
}

}  // namespace shadermachine::tools
