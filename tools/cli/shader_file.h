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
};

struct LoadedShader {
  BuiltShader built;
  std::vector<NamedValue> values = {};  // of host variables that the user gives none
  std::vector<std::string> varyings = {};
  std::vector<std::string> unused = {};  // uniforms of the source that are no host variables

  ShaderView view() const { return built.view(); }
};

// Reads a binary file, or compiles a source. Programs that were built without the GLSL compiler say
// so.
LoadedShader loadShader(const std::string& path, const SourceOptions& options = {});

// Prints what the validator finds, each line with the path before it; false when there are errors.
bool reportValidation(const ShaderView& view, const std::string& path);

}  // namespace shadermachine::tools
