#include "cli/input_options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "cli/png_file.h"
#include "cli/shader_file.h"

namespace shadermachine::tools {
namespace {

constexpr uint32_t kMaxSide = 16384;
constexpr float kFramesPerSecond = 30;

template <class T>
bool parseAll(std::string_view text, T& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

bool parseSize(std::string_view text, uint32_t& width, uint32_t& height) {
  const size_t cross = text.find('x');
  return cross != std::string_view::npos && parseAll(text.substr(0, cross), width) &&
         parseAll(text.substr(cross + 1), height) && width >= 1 && width <= kMaxSide &&
         height >= 1 && height <= kMaxSide;
}

struct Assignment {
  std::string_view name, value;
};

bool parseAssignment(std::string_view text, Assignment& assignment) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos || equals == 0) return false;
  assignment = {text.substr(0, equals), text.substr(equals + 1)};
  return !assignment.value.empty();
}

bool parseNumbers(std::string_view text, std::vector<double>& numbers) {
  while (true) {
    const size_t comma = text.find(',');
    double number = 0;
    if (!parseAll(text.substr(0, comma), number)) return false;
    numbers.push_back(number);
    if (comma == std::string_view::npos) return true;
    text.remove_prefix(comma + 1);
  }
}

std::string checkSize(const std::string& text) {
  uint32_t width = 0;
  uint32_t height = 0;
  if (parseSize(text, width, height)) return "";
  return "expected WIDTHxHEIGHT, each from 1 to " + std::to_string(kMaxSide) + ", not " + text;
}

std::string checkTexture(const std::string& text) {
  Assignment assignment;
  return parseAssignment(text, assignment) ? "" : "expected name=file.png, not " + text;
}

std::string checkValues(const std::string& text) {
  Assignment assignment;
  std::vector<double> numbers;
  const bool good = parseAssignment(text, assignment) && parseNumbers(assignment.value, numbers);
  return good ? "" : "expected name=number[,number...], not " + text;
}

void applyTexture(std::string_view name, std::string_view value, HostInputs& inputs) {
  constexpr std::string_view kNearest = ",nearest";
  Texture texture;
  if (value.ends_with(kNearest)) {
    texture.filter = TextureFilter::Nearest;
    value.remove_suffix(kNearest.size());
  }
  texture.image = readPng(std::string(value));
  const std::string error = inputs.setTexture(name, std::move(texture));
  if (!error.empty()) throw InputError("--texture: " + error);
}

}  // namespace

void addSourceOptions(CLI::App& command, SourceOptions& options) {
  command.add_option("-D", options.defines, "define a macro of a GLSL source")
      ->type_name("NAME[=VALUE]")
      ->expected(1)
      ->take_all();
  command.add_option("-I", options.includes, "folder that #include looks in too")
      ->type_name("FOLDER")
      ->expected(1)
      ->take_all();
}

void addInputOptions(CLI::App& command, InputOptions& options) {
  command.add_option("shader", options.shaderPath, "the shader's file")->required();
  addSourceOptions(command, options.source);
  command.add_option("--size", options.size, "width and height of the picture")
      ->type_name("WxH")
      ->check(CLI::Validator(checkSize, ""))
      ->capture_default_str();
  command.add_option("--time", options.time, "seconds at frame 0")->capture_default_str();
  command
      .add_option("--texture", options.textures,
                  "picture for a sampler; with ,nearest at its end unfiltered")
      ->type_name("NAME=FILE.png")
      ->expected(1)
      ->take_all()
      ->check(CLI::Validator(checkTexture, ""));
  command
      .add_option("--set", options.values,
                  "value of a host variable: all its components, in declaration order")
      ->type_name("NAME=V[,V...]")
      ->expected(1)
      ->take_all()
      ->check(CLI::Validator(checkValues, ""));
  command.add_flag("--no-validate", options.trusted,
                   "run a shader that may not validate; only for shaders you trust");
  command.add_option("--timeout", options.timeout, "milliseconds per fragment, 0 for no limit")
      ->type_name("MS")
      ->capture_default_str();
}

FrameInputs frameInputs(const InputOptions& options, int32_t frame) {
  FrameInputs inputs;
  parseSize(options.size, inputs.width, inputs.height);
  inputs.time = options.time + static_cast<float>(frame) / kFramesPerSecond;
  inputs.timeDelta = 1 / kFramesPerSecond;
  inputs.frame = frame;
  return inputs;
}

void validateUnlessTrusted(const InputOptions& options, const ShaderView& view) {
  if (!options.trusted && !reportValidation(view, options.shaderPath)) {
    throw InputError(options.shaderPath + ": error: the shader does not validate");
  }
}

void applyInputs(const InputOptions& options, const LoadedShader& shader, HostInputs& inputs) {
  for (const NamedValue& value : shader.values) inputs.set(value.name, value.components);
  for (const std::string& text : options.textures) {
    Assignment assignment;
    parseAssignment(text, assignment);
    applyTexture(assignment.name, assignment.value, inputs);
  }
  for (const std::string& text : options.values) {
    Assignment assignment;
    std::vector<double> numbers;
    parseAssignment(text, assignment);
    parseNumbers(assignment.value, numbers);
    if (std::ranges::count(shader.unused, assignment.name) > 0) {
      std::fprintf(stderr, "%s: warning: the shader does not use '%.*s'\n",
                   options.shaderPath.c_str(), static_cast<int>(assignment.name.size()),
                   assignment.name.data());
      continue;
    }
    const std::string error = inputs.set(assignment.name, numbers);
    if (!error.empty()) throw InputError("--set: " + error);
  }
  for (const std::string& name : inputs.missing()) {
    std::fprintf(stderr, "%s: warning: host variable '%s' has no value and reads as zero\n",
                 options.shaderPath.c_str(), name.c_str());
  }
}

}  // namespace shadermachine::tools
