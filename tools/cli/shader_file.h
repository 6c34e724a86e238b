// Shaders from files, whatever language they are written in.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>

#include <stdexcept>
#include <string>

namespace shadermachine::tools {

// Something wrong with what the user gave; the text says what and where, perhaps on many lines.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a whole file.
std::string readText(const std::string& path);

// For sources in GLSL.
struct SourceOptions {
  std::vector<std::string> defines;   // NAME or NAME=VALUE
  std::vector<std::string> includes;  // folders where #include looks besides the including file's
  bool isForDebugging = false;
};

struct LoadedShader {
  BuiltShader built;
  std::vector<NamedValue> values = {};   // of host variables that the user gives none
  std::vector<std::string> unused = {};  // uniforms of the source that are no host variables

  ShaderView view() const { return built.view(); }
};

// The path is for messages. Programs that were built without the compiler say so.
LoadedShader compileShadingLanguage(const std::string& text, const std::string& path,
                                    const SourceOptions& options);

// Compiles by the file's extension; assembly text is what files without a known one hold.
LoadedShader loadShader(const std::string& path, const SourceOptions& options = {});

// Prints what the validator finds, each line with the path before it; false when there are errors.
bool reportValidation(const ShaderView& view, const std::string& path);

}  // namespace shadermachine::tools
