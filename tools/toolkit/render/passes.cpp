#include <shadermachine-tools/passes.h>

#include <algorithm>

namespace shadermachine::tools {

Renderer& Passes::add(const ShaderView& view, std::vector<BufferRead> reads) {
  passes_.push_back({Renderer(view), std::move(reads), nullptr});
  return passes_.back().renderer;
}

void Passes::clear() {
  for (Pass& pass : passes_) pass.buffer = nullptr;
}

void Passes::fitBuffers(const FrameInputs& frame) {
  Buffer black;
  for (Pass& pass : passes_) {
    const bool fits = pass.buffer != nullptr && pass.buffer->width == frame.width &&
                      pass.buffer->height == frame.height;
    if (fits) continue;
    if (black == nullptr) black = std::make_shared<FloatImage>(frame.width, frame.height);
    pass.buffer = black;
  }
}

void Passes::connect(Pass& pass, const std::vector<Buffer>& buffers) {
  for (const BufferRead& read : pass.reads) {
    Texture texture;
    texture.filter = read.filter;
    texture.wrap = read.wrap;
    texture.floats = buffers[read.pass];
    pass.renderer.inputs().setTexture(read.sampler, std::move(texture));
  }
}

bool Passes::renderBuffers(const RenderSettings& settings, const Rendered& rendered) {
  fitBuffers(settings.frame);
  RenderSettings whole = settings;
  whole.region = std::nullopt;
  whole.pixelSize = 1;
  whole.samples = 1;
  whole.background = {};
  std::vector<Buffer> buffers;
  for (const Pass& pass : passes_) buffers.push_back(pass.buffer);
  for (size_t i = 0; i + 1 < passes_.size(); ++i) {
    connect(passes_[i], buffers);
    RenderResult result = passes_[i].renderer.render(whole);
    // New buffers are kept aside until all are there, so that a stop leaves those of the frame
    // before.
    if (settings.stop.stop_requested()) return false;
    if (rendered) rendered(i, result);
    buffers[i] = std::make_shared<FloatImage>(std::move(result.colour));
  }
  connect(passes_.back(), buffers);
  for (size_t i = 0; i < buffers.size(); ++i) passes_[i].buffer = std::move(buffers[i]);
  return true;
}

}  // namespace shadermachine::tools
