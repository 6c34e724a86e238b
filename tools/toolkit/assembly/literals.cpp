#include "assembly/literals.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace shadermachine::tools::assembly {
namespace {

// In the order of the type codes, from VM_TYPE_BOOL.
constexpr std::array<const char*, 23> kTypeNames = {
    "bool",     "int",      "float",    "vec2",     "vec3",     "vec4",     "ivec2",   "ivec3",
    "ivec4",    "bvec2",    "bvec3",    "bvec4",    "mat2",     "mat3",     "mat4",    "sampler0",
    "sampler1", "sampler2", "sampler3", "sampler4", "sampler5", "sampler6", "sampler7"};
static_assert(kTypeNames.size() == VM_TYPE_SAMPLER_7 - VM_TYPE_BOOL + 1);

constexpr std::string_view kComponents = "xyzw";
constexpr std::string_view kComponentAliases[] = {kComponents, "rgba", "stpq"};

Number numberError(const char* error) { return {0, false, error}; }

Number floatFrom(float value) { return {std::bit_cast<uint32_t>(value), true, nullptr}; }

Number parseInteger(std::string_view digits, bool isNegative, int base) {
  uint64_t magnitude = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
  const bool isWhole = end == digits.data() + digits.size() && !digits.empty();
  if (error == std::errc::invalid_argument || !isWhole) return numberError("malformed number");
  // A word is written as it is meant, signed or unsigned.
  const uint64_t limit = isNegative ? uint64_t{1} << 31 : UINT32_MAX;
  if (error != std::errc() || magnitude > limit) {
    return numberError("number does not fit in 32 bits:");
  }
  const auto value = static_cast<int64_t>(magnitude);
  return {isNegative ? -value : value, false, nullptr};
}

Number parseFloat(std::string_view digits, bool isNegative) {
  float value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (end != digits.data() + digits.size()) return numberError("malformed number");
  if (error == std::errc::result_out_of_range) {
    return numberError("number is too large or too small for a float:");
  }
  if (error != std::errc()) return numberError("malformed number");
  return floatFrom(isNegative ? -value : value);
}

// Value of a hexadecimal digit; -1 for other characters.
int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const int lower = c | 0x20;
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string hex(uint32_t value, size_t digits) {
  std::string text(digits, '0');
  for (size_t i = 0; i < digits; ++i) {
    text[digits - 1 - i] = "0123456789ABCDEF"[value >> 4 * i & 15];
  }
  return text;
}

}  // namespace

bool isNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}

bool isNamePart(char c) { return isNameStart(c) || (c >= '0' && c <= '9'); }

bool isName(std::string_view text) {
  if (text.empty() || !isNameStart(text[0])) return false;
  for (char c : text) {
    if (!isNamePart(c)) return false;
  }
  return true;
}

Number parseNumber(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  if (text == "inf") {
    const float infinity = std::numeric_limits<float>::infinity();
    return floatFrom(isNegative ? -infinity : infinity);
  }
  if (text.starts_with("0x") || text.starts_with("0X")) {
    return parseInteger(text.substr(2), isNegative, 16);
  }
  const bool isFloat = text.find_first_of(".eE") != std::string_view::npos;
  return isFloat ? parseFloat(text, isNegative) : parseInteger(text, isNegative, 10);
}

std::string formatWord(uint32_t word) {
  // Such a word is no useful float: it would be subnormal, or a NaN other than the usual ones.
  const auto integer = std::bit_cast<int32_t>(word);
  if (std::abs(int64_t{integer}) < 1 << 22) return std::to_string(integer);
  const auto value = std::bit_cast<float>(word);
  const float magnitude = std::fabs(value);
  if (!(magnitude == 0 || (magnitude > 1e-9f && magnitude < 1e12f))) return "0x" + hex(word, 8);
  // The shortest digits that read back as the same word.
  std::array<char, 32> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  std::string text(buffer.data(), end);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

std::optional<std::string> parseString(std::string_view quoted) {
  std::string characters;
  const std::string_view text = quoted.substr(1, quoted.size() - 2);
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\\') {
      const char escape = ++i < text.size() ? text[i] : '\0';
      if (escape == 'x' && i + 2 < text.size()) {
        const int high = hexDigit(text[i + 1]);
        const int low = hexDigit(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        c = static_cast<char>(high << 4 | low);
        i += 2;
      } else if (escape == '"' || escape == '\\') {
        c = escape;
      } else {
        return std::nullopt;
      }
    }
    if (c == '\0') return std::nullopt;
    characters += c;
  }
  return characters;
}

std::string formatString(std::string_view characters) {
  std::string text = "\"";
  for (char c : characters) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      text += '\\';
      text += c;
    } else if (byte < ' ' || byte >= 127) {
      text += "\\x" + hex(byte, 2);
    } else {
      text += c;
    }
  }
  return text + "\"";
}

std::span<const char* const> basicTypeNames() { return kTypeNames; }

std::optional<TypeCode> parseBasicType(std::string_view name) {
  for (size_t i = 0; i < kTypeNames.size(); ++i) {
    if (name == kTypeNames[i]) return static_cast<TypeCode>(VM_TYPE_BOOL + static_cast<int>(i));
  }
  return std::nullopt;
}

const char* basicTypeName(TypeCode type) {
  if (type < VM_TYPE_BOOL || type > VM_TYPE_SAMPLER_7) return nullptr;
  const char* name = kTypeNames[static_cast<size_t>(type - VM_TYPE_BOOL)];
  return name;
}

std::optional<Swizzle> parseSwizzle(std::string_view letters) {
  if (letters.empty() || letters.size() > 4) return std::nullopt;
  for (std::string_view names : kComponentAliases) {
    Swizzle swizzle;
    for (char letter : letters) {
      const size_t component = names.find(letter);
      if (component == std::string_view::npos) break;
      swizzle.mask |= static_cast<unsigned>(component) << 2 * swizzle.count++;
    }
    if (swizzle.count == letters.size()) return swizzle;
  }
  return std::nullopt;
}

std::string formatSwizzle(const Swizzle& swizzle) {
  if (swizzle.count < 1 || swizzle.count > 4 || swizzle.mask >> 2 * swizzle.count != 0) return "";
  std::string text = ".";
  for (unsigned i = 0; i < swizzle.count; ++i) text += kComponents[swizzle.mask >> 2 * i & 3];
  return text;
}

}  // namespace shadermachine::tools::assembly
