#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <stdexcept>

#include "render/texture.h"

namespace shadermachine::tools {
namespace {

constexpr uint64_t kNoTexture = ~uint64_t{0};
constexpr uint32_t kChannelCount = 4;
constexpr uint64_t kMaxBytes = uint64_t{64} << 20;

constexpr double kSampleRate = 44100;
constexpr std::string_view kResolution = "Resolution";

constexpr std::array kUnitPositionNames = {"uv",        "vUv",        "v_uv",       "texCoord",
                                           "vTexCoord", "v_texCoord", "v_texcoord", "gl_TexCoord"};

bool isSampler(TypeCode type) { return type >= VM_TYPE_SAMPLER_0 && type <= VM_TYPE_SAMPLER_7; }

TypeCode componentType(TypeCode type) {
  switch (type) {
    case VM_TYPE_INT:
    case VM_TYPE_IVEC2:
    case VM_TYPE_IVEC3:
    case VM_TYPE_IVEC4:
      return VM_TYPE_INT;
    case VM_TYPE_BOOL:
    case VM_TYPE_BVEC2:
    case VM_TYPE_BVEC3:
    case VM_TYPE_BVEC4:
      return VM_TYPE_BOOL;
    default:
      return isSampler(type) ? type : TypeCode{VM_TYPE_FLOAT};
  }
}

uint32_t wordOf(TypeCode type, double value) {
  if (type == VM_TYPE_BOOL) return value != 0 ? 1 : 0;
  if (type == VM_TYPE_INT) {
    if (std::isnan(value)) return 0;
    return static_cast<uint32_t>(
        static_cast<int64_t>(std::clamp(value, -2147483648.0, 4294967295.0)));
  }
  return std::bit_cast<uint32_t>(static_cast<float>(value));
}

// Whether wordOf() keeps the value as it is meant.
bool canHold(TypeCode type, double value) {
  if (type == VM_TYPE_FLOAT) {
    return !std::isfinite(value) || std::abs(value) <= double{std::numeric_limits<float>::max()};
  }
  return value == std::floor(value) && value >= -2147483648.0 && value <= 4294967295.0;
}

// Seconds of the local day are enough for what shaders make of the date.
std::array<double, 4> dateNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
#ifdef _WIN32
  localtime_s(&local, &now);
#else
  localtime_r(&now, &local);
#endif
  return {local.tm_year + 1900.0, static_cast<double>(local.tm_mon),
          static_cast<double>(local.tm_mday),
          local.tm_hour * 3600.0 + local.tm_min * 60.0 + local.tm_sec};
}

struct FrameValue {
  const char* name;
  std::vector<double> components;
};

std::vector<FrameValue> frameValues(const FrameInputs& frame,
                                    const std::vector<double>& channelSizes) {
  const std::vector<double> size = {double(frame.width), double(frame.height), 1};
  const std::vector<double> mouse(frame.mouse.begin(), frame.mouse.end());
  const std::array<double, 4> date = dateNow();
  return {{"iResolution", size},
          {"u_resolution", size},
          {"resolution", size},
          {"iTime", {frame.time}},
          {"iGlobalTime", {frame.time}},
          {"u_time", {frame.time}},
          {"time", {frame.time}},
          {"iTimeDelta", {frame.timeDelta}},
          {"u_delta", {frame.timeDelta}},
          {"iFrameRate", {1 / double(frame.timeDelta)}},
          {"iSampleRate", {kSampleRate}},
          {"iFrame", {double(frame.frame)}},
          {"u_frame", {double(frame.frame)}},
          {"iChannelTime", std::vector<double>(kChannelCount, frame.time)},
          {"iChannelResolution", channelSizes},
          {"iMouse", mouse},
          {"u_mouse", {frame.pointer[0], frame.pointer[1]}},
          {"mouse", {frame.pointer[0] / size[0], frame.pointer[1] / size[1]}},
          {"iDate", {date.begin(), date.end()}},
          {"u_date", {date.begin(), date.end()}}};
}

bool isFrameName(std::string_view name) {
  static const std::vector<FrameValue> kNames = frameValues({}, {});
  return std::ranges::any_of(kNames, [&](const FrameValue& value) { return name == value.name; });
}

bool isChannelName(std::string_view name) {
  return name.size() == 9 && name.starts_with("iChannel") && name[8] >= '0' &&
         name[8] < static_cast<char>('0' + kChannelCount);
}

// The name that a place begins with.
std::string_view baseName(std::string_view place) {
  return place.substr(0, place.find_first_of("[."));
}

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

constexpr StandardInput kStandardInputs[] = {
    {"fragCoord", "vec2 or wider: centre of the pixel in pixels, y up; then depth 0.5, and 1"},
    {"uv, vUv, v_uv, texCoord, vTexCoord, v_texCoord, v_texcoord, gl_TexCoord[0]",
     "the same from 0 to 1"},
    {"iResolution, u_resolution, resolution", "width, height, 1"},
    {"iTime, iGlobalTime, u_time, time", "time of the frame in seconds"},
    {"iTimeDelta, u_delta", "seconds from frame to frame: 1/30"},
    {"iFrameRate, iSampleRate", "30, 44100"},
    {"iFrame, u_frame", "number of the frame"},
    {"iMouse", "vec4: the mouse of a window as ShaderToy gives it; zeros without one"},
    {"u_mouse, mouse", "where the mouse is, in pixels or from 0 to 1; zeros without a window"},
    {"iDate, u_date", "year, month from 0, day, seconds of the day"},
    {"iChannelTime, iChannelResolution",
     "arrays of 4: time of the frame; width, height and 1 of each channel's picture"},
    {"the name of a sampler and Resolution, as u_tex0Resolution",
     "width and height of its picture"},
    {"iChannel0, iChannel1, iChannel2, iChannel3", "samplers, black unless they get a picture"},
};

}  // namespace

