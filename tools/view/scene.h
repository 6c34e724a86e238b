// What a view shows, and what it needs of the program around it.
#pragma once

#include <shadermachine-tools/passes.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace shadermachine::tools {

// Shaders, loaded and ready. All functions but the constructor are called by one thread at a time.
class Scene {
 public:
  virtual ~Scene() = default;

  virtual Passes& passes() = 0;
  // Whether a pass reads the keyboard, and what it is to read from now on.
  virtual bool hasKeyboard() const = 0;
  virtual void setKeyboard(const Texture& keyboard) = 0;
  virtual std::string failureText(size_t pass, const RenderResult& result) = 0;
  // Writes to the terminal which lines of the source lead to a pixel of the frame that the picture
  // shows, counted from the top left.
  virtual void trace(const FrameInputs& frame, uint32_t x, uint32_t y) = 0;
  // A command for a shell that debugs it.
  virtual std::string debugCommand(const FrameInputs& frame, uint32_t x, uint32_t y) = 0;
};

struct LoadResult {
  std::unique_ptr<Scene> scene;  // null: `error` says why
  std::string error;
  std::vector<std::string> files;  // what was read: a change of one makes it worth another try
  std::filesystem::file_time_type readAt;  // or later
};

struct ViewHost {
  std::function<LoadResult()> load;
  // Both throw std::exception.
  std::function<void(const std::string& path, const FloatImage& picture)> save;
  std::function<void(const std::string& line)> say;  // a line on the terminal
  // Starts what Scene::debugCommand() says, on the terminal, beside the view; says why it cannot.
  std::function<void(const std::string& command)> debug;
  std::string name;  // that names of pictures begin with
};

}  // namespace shadermachine::tools
