#include "engine/snapshot.h"

#include <algorithm>

#include "form/decode.h"

namespace shadermachine::engine {

using form::Arena;
using form::Array;
using form::Decoder;

namespace {

// Comparison --------------------------------------------------------------------------------------

// This is the cost of a discarded fragment. What a small shader has none of goes to functions that
// are not inlined.

uint64_t differenceAt(const void* a, const void* b) {
  uint64_t left, right;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return left ^ right;
}

// The name is nothing to a translation, and may have moved.
constexpr size_t kComparedBytes = offsetof(VarInfo, name);

[[gnu::noinline]] bool sameEntries(const VarInfo* a, const VarInfo* b, uint32_t count) {
  static_assert(kComparedBytes == 2 * sizeof(uint64_t));
  uint64_t difference = 0;
#pragma GCC unroll 2
  for (uint32_t i = 0; i < count; ++i) {
    difference |= differenceAt(&a[i], &b[i]) | differenceAt(&a[i].byteSize, &b[i].byteSize);
  }
  return difference == 0;
}

bool matchesVariables(const Snapshot::Variables& copy, const VarInfo* entries, uint32_t count) {
  return copy.count == count && (count == 0 || sameEntries(copy.entries, entries, count));
}

bool sameCode(const uint8_t* a, const uint8_t* b, uint32_t size) {
  if (size >= sizeof(uint64_t)) return std::memcmp(a, b, size) == 0;
  for (uint32_t i = 0; i < size; ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

Snapshot::Services servicesOf(const CompiledShader& shader) {
  return {shader.functionCount, shader.hostFunctionCount, shader.hostFunctionA,
          shader.hostFunctionBase, shader.hostFunctionB};
}

bool matchesFunction(const Snapshot::Function& copy, const CompiledShader& shader) {
  const ShaderFunction* function = shader.functions[copy.number];
  if (function == nullptr || copy.codeLength == 0) {
    return copy.codeLength == (function == nullptr ? 0 : function->codeLength);
  }
  return copy.codeLength == function->codeLength && copy.paramCount == function->paramCount &&
         sameCode(copy.code, shader.code + function->codeOffset, copy.codeLength) &&
         matchesVariables(copy.locals, function->locals, function->localCount);
}

const StructInfo* structOf(const CompiledShader& shader, uint32_t number) {
  return shader.structTypes == nullptr ? nullptr : shader.structTypes[number];
}

// The size of a structure without members matters too.
bool matchesStruct(const Snapshot::Struct& copy, const CompiledShader& shader) {
  const StructInfo* info = structOf(shader, copy.number);
  if (info == nullptr || !copy.present) return copy.present == (info != nullptr);
  if (copy.size != info->size || copy.hasMembers != (info->members != nullptr)) return false;
  return !copy.hasMembers || matchesVariables(copy.members, info->members, info->memberCount);
}

// Copies ------------------------------------------------------------------------------------------

Snapshot::Variables copyVariables(const VarInfo* entries, uint32_t count, Arena& arena) {
  auto* copies = arena.allocate<VarInfo>(count);
  if (copies == nullptr) return {};
  for (uint32_t i = 0; i < count; ++i) std::memcpy(&copies[i], &entries[i], kComparedBytes);
  return {copies, count};
}

Snapshot::Function copyFunction(const CompiledShader& shader, uint32_t number, Arena& arena) {
  const ShaderFunction* function = shader.functions[number];
  if (function == nullptr || function->codeLength == 0) return {number, 0, 0, {}, nullptr};
  auto* code = arena.allocate<uint8_t>(function->codeLength);
  if (code == nullptr) return {};
  std::memcpy(code, shader.code + function->codeOffset, function->codeLength);
  return {number, function->codeLength, function->paramCount,
          copyVariables(function->locals, function->localCount, arena), code};
}

Snapshot::Struct copyStruct(const CompiledShader& shader, uint32_t number, Arena& arena) {
  const StructInfo* info = structOf(shader, number);
  if (info == nullptr) return {number, false, false, 0, {}};
  if (info->members == nullptr) return {number, true, false, info->size, {}};
  return {number, true, true, info->size, copyVariables(info->members, info->memberCount, arena)};
}

void sortOut(Array<uint32_t>& numbers) {
  uint32_t* const first = numbers.data();
  std::sort(first, first + numbers.size());
  const auto count = std::unique(first, first + numbers.size()) - first;
  while (numbers.size() > static_cast<uint32_t>(count)) numbers.removeLast();
}

}  // namespace

bool Snapshot::take(const CompiledShader& shader, Decoder& decoder, Arena& arena) {
  Array<uint32_t> numbers;  // of the functions but the entry function
  for (uint32_t f = 0; f < shader.functionCount; ++f) {
    if (decoder.consulted(f) && f != shader.entryIndex) numbers.append(f);
  }
  Array<uint32_t>& structNumbers = decoder.consultedStructs();
  sortOut(structNumbers);
  auto* functions = arena.allocate<Function>(numbers.size());
  auto* structs = arena.allocate<Struct>(structNumbers.size());
  if (numbers.failed() || structNumbers.failed() || arena.failed()) return false;
  functionCount_ = numbers.size();
  structCount_ = structNumbers.size();
  for (uint32_t i = 0; i < functionCount_; ++i) {
    functions[i] = copyFunction(shader, numbers[i], arena);
  }
  for (uint32_t i = 0; i < structCount_; ++i) {
    structs[i] = copyStruct(shader, structNumbers[i], arena);
  }
  functions_ = functions;
  structs_ = structs;
  entryIndex_ = shader.entryIndex;
  entry_ = copyFunction(shader, entryIndex_, arena);
  globals_ = copyVariables(shader.globals, shader.globalCount, arena);
  foundCalls_ = decoder.foundCalls();
  services_ = servicesOf(shader);
  hasRest_ = foundCalls_ || functionCount_ != 0 || structCount_ != 0;
  return !arena.failed();
}

bool Snapshot::matches(const CompiledShader& shader) const {
  return entryIndex_ == shader.entryIndex && matchesFunction(entry_, shader) &&
         matchesVariables(globals_, shader.globals, shader.globalCount) &&
         (!hasRest_ || matchesRest(shader));
}

[[gnu::noinline]] bool Snapshot::matchesRest(const CompiledShader& shader) const {
  if (foundCalls_ && services_ != servicesOf(shader)) return false;
  for (uint32_t i = 0; i < functionCount_; ++i) {
    if (!matchesFunction(functions_[i], shader)) return false;
  }
  for (uint32_t i = 0; i < structCount_; ++i) {
    if (!matchesStruct(structs_[i], shader)) return false;
  }
  return true;
}

}  // namespace shadermachine::engine
