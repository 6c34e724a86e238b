// Mouse and keyboard as shaders see them.
#pragma once

#include <shadermachine-tools/host_inputs.h>

#include <array>
#include <bitset>
#include <cstdint>

namespace shadermachine::tools {

// In pixels of the frame, y up.
class Mouse {
 public:
  void move(float x, float y);
  void press();
  void release() { isHeld_ = false; }
  // For one frame; the next one is no longer the first since the button was pressed.
  void fill(FrameInputs& frame);

 private:
  std::array<float, 2> pointer_ = {};
  std::array<float, 2> dragged_ = {};
  std::array<float, 2> pressedAt_ = {};
  bool isHeld_ = false;
  bool isNew_ = false;
};

// Numbers of keys are those of browsers (KeyboardEvent.keyCode), as ShaderToy has them.
class Keyboard {
 public:
  static constexpr uint32_t kKeys = 256;

  void press(uint32_t key);
  void release(uint32_t key);
  // The bottom row says which keys are held, the next which were pressed since the last frame, the
  // top one which were pressed an odd number of times.
  Texture texture() const;
  void endFrame() { pressed_.reset(); }

 private:
  std::bitset<kKeys> held_;
  std::bitset<kKeys> pressed_;
  std::bitset<kKeys> toggled_;
};

}  // namespace shadermachine::tools
