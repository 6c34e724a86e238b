#include "types.h"

#include <cstring>

#include "assembly/literals.h"
#include "diagnostics.h"
#include "instructions/builtin_variables.h"
#include "machine/types.h"

namespace shadermachine::tools {

const StructInfo* Types::structure(int32_t type) const {
  const CompiledShader& shader = *view_.shader;
  if (type < 0 || static_cast<uint32_t>(type) >= view_.structCount) return nullptr;
  return shader.structTypes == nullptr ? nullptr : shader.structTypes[type];
}

uint32_t Types::elementBytes(TypeCode type) const {
  if (type < 0) return typeByteSize(type);
  const StructInfo* info = structure(type);
  return info == nullptr ? 0 : info->size;
}

uint64_t Types::variableBytes(TypeCode type, uint32_t count) const {
  return uint64_t{elementBytes(type)} * (count == 0 ? 1 : count);
}

int32_t backingGlobal(const CompiledShader& shader, uint32_t builtinId) {
  const BuiltinVariable variable = builtinVariable(builtinId);
  if (variable.family != BuiltinFamily::GlobalElement &&
      variable.family != BuiltinFamily::GlobalArray) {
    return -1;
  }
  int32_t index;
  std::memcpy(&index, reinterpret_cast<const char*>(&shader) + variable.recordOffset, sizeof index);
  return index;
}

std::string Types::structureName(uint32_t type) const {
  const bool isKnown = view_.structNames != nullptr && type < view_.structCount;
  const char* name = isKnown ? view_.structNames[type] : nullptr;
  return name == nullptr || *name == '\0' ? text("structure ", type) : text("structure ", name);
}

std::string Types::describe(TypeCode type, uint32_t count) const {
  const char* basic = type < 0 ? assembly::basicTypeName(type) : nullptr;
  if (basic != nullptr) return count == 0 ? basic : text(basic, "[", count, "]");
  const std::string element =
      type >= 0 ? structureName(static_cast<uint32_t>(type)) : text("type ", type);
  return count == 0 ? element : text("array of ", count, " of ", element);
}

}  // namespace shadermachine::tools
