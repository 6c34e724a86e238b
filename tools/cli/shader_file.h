// Shaders from files, whatever language they are written in.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>

#include <string>
#include <vector>

namespace shadermachine::tools {

// The languages that SourceOptions name.
inline constexpr const char* kGlsl = "glsl";
inline constexpr const char* kAssembly = "sasm";

// How a source is to be read.
struct SourceOptions {
  int target = -1;                    // of GLSL: location of the colour output; -1: the lowest
  std::string language;               // empty: as the file's extension says or its text looks like
  std::vector<std::string> defines;   // of GLSL: NAME or NAME=VALUE
  std::vector<std::string> includes;  // folders where #include looks besides the including file's
  bool isForDebugging = false;
  bool isBuffer = false;  // other shaders read the result
};

struct LoadedShader {
  BuiltShader built;
  std::vector<NamedValue> values = {};  // of host variables that the user gives none
  std::vector<std::string> varyings = {};
  std::vector<std::string> unused = {};  // uniforms of the source that are no host variables

  ShaderView view() const { return built.view(); }
};

// Reads a binary file, or compiles a source. Programs that were built without the GLSL compiler say
// so. `files` gets the names of all files that were read, even when it throws.
LoadedShader loadShader(const std::string& path, const SourceOptions& options = {},
                        std::vector<std::string>* files = nullptr);

// Whether the extension says that the file holds GLSL.
bool hasGlslExtension(const std::string& path);

// What "#iChannel0 "file"" and "#iChannel0::Setting "value"" say in a source of GLSL, for which the
// compiler is given nothing, or the declaration of a cube.
struct ChannelLine {
  std::string channel;  // "iChannel0"
  std::string setting;  // empty: what the channel shows
  std::string value;
};
std::vector<ChannelLine> channelLines(const std::string& text);

// Prints what the validator finds, each line with the path before it; false when there are errors.
bool reportValidation(const ShaderView& view, const std::string& path);

}  // namespace shadermachine::tools
