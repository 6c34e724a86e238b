// One frame of a scene, rendered on a thread of its own, coarse first.
//
// Invariant: the sheet's picture always covers the whole frame; what is not yet rendered shows
// larger pixels, or the frame before.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "view/scene.h"

namespace shadermachine::tools {

struct FrameRequest {
  RenderSettings settings;
  bool isNext = true;      // buffers move on; otherwise the last frame is shown again
  bool isPatient = false;  // until all is sharp, however long it takes
  uint32_t pixelSize = 1;  // to begin with, a power of two
};

// What of the picture is there, for other threads to look at.
class Sheet {
 public:
  struct State {
    uint64_t version = 0;    // another one whenever the picture is
    uint32_t pixelSize = 0;  // of its coarsest part; 0: there is none yet
    double seconds = 0;      // that a whole sharp picture takes, as far as known
    std::string failure;     // of the frame that is shown; empty: there is none
  };

  State state() const;
  FloatImage picture() const;

  // The rest is for who renders.
  void draw(const RenderResult& result, const RenderSettings& settings);
  void setPixelSize(uint32_t size);
  void setSeconds(double seconds);
  void setFailure(std::string text);

 private:
  mutable std::mutex mutex_;
  FloatImage picture_;
  State state_;
};

// Takes about as long as a frame of an animation may unless the request is patient.
void renderFrame(Scene& scene, const FrameRequest& request, std::stop_token stop, Sheet& sheet);

// Does one thing at a time on a thread.
class Worker {
 public:
  bool isIdle() const { return isIdle_; }
  // Only while idle.
  void start(std::function<void(std::stop_token)> task);
  // Does not wait for the end.
  void cancel() { thread_.request_stop(); }

 private:
  std::atomic<bool> isIdle_ = true;
  std::jthread thread_;
};

}  // namespace shadermachine::tools
