#include <shadermachine-tools/renderer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <numeric>
#include <span>
#include <thread>
#include <vector>

#include "render/quad.h"
#include "render/tile.h"

namespace shadermachine::tools {
namespace {

std::shared_ptr<ShaderMachine> createMachine() {
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

using Colour = std::array<float, 4>;

// The mean of a pixel's fragments. Colours count by their alpha, unless all are transparent.
class Mean {
 public:
  void add(const Colour& colour) {
    ++count_;
    // Kept as it is: a single fragment is shown to the bit, which a sum divided again would not be.
    if (count_ == 1) first_ = colour;
    for (size_t i = 0; i < 3; ++i) {
      plain_[i] += colour[i];
      weighted_[i] += colour[i] * colour[3];
    }
    plain_[3] += colour[3];
  }
  Colour value() const {
    if (count_ == 1) return first_;
    const float alpha = plain_[3];
    const Colour& sum = alpha > 0 ? weighted_ : plain_;
    const float weight = alpha > 0 ? alpha : static_cast<float>(count_);
    return {sum[0] / weight, sum[1] / weight, sum[2] / weight, alpha / static_cast<float>(count_)};
  }

 private:
  uint32_t count_ = 0;
  Colour first_ = {};
  Colour plain_ = {};
  Colour weighted_ = {};
};

// Places in a pixel that fill it evenly however many are taken (the additive recurrence of the
// plastic number); the first is the centre.
std::array<float, 2> sampleOffset(uint32_t sample) {
  const auto part = [&](double step) {
    const double place = 0.5 + sample * step;
    return static_cast<float>(place - std::floor(place));
  };
  return {part(0.7548776662466927), part(0.5698402909980532)};
}

PixelRegion wholeOf(const RenderSettings& settings) {
  const auto count = [&](uint32_t side) { return (side - 1) / settings.pixelSize + 1; };
  const FrameInputs& frame = settings.frame;
  if (frame.width == 0 || frame.height == 0) return {};
  return {0, 0, count(frame.width), count(frame.height)};
}

PixelRegion regionOf(const RenderSettings& settings) {
  return settings.region.value_or(wholeOf(settings));
}

// The picture being rendered, shared by the threads. A pixel belongs to one pair of rows and so to
// one thread, which writes it without a lock.
class Job {
 public:
  Job(const ShaderView& view, const HostInputs& inputs, const RenderSettings& settings)
      : view_(view),
        inputs_(inputs),
        settings_(settings),
        whole_(wholeOf(settings)),
        region_(regionOf(settings)) {
    result_.colour = FloatImage(region_.width, region_.height);
    result_.depth.assign(size_t{region_.width} * region_.height, 1);
    for (size_t i = 0; i < result_.colour.rgba.size(); ++i) {
      result_.colour.rgba[i] = settings.background[i % 4];
    }
  }

  // Every thread does this with a machine and a batch of its own. No thread can be left by an
  // exception: the first one ends the picture, and finish() throws it again.
  void work(ShaderMachine& machine, ShaderBatch* batch) noexcept {
    try {
      renderRows(machine, batch);
    } catch (...) {
      cancelled_ = true;
      const std::lock_guard lock(mutex_);
      if (thrown_ == nullptr) thrown_ = std::current_exception();
    }
  }

  RenderResult finish(double seconds, uint32_t threads) && {
    if (thrown_ != nullptr) std::rethrow_exception(thrown_);
    RenderStatistics& statistics = result_.statistics;
    statistics.seconds = seconds;
    statistics.threads = threads;
    statistics.nanosecondsPerFragment =
        nanoseconds_ / static_cast<double>(std::max<uint64_t>(statistics.total(), 1));
    return std::move(result_);
  }

 private:
  using Fragments = std::span<const FragmentResult, DerivativeRecord::kFragments>;
  using Means = std::array<Mean, DerivativeRecord::kFragments>;

  // What one thread works with and collects.
  struct Share {
    QuadRunner runner;
    std::array<uint64_t, VM_ERROR_COUNT> runs;
    std::optional<RunFailure> failure;
    std::unique_ptr<TileRunner> tile;  // null when every fragment runs by itself
    std::vector<Means> means;          // of the blocks rendered together, of several samples
  };

  static constexpr uint32_t kTileBlocks = 4;  // along either side of a tile

  bool isStopped() const {
    return cancelled_.load(std::memory_order_relaxed) || settings_.stop.stop_requested();
  }

  // Renders pairs of rows, from the top, until none are left; in batches several pairs at a time.
  void renderRows(ShaderMachine& machine, ShaderBatch* batch) {
    Share share = {{view_, inputs_, machine, settings_.timeout}, {}, {}, {}, {}};
    share.runner.setPixelSize(settings_.pixelSize);
    if (settings_.batches != nullptr) {
      share.tile = std::make_unique<TileRunner>(view_, inputs_, batch, settings_);
    }
    // Of this thread alone: a clock would count what other programs do meanwhile.
    const double start = threadNanoseconds();
    // Blocks of two rows, counted from the bottom as fragments are.
    const uint32_t bottom = whole_.height - region_.y - region_.height;
    const uint32_t first = bottom / 2;
    const uint32_t end = (bottom + region_.height + 1) / 2;
    const uint32_t step = share.tile == nullptr ? 1 : kTileBlocks;
    while (!isStopped()) {
      const uint32_t pair = nextPair_.fetch_add(step, std::memory_order_relaxed);
      // Each thread asks once too often; the number has room for that.
      if (pair >= end - first) break;
      // Pairs are given out from the top; their numbers count from the bottom.
      renderPairs(share, end - std::min(pair + step, end - first), end - pair);
    }
    merge(share, threadNanoseconds() - start);
  }

  // The rows of blocks from `first` to `end` - 1, from the bottom of the picture.
  void renderPairs(Share& share, uint32_t first, uint32_t end) {
    const uint32_t endX = (region_.x + region_.width + 1) / 2;
    const uint32_t step = end - first > 1 || share.tile != nullptr ? kTileBlocks : 1;
    for (uint32_t blockX = region_.x / 2; blockX < endX; blockX += step) {
      renderBlocks(share, blockX, std::min(blockX + step, endX), first, end);
      if (isStopped()) return;
    }
    for (uint32_t row = 2 * first; row < 2 * end; ++row) {
      const uint32_t y = whole_.height - 1 - row;  // wraps for a row above the picture
      if (y >= region_.y && y - region_.y < region_.height) reportRow();
    }
  }

  void renderBlocks(Share& share, uint32_t firstX, uint32_t endX, uint32_t firstY, uint32_t endY) {
    std::array<TileRunner::Block, TileRunner::kBlocks> blocks;
    uint32_t count = 0;
    for (uint32_t y = firstY; y < endY; ++y) {
      for (uint32_t x = firstX; x < endX; ++x) blocks[count++] = {x, y};
    }
    if (settings_.samples > 1) share.means.assign(count, {});
    for (uint32_t sample = 0; sample < settings_.samples; ++sample) {
      const std::array<float, 2> offset = sampleOffset(sample);
      share.runner.setOffset(offset);
      const bool inBatch = share.tile != nullptr && share.tile->run({blocks.data(), count}, offset);
      for (uint32_t b = 0; b < count; ++b) {
        const bool isOpen = !inBatch || share.tile->isOpen(b);
        const Fragments fragments =
            isOpen ? Fragments(runBlock(share, blocks[b])) : share.tile->results(b);
        takeBlock(share, blocks[b], fragments, b, sample);
        if (isStopped()) return;
      }
    }
  }

  const QuadRunner::Results& runBlock(Share& share, const TileRunner::Block& block) {
    return share.runner.run(block.x, block.y, whole_.width, whole_.height);
  }

  // Block number `b` of those that are rendered together.
  void takeBlock(Share& share, const TileRunner::Block& block, Fragments results, uint32_t b,
                 uint32_t sample) {
    const bool hasMeans = settings_.samples > 1;
    for (uint32_t i = 0; i < results.size(); ++i) {
      const uint32_t x = 2 * block.x + (i & 1);
      const uint32_t y = whole_.height - 1 - (2 * block.y + (i >> 1));
      if (!isInRegion(x, y)) continue;
      const Colour colour = take(share, results[i], x, y);
      if (hasMeans) share.means[b][i].add(colour);
      // A picture that ends early shows the samples that there are.
      if (sample + 1 < settings_.samples && !isStopped()) continue;
      const size_t place = size_t{y - region_.y} * region_.width + (x - region_.x);
      const Colour shown = hasMeans ? share.means[b][i].value() : colour;
      std::ranges::copy(shown, &result_.colour.rgba[4 * place]);
      if (isDelivered(results[i])) result_.depth[place] = results[i].depth;
    }
  }

  // Rows and columns that wrapped around are outside, too.
  bool isInRegion(uint32_t x, uint32_t y) const {
    return x >= region_.x && x - region_.x < region_.width && y >= region_.y &&
           y - region_.y < region_.height;
  }

  static bool isDelivered(const FragmentResult& result) {
    return result.isComplete && !isFailure(result.error) && result.error != VM_ERR_DISCARDED;
  }

  // Counts a fragment and returns what it gives its pixel.
  Colour take(Share& share, const FragmentResult& result, uint32_t x, uint32_t y) {
    if (!result.isComplete) return settings_.background;
    ++share.runs[std::min<VmError>(result.error, VM_ERROR_COUNT - 1)];
    if (isFailure(result.error)) {
      RunFailure failure = result.failure;
      failure.x = x;
      failure.y = y;
      takeFailure(share.failure, failure);
      // One endless fragment is rarely alone: all of them would take the limit again and again.
      if (result.error == VM_ERR_TIMEOUT) cancelled_.store(true, std::memory_order_relaxed);
    }
    return isDelivered(result) ? result.colour : settings_.background;
  }

  // The first one in reading order counts.
  static void takeFailure(std::optional<RunFailure>& first, const RunFailure& failure) {
    const auto place = [](const RunFailure& f) { return std::pair(f.y, f.x); };
    if (!first || place(failure) < place(*first)) first = failure;
  }

  void reportRow() {
    if (!settings_.progress) return;
    const std::lock_guard lock(mutex_);
    settings_.progress(++rowsDone_, region_.height);
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
  const PixelRegion whole_;
  const PixelRegion region_;
  RenderResult result_;
  std::atomic<uint32_t> nextPair_ = 0;
  std::atomic<bool> cancelled_ = false;
  std::mutex mutex_;  // guards what follows, and the statistics of the result
  uint32_t rowsDone_ = 0;
  double nanoseconds_ = 0;
  std::exception_ptr thrown_;
};

uint32_t threadCount(const RenderSettings& settings) {
  const uint32_t wanted =
      settings.threads != 0 ? settings.threads : std::thread::hardware_concurrency();
  // More threads than rows would find nothing to do.
  return std::clamp(wanted, 1u, std::max(regionOf(settings).height, 1u));
}

}  // namespace

uint8_t quantize(float value) {
  const float inside = value > 0 ? std::min(value, 1.0f) : 0;
  return static_cast<uint8_t>(std::lround(inside * 255));
}

ByteImage quantize(const FloatImage& image) {
  ByteImage result(image.width, image.height);
  std::ranges::transform(image.rgba, result.rgba.begin(),
                         [](float value) { return quantize(value); });
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
  if (batchFunctions_ != settings.batches) batches_.clear();
  batchFunctions_ = settings.batches;
  while (machines_.size() < count) machines_.push_back(createMachine());
  while (batches_.size() < count) {
    batches_.push_back(batchFunctions_ == nullptr ? nullptr
                                                  : TileRunner::createBatch(*batchFunctions_));
  }
  {
    std::vector<std::jthread> threads;
    for (uint32_t i = 1; i < count; ++i) {
      threads.emplace_back([&, i] { job.work(*machines_[i], batches_[i].get()); });
    }
    job.work(*machines_[0], batches_[0].get());
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return std::move(job).finish(elapsed.count(), count);
}

}  // namespace shadermachine::tools
