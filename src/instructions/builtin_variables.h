// The 66 built-in variables: how the library answers each id.
#pragma once

#include <shadermachine/machine.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace shadermachine {

inline constexpr uint32_t kFirstBuiltinVariable = 258;
inline constexpr uint32_t kLastBuiltinVariable = 450;

enum class BuiltinFamily : uint8_t {
  None,           // no such id
  RunWord,        // a word of StartupInfo
  HostValue,      // the host fills the pushed slot; index -1
  IndexedValue,   // the host fills the pushed slot; index is the current index
  GlobalElement,  // the host fills a global's block; count 1
  GlobalArray,    // the host fills a global's block; count is the global's length
};

struct BuiltinVariable {
  BuiltinFamily family;
  bool indexed;           // pass the current index, else -1
  uint8_t callbackSlot;   // of HostCallbacks; not for run words
  uint16_t recordOffset;  // of the word in ShaderMachine, or of the global's number in the shader
};

namespace detail {

using enum BuiltinFamily;

// Ids first to first + count - 1, served by as many consecutive slots and record fields.
struct IdRange {
  uint16_t first;
  uint8_t count;
  BuiltinFamily family;
  bool indexed;
  uint8_t slot;
  uint16_t offset;
};

consteval uint16_t runWord(size_t offset) { return static_cast<uint16_t>(offset); }
consteval uint16_t numbered(uint32_t entry) {
  return static_cast<uint16_t>(offsetof(CompiledShader, builtinGlobals) + entry * sizeof(int32_t));
}
consteval uint16_t shaderField(size_t offset) { return static_cast<uint16_t>(offset); }

inline constexpr IdRange kRanges[] = {
    {258, 1, RunWord, false, 0, runWord(offsetof(ShaderMachine, builtin258))},
    {281, 2, RunWord, false, 0, runWord(offsetof(ShaderMachine, builtin281))},
    {285, 1, RunWord, false, 0, runWord(offsetof(ShaderMachine, builtin285))},
    {259, 4, HostValue, false, 57, 0},
    {263, 4, HostValue, false, 62, 0},
    {279, 1, HostValue, false, 61, 0},
    {280, 1, HostValue, false, 66, 0},
    {283, 2, HostValue, false, 67, 0},
    {301, 2, HostValue, false, 70, 0},
    {412, 2, HostValue, false, 43, 0},
    {417, 1, HostValue, false, 2, 0},
    {382, 14, IndexedValue, true, 4, 0},
    {415, 1, IndexedValue, true, 46, 0},
    {416, 1, IndexedValue, true, 3, 0},
    {300, 1, GlobalElement, false, 69, shaderField(offsetof(CompiledShader, builtinGlobal300))},
    {397, 1, GlobalElement, true, 18, numbered(0)},
    {399, 1, GlobalElement, true, 19, numbered(1)},
    {401, 2, GlobalElement, true, 20, numbered(2)},
    {405, 1, GlobalElement, true, 22, numbered(4)},
    {407, 2, GlobalElement, true, 23, numbered(5)},
    {411, 1, GlobalElement, true, 25, numbered(7)},
    {303, 2, GlobalArray, true, 72, shaderField(offsetof(CompiledShader, builtinGlobal303))},
    {432, 4, GlobalArray, true, 26, numbered(12)},
    {436, 4, GlobalArray, true, 30, numbered(8)},
    {440, 9, GlobalArray, true, 34, numbered(16)},
    {450, 1, GlobalArray, true, 45, numbered(25)},
};

consteval auto makeTable() {
  std::array<BuiltinVariable, kLastBuiltinVariable - kFirstBuiltinVariable + 1> table = {};
  for (const IdRange& range : kRanges) {
    for (uint32_t i = 0; i < range.count; ++i) {
      table[range.first + i - kFirstBuiltinVariable] = {
          range.family, range.indexed, static_cast<uint8_t>(range.slot + i),
          static_cast<uint16_t>(range.offset + i * sizeof(int32_t))};
    }
  }
  return table;
}

}  // namespace detail

// Indexed by id - kFirstBuiltinVariable.
inline constexpr auto kBuiltinVariables = detail::makeTable();

// Family None for an id that does not exist.
constexpr BuiltinVariable builtinVariable(uint32_t id) {
  if (id < kFirstBuiltinVariable || id > kLastBuiltinVariable) return {};
  return kBuiltinVariables[id - kFirstBuiltinVariable];
}

// The host's answer to a built-in variable; null when it gives none.
inline VmBuiltinCallback builtinCallback(const ShaderMachine& machine, uint32_t callbackSlot) {
  VmBuiltinCallback callback;
  static_assert(sizeof callback == 8);
  std::memcpy(&callback, reinterpret_cast<const uint8_t*>(&machine.callbacks) + 8 * callbackSlot,
              8);
  return callback;
}

}  // namespace shadermachine
