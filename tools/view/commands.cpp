// What keys do, and what stands over the picture.
#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "view/text.h"
#include "view/view.h"

namespace shadermachine::tools {
namespace {

constexpr TextColour kPlain = {255, 255, 255};
constexpr TextColour kBad = {255, 150, 130};

constexpr const char* kHelp =
    "space         run, pause\n"
    "left, right   a frame back, on\n"
    "Home          from the beginning\n"
    "wheel, + - 0  zoom; middle button moves\n"
    "right button  pick a pixel\n"
    "T, D          trace, debug it on the terminal\n"
    "S             save the picture\n"
    "R             record frames, stop recording\n"
    "F             rate\n"
    "H, F1         this help\n"
    "Esc, Q        back, quit\n"
    "With a shader that reads the keyboard: Ctrl and these.";

// As browsers number them.
enum Key : uint32_t {
  kBackspace = 8,
  kEscape = 27,
  kSpace = 32,
  kHome = 36,
  kLeft = 37,
  kRight = 39,
  kNumpadPlus = 107,
  kNumpadMinus = 109,
  kF1 = 112,
  kPlus = 187,
  kMinus = 189,
};

[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...) {
  char text[200];
  std::va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

void drawFrame(ByteImage& image, int left, int top, int size) {
  const auto dot = [&](int x, int y) {
    const bool isInside = x >= 0 && y >= 0 && static_cast<uint32_t>(x) < image.width &&
                          static_cast<uint32_t>(y) < image.height;
    if (!isInside) return;
    const uint8_t value = ((x + y) & 2) != 0 ? 255 : 0;
    std::fill_n(image.pixel(static_cast<uint32_t>(x), static_cast<uint32_t>(y)), 3, value);
  };
  for (int i = 0; i < size; ++i) {
    dot(left + i, top);
    dot(left + i, top + size - 1);
    dot(left, top + i);
    dot(left + size - 1, top + i);
  }
}

}  // namespace

void View::press(uint32_t key, bool hasControl) {
  const bool isForShader = scene_ != nullptr && scene_->hasKeyboard();
  if (isForShader && !hasControl) {
    keyboard_.press(key);
  } else {
    command(key);
  }
  touch();
}

void View::command(uint32_t key) {
  switch (key) {
    case kSpace:
      isPaused_ = !isPaused_;
      break;
    case kLeft:
      step(-1);
      break;
    case kRight:
      step(1);
      break;
    case kHome:
    case kBackspace:
      restart();
      break;
    case kPlus:
    case kNumpadPlus:
      zoom(1);
      break;
    case kMinus:
    case kNumpadMinus:
      zoom(-1);
      break;
    case '0':
      zoom_.reset();
      break;
    case 'T':
      wantsTrace_ = hasPick();
      break;
    case 'D':
      if (hasPick()) host_.debug(scene_->debugCommand(frame_, pick_->x, pick_->y));
      break;
    case 'S':
      saveScreenshot();
      break;
    case 'R':
      toggleRecording();
      break;
    case 'F':
      settings_.showsRate = !settings_.showsRate;
      break;
    case 'H':
    case kF1:
      showsHelp_ = !showsHelp_;
      break;
    case kEscape:
      leave();
      break;
    case 'Q':
      isDone_ = true;
      break;
    default:
      break;
  }
}

bool View::hasPick() {
  const bool isThere = scene_ != nullptr && pick_;
  if (!isThere) announce("pick a pixel with the right button");
  return isThere;
}

// The nearest thing that can be left.
void View::leave() {
  if (showsHelp_) {
    showsHelp_ = false;
  } else if (pick_) {
    pick_.reset();
  } else if (zoom_.scale() > 1) {
    zoom_.reset();
  } else {
    isDone_ = true;
  }
}

std::string View::pickText() const {
  const FloatImage picture = sheet_.picture();
  if (!pick_ || pick_->x >= picture.width || pick_->y >= picture.height) return "";
  const float* const c = picture.pixel(pick_->x, pick_->y);
  std::string text =
      formatted("pixel (%u, %u): %.6g %.6g %.6g %.6g  #%02x%02x%02x", pick_->x, pick_->y, c[0],
                c[1], c[2], c[3], quantize(c[0]), quantize(c[1]), quantize(c[2]));
  return isSharp() ? text : text + ", of a larger one";
}

std::vector<std::string> View::statusLines() const {
  std::vector<std::string> lines;
  if (!message_.empty()) lines.push_back(message_);
  if (pick_) lines.push_back(pickText());
  std::string line;
  const auto add = [&line](const std::string& text) { line += (line.empty() ? "" : "  ") + text; };
  if (settings_.showsRate || isPaused_) {
    add(formatted("%.2f s  frame %d", double{frame_.time}, frame_.frame));
  }
  if (settings_.showsRate) {
    if (isPlaying()) add(formatted("%.1f fps", rate_));
    add(formatted("%ux%u", frame_.width, frame_.height));
  }
  if (zoom_.scale() > 1) add(formatted("%dx", zoom_.scale()));
  if (isRecording_) add(formatted("recording %u", recorded_));
  if (isPaused_) add("paused");
  if (!line.empty()) lines.push_back(line);
  return lines;
}

std::string View::errorText() const {
  if (!loadError_.empty()) return loadError_;
  if (scene_ == nullptr) return "loading";
  return sheet_.state().failure;
}

void View::drawPick(ByteImage& window) const {
  if (!pick_) return;
  const auto [left, top] =
      zoom_.windowPlace(static_cast<int>(pick_->x), static_cast<int>(pick_->y));
  const int margin = zoom_.scale() < 8 ? 4 : 1;
  drawFrame(window, left - margin, top - margin, zoom_.scale() + 2 * margin);
}

ByteImage View::compose() {
  composed_ = news();
  ByteImage window = zoom_.show(sheet_.picture(), frame_.width, frame_.height);
  drawPick(window);
  const size_t characters = frame_.width / kCharacterWidth;
  drawText(window, 0, 0, brokenLines(showsHelp_ ? kHelp : errorText(), characters - 2),
           showsHelp_ ? kPlain : kBad);
  std::vector<std::string> lines;
  for (const std::string& line : statusLines()) {
    std::ranges::copy(brokenLines(line, characters - 2), std::back_inserter(lines));
  }
  const auto height = static_cast<uint32_t>(lines.size() + 1) * kLineHeight;
  if (height < frame_.height) drawText(window, 0, frame_.height - height, lines, kPlain);
  return window;
}

}  // namespace shadermachine::tools
