#include "cli/project.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>

#include "cli/files.h"

namespace shadermachine::tools {
namespace {

constexpr size_t kMaxBuffers = 32;

// Words behind #if, #ifdef and #elif that name a buffer.
std::set<std::string> buffersIn(const std::string& text) {
  static const std::regex conditional("^[ \\t]*#[ \\t]*(?:if|ifdef|elif)\\b[^\\n]*",
                                      std::regex::multiline);
  static const std::regex buffer("\\b(?:DOUBLE_)?BUFFER_(?:[0-9]|[12][0-9]|3[01])\\b");
  std::set<std::string> names;
  for (std::sregex_iterator line(text.begin(), text.end(), conditional), end; line != end; ++line) {
    const std::string condition = line->str();
    for (std::sregex_iterator name(condition.begin(), condition.end(), buffer); name != end;
         ++name) {
      names.insert(name->str());
    }
  }
  return names;
}

// "BUFFER_2" is the sampler "u_buffer2", "DOUBLE_BUFFER_0" is "u_doubleBuffer0".
std::string samplerOf(const std::string& buffer) {
  const std::string number = buffer.substr(buffer.rfind('_') + 1);
  return (buffer.starts_with("DOUBLE") ? "u_doubleBuffer" : "u_buffer") + number;
}

// Simple buffers first, each kind by number.
std::vector<std::string> inOrder(const std::set<std::string>& names) {
  std::vector<std::string> result(names.begin(), names.end());
  std::ranges::sort(result, {}, [](const std::string& name) {
    return std::tuple(name.starts_with("DOUBLE"), name.size(), name);
  });
  return result;
}

std::string withoutScheme(const std::string& target) {
  constexpr std::string_view kScheme = "file://";
  return target.starts_with(kScheme) ? target.substr(kScheme.size()) : target;
}

// As the shader's file names it.
std::string pathOf(const std::string& target, const std::string& source) {
  const std::filesystem::path path = std::filesystem::path(source).parent_path() / target;
  return path.lexically_normal().string();
}

// The six files that stand behind "sky_{}.png".
std::string cubeFiles(const std::string& path) {
  constexpr const char* kSides[][6] = {{"px", "nx", "py", "ny", "pz", "nz"},
                                       {"posx", "negx", "posy", "negy", "posz", "negz"},
                                       {"right", "left", "top", "bottom", "front", "back"},
                                       {"0", "1", "2", "3", "4", "5"}};
  const size_t place = path.find("{}");
  if (place == std::string::npos) return path;
  for (const auto& sides : kSides) {
    std::string files;
    bool areThere = true;
    for (const char* side : sides) {
      const std::string file = path.substr(0, place) + side + path.substr(place + 2);
      areThere = areThere && std::filesystem::exists(file);
      files += (files.empty() ? "" : ",") + file;
    }
    if (areThere) return files;
  }
  throw InputError(path + ": there are no six files for a cube (px, nx, py, ny, pz, nz)");
}

std::vector<std::string> filesIn(std::string list) {
  std::vector<std::string> files;
  std::ranges::replace(list, ',', '\n');
  std::istringstream lines(list);
  for (std::string file; std::getline(lines, file);) files.push_back(file);
  return files;
}

}  // namespace

Project::Project(const InputOptions& options, std::vector<std::string>* files)
    : files_(files != nullptr ? *files : ownFiles_) {
  Part picture = load(options.shaderPath, options.source);
  addBuffersByMacro(picture);
  if (parts_.empty()) addBuffersByChannel(picture);
  parts_.push_back(std::move(picture));
  for (const Part& part : parts_) {
    validateUnlessTrusted(optionsOf(part, options), part.shader.view());
    passes_.add(part.shader.view(), part.reads);
  }
  applyAll(options);
}

InputOptions Project::optionsOf(const Part& part, const InputOptions& options) {
  InputOptions own = options;
  own.shaderPath = part.name;
  return own;
}

Project::Part Project::load(const std::string& path, const SourceOptions& source) {
  return {.name = path,
          .path = path,
          .source = source,
          .shader = loadShader(path, source, &files_),
          .reads = {},
          .textures = {}};
}

// One file for all, compiled once more for every buffer.
void Project::addBuffersByMacro(Part& picture) {
  if (!hasGlslExtension(picture.path)) return;
  std::set<std::string> found;
  for (const std::string& file : std::set<std::string>(files_.begin(), files_.end())) {
    found.merge(buffersIn(readText(file)));
  }
  for (const std::string& name : inOrder(found)) {
    picture.reads.push_back({.sampler = samplerOf(name), .pass = picture.reads.size()});
  }
  for (const std::string& name : inOrder(found)) {
    SourceOptions source = picture.source;
    source.defines.push_back(name);
    source.isBuffer = true;
    Part buffer = load(picture.path, source);
    buffer.name = picture.path + " (" + name + ")";
    buffer.reads = picture.reads;
    parts_.push_back(std::move(buffer));
  }
}

// A file for each, named at the channels that read it.
void Project::addBuffersByChannel(Part& picture) {
  std::map<std::string, Part> buffers;  // by path: in the order in which they are rendered
  std::vector<std::string> waiting;
  const auto note = [&](const Part& part) {
    for (const Channel& channel : channelsOf(part.path)) {
      if (isBuffer(channel) && channel.target != picture.path) waiting.push_back(channel.target);
    }
  };
  note(picture);
  while (!waiting.empty()) {
    const std::string path = std::move(waiting.back());
    waiting.pop_back();
    if (buffers.contains(path)) continue;
    if (buffers.size() == kMaxBuffers) throw InputError(picture.path + ": too many buffers");
    SourceOptions source = picture.source;
    source.isBuffer = true;
    note(buffers.emplace(path, load(path, source)).first->second);
  }
  const auto connect = [&](Part& part) {
    for (const Channel& channel : channelsOf(part.path)) connectChannel(part, channel, buffers);
  };
  connect(picture);
  for (auto& [path, part] : buffers) connect(part);
  for (auto& [path, part] : buffers) parts_.push_back(std::move(part));
}

bool Project::isBuffer(const Channel& channel) { return hasGlslExtension(channel.target); }

void Project::connectChannel(Part& part, const Channel& channel,
                             const std::map<std::string, Part>& buffers) {
  if (!isBuffer(channel)) {
    if (channel.target == kKeyboard) {
      part.textures.emplace_back(channel.sampler, channel.target);
      return;
    }
    std::string text = cubeFiles(channel.target);
    if (channel.filter == TextureFilter::Nearest) text += ",nearest";
    if (channel.wrap == TextureWrap::Clamp) text += ",clamp";
    if (channel.wrap == TextureWrap::Mirror) text += ",mirror";
    part.textures.emplace_back(channel.sampler, text);
    return;
  }
  const auto place = buffers.find(channel.target);
  if (place == buffers.end()) {
    throw InputError(part.path + ": error: " + channel.sampler +
                     " shows the picture itself, which is no buffer");
  }
  const auto pass = static_cast<size_t>(std::distance(buffers.begin(), place));
  const TextureWrap wrap = channel.hasWrap ? channel.wrap : TextureWrap::Clamp;
  part.reads.push_back({channel.sampler, pass, channel.filter, wrap});
}

// What the file says about its channels, in the order of their names.
std::vector<Project::Channel> Project::channelsOf(const std::string& path) {
  std::map<std::string, Channel> channels;
  if (!hasGlslExtension(path)) return {};
  for (const ChannelLine& line : channelLines(readText(path))) {
    Channel& channel = channels[line.channel];
    channel.sampler = line.channel;
    if (line.setting.empty()) {
      channel.target = line.value == "self"      ? path
                       : line.value == kKeyboard ? line.value
                                                 : pathOf(withoutScheme(line.value), path);
    } else if (line.setting == "MinFilter" || line.setting == "MagFilter") {
      if (line.value.starts_with("Nearest")) channel.filter = TextureFilter::Nearest;
    } else if (line.setting == "WrapMode") {
      channel.hasWrap = true;
      channel.wrap = line.value == "Clamp"    ? TextureWrap::Clamp
                     : line.value == "Mirror" ? TextureWrap::Mirror
                                              : TextureWrap::Repeat;
    }
  }
  std::vector<Channel> result;
  for (auto& [name, channel] : channels) {
    if (!channel.target.empty()) result.push_back(std::move(channel));
  }
  return result;
}

// A file that may change, or the keyboard of a window.
void Project::noteTexture(size_t pass, const std::string& sampler, std::string_view text) {
  const std::vector<std::string_view> names = passes_.renderer(pass).inputs().names();
  if (std::ranges::count(names, sampler) == 0) return;
  if (text == kKeyboard) keyboards_.push_back({pass, sampler});
  for (const std::string& file : filesIn(std::string(text))) {
    if (std::filesystem::exists(file)) files_.push_back(file);
  }
}

// What the command line says counts in every pass that asks for it.
void Project::applyAll(const InputOptions& options) {
  std::vector<std::string> all;
  for (size_t pass = 0; pass < parts_.size(); ++pass) {
    HostInputs& inputs = passes_.renderer(pass).inputs();
    for (const BufferRead& read : parts_[pass].reads) inputs.setTexture(read.sampler, {});
    for (const auto& [sampler, text] : parts_[pass].textures) {
      inputs.setTexture(sampler, readTexture(text));
      noteTexture(pass, sampler, text);
    }
    for (const std::string& text : options.textures) {
      const auto [place, value] = partsOfAssignment(text);
      noteTexture(pass, std::string(place), value);
    }
    const std::vector<std::string_view> names = inputs.names();
    all.insert(all.end(), names.begin(), names.end());
  }
  for (size_t pass = 0; pass < parts_.size(); ++pass) {
    applyInputs(optionsOf(parts_[pass], options), parts_[pass].shader,
                passes_.renderer(pass).inputs(), all);
  }
}

std::string Project::failureText(size_t pass, const RenderResult& result) const {
  const RunFailure& failure = *result.failure;
  const std::string pixel =
      "pixel (" + std::to_string(failure.x) + ", " + std::to_string(failure.y) + "): ";
  const std::string counts = "; " + std::to_string(result.statistics.failed()) + " of " +
                             std::to_string(result.statistics.total()) + " fragments failed";
  return formatFailure(failure, parts_[pass].shader.view(), parts_[pass].name, pixel, counts);
}

const HostInputs& Project::inputsOf(const FrameInputs& frame, const InputOptions& options) {
  for (int32_t number = 0; passes_.count() > 1 && number <= frame.frame; ++number) {
    RenderSettings settings;
    settings.frame = frameInputs(options, number);
    settings.timeout = options.timeout;
    passes_.renderBuffers(settings);
  }
  HostInputs& inputs = passes_.picture().inputs();
  inputs.startFrame(frame);
  return inputs;
}

void Project::setKeyboard(const Texture& keyboard) {
  for (const Keyboard& place : keyboards_) {
    passes_.renderer(place.pass).inputs().setTexture(place.sampler, keyboard);
  }
}

}  // namespace shadermachine::tools
