// The 66 built-in variables: how the library answers each id.
#pragma once

#include <shadermachine/shadermachine.h>

#include <array>
#include <cstddef>

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

// Indexed by id - kFirstBuiltinVariable.
extern const std::array<BuiltinVariable, kLastBuiltinVariable - kFirstBuiltinVariable + 1>
    kBuiltinVariables;

// Family None for an id that does not exist.
inline BuiltinVariable builtinVariable(uint32_t id) {
  if (id < kFirstBuiltinVariable || id > kLastBuiltinVariable) return {};
  return kBuiltinVariables[id - kFirstBuiltinVariable];
}

}  // namespace shadermachine
