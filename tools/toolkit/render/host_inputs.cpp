#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>

#include "render/texture.h"

namespace shadermachine::tools {
namespace {

constexpr uint64_t kNoTexture = ~uint64_t{0};
constexpr uint32_t kChannelCount = 4;

constexpr std::array kUnitPositionNames = {"uv",        "vUv",        "v_uv",       "texCoord",
                                           "vTexCoord", "v_texCoord", "gl_TexCoord"};

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

// Seconds of the local day are enough for what shaders make of the date.
std::array<double, 4> dateNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  localtime_r(&now, &local);
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
  const std::vector<double> none = {0, 0, 0, 0};
  const std::array<double, 4> date = dateNow();
  return {{"iResolution", size},
          {"u_resolution", size},
          {"resolution", size},
          {"iTime", {frame.time}},
          {"iGlobalTime", {frame.time}},
          {"u_time", {frame.time}},
          {"time", {frame.time}},
          {"iTimeDelta", {frame.timeDelta}},
          {"iFrameRate", {1 / double(frame.timeDelta)}},
          {"iFrame", {double(frame.frame)}},
          {"iChannelTime", std::vector<double>(kChannelCount, frame.time)},
          {"iChannelResolution", channelSizes},
          {"iMouse", none},
          {"u_mouse", none},
          {"mouse", none},
          {"iDate", {date.begin(), date.end()}}};
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
    {"uv, vUv, v_uv, texCoord, vTexCoord, v_texCoord, gl_TexCoord[0]", "the same from 0 to 1"},
    {"iResolution, u_resolution, resolution", "width, height, 1"},
    {"iTime, iGlobalTime, u_time, time", "time of the frame in seconds"},
    {"iTimeDelta, iFrameRate, iFrame", "1/30, 30, number of the frame"},
    {"iMouse, u_mouse, mouse", "zeros"},
    {"iDate", "year, month from 0, day, seconds of the day"},
    {"iChannelTime, iChannelResolution",
     "arrays of 4: time of the frame; width, height and 1 of each channel's picture"},
    {"iChannel0, iChannel1, iChannel2, iChannel3", "samplers, black unless they get a picture"},
};

}  // namespace

std::span<const StandardInput> standardInputs() { return kStandardInputs; }

HostInputs::HostInputs(const ShaderView& view) : view_(view) {
  const CompiledShader& shader = *view.shader;
  if (shader.globals == nullptr) return;
  variables_.resize(shader.globalCount);
  for (uint32_t i = 0; i < shader.globalCount; ++i) {
    const VarInfo& info = shader.globals[i];
    if ((info.flags & VM_VAR_HOST) == 0) continue;
    Variable& variable = variables_[i];
    variable.info = &info;
    variable.bytes.resize(info.byteSize);
    addLeaves(info, 0, variable.leaves);
    for (const Leaf& leaf : variable.leaves) {
      if (isSampler(leaf.type)) std::memcpy(&variable.bytes[leaf.offset], &kNoTexture, 8);
    }
    if (info.name == nullptr) continue;
    const std::string_view name = info.name;
    if (name == "fragCoord") variable.source = Source::FragmentPosition;
    if (std::ranges::count(kUnitPositionNames, name) > 0) variable.source = Source::UnitPosition;
    if (isFrameName(name) || isChannelName(name)) variable.source = Source::Frame;
  }
}

void HostInputs::addLeaves(const VarInfo& info, uint32_t offset, std::vector<Leaf>& leaves) const {
  const uint32_t elements = std::max(info.count, 1u);
  const uint32_t stride = info.byteSize / elements;
  for (uint32_t i = 0; i < elements; ++i) addElement(info.type, offset + i * stride, leaves);
}

void HostInputs::addElement(TypeCode type, uint32_t offset, std::vector<Leaf>& leaves) const {
  if (type >= 0) {
    if (static_cast<uint32_t>(type) >= view_.structCount) return;
    const StructInfo* info = view_.shader->structTypes[type];
    for (uint32_t m = 0; info != nullptr && m < info->memberCount; ++m) {
      addLeaves(info->members[m], offset + info->members[m].memberOffset, leaves);
    }
    return;
  }
  const uint32_t size = isSampler(type) ? 8 : 4;
  for (uint32_t at = 0; at + size <= basicTypeSize(type); at += size) {
    leaves.push_back({componentType(type), offset + at});
  }
}

HostInputs::Variable* HostInputs::find(std::string_view name) {
  for (Variable& variable : variables_) {
    if (variable.info != nullptr && variable.info->name != nullptr && name == variable.info->name) {
      return &variable;
    }
  }
  return nullptr;
}

size_t HostInputs::leafCount(const VarInfo& info) const {
  std::vector<Leaf> leaves;
  addLeaves(info, 0, leaves);
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
    uint32_t index = 0;
    const char* const end = step.data() + step.size() - 1;
    const auto [stop, error] = std::from_chars(step.data() + 1, end, index);
    const bool isIndex = error == std::errc() && stop == end && *end == ']';
    if (!isIndex || index >= info.count) return "there is no element " + std::string(step);
    info.byteSize /= info.count;
    info.count = 0;
    part.first += index * leafCount(info);
    return "";
  }
  const bool isStruct = info.count == 0 && info.type >= 0 &&
                        static_cast<uint32_t>(info.type) < view_.structCount &&
                        view_.shader->structTypes[info.type] != nullptr;
  if (!isStruct) return "there is no member " + std::string(step);
  const StructInfo& structure = *view_.shader->structTypes[info.type];
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
  const uint64_t unit = textures_.size();
  texture.smaller = smallerLevels(texture.image);
  textures_.push_back(std::move(texture));
  std::memcpy(&variable.bytes[variable.leaves[part.first].offset], &unit, sizeof unit);
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
}

std::vector<double> HostInputs::channelSizes() {
  std::vector<double> sizes;
  for (uint32_t i = 0; i < kChannelCount; ++i) {
    const Variable* variable = find("iChannel" + std::to_string(i));
    uint64_t sampler = kNoTexture;
    if (variable != nullptr && variable->bytes.size() == sizeof sampler) {
      std::memcpy(&sampler, variable->bytes.data(), sizeof sampler);
    }
    const Texture* picture = texture(sampler);
    sizes.push_back(picture != nullptr ? picture->image.width : 0);
    sizes.push_back(picture != nullptr ? picture->image.height : 0);
    sizes.push_back(picture != nullptr ? 1 : 0);
  }
  return sizes;
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

const Texture* HostInputs::texture(uint64_t sampler) const {
  return sampler < textures_.size() ? &textures_[sampler] : nullptr;
}

}  // namespace shadermachine::tools
