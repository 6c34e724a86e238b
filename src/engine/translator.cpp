#include "engine/translator.h"

#include "engine/flow.h"

namespace shadermachine::engine {

Translator::Translator(Arena& arena, Decoder& decoder, Machine& machine)
    : arena_(arena),
      decoder_(decoder),
      machine_(machine),
      shader_(*machine.shader),
      out_(arena, machine) {}

const Record* Translator::translate(uint32_t entryFunction) {
  const DecodedFunction* function = decoder_.decode(entryFunction);
  auto* call = arena_.allocate<InlinedCall>();
  if (function == nullptr || call == nullptr || out_.failed()) return nullptr;
  const ShaderFunction& record = *function->record;
  *call = {nullptr, entryFunction, shader_.globalCount, 0, 0, 0};
  const int32_t locals = shader_.globalCount;
  if (locals + record.localCount + static_cast<int32_t>(function->maxTemporaries) >
      machine_.stackCapacity) {
    return nullptr;
  }
  for (int32_t s = 0; s < locals; ++s) {
    const VarInfo& info = shader_.globals[s];
    out_.setHome(s, isBasicVar(info) ? variableWords(info) : 0, !isBasicVar(info));
  }
  out_.top = locals - 1;
  out_.call = call;
  Instance instance = {function, call, nullptr, nullptr, 0, false, false};
  enterLocals(instance);
  translateFunction(instance);
  if (out_.failed() || out_.retry() || outgrown_ || links_.failed() || targets_.failed()) {
    return nullptr;
  }
  Record* records = out_.finish();
  if (records == nullptr) return nullptr;
  for (uint32_t i = 0; i < targets_.size(); ++i) {
    Record& from = records[targets_[i].record];
    const Record* to = records + targets_[i].target;
    if (targets_[i].back) {
      from.c = reinterpret_cast<const uint32_t*>(to);
    } else {
      from.target = to;
    }
  }
  return records;
}

// One case per family; the work is done elsewhere.
// NOLINTNEXTLINE(readability-function-size)
bool Translator::select(Instance& instance, Instruction& item) {
  using enum Opcode;
  const uint8_t* code = instance.function->code;
  switch (item.opcode) {
    case NOP:
    case NOP_45:
    case NOP_46:
    case NOP_49:
    case NOP_50:
    case NOP_51:
      return true;
    case LOAD_LOCAL:
    case LOAD_GLOBAL:
    case LOAD_LOCAL_COMPONENT:
    case STORE_LOCAL:
    case STORE_GLOBAL:
    case STORE_LOCAL_KEEP:
    case STORE_LOCAL_ELEM_IMM:
    case STORE_GLOBAL_ELEM_IMM:
      return selectVariable(instance, item);
    case LOAD_BUILTIN:
      return loadBuiltinVariable(operandU16(code, item.pc + 1), item);
    case POP:
    case POP_N:
    case POP_RELEASE:
    case PUSH_EMPTY:
    case DUP:
      return selectStack(code, item);
    case PUSH_INDEX:
    case PUSH_INDEX_IMM:
      return selectIndexPush(code, item);
    case JUMP:
      selectJump(instance, item);
      return true;
    case JUMP_IF_FALSE:
      if (!isReadable(out_.topEntry(), 1)) out_.flushSlot(out_.top);
      outgrown_ = outgrown_ || out_.topEntry().block;
      selectBranch(instance, item);
      return true;
    case CALL:
      selectCall(instance, item);
      return true;
    case RETURN:
    case RETURN_VALUE:
    case RETURN_VALUE_2:
      selectReturn(instance, item);
      return true;
    case DISCARD:
    case HALT:
      selectStop(item, item.opcode == DISCARD ? VM_ERR_DISCARDED : VM_ERR_HALTED);
      instance.flowEnded = true;
      return true;
    case SWIZZLE:
    case SWIZZLE_2:
    case SWIZZLE_3:
      return selectSwizzle(code + item.pc);
    case VEC_ELEMENT:
    case VEC_ELEMENT_2:
    case VEC_ELEMENT_3:
      return selectComponent(code, item);
    case MAT_COLUMN:
      return selectColumn(code, item);
    case ARRAY_ELEMENT:
      return selectArrayElement(instance, item);
    case STRUCT_FIELD:
      return selectMember(code + item.pc);
    case LENGTH:
    case DISTANCE:
    case DOT:
    case CROSS:
    case NORMALIZE:
    case FACEFORWARD:
    case REFLECT:
    case REFRACT:
      return selectGeometry(code, item);
    case MUL_MAT_MAT:
    case MUL_VEC_MAT:
    case MUL_MAT_VEC:
      return selectProduct(code, item);
    case NOISE1:
    case NOISE2:
    case NOISE3:
    case NOISE4:
      return selectNoise(code, item);
    default:
      break;
  }
  if (item.opcode >= PUSH_U8 && item.opcode <= PUSH_1_F) return selectConstant(code, item);
  if (item.opcode >= CTOR_VEC2_A && item.opcode <= CTOR_MAT4) return selectConstructor(code, item);
  return selectKernel(code, item);
}

}  // namespace shadermachine::engine
