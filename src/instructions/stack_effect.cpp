#include "instructions/stack_effect.h"

#include "instructions/builtin_functions.h"
#include "instructions/builtin_variables.h"
#include "instructions/lookup_form.h"
#include "instructions/operand_shapes.h"

namespace shadermachine {
namespace {

constexpr StackEffect kUnknown = {false, 0, 0, 0, Reference::None};

StackEffect effect(uint32_t pops, uint32_t pushes, Reference reference = Reference::None,
                   int32_t indices = 0) {
  return {true, pops, pushes, indices, reference};
}

bool isInline(const VarInfo& info) { return info.type < 0 && info.count == 0; }

const StructInfo* structure(const CompiledShader& shader, uint32_t number) {
  if (shader.structTypes == nullptr) return nullptr;
  return shader.structTypes[number];
}

int operandPosition(const OpcodeInfo& info, OperandKind kind) {
  for (unsigned i = 0; i < kMaxOperands; ++i) {
    if (info.operands[i] == kind) return static_cast<int>(i);
  }
  return -1;
}

StackEffect variableEffect(const DecodedInstruction& instruction, const CompiledShader& shader,
                           const ShaderFunction& function) {
  using enum Opcode;
  const VarInfo* info = namedVariable(instruction, shader, function);
  if (info == nullptr) return kUnknown;
  switch (instruction.opcode) {
    case LOAD_LOCAL:
    case LOAD_GLOBAL:
      return effect(0, 1, isInline(*info) ? Reference::None : Reference::Fresh);
    case LOAD_LOCAL_COMPONENT:
      return effect(0, 1);
    case STORE_LOCAL_KEEP:
      return effect(1, 1, Reference::OfFirst);
    case STORE_LOCAL_ELEM:
    case STORE_GLOBAL_ELEM:
      return effect(instruction.operands[1] + 1, 0);
    default:
      return effect(1, 0);
  }
}

StackEffect memberEffect(const DecodedInstruction& instruction, const CompiledShader& shader) {
  const StructInfo* info = structure(shader, instruction.operands[0]);
  const uint32_t number = instruction.operands[1];
  if (info == nullptr || info->members == nullptr || number >= info->memberCount) return kUnknown;
  return effect(1, 1, isInline(info->members[number]) ? Reference::None : Reference::Fresh);
}

StackEffect builtinVariableEffect(uint32_t id) {
  const BuiltinFamily family = builtinVariable(id).family;
  const bool block = family == BuiltinFamily::GlobalElement || family == BuiltinFamily::GlobalArray;
  return effect(0, 1, block ? Reference::Fresh : Reference::None);
}

StackEffect lookupEffect(uint32_t form) {
  const uint32_t arguments = lookupArguments(form);
  return arguments < 2 ? effect(0, 0) : effect(arguments, 1, Reference::OfFirst);
}

StackEffect structureEffect(const DecodedInstruction& instruction, const CompiledShader& shader) {
  const auto type = static_cast<int16_t>(instruction.operands[0]);
  const StructInfo* info = type < 0 ? nullptr : structure(shader, instruction.operands[0]);
  if (info == nullptr || info->memberCount == 0) return kUnknown;
  return effect(info->memberCount, 1, Reference::Fresh);
}

// Instructions that leave a value in place of the operands, with nothing of the first one's slot.
bool replacesSlot(Opcode opcode) {
  using enum Opcode;
  switch (opcode) {
    case SWIZZLE:
    case SWIZZLE_2:
    case SWIZZLE_3:
    case EQ_AGG:
    case NE_AGG:
      return true;
    default:
      return operandShape(opcode).replacesSlot;
  }
}

StackEffect tableEffect(const DecodedInstruction& instruction) {
  const OpcodeInfo& info = instruction.info();
  if (info.operands[0] == OperandKind::OperandCount) {
    const uint32_t operands = instruction.operands[0];
    return operands == 0 ? effect(0, 0) : effect(operands, 1, Reference::OfFirst);
  }
  const auto pops = static_cast<uint8_t>(info.pops);
  const auto pushes = static_cast<uint8_t>(info.pushes);
  const bool inPlace = pops > 0 && pushes > 0 && !replacesSlot(instruction.opcode);
  return effect(pops, pushes, inPlace ? Reference::OfFirst : Reference::None);
}

}  // namespace

bool namesGlobal(Opcode opcode) {
  return operandPosition(opcodeInfo(opcode), OperandKind::Global) >= 0;
}

const VarInfo* namedVariable(const DecodedInstruction& instruction, const CompiledShader& shader,
                             const ShaderFunction& function) {
  const OpcodeInfo& info = instruction.info();
  const int local = operandPosition(info, OperandKind::Local);
  if (local >= 0) {
    const uint32_t number = instruction.operands[static_cast<unsigned>(local)];
    return number < function.localCount ? &function.locals[number] : nullptr;
  }
  const int global = operandPosition(info, OperandKind::Global);
  if (global < 0) return nullptr;
  const uint32_t number = instruction.operands[static_cast<unsigned>(global)];
  return number < shader.globalCount ? &shader.globals[number] : nullptr;
}

StackEffect stackEffect(const DecodedInstruction& instruction, const CompiledShader& shader,
                        const ShaderFunction& function) {
  using enum Opcode;
  switch (instruction.opcode) {
    case LOAD_LOCAL:
    case LOAD_GLOBAL:
    case LOAD_LOCAL_COMPONENT:
    case STORE_LOCAL:
    case STORE_GLOBAL:
    case STORE_LOCAL_KEEP:
    case STORE_LOCAL_ELEM:
    case STORE_LOCAL_ELEM_IMM:
    case STORE_GLOBAL_ELEM:
    case STORE_GLOBAL_ELEM_IMM:
      return variableEffect(instruction, shader, function);
    case LOAD_BUILTIN:
      return builtinVariableEffect(instruction.operands[0]);
    case POP_N:
      return effect(instruction.operands[0], 0);
    case DUP:
      return effect(1, 2, Reference::OfTop);
    case SWAP:
      return effect(2, 2, Reference::Swapped);
    case CALL:
      return effect(0, 0, Reference::Result);
    case CALL_BUILTIN:
      return effect(builtinFunctionPops(instruction.operands[0]), 0);
    case PUSH_INDEX:
      return effect(1, 0, Reference::None, 1);
    case PUSH_INDEX_IMM:
      return effect(0, 0, Reference::None, 1);
    case VEC_ELEMENT:
    case VEC_ELEMENT_2:
    case VEC_ELEMENT_3:
    case MAT_COLUMN:
      return effect(1, 1, Reference::OfFirst, -1);
    case ARRAY_ELEMENT: {
      const bool block = static_cast<int16_t>(instruction.operands[0]) >= 0;
      return effect(1, 1, block ? Reference::Fresh : Reference::None, -1);
    }
    case STRUCT_FIELD:
      return memberEffect(instruction, shader);
    case CTOR_STRUCT:
      return structureEffect(instruction, shader);
    case CTOR_ARRAY: {
      const uint32_t elements = instruction.operands[1];
      return elements == 0 ? kUnknown : effect(elements, 1, Reference::Fresh);
    }
    case HOST_LOOKUP_1:
    case HOST_LOOKUP_2:
      return lookupEffect(instruction.operands[0]);
    default:
      return tableEffect(instruction);
  }
}

}  // namespace shadermachine