std::span<const StandardInput> standardInputs() { return kStandardInputs; }

HostInputs::HostInputs(const ShaderView& view) : view_(view) {
  const CompiledShader& shader = *view.shader;
  if (shader.globals == nullptr) return;
  variables_.resize(shader.globalCount);
  uint64_t bytes = 0;
  for (uint32_t i = 0; i < shader.globalCount; ++i) {
    const VarInfo& info = shader.globals[i];
    if ((info.flags & VM_VAR_HOST) == 0) continue;
    Variable& variable = variables_[i];
    variable.info = &info;
    bytes += info.byteSize;
    if (bytes > kMaxBytes) throw std::length_error("the host variables take more than 64 MiB");
    variable.bytes.resize(info.byteSize);
    addLeaves(info, variable.leaves);
    for (const Leaf& leaf : variable.leaves) {
      if (isSampler(leaf.type)) std::memcpy(&variable.bytes[leaf.offset], &kNoTexture, 8);
    }
    if (info.name == nullptr) continue;
    const std::string_view name = info.name;
    numbers_.emplace(name, i);
    if (name == "fragCoord") variable.source = Source::FragmentPosition;
    if (std::ranges::count(kUnitPositionNames, name) > 0) variable.source = Source::UnitPosition;
    if (isFrameName(name) || isChannelName(name)) variable.source = Source::Frame;
  }
  // Only now: the sampler may be declared behind the variable that has its size.
  for (Variable& variable : variables_) {
    if (!measuredSampler(variable).empty()) variable.source = Source::Frame;
  }
}

// In declaration order. Structures nest as deep as the shader likes, so nothing recurses.
void HostInputs::addLeaves(const VarInfo& info, std::vector<Leaf>& leaves) const {
  struct Elements {
    const VarInfo* info;
    uint32_t offset;
    uint32_t left;
  };
  const auto all = [](const VarInfo& variable, uint32_t offset) {
    return Elements{&variable, offset, std::max(variable.count, 1u)};
  };
  std::vector<Elements> pending = {all(info, 0)};
  while (!pending.empty()) {
    Elements& elements = pending.back();
    // All that is needed of the top is read before the stack changes, and moves it.
    const VarInfo& variable = *elements.info;
    const uint32_t offset = elements.offset;
    elements.offset += variable.byteSize / std::max(variable.count, 1u);
    if (--elements.left == 0) pending.pop_back();
    if (variable.type < 0) {
      addComponents(variable.type, offset, leaves);
    } else if (const StructInfo* structure = structureOf(variable.type)) {
      // The last first: what lies on top of the stack comes next.
      for (uint32_t m = structure->memberCount; m-- > 0;) {
        pending.push_back(all(structure->members[m], offset + structure->members[m].memberOffset));
      }
    }
  }
}

const StructInfo* HostInputs::structureOf(TypeCode type) const {
  const bool exists = type >= 0 && static_cast<uint32_t>(type) < view_.structCount;
  return exists ? view_.shader->structTypes[type] : nullptr;
}

void HostInputs::addComponents(TypeCode type, uint32_t offset, std::vector<Leaf>& leaves) {
  const uint32_t size = isSampler(type) ? 8 : 4;
  for (uint32_t at = 0; at + size <= basicTypeSize(type); at += size) {
    leaves.push_back({componentType(type), offset + at});
  }
}

