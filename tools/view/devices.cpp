#include "view/devices.h"

#include <algorithm>

namespace shadermachine::tools {

void Mouse::move(float x, float y) {
  pointer_ = {x, y};
  if (isHeld_) dragged_ = pointer_;
}

void Mouse::press() {
  isHeld_ = isNew_ = true;
  dragged_ = pressedAt_ = pointer_;
}

void Mouse::fill(FrameInputs& frame) {
  frame.pointer = pointer_;
  frame.mouse = {dragged_[0], dragged_[1], isHeld_ ? pressedAt_[0] : -pressedAt_[0],
                 isNew_ ? pressedAt_[1] : -pressedAt_[1]};
  isNew_ = false;
}

void Keyboard::press(uint32_t key) {
  if (key >= kKeys || held_[key]) return;
  held_.set(key);
  pressed_.set(key);
  toggled_.flip(key);
}

void Keyboard::release(uint32_t key) {
  if (key < kKeys) held_.reset(key);
}

Texture Keyboard::texture() const {
  Texture texture;
  texture.image = ByteImage(kKeys, 3);
  texture.filter = TextureFilter::Nearest;
  texture.wrap = TextureWrap::Clamp;
  const std::bitset<kKeys>* const rows[] = {&toggled_, &pressed_, &held_};
  for (uint32_t row = 0; row < 3; ++row) {
    for (uint32_t key = 0; key < kKeys; ++key) {
      const uint8_t value = (*rows[row])[key] ? 255 : 0;
      std::fill_n(texture.image.pixel(key, row), 4, value);
    }
  }
  return texture;
}

}  // namespace shadermachine::tools
