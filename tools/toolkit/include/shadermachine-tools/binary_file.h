// Compiled shaders as bytes, for files that need neither assembler nor compiler to be used.
// docs/binary.md describes the format.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>
#include <shadermachine-tools/shader_view.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

struct BinaryResult {
  std::optional<BuiltShader> shader;  // empty when there is an error
  std::vector<NamedValue> values;     // for host variables that the user gives none
  std::string error;
};

// True when the bytes start as a binary file does.
bool isBinary(std::string_view bytes);

// Any bytes may be given; memory grows with their number only. What is read can be as wrong as any
// record: only the validator says whether it may run.
BinaryResult readBinary(std::string_view bytes);

// All of the record, right or wrong, with the names of the view. Tables that are null count as
// empty.
std::string writeBinary(const ShaderView& view, std::span<const NamedValue> values = {});

}  // namespace shadermachine::tools