HostInputs::Variable* HostInputs::find(std::string_view name) {
  const auto found = numbers_.find(name);
  return found == numbers_.end() ? nullptr : &variables_[found->second];
}

size_t HostInputs::leafCount(const VarInfo& info) const {
  std::vector<Leaf> leaves;
  addLeaves(info, leaves);
  return leaves.size();
}

HostInputs::Part HostInputs::resolve(std::string_view place) {
  const std::string_view name = baseName(place);
  Part part;
  part.variable = find(name);
  if (part.variable == nullptr) {
    part.error = "the shader has no host variable " + quoted(name);
    return part;
  }
  VarInfo info = *part.variable->info;
  std::string_view steps = place.substr(name.size());
  while (!steps.empty() && part.error.empty()) part.error = descend(part, info, steps);
  if (!part.error.empty()) part.variable = nullptr;
  part.count = leafCount(info);
  return part;
}

std::string HostInputs::descend(Part& part, VarInfo& info, std::string_view& steps) const {
  const std::string_view step = steps.substr(0, steps.find_first_of("[.", 1));
  steps.remove_prefix(step.size());
  if (step[0] == '[') {
    // From digits alone: signs and spaces are no part of a place.
    uint32_t index = 0;
    const std::string_view digits = step.ends_with(']') ? step.substr(1, step.size() - 2) : "";
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, index);
    const bool isIndex = error == std::errc() && stop == end;
    if (!isIndex || index >= info.count) return "there is no element " + std::string(step);
    info.byteSize /= info.count;
    info.count = 0;
    part.first += index * leafCount(info);
    return "";
  }
  const StructInfo* found = info.count == 0 ? structureOf(info.type) : nullptr;
  if (found == nullptr) return "there is no member " + std::string(step);
  const StructInfo& structure = *found;
  for (const VarInfo& member : std::span(structure.members, structure.memberCount)) {
    if (member.name != nullptr && step.substr(1) == member.name) {
      info = member;
      return "";
    }
    part.first += leafCount(member);
  }
  return "there is no member " + std::string(step);
}

std::vector<std::string_view> HostInputs::names() const {
  std::vector<std::string_view> names;
  for (const Variable& variable : variables_) {
    if (variable.info != nullptr && variable.info->name != nullptr) {
      names.emplace_back(variable.info->name);
    }
  }
  return names;
}

void HostInputs::assign(Variable& variable, size_t first, std::span<const double> components) {
  const size_t count = std::min(components.size(), variable.leaves.size() - first);
  for (size_t i = 0; i < count; ++i) {
    const Leaf& leaf = variable.leaves[first + i];
    if (isSampler(leaf.type)) continue;
    const uint32_t word = wordOf(leaf.type, components[i]);
    std::memcpy(&variable.bytes[leaf.offset], &word, sizeof word);
  }
}

std::string HostInputs::set(std::string_view place, std::span<const double> components) {
  const Part part = resolve(place);
  if (part.variable == nullptr) return part.error;
  const std::span leaves = std::span(part.variable->leaves).subspan(part.first, part.count);
  if (std::ranges::any_of(leaves, [](const Leaf& leaf) { return isSampler(leaf.type); })) {
    return quoted(place) + " is a sampler and takes a texture";
  }
  if (components.size() != part.count) {
    return quoted(place) + " has " + std::to_string(part.count) + " components, " +
           std::to_string(components.size()) + " given";
  }
  // Everything is checked before anything is written: a place keeps its value where this is
  // refused.
  for (size_t i = 0; i < part.count; ++i) {
    if (canHold(leaves[i].type, components[i])) continue;
    return quoted(place) + " has " + (leaves[i].type == VM_TYPE_FLOAT ? "a float" : "an integer") +
           " as component " + std::to_string(i + 1) + ", which does not hold the value given";
  }
  assign(*part.variable, part.first, components);
  part.variable->source = Source::User;
  return "";
}

std::string HostInputs::setTexture(std::string_view place, Texture texture) {
  const Part part = resolve(place);
  if (part.variable == nullptr) return part.error;
  Variable& variable = *part.variable;
  if (part.count == 0 || !isSampler(variable.leaves[part.first].type)) {
    return quoted(place) + " is not a sampler";
  }
  // Once for the texture, not in look-ups, which many threads make at a time.
  texture.smaller = smallerLevels(texture.image);
  uint8_t* const sampler = &variable.bytes[variable.leaves[part.first].offset];
  // A sampler keeps its number, under which another texture takes the place of the first.
  uint64_t unit = 0;
  std::memcpy(&unit, sampler, sizeof unit);
  if (unit == kNoTexture) {
    unit = textures_.size();
    textures_.emplace_back();
    std::memcpy(sampler, &unit, sizeof unit);
  }
  textures_[unit] = std::move(texture);
  variable.source = Source::User;
  return "";
}

