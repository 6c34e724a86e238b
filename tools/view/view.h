// The state of a live view: time, reloading, what is pressed and picked. Knows nothing of windows:
// who has one passes events in and shows what compose() makes.
//
// Invariant: the scene is only replaced or looked into while the worker is idle.
#pragma once

#include <array>
#include <optional>

#include "view/devices.h"
#include "view/file_watch.h"
#include "view/frame.h"
#include "view/zoom.h"

namespace shadermachine::tools {

struct ViewSettings {
  RenderSettings render;  // size of the window, time at the beginning, threads, time limit
  bool showsRate = false;
};

class View {
 public:
  View(ViewHost host, const ViewSettings& settings);

  // Events. Positions are those of the window, from its top left.
  void resize(uint32_t width, uint32_t height);
  // A key by its number as Keyboard has it. Commands work with Control, and without it unless a
  // shader reads the keyboard.
  void press(uint32_t key, bool hasControl);
  void release(uint32_t key) { keyboard_.release(key); }
  void movePointer(int x, int y);
  void pressButton();
  void releaseButton();
  void pick(int x, int y);
  void zoom(int steps);
  void drag(int x, int y);

  // To be called often, with the seconds since some beginning.
  void update(double now);
  // Whether compose() would make something new.
  bool hasNews() const { return news() != composed_; }
  ByteImage compose();

  bool isDone() const { return isDone_; }
  // Nothing will change until an event comes, or a file changes.
  bool isAtRest() const;

 private:
  struct Pick {
    uint32_t x, y;
  };
  using News = std::pair<uint64_t, uint64_t>;

  void command(uint32_t key);
  void leave();
  bool hasPick();
  void startLoad();
  void finishLoad();
  bool isPlaying() const { return !isPaused_ && isAnimated_; }
  bool isSharp() const { return sheet_.state().pixelSize == 1; }
  bool wantsFrame() const;
  bool wantsCancel() const;
  void startFrame();
  void nextFrame();
  void finishFrame();
  void changeInput(bool isRead);
  void restart();
  void step(int frames);
  void toggleRecording();
  void saveScreenshot();
  void startTrace();
  void save(const std::string& path);
  void announce(const std::string& text);
  News news() const { return {sheet_.state().version, overlay_}; }
  void touch() { ++overlay_; }

  std::string errorText() const;
  std::vector<std::string> statusLines() const;
  std::string pickText() const;
  void drawPick(ByteImage& window) const;

  ViewHost host_;
  ViewSettings settings_;
  Mouse mouse_;
  Keyboard keyboard_;
  Zoom zoom_;
  std::array<int, 2> pointer_ = {};
  std::optional<Pick> pick_;

  std::unique_ptr<Scene> scene_;
  bool isAnimated_ = false;
  bool readsMouse_ = false;
  LoadResult loaded_;  // written by the worker
  bool isLoading_ = false;
  bool wantsLoad_ = true;
  std::string loadError_;
  std::string saidFailure_;
  FileWatch files_;
  double nextLook_ = 0;  // at them

  double now_ = 0;
  double time_;        // of the next frame
  FrameInputs frame_;  // of the last frame
  int32_t nextNumber_ = 0;
  double frameStart_ = -1;     // when the last frame was begun
  uint64_t startVersion_ = 0;  // of the sheet, then
  bool isFrameUnderWay_ = false;
  bool isPatient_ = false;
  bool isPaused_ = false;
  bool isDue_ = true;     // the next frame, paused or not
  bool isDirty_ = false;  // the last frame would look different now
  bool isStale_ = false;  // the frame under way is for nothing
  bool wantsTrace_ = false;
  bool isRecording_ = false;
  uint32_t recorded_ = 0;
  bool isDone_ = false;

  double rate_ = 0;  // frames per second, a running mean
  bool showsHelp_ = false;
  std::string message_;
  double messageUntil_ = 0;
  uint64_t overlay_ = 0;  // counts changes of what stands over the picture
  News composed_ = {~uint64_t{0}, 0};

  Sheet sheet_;
  Worker worker_;  // the last, since it uses the others until it ends
};

}  // namespace shadermachine::tools
