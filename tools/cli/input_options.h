// The options that render and run share: what the shader gets from its host.
#pragma once

#include <shadermachine-tools/renderer.h>

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/shader_file.h"

namespace shadermachine::tools {

struct InputOptions {
  std::string shaderPath;
  SourceOptions source;
  std::string size = "640x360";
  float time = 0;
  int32_t frame = 0;
  uint32_t timeout = 2000;
  bool trusted = false;               // not validated
  std::vector<std::string> textures;  // name=file[,file...][,word...]
  std::vector<std::string> values;    // place=v[,v...]
};

// For subcommands that load shaders: language, and definitions and include folders of GLSL sources.
void addSourceOptions(CLI::App& command, SourceOptions& options);

void addInputOptions(CLI::App& command, InputOptions& options);

// The same checks for options that were not on the command line. Throws InputError.
void checkInputs(const InputOptions& options);

// Width and height of the picture, time and number of the frame.
FrameInputs frameInputs(const InputOptions& options, int32_t frame);

// Throws InputError unless the shader validates or the user answers for it.
void validateUnlessTrusted(const InputOptions& options, const ShaderView& view);

// Gives the shader its textures and values, the initial ones first, and warns about host variables
// that stay without one, and about values that the shader does not use. Throws InputError. Values
// that it lacks may be meant for `others`, host variables of other shaders.
void applyInputs(const InputOptions& options, const LoadedShader& shader, HostInputs& inputs,
                 const std::vector<std::string>& others = {});

// "name=value", of an option that was checked.
std::pair<std::string_view, std::string_view> partsOfAssignment(std::string_view text);

// What stands behind the "=" of --texture, or at a channel; paths as they are. Throws.
Texture readTexture(std::string_view text);

// A texture that is the keyboard.
inline constexpr std::string_view kKeyboard = "keyboard";

}  // namespace shadermachine::tools
