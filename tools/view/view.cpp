#include "view/view.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace shadermachine::tools {
namespace {

constexpr double kShortestFrame = 1.0 / 60;
constexpr double kStep = 1.0 / 30;  // of a single step, and between recorded frames
constexpr double kQuick = 0.1;      // a sharp picture is made at once if it takes no longer
constexpr double kMessageTime = 3;  // seconds on the screen
constexpr double kLookInterval = 0.2;
constexpr uint32_t kCoarse = 8;

// Whether a pass asks for one of these.
template <size_t N>
bool reads(Passes& passes, const std::array<const char*, N>& names) {
  for (size_t pass = 0; pass < passes.count(); ++pass) {
    for (const std::string_view name : passes.renderer(pass).inputs().names()) {
      if (std::ranges::count(names, name) > 0) return true;
    }
  }
  return false;
}

constexpr std::array kTimes = {"iTime",      "iGlobalTime", "u_time", "time",        "iTimeDelta",
                               "iFrameRate", "iFrame",      "iDate",  "iChannelTime"};
constexpr std::array kMice = {"iMouse", "u_mouse", "mouse"};

}  // namespace

View::View(ViewHost host, const ViewSettings& settings)
    : host_(std::move(host)),
      settings_(settings),
      time_(settings.render.frame.time),
      frame_(settings.render.frame) {}

void View::resize(uint32_t width, uint32_t height) {
  if (width == frame_.width && height == frame_.height) return;
  frame_.width = width;
  frame_.height = height;
  zoom_.reset();
  pick_.reset();
  if (scene_ != nullptr && scene_->passes().count() > 1) restart();
  isDirty_ = isStale_ = true;
  touch();
}

void View::changeInput(bool isRead) {
  // Buffers would have to go back a frame.
  if (isRead && scene_ != nullptr && scene_->passes().count() == 1) isDirty_ = true;
}

void View::movePointer(int x, int y) {
  pointer_ = {x, y};
  const auto [column, row] = zoom_.placeAt(x, y);
  mouse_.move(static_cast<float>(column), static_cast<float>(frame_.height - row));
  changeInput(readsMouse_);
}

void View::pressButton() {
  mouse_.press();
  changeInput(readsMouse_);
}

void View::releaseButton() {
  mouse_.release();
  changeInput(readsMouse_);
}

void View::zoom(int steps) {
  zoom_.change(steps, pointer_[0], pointer_[1]);
  touch();
}

void View::drag(int x, int y) {
  zoom_.drag(x, y);
  touch();
}

void View::pick(int x, int y) {
  const auto [column, row] = zoom_.pixelAt(x, y);
  const auto isWithin = [](int place, uint32_t size) {
    return place >= 0 && static_cast<uint32_t>(place) < size;
  };
  pick_.reset();
  touch();
  if (!isWithin(column, frame_.width) || !isWithin(row, frame_.height) || scene_ == nullptr) return;
  pick_ = {static_cast<uint32_t>(column), static_cast<uint32_t>(row)};
  host_.say(pickText());
  host_.say("  " + scene_->debugCommand(frame_, pick_->x, pick_->y));
}

bool View::wantsFrame() const {
  if (scene_ == nullptr || frame_.width == 0 || frame_.height == 0) return false;
  if (isDue_ || isDirty_ || isRecording_) return true;
  if (isPlaying()) return now_ - frameStart_ >= kShortestFrame;
  return !isSharp() && sheet_.state().failure.empty();
}

// What is under way goes on until it has shown something, or a hand that moves would see nothing.
bool View::wantsCancel() const {
  if (isLoading_) return false;
  if (wantsLoad_ || isStale_ || isDone_) return true;
  if (isRecording_ || news().first == startVersion_) return false;
  return isDirty_ || isDue_ || wantsTrace_ || (isPatient_ && isPlaying());
}

void View::update(double now) {
  const double passed = now - now_;
  now_ = now;
  if (!isPaused_ && !isRecording_ && scene_ != nullptr) time_ += passed;
  if (!message_.empty() && now >= messageUntil_) {
    message_.clear();
    touch();
  }
  if (now >= nextLook_) {
    nextLook_ = now + kLookInterval;
    if (files_.hasChange()) wantsLoad_ = true;
  }
  if (!worker_.isIdle()) {
    if (wantsCancel()) worker_.cancel();
    return;
  }
  if (isLoading_) finishLoad();
  if (isFrameUnderWay_) finishFrame();
  if (wantsLoad_) {
    startLoad();
  } else if (wantsTrace_) {
    startTrace();
  } else if (wantsFrame()) {
    startFrame();
  }
}

bool View::isAtRest() const {
  return worker_.isIdle() && !isLoading_ && !isFrameUnderWay_ && !wantsLoad_ && !wantsTrace_ &&
         !wantsFrame() && !isPlaying() && message_.empty() && !hasNews();
}

