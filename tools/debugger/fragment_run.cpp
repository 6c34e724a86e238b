#include "debugger/fragment_run.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "machine/run_loop.h"

namespace shadermachine::tools {
namespace {

constexpr uint64_t kFirstInterval = 1 << 16;
constexpr size_t kMaxKept = 64;
constexpr size_t kMaxKeptBytes = 256 << 20;

}  // namespace

FragmentRun::FragmentRun(const ShaderView& view, const HostInputs& inputs, const FrameInputs& frame,
                         uint32_t x, uint32_t y, uint32_t timeoutMilliseconds)
    : view_(view),
      inputs_(inputs),
      column_(x),
      row_(frame.height - 1 - y),
      interval_(kFirstInterval),
      nextKept_(kFirstInterval) {
  vmInitialize();
  const HostCallbacks callbacks = FragmentHost::callbacks();
  machine_ = createMachine(&callbacks);
  if (machine_ == nullptr) throw std::bad_alloc();
  handle_.reset(machine_);
  // Slots that nobody has written are shown too.
  std::memset(machine_->stack, 0, sizeof(ValueSlot) * static_cast<size_t>(machine_->stackCapacity));
  runner_ = std::make_unique<QuadRunner>(view_, inputs_, *machine_, timeoutMilliseconds);
  startup_ = runner_->prepareOne(column_, row_);
  // People look at a run for longer than any time limit; who drives this sees to it that it ends.
  startup_.timeout = 0;
  // Twice: after that run, which ended well, the machine still holds the globals. Every run has to
  // begin with fresh ones, or counts of instructions would not mean the same.
  restart();
  restart();
}

FragmentRun::~FragmentRun() { abandon(); }

// Ends the run without outputs and frees what it holds.
void FragmentRun::abandon() {
  if (!hasBegun_ || refused_ != VM_OK) return;
  stopRun(*machine_, VM_ERR_DISCARDED);
  endRun(*machine_);
}

void FragmentRun::restart() {
  abandon();
  runner_->startOne(column_, row_);
  refused_ = beginRun(*machine_, *view_.shader, startup_);
  hasBegun_ = true;
  steps_ = 0;
}

void FragmentRun::step() {
  if (isOver()) return;
  if (steps_ == nextKept_) keep();
  stepInstruction(*machine_);
  ++steps_;
}

// Where there are too many, every other one goes.
void FragmentRun::keep() {
  kept_.push_back({steps_, runner_->derivativesAsked(), Snapshot(*machine_)});
  const auto bytes = [this] {
    size_t sum = 0;
    for (const Kept& kept : kept_) sum += kept.state.bytes();
    return sum;
  };
  while (kept_.size() > kMaxKept || (kept_.size() > 1 && bytes() > kMaxKeptBytes)) {
    interval_ *= 2;
    std::erase_if(kept_, [this](const Kept& kept) { return kept.steps % interval_ != 0; });
  }
  nextKept_ = steps_ - steps_ % interval_ + interval_;
}

bool FragmentRun::goOnFrom(const Kept& kept) {
  abandon();
  if (!kept.state.restore(*machine_)) return false;
  runner_->resumeOne(column_, row_, kept.derivatives);
  refused_ = VM_OK;
  steps_ = kept.steps;
  return true;
}

void FragmentRun::approach(uint64_t steps) {
  const auto after = std::ranges::upper_bound(kept_, steps, {}, &Kept::steps);
  const bool isKept = after != kept_.begin();
  if (steps >= steps_ && (!isKept || std::prev(after)->steps <= steps_)) return;
  if (!isKept || !goOnFrom(*std::prev(after))) restart();
}

void FragmentRun::seek(uint64_t steps) {
  approach(steps);
  while (steps_ < steps && !isOver()) step();
}

}  // namespace shadermachine::tools
