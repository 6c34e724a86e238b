// What a host writes when a shader asks it, and what it may read: this project's convention, shared
// by validator, renderer and compiler. docs/host-contract.md is the prose form.
//
// The machine only passes pointers. Widths therefore have to be agreed between host and compiler,
// and a shader is sound on every host that keeps to this table.
#pragma once

#include <shadermachine/shadermachine.h>

#include <array>
#include <cstdint>

namespace shadermachine::tools {

// How LOAD_BUILTIN answers an id.
enum class BuiltinFamily : uint8_t {
  RunWord,        // a word of StartupInfo; no callback
  Inline,         // the host fills the pushed slot, index -1
  InlineIndexed,  // the host fills the pushed slot for the current index
  GlobalElement,  // the host fills the global behind the id with one element
  GlobalArray,    // the host fills the global behind the id with all its elements
};

struct BuiltinVariable {
  uint16_t id;
  BuiltinFamily family;
  TypeCode type;    // of the value, for the global families of one element
  int8_t global;    // backingGlobal(): entry of builtinGlobals, or 26, 27, 28; -1 without a global
  const char* meaning;
};

inline constexpr int8_t kGlobal300 = 26;
inline constexpr int8_t kGlobal303 = 27;
inline constexpr int8_t kGlobal304 = 28;

// clang-format off
inline constexpr std::array<BuiltinVariable, 66> kBuiltinVariables = {{
    {258, BuiltinFamily::RunWord, VM_TYPE_INT, -1, "StartupInfo.builtin258"},
    {259, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {260, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {261, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {262, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {263, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {264, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {265, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {266, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {279, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {280, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {281, BuiltinFamily::RunWord, VM_TYPE_INT, -1, "StartupInfo.builtin281"},
    {282, BuiltinFamily::RunWord, VM_TYPE_INT, -1, "StartupInfo.builtin282"},
    {283, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "fragment position: x, y at the pixel's centre, depth, 1 / w"},
    {284, BuiltinFamily::Inline, VM_TYPE_BOOL, -1, "1 on the front of its surface, else 0"},
    {285, BuiltinFamily::RunWord, VM_TYPE_INT, -1, "StartupInfo.builtin285"},
    {300, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, kGlobal300, "free"},
    {301, BuiltinFamily::Inline, VM_TYPE_VEC2, -1, "position inside a point, 0 to 1"},
    {302, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {303, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, kGlobal303, "free"},
    {304, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, kGlobal304, "free"},
    {382, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {383, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {384, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {385, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {386, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {387, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {388, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {389, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {390, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {391, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {392, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {393, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {394, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {395, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {397, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 0, "free"},
    {399, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 1, "free"},
    {401, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 2, "free"},
    {402, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 3, "free"},
    {405, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 4, "free"},
    {407, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 5, "free"},
    {408, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 6, "free"},
    {411, BuiltinFamily::GlobalElement, VM_TYPE_VEC4, 7, "free"},
    {412, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {413, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {415, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {416, BuiltinFamily::InlineIndexed, VM_TYPE_VEC4, -1, "free"},
    {417, BuiltinFamily::Inline, VM_TYPE_VEC4, -1, "free"},
    {432, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 12, "free"},
    {433, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 13, "free"},
    {434, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 14, "free"},
    {435, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 15, "free"},
    {436, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 8, "free"},
    {437, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 9, "free"},
    {438, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 10, "free"},
    {439, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 11, "free"},
    {440, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 16, "free"},
    {441, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 17, "free"},
    {442, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 18, "free"},
    {443, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 19, "free"},
    {444, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 20, "free"},
    {445, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 21, "free"},
    {446, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 22, "free"},
    {447, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 23, "free"},
    {448, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 24, "free"},
    {450, BuiltinFamily::GlobalArray, VM_TYPE_VEC4, 25, "free"},
}};
// clang-format on

constexpr const BuiltinVariable* findBuiltinVariable(uint32_t id) {
  for (const BuiltinVariable& variable : kBuiltinVariables) {
    if (variable.id == id) return &variable;
  }
  return nullptr;
}

// The global behind a variable of the global families; -1 when the shader has none.
constexpr int32_t backingGlobal(const CompiledShader& shader, const BuiltinVariable& variable) {
  if (variable.global < 0) return -1;
  if (variable.global == kGlobal300) return shader.builtinGlobal300;
  if (variable.global == kGlobal303) return shader.builtinGlobal303;
  if (variable.global == kGlobal304) return shader.builtinGlobal304;
  return shader.builtinGlobals[variable.global];
}

// Words of the operands that a host reads are defined; Block stands for a view's data.
inline constexpr int8_t kReadsBlock = -1;

// CALL_BUILTIN of one served id.
struct BuiltinFunction {
  uint16_t id;
  uint8_t operandCount;          // slots it touches
  std::array<int8_t, 5> reads;   // words read of each, deepest first
  uint8_t pops;                  // of the operands; the block of the top one is released if read
  uint8_t writes;                // words written to the slot that is on top afterwards
};

inline constexpr std::array<BuiltinFunction, 11> kBuiltinFunctions = {{
    {267, 4, {1, 4, 4, kReadsBlock}, 4, 0},
    {275, 2, {1, 3}, 1, 4},
    {276, 2, {3, 1}, 1, 3},
    {277, 2, {1, 1}, 1, 4},
    {278, 3, {1, 3, 1}, 2, 4},
    {293, 2, {4, 4}, 2, 0},
    {294, 4, {0, 4, 1, 1}, 3, 4},
    {295, 4, {0, 4, 1, 1}, 3, 4},
    {296, 4, {0, 4, 1, 1}, 3, 4},
    {297, 5, {0, 4, 1, 1, 1}, 4, 4},
    {298, 3, {0, 4, 4}, 3, 0},
}};

constexpr const BuiltinFunction* findBuiltinFunction(uint32_t id) {
  for (const BuiltinFunction& function : kBuiltinFunctions) {
    if (function.id == id) return &function;
  }
  return nullptr;
}

// Look-ups: the host writes a vec4 and reads as many coordinates as the kind has.
inline constexpr uint32_t kLookupResultWords = 4;
inline constexpr uint32_t kSamplerWords = 2;

struct LookupKind {
  uint8_t coordinates;
  const char* meaning;
};

inline constexpr std::array<LookupKind, 8> kLookupKinds = {{
    {1, "1D"},
    {2, "2D"},
    {3, "3D"},
    {3, "direction (cube)"},
    {2, "1D, divided by the last coordinate"},
    {3, "2D, divided by the last coordinate"},
    {4, "3D, divided by the last coordinate"},
    {4, "free"},
}};

// HOST_UNARY: at most the first four words in place, each result word from the word it replaces.
inline constexpr uint32_t kHostUnaryWords = 4;

// CALL of a function that the host takes over.
inline constexpr uint32_t kHostFunctionWords = 4;  // to `a`; as many again may go to `b`
inline constexpr uint32_t kOverrideAWords = 1;     // the callback's result; `value` may be changed
inline constexpr uint32_t kOverrideBWords = 3;     // the output area

}  // namespace shadermachine::tools