void View::startLoad() {
  wantsLoad_ = false;
  isLoading_ = true;
  worker_.start([this](const std::stop_token&) { loaded_ = host_.load(); });
}

void View::finishLoad() {
  isLoading_ = false;
  files_.watch(loaded_.files, loaded_.readAt);
  if (loaded_.error != loadError_ && !loaded_.error.empty()) host_.say(loaded_.error);
  loadError_ = loaded_.error;
  touch();
  if (loaded_.scene == nullptr) return;
  const bool isFirst = scene_ == nullptr;
  scene_ = std::move(loaded_.scene);
  Passes& passes = scene_->passes();
  isAnimated_ = passes.count() > 1 || scene_->hasKeyboard() || reads(passes, kTimes);
  readsMouse_ = reads(passes, kMice);
  saidFailure_.clear();
  sheet_.setSeconds(0);
  isDirty_ = true;
  if (isFirst || passes.count() > 1) restart();
}

void View::nextFrame() {
  const double rate = 1 / std::max(now_ - frameStart_, 1e-3);
  rate_ = rate_ == 0 || isPaused_ ? rate : rate_ + (rate - rate_) / 8;
  if (nextNumber_ == 0) scene_->passes().clear();
  frame_.timeDelta = static_cast<float>(
      nextNumber_ > 0 && time_ > double{frame_.time} ? time_ - double{frame_.time} : kStep);
  frame_.time = static_cast<float>(time_);
  frame_.frame = nextNumber_++;
  if (isRecording_) time_ += kStep;
  if (scene_->hasKeyboard()) scene_->setKeyboard(keyboard_.texture());
  keyboard_.endFrame();
}

void View::startFrame() {
  FrameRequest request;
  request.isNext = isDue_ || isRecording_ || isPlaying();
  const bool isRefinement = !request.isNext && !isDirty_;
  if (request.isNext) nextFrame();
  if (!isRefinement) mouse_.fill(frame_);
  isPatient_ = request.isPatient = isRecording_ || !isPlaying();
  const Sheet::State state = sheet_.state();
  const bool isQuick = state.seconds > 0 && state.seconds <= kQuick;
  request.pixelSize = isQuick ? 1 : isRefinement ? std::max(state.pixelSize / 2, 1u) : kCoarse;
  request.settings = settings_.render;
  request.settings.frame = frame_;
  isDue_ = isDirty_ = isStale_ = false;
  isFrameUnderWay_ = true;
  startVersion_ = state.version;
  frameStart_ = now_;
  worker_.start([this, request](const std::stop_token& stop) {
    renderFrame(*scene_, request, stop, sheet_);
  });
}

void View::finishFrame() {
  isFrameUnderWay_ = false;
  touch();
  const std::string failure = sheet_.state().failure;
  if (!failure.empty() && failure != saidFailure_) host_.say(failure);
  saidFailure_ = failure;
  if (!isRecording_ || isStale_) return;
  char number[16];
  std::snprintf(number, sizeof number, "-%04u.png", recorded_++);
  save(host_.name + number);
}

void View::restart() {
  time_ = settings_.render.frame.time;
  nextNumber_ = 0;
  isDue_ = true;
}

void View::step(int frames) {
  if (scene_ == nullptr) return;
  if (frames < 0 && scene_->passes().count() > 1) {
    announce("buffers cannot go back: Home begins anew");
    return;
  }
  isPaused_ = true;
  time_ = double{frame_.time} + frames * kStep;
  nextNumber_ = std::max(frame_.frame + frames, 0);
  isDue_ = true;
}

void View::toggleRecording() {
  isRecording_ = !isRecording_;
  if (isRecording_) {
    recorded_ = 0;
    announce("recording to " + host_.name + "-0000.png and so on");
  } else {
    announce(std::to_string(recorded_) + " frames recorded, 30 to the second");
  }
}

void View::saveScreenshot() {
  for (unsigned number = 1;; ++number) {
    const std::string path = host_.name + "-shot-" + std::to_string(number) + ".png";
    if (std::filesystem::exists(path)) continue;
    save(path);
    announce("saved " + path);
    return;
  }
}

void View::save(const std::string& path) {
  try {
    host_.save(path, sheet_.picture());
  } catch (const std::exception& error) {
    isRecording_ = false;
    announce(error.what());
  }
}

void View::startTrace() {
  wantsTrace_ = false;
  if (scene_ == nullptr || !pick_) return;
  worker_.start(
      [this, pick = *pick_](const std::stop_token&) { scene_->trace(frame_, pick.x, pick.y); });
}

void View::announce(const std::string& text) {
  host_.say(text);
  message_ = text;
  messageUntil_ = now_ + kMessageTime;
  touch();
}

}  // namespace shadermachine::tools
