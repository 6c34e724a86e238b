// What a view does, without a window.
#include "view/view.h"

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>

namespace shadermachine::tools {
namespace {

// Red and green are the place in the picture, blue is the time.
constexpr const char* kSource =
    ".global vec4 colour\n.output0 colour\n.global vec2 uv host\n.global float iTime host\n"
    ".function main\nLOAD_GLOBAL uv\nLOAD_GLOBAL iTime\nPUSH_1_F\nCTOR_VEC4_A 2, 1, 1\n"
    "STORE_GLOBAL colour\nRETURN\n.end\n";

class OneShader final : public Scene {
 public:
  OneShader() : shader_(std::move(assemble(kSource).shader).value()) {
    passes_.add(shader_.view());
  }
  Passes& passes() override { return passes_; }
  bool hasKeyboard() const override { return false; }
  void setKeyboard(const Texture&) override {}
  std::string failureText(size_t, const RenderResult&) override { return "failed"; }
  void trace(const FrameInputs&, uint32_t, uint32_t) override {}
  std::string debugCommand(const FrameInputs& frame, uint32_t x, uint32_t y) override {
    return "debug " + std::to_string(x) + "," + std::to_string(y) + " of frame " +
           std::to_string(frame.frame);
  }

 private:
  BuiltShader shader_;
  Passes passes_;
};

class PausedView : public testing::Test {
 protected:
  PausedView() : view_(host(), settings()) { press(' '); }

  void press(uint32_t key) {
    view_.press(key, false);
    settle();
  }
  // Until nothing would change any more.
  void settle() {
    do {
      view_.update(now_ += 10);  // seconds, so that no message stays
      if (view_.hasNews()) picture_ = view_.compose();
      std::this_thread::yield();
    } while (!view_.isAtRest());
  }
  int blue() { return picture_.pixel(40, 5)[2]; }

  std::vector<std::string> said_;
  std::vector<std::string> debugged_;
  ByteImage picture_;
  View view_;

 private:
  ViewHost host() {
    const auto load = [] {
      LoadResult result;
      result.scene = std::make_unique<OneShader>();
      return result;
    };
    return {.load = load,
            .save = nullptr,
            .say = [this](const std::string& line) { said_.push_back(line); },
            .debug = [this](const std::string& line) { debugged_.push_back(line); },
            .name = "test"};
  }
  static ViewSettings settings() {
    ViewSettings settings;
    settings.render.frame.width = settings.render.frame.height = 64;
    settings.render.threads = 1;
    return settings;
  }

  double now_ = 0;
};

TEST_F(PausedView, GoesFrameByFrame) {
  constexpr uint32_t kHome = 36, kLeft = 37, kRight = 39;
  EXPECT_EQ(blue(), 0);
  for (int i = 0; i < 12; ++i) press(kRight);
  EXPECT_EQ(blue(), 102);
  for (int i = 0; i < 6; ++i) press(kLeft);
  EXPECT_EQ(blue(), 51);
  press(kHome);
  EXPECT_EQ(blue(), 0);
}

TEST_F(PausedView, DebugsThePickedPixel) {
  press('D');
  EXPECT_EQ(said_, std::vector<std::string>{"pick a pixel with the right button"});
  view_.pick(48, 32);
  press('D');
  EXPECT_EQ(said_.at(1), "pixel (48, 32): 0.757812 0.492188 0 1  #c17e00");
  EXPECT_EQ(debugged_, std::vector<std::string>{"debug 48,32 of frame 0"});
}

}  // namespace
}  // namespace shadermachine::tools
