#include "engine/snapshot.h"

#include "engine/decode.h"

namespace shadermachine::engine {
namespace {

// Comparison --------------------------------------------------------------------------------------

template <class T>
bool sameAt(const void* a, const void* b) {
  T left, right;
  std::memcpy(&left, a, sizeof(T));
  std::memcpy(&right, b, sizeof(T));
  return left == right;
}

bool sameCode(const uint8_t* a, const uint8_t* b, size_t size) {
  // Of a short function the call would cost more than the comparison.
  if (size > 32) return std::memcmp(a, b, size) == 0;
  for (; size >= 8; a += 8, b += 8, size -= 8) {
    if (!sameAt<uint64_t>(a, b)) return false;
  }
  for (; size > 0; ++a, ++b, --size) {
    if (*a != *b) return false;
  }
  return true;
}

// The name is nothing to a translation, and may have moved.
constexpr size_t kComparedBytes = offsetof(VarInfo, name);

bool matchesVariables(const Snapshot::Variables& copy, const VarInfo* entries, uint32_t count) {
  if (copy.count != count) return false;
  static_assert(kComparedBytes == 16);
  for (uint32_t i = 0; i < count; ++i) {
    const auto* kept = reinterpret_cast<const char*>(&copy.entries[i]);
    const auto* given = reinterpret_cast<const char*>(&entries[i]);
    if (!sameAt<uint64_t>(kept, given) || !sameAt<uint64_t>(kept + 8, given + 8)) return false;
  }
  return true;
}

Snapshot::Numbers numbersOf(const CompiledShader& shader) {
  return {shader.entryIndex,    shader.functionCount, shader.hostFunctionCount,
          shader.hostFunctionA, shader.hostFunctionB, shader.hostFunctionBase};
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

const StructInfo* presentStruct(const CompiledShader& shader, uint32_t number) {
  const StructInfo* info = shader.structTypes == nullptr ? nullptr : shader.structTypes[number];
  return info == nullptr || info->members == nullptr ? nullptr : info;
}

bool matchesStruct(const Snapshot::Struct& copy, const CompiledShader& shader) {
  const StructInfo* info = presentStruct(shader, copy.number);
  if (info == nullptr || !copy.present) return copy.present == (info != nullptr);
  return copy.size == info->size &&
         matchesVariables(copy.members, info->members, info->memberCount);
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
  const StructInfo* info = presentStruct(shader, number);
  if (info == nullptr) return {number, false, 0, {}};
  return {number, true, info->size, copyVariables(info->members, info->memberCount, arena)};
}

void addNumber(Array<uint32_t>& numbers, uint32_t number) {
  for (uint32_t i = 0; i < numbers.size(); ++i) {
    if (numbers[i] == number) return;
  }
  numbers.append(number);
}

// The structure types that the function's instructions name.
void addStructs(Array<uint32_t>& structs, const DecodedFunction& function) {
  for (uint32_t i = 0; i < function.count; ++i) {
    const Instruction& item = function.instructions[i];
    const bool names = item.opcode == Opcode::STRUCT_FIELD ||
                       item.opcode == Opcode::ARRAY_ELEMENT || item.opcode == Opcode::CTOR_STRUCT ||
                       item.opcode == Opcode::CTOR_ARRAY;
    if (!names) continue;
    const uint32_t number = operandU16(function.code, item.pc + 1);
    const bool basic = item.opcode != Opcode::STRUCT_FIELD && static_cast<int16_t>(number) < 0;
    if (!basic) addNumber(structs, number);
  }
}

}  // namespace

bool Snapshot::take(const CompiledShader& shader, const Decoder& decoder, Arena& arena) {
  Array<uint32_t> numbers;  // of the functions
  Array<uint32_t> structNumbers;
  for (uint32_t f = 0; f < shader.functionCount; ++f) {
    if (!decoder.consulted(f)) continue;
    numbers.append(f);
    if (decoder.decoded(f) != nullptr) addStructs(structNumbers, *decoder.decoded(f));
  }
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
  numbers_ = numbersOf(shader);
  globals_ = copyVariables(shader.globals, shader.globalCount, arena);
  functions_ = functions;
  structs_ = structs;
  return !arena.failed();
}

bool Snapshot::matches(const CompiledShader& shader) const {
  if (numbers_ != numbersOf(shader) ||
      !matchesVariables(globals_, shader.globals, shader.globalCount)) {
    return false;
  }
  for (uint32_t i = 0; i < functionCount_; ++i) {
    if (!matchesFunction(functions_[i], shader)) return false;
  }
  for (uint32_t i = 0; i < structCount_; ++i) {
    if (!matchesStruct(structs_[i], shader)) return false;
  }
  return true;
}

}  // namespace shadermachine::engine
