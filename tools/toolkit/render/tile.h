// Runs the fragments of up to 16 blocks of 2 x 2 pixels in a batch, side by side, so that
// derivatives are differences between them.
#pragma once

#include <shadermachine-tools/renderer.h>
#include <shadermachine/batch.h>

#include <deque>
#include <memory>
#include <span>

#include "render/quad.h"

namespace shadermachine::tools {

// Per thread.
class TileRunner {
 public:
  static constexpr uint32_t kBlocks = 16;
  static constexpr uint32_t kFragments = kBlocks * DerivativeRecord::kFragments;
  struct Block {
    uint32_t x, y;  // as of QuadRunner::run()
  };

  // The batch, made by createBatch() and the settings' functions, may be null when memory is short.
  TileRunner(const ShaderView& view, const HostInputs& inputs, ShaderBatch* batch,
             const RenderSettings& settings);
  TileRunner(const TileRunner&) = delete;
  TileRunner& operator=(const TileRunner&) = delete;

  // A batch keeps what it makes of a shader, so it should outlive the picture.
  static std::shared_ptr<ShaderBatch> createBatch(const BatchFunctions& functions);

  // Runs all fragments of the blocks. False when that was not worth it, or memory was short:
  // batches run this shader's invocations one after another. Then nothing has a meaning, now and
  // later.
  bool run(std::span<const Block> blocks, std::array<float, 2> offset);

  // Whether the block must be run by a QuadRunner instead: a fragment has failed, or its fragments
  // did not come to all derivatives together.
  bool isOpen(uint32_t block) const { return (openBlocks_ >> block & 1) != 0; }
  // Of a block that is not open.
  std::span<const FragmentResult, DerivativeRecord::kFragments> results(uint32_t block) const {
    return std::span(results_)
        .subspan(size_t{block} * DerivativeRecord::kFragments)
        .first<DerivativeRecord::kFragments>();
  }

 private:
  struct Fragment : FragmentHost {
    using FragmentHost::FragmentHost;
    TileRunner* tile = nullptr;
  };

  static TileRunner& tileOf(const BatchRequest& group);
  static BatchCallbacks callbacks();
  template <unsigned which>
  static BatchAnswer answerDerivative(const BatchRequest* request);
  static BatchAnswer answerVariable(const BatchVariableRequest* request);
  static BatchAnswer answerAggregate(const BatchVariableRequest* request);
  static BatchAnswer answerBuiltin(const BatchBuiltinRequest* request);
  static BatchAnswer answerLookup(const BatchLookupRequest* request);
  static void takeColour(const BatchRequest* request);
  static void takeDepth(const BatchRequest* request);
  void noteGroup(const BatchRequest& group);
  void noteDerivative(const BatchRequest& group);

  const ShaderView& view_;
  const HostInputs& inputs_;
  const RenderSettings& settings_;
  ShaderBatch* batch_;
  std::deque<Fragment> fragments_;
  std::array<uint64_t, kFragments> userData_;
  std::array<VmError, kFragments> errors_;
  std::array<FragmentResult, kFragments> results_;
  uint32_t count_ = 0;
  uint32_t openBlocks_ = 0;
  uint32_t derivatives_ = 0;  // requests in this run
  bool isAlone_ = false;
};

}  // namespace shadermachine::tools
