#include "debugger/value.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

#include "assembly/literals.h"
#include "machine/types.h"

namespace shadermachine::tools {
namespace {

constexpr size_t kShownParts = 16;
constexpr unsigned kMaxDepth = 8;  // of structures within structures that are shown

const StructInfo* structureOf(const ShaderView& view, const DebugType& type) {
  const bool exists = type.code >= 0 && static_cast<uint32_t>(type.code) < view.structCount;
  return exists ? view.shader->structTypes[type.code] : nullptr;
}

// Inner arrays are the only member of a structure that the GLSL compiler makes up. Only arrays:
// partsOf() looks through one of these, and not through others that lie in each other.
bool isWrapper(const ShaderView& view, const DebugType& type) {
  const StructInfo* info = structureOf(view, type);
  return type.count == 0 && info != nullptr && info->memberCount == 1 &&
         info->members[0].count > 0 && info->members[0].name != nullptr &&
         std::strcmp(info->members[0].name, "elements") == 0;
}

DebugPart part(const DebugValue& whole, std::string name, DebugType type, uint32_t offset,
               uint32_t size) {
  DebugPart result{std::move(name), {std::move(type), {}}};
  // Nothing, where a record says more than its value has.
  if (offset > whole.bytes.size() || size > whole.bytes.size() - offset) return result;
  const auto first = whole.bytes.begin() + offset;
  result.value.bytes.assign(first, first + size);
  return result;
}

std::string numberText(float value) {
  std::array<char, 32> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  return {buffer.data(), end};
}

std::string scalarText(const DebugValue& value, size_t index) {
  const TypeCode scalar = scalarTypeOf(value.type.code);
  const uint32_t word = value.word(index);
  if (scalar == VM_TYPE_FLOAT) return numberText(value.asFloat(index));
  if (scalar == VM_TYPE_BOOL)
    return word <= 1 ? (word != 0 ? "true" : "false") : std::to_string(word);
  if (value.type.isUnsigned()) return std::to_string(word);
  return std::to_string(static_cast<int32_t>(word));
}

std::string text(const ShaderView& view, const DebugValue& value, unsigned depth);

std::string joined(const ShaderView& view, const DebugValue& value, unsigned depth) {
  if (depth == 0) return "{...}";
  const bool isArray = value.type.count > 0 || isWrapper(view, value.type);
  const std::vector<DebugPart> parts = partsOf(view, value, kShownParts + 1);
  std::string result = "{";
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) result += ", ";
    if (i == kShownParts) return result + "...}";
    if (!isArray) result += parts[i].name + " = ";
    result += text(view, parts[i].value, depth - 1);
  }
  return result + "}";
}

std::string text(const ShaderView& view, const DebugValue& value, unsigned depth) {
  if (value.bytes.empty()) return "<nothing>";
  if (value.type.count > 0 || value.type.code >= 0) return joined(view, value, depth);
  if (value.type.code >= VM_TYPE_SAMPLER_0) return "<texture>";
  const unsigned count = componentsOf(value.type.code);
  if (count == 1) return scalarText(value, 0);
  std::string result = value.type.name + "(";
  for (unsigned i = 0; i < count; ++i) result += (i > 0 ? ", " : "") + scalarText(value, i);
  return result + ")";
}

}  // namespace

uint32_t DebugValue::word(size_t index) const {
  uint32_t word = 0;
  if (4 * index + 4 <= bytes.size()) std::memcpy(&word, bytes.data() + 4 * index, sizeof word);
  return word;
}

float DebugValue::asFloat(size_t index) const { return std::bit_cast<float>(word(index)); }

unsigned componentsOf(TypeCode code) { return std::max(typeByteSize(code) / 4, 1u); }

TypeCode scalarTypeOf(TypeCode code) {
  if (isMatrixType(code)) return VM_TYPE_FLOAT;
  return isVectorType(code) ? vectorScalarType(code) : code;
}

bool isFloatType(TypeCode code) { return scalarTypeOf(code) == VM_TYPE_FLOAT; }

TypeCode typeCodeOf(const std::string& name) {
  const std::string known = name == "uint"             ? "int"
                            : name.starts_with("uvec") ? "i" + name.substr(1)
                                                       : name;
  return assembly::parseBasicType(known).value_or(VM_TYPE_FLOAT);
}

