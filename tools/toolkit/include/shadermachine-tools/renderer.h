// Runs a fragment shader over a picture: one machine per thread, pairs of rows handed out as they
// come.
//
//   Renderer renderer(built.view());
//   renderer.inputs().set("scale", std::array{2.0});
//   RenderResult result = renderer.render({.frame = {.width = 640, .height = 360}});
//
// Programs that use it link the library itself too (shadermachine::shadermachine).
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/image.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

struct ShaderBatch;
struct BatchCreateInfo;
struct BatchStartupInfo;

namespace shadermachine::tools {

// vmShaderBatchCreate(), vmShaderBatchDestroy() and vmShaderBatchExecuteShader(), for programs that
// link the batch library.
struct BatchFunctions {
  ShaderBatch* (*create)(const BatchCreateInfo* info);
  VmError (*destroy)(ShaderBatch* batch);
  VmError (*execute)(ShaderBatch* batch, const CompiledShader* shader,
                     const BatchStartupInfo* startup, VmError* errors);
};

// Where a run ended that should not have: x, y count from the top left pixel of the frame.
struct RunFailure {
  uint32_t x = 0;
  uint32_t y = 0;
  VmError error = VM_OK;
  int32_t function = -1;           // -1: no function was entered
  uint32_t offset = 0;             // of the instruction, in the function's code
  const char* mnemonic = nullptr;  // null when the byte there is no opcode
};

// "Array index out of bounds. (function main, offset 12, VEC_ELEMENT)"
std::string describeFailure(const RunFailure& failure, const ShaderView& view);

// What happened at the place of the source where the run ended, as formatMessage() writes it;
// `before` and `after` stand around it on the first line. The file's name is for shaders whose
// sources are not known.
std::string formatFailure(const RunFailure& failure, const ShaderView& view,
                          std::string_view fileName, std::string_view before,
                          std::string_view after = {});

// Fills function, offset and mnemonic from the frames of a machine whose run has just failed.
void locateFailure(const ShaderMachine& machine, const ShaderView& view, RunFailure& failure);

// True for codes that say that a run failed: all but those of a fragment that was discarded or
// halted.
constexpr bool isFailure(VmError error) {
  return error != VM_OK && error != VM_ERR_DISCARDED && error != VM_ERR_HALTED;
}

// A part of a picture, from its top left pixel.
struct PixelRegion {
  uint32_t x = 0;
  uint32_t y = 0;
  uint32_t width = 0;
  uint32_t height = 0;
};

struct RenderSettings {
  FrameInputs frame;
  // Columns and rows of the frame that one pixel of the picture stands for: a picture of fewer,
  // larger pixels, each with the colour in its middle. The right and top ones may reach out.
  uint32_t pixelSize = 1;
  // What of the picture is rendered, unless all of it; must lie inside.
  std::optional<PixelRegion> region = std::nullopt;
  // Fragments per pixel, whose mean is its colour. The first lies in the centre of the pixel, the
  // others are spread over it.
  uint32_t samples = 1;
  uint32_t threads = 0;     // 0: as many as the processor runs at once
  uint32_t timeout = 2000;  // milliseconds per fragment; 0: none
  // With these, blocks of 8 x 8 fragments run in a batch, where the shader allows; the picture is
  // the same. Null: every fragment runs by itself.
  const BatchFunctions* batches = nullptr;
  // Colour of fragments that delivered none: discarded, failed, or never run.
  std::array<float, 4> background = {0, 0, 0, 0};
  // Called on the rendering threads, one at a time, with rows done and rows in all.
  std::function<void(uint32_t, uint32_t)> progress = nullptr;
  // Ends the picture early: no further fragment is begun. A fragment that is running ends by itself
  // or by its time limit, since no function of the machine stops a run from outside.
  std::stop_token stop = {};
};

struct RenderStatistics {
  std::array<uint64_t, VM_ERROR_COUNT> runs = {};  // by error code
  double seconds = 0;                              // from start to end
  double nanosecondsPerFragment = 0;               // processor time of the rendering threads
  uint32_t threads = 0;

  uint64_t failed() const;
  uint64_t total() const;
};

struct RenderResult {
  FloatImage colour;         // of the region
  std::vector<float> depth;  // second output, of the last sample; 1 where none was delivered
  RenderStatistics statistics;
  std::optional<RunFailure> failure;  // of the failed fragment that comes first in reading order
};

class Renderer {
 public:
  explicit Renderer(const ShaderView& view) : view_(view), inputs_(view) {}

  HostInputs& inputs() { return inputs_; }

  // A fragment that runs into the time limit ends the picture: fragments under way end by
  // themselves or by their own limit, and no others are begun. Throws std::bad_alloc when memory is
  // short, and what a function of the settings or inputs throws.
  RenderResult render(const RenderSettings& settings);

 private:
  ShaderView view_;
  HostInputs inputs_;
  // One per thread, kept for the next picture with the translations that they hold.
  std::vector<std::shared_ptr<ShaderMachine>> machines_;
  // Likewise, for pictures in batches, and what has made them.
  std::vector<std::shared_ptr<ShaderBatch>> batches_;
  const BatchFunctions* batchFunctions_ = nullptr;
};

}  // namespace shadermachine::tools
