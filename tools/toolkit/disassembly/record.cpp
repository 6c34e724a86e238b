#include "disassembly/record.h"

namespace shadermachine::tools::disassembly {
namespace {

std::span<const VarInfo> table(const VarInfo* entries, size_t count) {
  return entries ? std::span(entries, count) : std::span<const VarInfo>();
}

}  // namespace

std::span<const VarInfo> Record::globals() const {
  return table(shader().globals, shader().globalCount);
}

const StructInfo* Record::structure(size_t index) const {
  return index < structCount() ? shader().structTypes[index] : nullptr;
}

std::span<const VarInfo> Record::members(size_t index) const {
  const StructInfo* info = structure(index);
  return info ? table(info->members, info->memberCount) : std::span<const VarInfo>();
}

const ShaderFunction* Record::function(size_t index) const {
  return index < functionCount() ? shader().functions[index] : nullptr;
}

std::span<const VarInfo> Record::locals(const ShaderFunction& function) {
  return table(function.locals, function.localCount);
}

std::span<const uint8_t> Record::code() const {
  return shader().code ? std::span(shader().code, view_.codeSize) : std::span<const uint8_t>();
}

std::optional<std::span<const uint8_t>> Record::code(const ShaderFunction& function) const {
  const std::span<const uint8_t> all = code();
  if (function.codeOffset > all.size()) return std::nullopt;
  if (function.codeLength > all.size() - function.codeOffset) return std::nullopt;
  return all.subspan(function.codeOffset, function.codeLength);
}

const char* Record::structName(size_t index) const {
  return view_.structNames && index < structCount() ? view_.structNames[index] : nullptr;
}

const char* Record::functionName(size_t index) const {
  return view_.functionNames && index < functionCount() ? view_.functionNames[index] : nullptr;
}

}  // namespace shadermachine::tools::disassembly