DebugType debugType(const ShaderView& view, TypeCode code, uint32_t count, std::string name) {
  if (name.empty()) {
    const char* basic = code < 0 ? assembly::basicTypeName(code) : nullptr;
    const bool isStruct = code >= 0 && static_cast<uint32_t>(code) < view.structCount;
    if (isStruct && view.structNames != nullptr) basic = view.structNames[code];
    name = basic != nullptr ? basic : "type " + std::to_string(code);
    if (count > 0) name += "[" + std::to_string(count) + "]";
  }
  return {code, count, std::move(name)};
}

uint32_t sizeOf(const ShaderView& view, const DebugType& type) {
  const StructInfo* info = structureOf(view, type);
  const uint32_t size = info != nullptr ? info->size : typeByteSize(type.code);
  return type.count == 0 ? size : size * type.count;
}

std::vector<DebugPart> partsOf(const ShaderView& view, const DebugValue& value, size_t limit) {
  std::vector<DebugPart> parts;
  const DebugType& type = value.type;
  if (type.count > 0) {
    const size_t bracket = type.name.find('[');
    const size_t close = type.name.find(']', bracket);
    std::string name = type.name.substr(0, bracket);
    if (close != std::string::npos) name += type.name.substr(close + 1);
    const DebugType element = debugType(view, type.code, 0, name);
    const uint32_t size = sizeOf(view, element);
    for (uint32_t i = 0; i < type.count && parts.size() < limit; ++i) {
      parts.push_back(part(value, "[" + std::to_string(i) + "]", element, i * size, size));
    }
  } else if (const StructInfo* info = structureOf(view, type)) {
    for (uint32_t i = 0; i < info->memberCount && parts.size() < limit; ++i) {
      const VarInfo& member = info->members[i];
      const DebugType inner = debugType(view, member.type, member.count);
      const char* name = member.name != nullptr ? member.name : "member";
      parts.push_back(part(value, name, inner, member.memberOffset, member.byteSize));
    }
    if (isWrapper(view, type) && !parts.empty()) {
      // The source writes one type for the whole array of arrays.
      parts[0].value.type.name = type.name;
      return partsOf(view, parts[0].value, limit);
    }
  } else if (isMatrixType(type.code)) {
    const DebugType column = debugType(view, matrixColumnType(type.code), 0);
    const uint32_t size = sizeOf(view, column);
    for (uint32_t i = 0; i * size < value.bytes.size() && parts.size() < limit; ++i) {
      parts.push_back(part(value, "[" + std::to_string(i) + "]", column, i * size, size));
    }
  } else if (isVectorType(type.code)) {
    const std::string name = type.isUnsigned() ? "uint" : "";
    const DebugType scalar = debugType(view, vectorScalarType(type.code), 0, name);
    for (uint32_t i = 0; i < componentsOf(type.code) && parts.size() < limit; ++i) {
      parts.push_back(part(value, std::string(1, "xyzw"[i]), scalar, 4 * i, 4));
    }
  }
  return parts;
}

std::string formatValue(const ShaderView& view, const DebugValue& value) {
  return text(view, value, kMaxDepth);
}

namespace {

bool hasNonFiniteWord(const DebugValue& value) {
  for (size_t i = 0; 4 * i + 4 <= value.bytes.size(); ++i) {
    if (!std::isfinite(value.asFloat(i))) return true;
  }
  return false;
}

}  // namespace

// Structures nest as deep as the shader likes, so nothing recurses.
bool isNonFinite(const ShaderView& view, const DebugValue& value) {
  std::vector<DebugValue> pending = {value};
  while (!pending.empty()) {
    const DebugValue whole = std::move(pending.back());
    pending.pop_back();
    const bool isInline = whole.type.count == 0 && whole.type.code < 0;
    if (isInline && isFloatType(whole.type.code) && hasNonFiniteWord(whole)) return true;
    if (isInline) continue;
    for (DebugPart& inner : partsOf(view, whole)) pending.push_back(std::move(inner.value));
  }
  return false;
}

}  // namespace shadermachine::tools
