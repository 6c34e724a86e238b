// Compiles GLSL fragment shaders: GLSL 1.10 and 1.20, ES 1.00, and of ES 3.00 and 1.30 upwards what
// the instruction set can carry. docs/glsl.md lists what is supported and what is not.
//
//   GlslResult result = compileGlsl(source, {.fileName = "picture.frag"});
//   if (!result.shader) for (const GlslMessage& message : result.messages) report(message);
//
// Only in builds that found glslang; target shadermachine::glsl.
//
// The shader follows the host contract (host_contract.h): uniforms and varyings are host variables
// by name, the first colour output and the depth are the two outputs. Everything that validates is
// promised for its code: it reads nothing undefined and leaks nothing.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

// A file that an #include names, and where it was found.
struct GlslInclude {
  std::string path;
  std::string text;
};

struct GlslOptions {
  std::string fileName = "shader.frag";   // for messages
  std::vector<std::string> defines = {};  // "NAME" or "NAME=VALUE"
  // Finds what #include "name" or <name> in the file `includer` means; without it, includes are
  // errors. "Common.glsl" is asked for too, for sources with mainImage(); what is found goes first.
  std::function<std::optional<GlslInclude>(const std::string& name, const std::string& includer)>
      include = nullptr;
  // For debuggers: every function stays one, every variable has a place of its own.
  bool isForDebugging = false;
  // mainImage() makes a buffer, and its alpha counts; otherwise it makes a picture, which is
  // opaque.
  bool isBuffer = false;
  // Location of the colour output that becomes the record's first output: the lowest that is used
  // unless given. The others become globals of the same name ("gl_FragData[1]").
  std::optional<unsigned> output = std::nullopt;
};

struct GlslMessage {
  std::string file;
  int line = 0;
  std::string text;
  bool isNote = false;   // about the errors before it
  int column = 0;        // 0: unknown
  int length = 1;        // bytes to underline
  std::string lineText;  // empty after many long ones
};

// "picture.frag:12:9: error: undeclared identifier 'x'", the line, and a caret below the place.
std::string toString(const GlslMessage& message);

struct GlslResult {
  std::optional<BuiltShader> shader;  // empty when there are messages
  std::vector<GlslMessage> messages;  // errors, in the order of the source where possible
  // A fault of the compiler: what it made of the source does not validate, and is no shader.
  bool isUnsound = false;
  bool usesDerivatives = false;  // dFdx, dFdy or fwidth: the host needs neighbours' values
  // Initial values of the uniforms that the shader uses; the host is to give these where it has no
  // others.
  std::vector<NamedValue> uniformValues;
  std::vector<std::string> varyings;        // host variables that differ from fragment to fragment
  std::vector<std::string> unusedUniforms;  // declared, but no host variables of the shader
};

// A source without #version is tried as several versions. A source without main() but with
// mainImage(out vec4, in vec2), or with transition(vec2), gets both an entry and the inputs that
// such shaders expect. May be called from several threads.
GlslResult compileGlsl(std::string_view source, const GlslOptions& options = {});

}  // namespace shadermachine::tools
