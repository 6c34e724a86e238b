// One fragment's run, instruction by instruction, as often as wanted: a run is repeatable, so a
// step back is a run from the start to one instruction less.
#pragma once

#include <shadermachine-tools/renderer.h>

#include <memory>

#include "machine/machine.h"
#include "render/quad.h"

namespace shadermachine::tools {

class FragmentRun {
 public:
  // A column and row of the picture, counted from the top left. View and inputs must outlive it.
  FragmentRun(const ShaderView& view, const HostInputs& inputs, const FrameInputs& frame,
              uint32_t x, uint32_t y);
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
  void abandon();

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
};

}  // namespace shadermachine::tools
