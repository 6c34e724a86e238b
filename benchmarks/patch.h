// A patch of 64 x 64 fragments whose inputs differ a little: once by a machine, one run after
// another, and once in a batch.
#pragma once

#include <shadermachine/batch.h>

#include <vector>

#include "batch/rows.h"
#include "shaders.h"

namespace shadermachine::benchmarks {

class Patch {
 public:
  static constexpr uint32_t kSide = 64;
  static constexpr uint32_t kFragments = kSide * kSide;

  explicit Patch(const Subject& subject);
  ~Patch();
  Patch(const Patch&) = delete;
  Patch& operator=(const Patch&) = delete;

  void runOnMachine();
  // False when the processor lacks the instruction set.
  bool use(batch::InstructionSet set);
  void runInBatch();
  // Of both: equal where both have run.
  const std::vector<Fragment>& fragments() const { return fragments_; }
  const uint32_t* inputRow(size_t word) const { return &inputRows_[word * kFragments]; }

 private:
  static BatchAnswer fillVariables(const BatchVariableRequest* request);
  static BatchAnswer fillLights(const BatchVariableRequest* request);
  static void takeColors(const BatchRequest* request);

  tools::BuiltShader shader_;
  const CompiledShader* record_ = shader_.record();
  std::vector<Fragment> fragments_;
  std::vector<uint32_t> inputRows_;  // words of Inputs: one row of all fragments for each
  std::vector<uint64_t> userData_;
  std::vector<VmError> errors_;
  ShaderMachine* machine_;
  ShaderBatch* batch_;
};

}  // namespace shadermachine::benchmarks