std::string HostInputs::setVarying(std::string_view name, Varying varying) {
  Variable* variable = find(name);
  if (variable == nullptr) return "the shader has no host variable " + quoted(name);
  const auto isFloat = [](const Leaf& leaf) { return leaf.type == VM_TYPE_FLOAT; };
  if (!std::ranges::all_of(variable->leaves, isFloat)) return quoted(name) + " is not of floats";
  variable->varying = std::move(varying);
  variable->source = Source::Function;
  return "";
}

std::string HostInputs::setUnitPosition(std::string_view name) {
  std::string error = setVarying(name, nullptr);
  if (error.empty()) find(name)->source = Source::UnitPosition;
  return error;
}

std::vector<std::string> HostInputs::missing() const {
  std::vector<std::string> names;
  for (const Variable& variable : variables_) {
    if (variable.info == nullptr || variable.source != Source::None) continue;
    names.emplace_back(variable.info->name != nullptr ? variable.info->name : "(without a name)");
  }
  return names;
}

void HostInputs::startFrame(const FrameInputs& frame) {
  width_ = static_cast<float>(frame.width);
  height_ = static_cast<float>(frame.height);
  for (const FrameValue& value : frameValues(frame, channelSizes())) {
    Variable* variable = find(value.name);
    if (variable != nullptr && variable->source == Source::Frame) {
      assign(*variable, 0, value.components);
    }
  }
  for (Variable& variable : variables_) {
    const std::string_view sampler = measuredSampler(variable);
    if (sampler.empty() || variable.source != Source::Frame) continue;
    assign(variable, 0, pictureSize(sampler));
  }
}

std::vector<double> HostInputs::channelSizes() {
  std::vector<double> sizes;
  for (uint32_t i = 0; i < kChannelCount; ++i) {
    std::ranges::copy(pictureSize("iChannel" + std::to_string(i)), std::back_inserter(sizes));
  }
  return sizes;
}

// Width, height and 1 of a sampler's picture; zeros when it has none.
std::array<double, 3> HostInputs::pictureSize(std::string_view samplerName) {
  const Variable* variable = find(samplerName);
  uint64_t sampler = kNoTexture;
  if (variable != nullptr && variable->bytes.size() == sizeof sampler) {
    std::memcpy(&sampler, variable->bytes.data(), sizeof sampler);
  }
  const Texture* picture = texture(sampler);
  const TextureSize size = picture != nullptr ? sizeOf(*picture) : TextureSize{};
  return {double(size.width), double(size.height), size.width > 0 ? 1.0 : 0};
}

// The sampler whose picture's size a variable has by its name; empty for others.
std::string_view HostInputs::measuredSampler(const Variable& variable) {
  if (variable.info == nullptr || variable.info->name == nullptr) return "";
  std::string_view name = variable.info->name;
  if (!name.ends_with(kResolution)) return "";
  name.remove_suffix(kResolution.size());
  const Variable* sampler = find(name);
  return sampler != nullptr && isSampler(sampler->info->type) ? name : "";
}

std::array<float, 2> HostInputs::unitPosition(float x, float y) const {
  return {x / width_, y / height_};
}

void HostInputs::write(uint32_t index, float x, float y, void* data) const {
  const Variable& variable = variables_[index];
  if (variable.source == Source::Function) {
    variable.varying(x, y, {static_cast<float*>(data), variable.leaves.size()});
    return;
  }
  if (variable.source != Source::FragmentPosition && variable.source != Source::UnitPosition) {
    std::memcpy(data, variable.bytes.data(), variable.bytes.size());
    return;
  }
  std::array<float, 4> position = {x, y, 0.5f, 1};
  if (variable.source == Source::UnitPosition) position = {x / width_, y / height_, 0, 1};
  std::memcpy(data, position.data(), std::min(sizeof position, variable.bytes.size()));
}

bool HostInputs::isSameForAll(uint32_t index) const {
  const Source source = variables_[index].source;
  return source != Source::Function && source != Source::FragmentPosition &&
         source != Source::UnitPosition;
}

const Texture* HostInputs::texture(uint64_t sampler) const {
  return sampler < textures_.size() ? &textures_[sampler] : nullptr;
}

}  // namespace shadermachine::tools
