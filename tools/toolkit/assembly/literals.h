// The spelling of names, numbers, strings, types and swizzles, in both directions.
#pragma once

#include <shadermachine/shadermachine.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace shadermachine::tools::assembly {

bool isNameStart(char c);
bool isNamePart(char c);
bool isName(std::string_view text);

struct Number {
  int64_t value = 0;  // the number, or the bit pattern of a float
  bool isFloat = false;
  const char* error = nullptr;
};
Number parseNumber(std::string_view text);

// A word of unknown meaning as a small integer, a float or a bit pattern, whichever reads best.
std::string formatWord(uint32_t word);

// The characters behind a quoted string; empty when an escape is unknown or gives a NUL.
std::optional<std::string> parseString(std::string_view quoted);
std::string formatString(std::string_view characters);

std::span<const char* const> basicTypeNames();
std::optional<TypeCode> parseBasicType(std::string_view name);
const char* basicTypeName(TypeCode type);  // null for other codes

// A swizzle: how many components, and two bits for each.
struct Swizzle {
  unsigned count = 0;
  unsigned mask = 0;
};
// One to four letters of one of the sets xyzw, rgba and stpq.
std::optional<Swizzle> parseSwizzle(std::string_view letters);
// With a leading dot; empty when no letters give exactly these values.
std::string formatSwizzle(const Swizzle& swizzle);

}  // namespace shadermachine::tools::assembly
