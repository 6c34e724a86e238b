#include "debugger/fragment_run.h"

#include <cstring>
#include <new>

#include "machine/run_loop.h"

namespace shadermachine::tools {

FragmentRun::FragmentRun(const ShaderView& view, const HostInputs& inputs, const FrameInputs& frame,
                         uint32_t x, uint32_t y)
    : view_(view), inputs_(inputs), column_(x), row_(frame.height - 1 - y) {
  vmInitialize();
  const HostCallbacks callbacks = FragmentHost::callbacks();
  machine_ = createMachine(&callbacks);
  if (machine_ == nullptr) throw std::bad_alloc();
  handle_.reset(machine_);
  // Slots that nobody has written are shown too.
  std::memset(machine_->stack, 0, sizeof(ValueSlot) * static_cast<size_t>(machine_->stackCapacity));
  // People look at a run for longer than any time limit; who drives this sees to it that it ends.
  runner_ = std::make_unique<QuadRunner>(view_, inputs_, *machine_, 0);
  startup_ = runner_->prepareOne(column_, row_);
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
  stepInstruction(*machine_);
  ++steps_;
}

void FragmentRun::seek(uint64_t steps) {
  if (steps < steps_) restart();
  while (steps_ < steps && !isOver()) step();
}

}  // namespace shadermachine::tools
