#include "support/record_difference.h"

#include <cstddef>
#include <cstring>

namespace shadermachine::testing {
namespace {

std::string text(const char* name) { return name == nullptr ? "(null)" : name; }

bool equalVariables(const VarInfo* a, const VarInfo* b, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (std::memcmp(&a[i], &b[i], offsetof(VarInfo, name)) != 0) return false;
    if (text(a[i].name) != text(b[i].name)) return false;
  }
  return true;
}

bool equalStructures(const StructInfo* a, const StructInfo* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->size == b->size && a->memberCount == b->memberCount &&
         equalVariables(a->members, b->members, a->memberCount);
}

bool equalFunctions(const ShaderFunction* a, const ShaderFunction* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->paramCount == b->paramCount && a->codeOffset == b->codeOffset &&
         a->codeLength == b->codeLength && a->localCount == b->localCount &&
         equalVariables(a->locals, b->locals, a->localCount);
}

bool equalFields(const CompiledShader& a, const CompiledShader& b) {
  // From here on there are neither pointers nor gaps.
  constexpr size_t kStart = offsetof(CompiledShader, hostStructMode);
  constexpr size_t kEnd = offsetof(CompiledShader, builtinGlobal304) + sizeof(int32_t);
  return a.version == b.version && a.entryIndex == b.entryIndex &&
         a.functionCount == b.functionCount && a.globalCount == b.globalCount &&
         a.hostFunctionCount == b.hostFunctionCount &&
         std::memcmp(reinterpret_cast<const char*>(&a) + kStart,
                     reinterpret_cast<const char*>(&b) + kStart, kEnd - kStart) == 0;
}

}  // namespace

std::string recordDifference(const tools::ShaderView& a, const tools::ShaderView& b) {
  if (a.structCount != b.structCount || a.codeSize != b.codeSize) return "sizes";
  if (!equalFields(*a.shader, *b.shader)) return "fields of the record";
  for (size_t i = 0; i < a.structCount; ++i) {
    if (!equalStructures(a.shader->structTypes[i], b.shader->structTypes[i])) {
      return "structure " + std::to_string(i);
    }
  }
  if (!equalVariables(a.shader->globals, b.shader->globals, a.shader->globalCount)) {
    return "globals";
  }
  for (size_t i = 0; i < a.shader->functionCount; ++i) {
    if (!equalFunctions(a.shader->functions[i], b.shader->functions[i])) {
      return "function " + std::to_string(i);
    }
  }
  // Empty code may be null, which memcmp() must not be given.
  if (a.codeSize == 0) return "";
  return std::memcmp(a.shader->code, b.shader->code, a.codeSize) == 0 ? "" : "code";
}

}  // namespace shadermachine::testing
