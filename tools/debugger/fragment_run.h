// One fragment's run, instruction by instruction, as often as wanted: a run is repeatable, so a
// step back is a run to one instruction less, from the start or from a snapshot.
//
// Invariant: snapshots are ordered by their counts of instructions, and the one behind a count is
// what every run to that count comes to. They are far enough apart for a run to be hardly slower,
// and so few that their memory has a bound.
#pragma once

#include <shadermachine-tools/renderer.h>

#include <memory>
#include <vector>

#include "debugger/snapshot.h"
#include "render/quad.h"

namespace shadermachine::tools {

class FragmentRun {
 public:
  // A column and row of the picture, counted from the top left. View and inputs must outlive it.
  // The time limit is for the runs of its neighbours, which derivatives ask for.
  FragmentRun(const ShaderView& view, const HostInputs& inputs, const FrameInputs& frame,
              uint32_t x, uint32_t y, uint32_t timeoutMilliseconds);
  ~FragmentRun();
  FragmentRun(const FragmentRun&) = delete;
  FragmentRun& operator=(const FragmentRun&) = delete;

  // Before the first instruction.
  void restart();
  // Instructions executed so far.
  uint64_t steps() const { return steps_; }
  // Executes an instruction; not when the run is over.
  void step();
  void seek(uint64_t steps);
  // To the last place not behind that one from which a run is known to go on: a snapshot's, the
  // current one or the start.
  void approach(uint64_t steps);

  // Whether an instruction has ended the run, or it never began. Its state stays until restart().
  bool isOver() const { return refused_ != VM_OK || machine_->runState == VM_RUN_STOPPING; }
  VmError error() const { return refused_ != VM_OK ? refused_ : machine_->error; }

  const ShaderView& view() const { return view_; }
  const Machine& machine() const { return *machine_; }
  // Of the fragment's centre, y up.
  float x() const { return static_cast<float>(column_) + 0.5f; }
  float y() const { return static_cast<float>(row_) + 0.5f; }
  const HostInputs& inputs() const { return inputs_; }

 private:
  struct Kept {
    uint64_t steps;
    size_t derivatives;
    Snapshot state;
  };

  void abandon();
  void keep();
  bool goOnFrom(const Kept& kept);

  ShaderView view_;
  const HostInputs& inputs_;
  MachineHandle handle_;
  Machine* machine_;
  std::unique_ptr<QuadRunner> runner_;
  StartupInfo startup_;
  uint32_t column_;
  uint32_t row_;
  uint64_t steps_ = 0;
  VmError refused_ = VM_OK;
  bool hasBegun_ = false;
  std::vector<Kept> kept_;
  uint64_t interval_;  // between snapshots
  uint64_t nextKept_;
};

}  // namespace shadermachine::tools
