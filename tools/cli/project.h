// The shaders that make a picture together, from the file that the user names. docs/tools.md says
// how buffers are written.
#pragma once

#include <shadermachine-tools/passes.h>

#include <map>
#include <string>
#include <vector>

#include "cli/input_options.h"
#include "cli/shader_file.h"

namespace shadermachine::tools {

class Project {
 public:
  // Loads everything and gives every pass its inputs. Throws InputError. `files` gets all files
  // that were read, even then.
  explicit Project(const InputOptions& options, std::vector<std::string>* files = nullptr);
  Project(const Project&) = delete;
  Project& operator=(const Project&) = delete;

  Passes& passes() { return passes_; }
  // The last one is the picture.
  const LoadedShader& shader(size_t pass) const { return parts_[pass].shader; }
  const LoadedShader& pictureShader() const { return parts_.back().shader; }
  // For messages about a pass: its file, and the buffer if that does not say it.
  std::string name(size_t pass) const { return parts_[pass].name; }

  // What happened in a pass to fragments that failed, with the place in its source.
  std::string failureText(size_t pass, const RenderResult& result) const;

  // What the picture's shader reads in a frame, after all those before it where there are buffers.
  const HostInputs& inputsOf(const FrameInputs& frame, const InputOptions& options);

  bool hasKeyboard() const { return !keyboards_.empty(); }
  void setKeyboard(const Texture& keyboard);

 private:
  struct Channel {
    std::string sampler;
    std::string target;  // a path or kKeyboard
    TextureFilter filter = TextureFilter::Linear;
    TextureWrap wrap = TextureWrap::Repeat;
    bool hasWrap = false;
  };
  struct Part {
    std::string name;
    std::string path;
    SourceOptions source;
    LoadedShader shader;
    std::vector<BufferRead> reads;
    std::vector<std::pair<std::string, std::string>> textures;  // sampler, what readTexture() takes
  };
  struct Keyboard {
    size_t pass;
    std::string sampler;
  };

  static InputOptions optionsOf(const Part& part, const InputOptions& options);
  Part load(const std::string& path, const SourceOptions& source);
  void addBuffersByMacro(Part& picture);
  void addBuffersByChannel(Part& picture);
  static bool isBuffer(const Channel& channel);
  static std::vector<Channel> channelsOf(const std::string& path);
  static void connectChannel(Part& part, const Channel& channel,
                             const std::map<std::string, Part>& buffers);
  void noteTexture(size_t pass, const std::string& sampler, std::string_view text);
  void applyAll(const InputOptions& options);

  std::vector<std::string> ownFiles_;
  std::vector<std::string>& files_;
  std::vector<Part> parts_;
  Passes passes_;
  std::vector<Keyboard> keyboards_;
};

}  // namespace shadermachine::tools
