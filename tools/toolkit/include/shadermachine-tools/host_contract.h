// What a host writes when a shader asks it, and what it may read: this project's convention, shared
// by validator, renderer and compiler. docs/embedding.md has the prose form.
//
// The machine only passes pointers. Widths therefore have to be agreed between host and compiler,
// and a shader is sound on every host that keeps to this table.
#pragma once

#include <shadermachine/shadermachine.h>

#include <array>
#include <cstdint>

namespace shadermachine::tools {

// Ids that compilers and renderers know by name.
inline constexpr uint16_t kFrontFacing = 280;
inline constexpr uint16_t kFragmentPosition = 283;
inline constexpr uint16_t kPointPosition = 284;

// Type of the value that LOAD_BUILTIN of an id gives; for the ids that are backed by a global, of
// one element: the host writes one, or as many as the global's array has.
struct BuiltinValue {
  uint16_t id;
  TypeCode type;
  const char* meaning;
};

inline constexpr std::array<BuiltinValue, 7> kBuiltinValues = {{
    {258, VM_TYPE_INT, "StartupInfo.builtin258"},
    {kFrontFacing, VM_TYPE_BOOL, "1 on the front of a surface, else 0"},
    {281, VM_TYPE_INT, "StartupInfo.builtin281"},
    {282, VM_TYPE_INT, "StartupInfo.builtin282"},
    {kFragmentPosition, VM_TYPE_VEC4,
     "fragment position: x and y of the pixel's centre, depth, 1 / w"},
    {kPointPosition, VM_TYPE_VEC2, "position inside a point sprite, 0 to 1"},
    {285, VM_TYPE_INT, "StartupInfo.builtin285"},
}};

// All other ids give a vec4 whose meaning host and compiler agree on.
constexpr BuiltinValue builtinValue(uint32_t id) {
  for (const BuiltinValue& value : kBuiltinValues) {
    if (value.id == id) return value;
  }
  return {static_cast<uint16_t>(id), VM_TYPE_VEC4, "free"};
}

// In place of a number of words: the host reads the data of a block.
inline constexpr int8_t kReadsBlock = -1;

// CALL_BUILTIN of one served id.
struct BuiltinFunction {
  uint16_t id;
  uint8_t operandCount;         // slots it touches
  std::array<int8_t, 5> reads;  // words read of each, deepest first
  uint8_t pops;                 // of the operands; the block of the top one is released if read
  uint8_t writes;               // words written to the slot that is on top afterwards
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

inline constexpr uint32_t kTexelKind = 0;  // the one that does not filter
inline constexpr uint32_t kCubeKind = 4;

struct LookupKind {
  uint8_t coordinates;
  const char* meaning;
};

inline constexpr std::array<LookupKind, 8> kLookupKinds = {{
    {3,
     "HOST_LOOKUP_2: texel at column, row and level, or described; HOST_LOOKUP_1: size of the "
     "level"},
    {1, "1D"},
    {2, "2D"},
    {3, "3D"},
    {3, "direction (cube)"},
    {2, "1D, divided by the last coordinate"},
    {3, "2D, divided by the last coordinate"},
    {4, "3D, divided by the last coordinate"},
}};

// HOST_LOOKUP_2 of kind 0 with three operands describes a look-up that the others cannot: the
// second operand is a mat4 and the third an integer.
//   column 0: the coordinates as GLSL's texture functions take them, layer and reference among them
//   column 1: derivative to the right, and the reference of a comparison that has it apart
//   column 2: derivative upwards, and level or bias
//   column 3: offset in texels, and the component to gather
inline constexpr uint32_t kDescribedWords = 16;
// Number of components of a texel's position, or 4 for a direction, in the integer's lowest bits.
inline constexpr uint32_t kLookupDimensions = 7;
inline constexpr uint32_t kLookupIsLayered = 1 << 3;  // a layer follows the position
inline constexpr uint32_t kLookupCompares = 1 << 4;   // gives 1 where the reference is not above
inline constexpr uint32_t kLookupIsApart = 1 << 5;    // its reference is in column 1
inline constexpr uint32_t kLookupInTexels = 1 << 6;   // coordinates run to the size, not to 1
inline constexpr uint32_t kLookupGivesIntegers = 1 << 7;
inline constexpr uint32_t kLookupOperationShift = 8;
inline constexpr uint32_t kLookupIsBuffer = 1 << 16;  // texels are counted, row after row
inline constexpr uint32_t kLookupOperations = 0xff;   // behind the shift

enum class LookupOperation : uint8_t {
  Sample,  // as HOST_LOOKUP_1 does, with a bias
  Level,
  Gradient,
  Texel,
  Gather,
  Size,    // of a level, in integers, with the number of layers
  Levels,  // their number, an integer
  // The level that the gradients ask for: in the first component as the picture has it, in the
  // second as it would be of a picture with levels without end.
  LevelOfGradients,
};

// HOST_UNARY: at most the first four words in place, each result word from the word it replaces.
// The operand is the number of components, which the machine skips.
inline constexpr uint32_t kHostUnaryWords = 4;

// CALL of a function that the host takes over.
inline constexpr uint32_t kHostFunctionWords = 4;  // to `a`; as many again may go to `b`
inline constexpr uint32_t kOverrideAWords = 1;     // the callback's result; `value` may be changed
inline constexpr uint32_t kOverrideBWords = 3;     // the output area

}  // namespace shadermachine::tools
