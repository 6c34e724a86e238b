#include "cli/input_options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "assembly/symbols.h"
#include "cli/picture_file.h"
#include "cli/shader_file.h"
#include "view/devices.h"

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

std::string checkTime(const std::string& text) {
  float seconds = 0;
  const bool good = parseAll(text, seconds) && std::isfinite(seconds);
  return good ? "" : "expected a number of seconds, not " + text;
}

std::string checkTexture(const std::string& text) {
  Assignment assignment;
  return parseAssignment(text, assignment) ? "" : "expected name=file[,...], not " + text;
}

std::string checkValues(const std::string& text) {
  Assignment assignment;
  std::vector<double> numbers;
  const bool good = parseAssignment(text, assignment) && parseNumbers(assignment.value, numbers);
  return good ? "" : "expected name=number[,number...], not " + text;
}

std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> parts;
  for (size_t comma; (comma = text.find(',')) != std::string_view::npos;) {
    parts.push_back(text.substr(0, comma));
    text.remove_prefix(comma + 1);
  }
  parts.push_back(text);
  return parts;
}

void flipRows(ByteImage& image) {
  const auto rowSize = ptrdiff_t{4} * image.width;
  for (uint32_t y = 0; y < image.height / 2; ++y) {
    uint8_t* const row = image.pixel(0, y);
    std::swap_ranges(row, row + rowSize, image.pixel(0, image.height - 1 - y));
  }
}

}  // namespace

// One file, or six for a cube, and words that say how they are read.
Texture readTexture(std::string_view text) {
  if (text == kKeyboard) return Keyboard().texture();
  Texture texture;
  bool isFlipped = false;
  for (const std::string_view part : split(text)) {
    if (part == "nearest") {
      texture.filter = TextureFilter::Nearest;
    } else if (part == "clamp") {
      texture.wrap = TextureWrap::Clamp;
    } else if (part == "mirror") {
      texture.wrap = TextureWrap::Mirror;
    } else if (part == "flip") {
      isFlipped = true;
    } else {
      texture.faces.push_back(readPicture(std::string(part)));
    }
  }
  if (texture.faces.size() != 1 && texture.faces.size() != 6) {
    throw InputError("--texture: expected one picture or six, not " +
                     std::to_string(texture.faces.size()));
  }
  if (isFlipped) std::ranges::for_each(texture.faces, flipRows);
  texture.image = texture.faces[0];
  if (texture.faces.size() == 1) texture.faces.clear();
  return texture;
}

namespace {

// False, after a warning, for an input that the source has and the shader does not use. Throws when
// it is no input at all.
bool isUsed(const InputOptions& options, const LoadedShader& shader, std::string_view place,
            const HostInputs& inputs, const std::vector<std::string>& others) {
  const std::string name(place.substr(0, place.find_first_of("[.")));
  const std::vector<std::string_view> names = inputs.names();
  if (std::ranges::count(names, name) > 0) return true;
  if (std::ranges::count(others, name) > 0) return false;
  if (std::ranges::count(shader.unused, name) == 0) {
    throw InputError(options.shaderPath + ": error: the shader has no host variable '" + name +
                     "'" + assembly::suggestion(name, names));
  }
  std::fprintf(stderr, "%s: warning: the shader does not use '%s'\n", options.shaderPath.c_str(),
               name.c_str());
  return false;
}

}  // namespace

void addSourceOptions(CLI::App& command, SourceOptions& options) {
  command
      .add_option("--language", options.language,
                  "glsl or sasm (assembly text); told from the file unless given")
      ->type_name("NAME")
      ->check(CLI::IsMember({kGlsl, kAssembly}).description(""));
  command.add_option("-D", options.defines, "define a macro of a GLSL source")
      ->type_name("NAME[=VALUE]")
      ->expected(1)
      ->take_all();
  command
      .add_option("--target", options.target,
                  "location of the colour output of a GLSL source; the lowest unless given")
      ->check(CLI::Range(0, 63))
      ->type_name("N");
  command.add_option("-I", options.includes, "folder that #include looks in too")
      ->type_name("FOLDER")
      ->expected(1)
      ->take_all();
}

void addInputOptions(CLI::App& command, InputOptions& options) {
  command.add_option("shader", options.shaderPath, "the shader's file")
      ->required()
      ->type_name("FILE");
  addSourceOptions(command, options.source);
  command.add_option("--size", options.size, "width and height of the picture")
      ->type_name("WxH")
      ->check(CLI::Validator(checkSize, ""))
      ->capture_default_str();
  command.add_option("--time", options.time, "seconds at frame 0")
      ->check(CLI::Validator(checkTime, ""))
      ->type_name("SECONDS")
      ->capture_default_str();
  command.add_option("--frame", options.frame, "number of the frame, 30 to the second")
      ->check(CLI::Range(0, 1 << 30).description(""))
      ->type_name("N")
      ->capture_default_str();
  command
      .add_option("--texture", options.textures,
                  "picture for a sampler, or six for a cube (+x, -x, +y, -y, +z, -z); after it, "
                  "each with a comma: nearest, clamp, mirror, flip; or keyboard, that of a window")
      ->type_name("NAME=FILE[,...]")
      ->expected(1)
      ->take_all()
      ->check(CLI::Validator(checkTexture, ""));
  command
      .add_option("--set", options.values,
                  "value of a host variable, or of a part as in lights[0].position: all its "
                  "components, in declaration order")
      ->type_name("NAME=V[,...]")
      ->expected(1)
      ->take_all()
      ->check(CLI::Validator(checkValues, ""));
  command.add_flag("--no-validate", options.trusted,
                   "run a shader that may not validate; only for shaders you trust");
  command.add_option("--timeout", options.timeout, "milliseconds per fragment, 0 for no limit")
      ->type_name("MS")
      ->capture_default_str();
}

void checkInputs(const InputOptions& options) {
  const auto require = [](const std::string& error) {
    if (!error.empty()) throw InputError(error);
  };
  require(checkSize(options.size));
  for (const std::string& text : options.textures) require(checkTexture(text));
  for (const std::string& text : options.values) require(checkValues(text));
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

std::pair<std::string_view, std::string_view> partsOfAssignment(std::string_view text) {
  Assignment assignment;
  parseAssignment(text, assignment);
  return {assignment.name, assignment.value};
}

void applyInputs(const InputOptions& options, const LoadedShader& shader, HostInputs& inputs,
                 const std::vector<std::string>& others) {
  for (const NamedValue& value : shader.values) inputs.set(value.name, value.components);
  for (const std::string& text : options.textures) {
    const auto [name, value] = partsOfAssignment(text);
    if (!isUsed(options, shader, name, inputs, others)) continue;
    const std::string error = inputs.setTexture(name, readTexture(value));
    if (!error.empty()) throw InputError("--texture: " + error);
  }
  for (const std::string& text : options.values) {
    const auto [name, value] = partsOfAssignment(text);
    std::vector<double> numbers;
    parseNumbers(value, numbers);
    if (!isUsed(options, shader, name, inputs, others)) continue;
    const std::string error = inputs.set(name, numbers);
    if (!error.empty()) throw InputError("--set: " + error);
  }
  const std::vector<std::string> missing = inputs.missing();
  for (const std::string& name : shader.varyings) {
    if (std::ranges::count(missing, name) > 0) inputs.setUnitPosition(name);
  }
  for (const std::string& name : inputs.missing()) {
    std::fprintf(stderr, "%s: warning: host variable '%s' has no value and reads as zero\n",
                 options.shaderPath.c_str(), name.c_str());
  }
}

}  // namespace shadermachine::tools
