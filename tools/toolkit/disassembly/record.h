// Bounded access to a record that may be wrong: what does not exist reads as empty.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <optional>
#include <span>

namespace shadermachine::tools::disassembly {

class Record {
 public:
  explicit Record(const ShaderView& view) : view_(view) {}

  const CompiledShader& shader() const { return *view_.shader; }
  std::span<const VarInfo> globals() const;

  size_t structCount() const { return view_.shader->structTypes ? view_.structCount : 0; }
  const StructInfo* structure(size_t index) const;  // null for null entries too
  std::span<const VarInfo> members(size_t structure) const;

  size_t functionCount() const { return view_.shader->functions ? shader().functionCount : 0; }
  const ShaderFunction* function(size_t index) const;
  static std::span<const VarInfo> locals(const ShaderFunction& function);

  std::span<const uint8_t> code() const;
  // Empty unless all of it lies within the code.
  std::optional<std::span<const uint8_t>> code(const ShaderFunction& function) const;

  const char* structName(size_t index) const;
  const char* functionName(size_t index) const;

 private:
  ShaderView view_;
};

}  // namespace shadermachine::tools::disassembly
