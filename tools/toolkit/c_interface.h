// What the sources of the C interface share.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>
#include <shadermachine-tools/shadermachine-tools.h>

#include <string>
#include <vector>

struct VmToolsShader {
  shadermachine::tools::BuiltShader shader;
  std::vector<shadermachine::tools::NamedValue> values;
};

namespace shadermachine::tools {

inline constexpr const char* kOutOfMemory = "error: out of memory";

inline void report(VmToolsMessageCallback callback, void* userData, const std::string& message) {
  if (callback) callback(message.c_str(), userData);
}

}  // namespace shadermachine::tools
