// The state of a machine in the middle of a run, to go on from there as often as wanted.
//
// Invariant: between two instructions only slots up to the current frame's top hold blocks, so that
// these slots, the frames and the machine's own fields are all that a run can see of its past.
#pragma once

#include <cstdint>
#include <vector>

#include "machine/machine.h"

namespace shadermachine::tools {

class Snapshot {
 public:
  // Of a run that is under way.
  explicit Snapshot(const Machine& machine);

  // Into the same machine, idle and without a shader. False when memory for the blocks is short;
  // the machine then is as it was.
  bool restore(Machine& machine) const;
  size_t bytes() const;

 private:
  struct Block {
    uint32_t referenceCount;  // slots may share a reference, so that counting them is not enough
    std::vector<uint8_t> data;
  };
  struct Holder {
    size_t slot;
    size_t block;
  };

  ShaderMachine fields_;
  uint32_t heldGlobalCount_;
  // All: values above the top are nobody's, but may be seen.
  std::vector<ValueSlot> stack_;
  std::vector<CallFrame> frames_;
  std::vector<Block> blocks_;
  std::vector<Holder> holders_;
};

}  // namespace shadermachine::tools
