// Several shaders that make one picture: every pass but the last renders a buffer, a picture of
// floats as large as the frame, that passes read as a texture.
//
//   Passes passes;
//   passes.add(simulation.view(), {{.sampler = "state", .pass = 0}});
//   passes.add(picture.view(), {{.sampler = "state", .pass = 0}});
//   for (settings.frame.frame = 0; ...; ++settings.frame.frame) {
//     passes.renderBuffers(settings);
//     RenderResult result = passes.picture().render(settings);
//   }
#pragma once

#include <shadermachine-tools/renderer.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace shadermachine::tools {

// A sampler of a pass and the pass whose buffer it reads.
struct BufferRead {
  std::string sampler;
  size_t pass = 0;
  TextureFilter filter = TextureFilter::Linear;
  TextureWrap wrap = TextureWrap::Clamp;
};

// Buffers are rendered in the order in which their passes were added. Those before a pass show it
// the same frame, its own and those behind it the frame before, which is zeros at the beginning.
class Passes {
 public:
  using Rendered = std::function<void(size_t pass, const RenderResult& result)>;

  // The view must outlive this. Names of samplers that the shader lacks are ignored.
  Renderer& add(const ShaderView& view, std::vector<BufferRead> reads = {});

  size_t count() const { return passes_.size(); }
  Renderer& renderer(size_t pass) { return passes_[pass].renderer; }
  Renderer& picture() { return passes_.back().renderer; }

  // All buffers of one frame, whole and with one sample per pixel. `rendered` hears of each. False
  // when settings.stop ended it: the buffers are as before.
  bool renderBuffers(const RenderSettings& settings, const Rendered& rendered = nullptr);

  // Makes all buffers zeros, as does a frame of another size.
  void clear();

 private:
  using Buffer = std::shared_ptr<const FloatImage>;
  struct Pass {
    Renderer renderer;
    std::vector<BufferRead> reads;
    Buffer buffer;
  };

  void fitBuffers(const FrameInputs& frame);
  // As `buffers` show them.
  static void connect(Pass& pass, const std::vector<Buffer>& buffers);

  std::deque<Pass> passes_;
};

}  // namespace shadermachine::tools
