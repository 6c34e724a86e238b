#include "engine/flow.h"

#include "instructions/builtin_variables.h"
#include "instructions/handlers.h"
#include "machine/types.h"

namespace shadermachine::engine {
namespace {

constexpr uint8_t kAllWords = VM_COMPONENT_COUNT;

bool holdsBlock(const StackState& state, uint32_t t) { return ((state.blockMask >> t) & 1) != 0; }

void setTemporary(StackState& state, uint32_t t, uint32_t width, bool block) {
  state.widths[t] = static_cast<uint8_t>(width < kAllWords ? width : kAllWords);
  state.blockMask = (state.blockMask & ~(uint64_t{1} << t)) | uint64_t{block} << t;
}

bool push(StackState& state, uint32_t width, bool block = false) {
  if (state.count >= kMaxTemporaries) return false;
  setTemporary(state, state.count++, width, block);
  return true;
}

bool pop(StackState& state, uint32_t n) {
  if (n > state.count) return false;
  for (; n > 0; --n) {
    --state.count;
    state.blockMask &= ~(uint64_t{1} << state.count);
  }
  return true;
}

// Pops `pops` operands; the first one's slot keeps its words beyond the n written ones.
bool writeFirst(StackState& state, uint32_t pops, uint32_t n) {
  if (state.count < pops || pops == 0) return false;
  const uint32_t t = state.count - pops;
  const uint32_t width = state.widths[t] > n ? state.widths[t] : n;
  const bool block = holdsBlock(state, t);
  if (!pop(state, pops)) return false;
  return push(state, width, block);
}

bool replace(StackState& state, uint32_t pops, uint32_t width, bool block = false) {
  return pop(state, pops) && push(state, width, block);
}

bool takeIndex(StackState& state) { return state.indexDepth-- > 0; }

uint32_t constructorWords(Opcode opcode) {
  const unsigned number = static_cast<unsigned>(opcode);
  if (opcode >= Opcode::CTOR_MAT2) {
    const unsigned d = number - static_cast<unsigned>(Opcode::CTOR_MAT2) + 2;
    return d * d;
  }
  return (number - static_cast<unsigned>(Opcode::CTOR_VEC2_A)) % 3 + 2;
}

bool applyConstructor(const uint8_t* code, const Instruction& item, StackState& state) {
  const uint32_t n = operandU16(code, item.pc + 1);
  const uint32_t words = constructorWords(item.opcode);
  if (n == 0) return true;
  if (n > state.count) return false;
  uint32_t reached = 0;
  for (uint32_t i = 0; i < n; ++i) reached += code[item.pc + 3 + i];
  if (n == 1 && code[item.pc + 3] == 1) reached = words;
  return writeFirst(state, n, reached < words ? reached : words);
}

uint32_t stackPathPops(const uint8_t* code, const Instruction& item) {
  return operandU16(code, item.pc + 3) + 1;
}

// Words that a component-wise or geometric instruction writes to its result.
uint32_t writtenWords(const uint8_t* code, const Instruction& item) {
  using enum Opcode;
  const OpcodeInfo& info = opcodeInfo(item.opcode);
  switch (item.opcode) {
    case LENGTH:
    case DISTANCE:
    case DOT:
    case ANY_B:
    case ALL_B:
    case EQ_I:
    case EQ_B:
    case EQ_F:
    case NE_I:
    case NE_B:
    case NE_F:
      return 1;
    case NOISE1:
    case NOISE2:
    case NOISE3:
    case NOISE4:
      return static_cast<uint32_t>(item.opcode) - static_cast<uint32_t>(NOISE1) + 1;
    default:
      return info.operands[0] == OperandKind::None ? 1 : operandU8(code, item.pc + 1);
  }
}

}  // namespace

bool mergeStates(StackState& into, const StackState& from, bool& changed) {
  if (into.count != from.count || into.indexDepth != from.indexDepth) return false;
  changed = (from.blockMask & ~into.blockMask) != 0;
  into.blockMask |= from.blockMask;
  for (uint32_t t = 0; t < into.count; ++t) {
    if (from.widths[t] >= into.widths[t]) continue;
    into.widths[t] = from.widths[t];
    changed = true;
  }
  return true;
}

bool FlowRules::applyVariable(const DecodedFunction& function, const Instruction& item,
                              StackState& state) const {
  using enum Opcode;
  const CompiledShader& shader = *machine_.shader;
  const bool global = item.opcode == LOAD_GLOBAL || item.opcode == STORE_GLOBAL ||
                      item.opcode == STORE_GLOBAL_ELEM || item.opcode == STORE_GLOBAL_ELEM_IMM;
  const uint32_t at = item.opcode == LOAD_LOCAL_COMPONENT ? item.pc + 3 : item.pc + 1;
  const uint32_t number = operandU16(function.code, at);
  if (number >= (global ? shader.globalCount : function.record->localCount)) return false;
  const VarInfo& info = global ? shader.globals[number] : function.record->locals[number];
  switch (item.opcode) {
    case LOAD_LOCAL:
    case LOAD_GLOBAL:
      return push(state, isBasicVar(info) ? variableWords(info) : kAllWords, !isBasicVar(info));
    case LOAD_LOCAL_COMPONENT: {
      // Words beyond a basic variable are initialised by the plain handlers only.
      const uint32_t component = operandU8(function.code, item.pc + 2);
      return (!isBasicVar(info) || component < variableWords(info)) && push(state, 1);
    }
    case STORE_LOCAL_KEEP:
      return state.count > 0;
    case STORE_LOCAL_ELEM:
    case STORE_GLOBAL_ELEM:
      return pop(state, stackPathPops(function.code, item));
    default:
      return pop(state, 1);
  }
}

bool FlowRules::applyElementRead(const DecodedFunction& function, const Instruction& item,
                                 StackState& state) const {
  using enum Opcode;
  if (state.count == 0) return false;
  const uint32_t t = state.count - 1u;
  switch (item.opcode) {
    case SWIZZLE:
    case SWIZZLE_2:
    case SWIZZLE_3:
      setTemporary(state, t, operandU8(function.code, item.pc + 2), false);
      return true;
    case MAT_COLUMN:
    case VEC_ELEMENT:
    case VEC_ELEMENT_2:
    case VEC_ELEMENT_3:
      return takeIndex(state);
    case ARRAY_ELEMENT: {
      const auto type = static_cast<int16_t>(operandU16(function.code, item.pc + 1));
      setTemporary(state, t, type < 0 ? typeByteSize(type) / 4u : kAllWords, type >= 0);
      return takeIndex(state);
    }
    default: {  // STRUCT_FIELD
      const StructInfo* info =
          structType(machine_, static_cast<int32_t>(operandU16(function.code, item.pc + 1)));
      const uint32_t number = operandU32(function.code, item.pc + 3);
      if (info == nullptr || info->members == nullptr || number >= info->memberCount) return false;
      const VarInfo& member = info->members[number];
      setTemporary(state, t, isBasicVar(member) ? variableWords(member) : kAllWords,
                   !isBasicVar(member));
      return true;
    }
  }
}

bool FlowRules::applyCall(uint32_t callee, StackState& state) const {
  if (decoder_.isPlainCall(callee)) {
    // The host may write any of the three top slots.
    for (uint32_t k = 1; k <= 3 && k <= state.count; ++k) {
      state.widths[state.count - k] = kAllWords;
    }
    return true;
  }
  const ShaderFunction& record = *machine_.shader->functions[callee];
  const DecodedFunction* decoded = decoder_.decode(callee);
  const bool returns = decoded == nullptr || decoded->returnWidth >= 0;
  const uint32_t below = record.paramCount + 1u;
  if (record.paramCount > state.count) return false;
  if (!returns) return true;
  // A function that nobody decoded may or may not return a value.
  if (state.count < below) return decoded == nullptr;
  setTemporary(state, state.count - below,
               decoded == nullptr ? kAllWords : static_cast<uint32_t>(decoded->returnWidth),
               decoded == nullptr || decoded->returnsBlock);
  return true;
}

bool FlowRules::applyAggregate(const DecodedFunction& function, const Instruction& item,
                               StackState& state) const {
  uint32_t pops = 0;
  if (item.opcode == Opcode::CTOR_ARRAY) {
    pops = operandU16(function.code, item.pc + 3);
  } else {
    const auto type = static_cast<int16_t>(operandU16(function.code, item.pc + 1));
    const StructInfo* info = type < 0 ? nullptr : structType(machine_, type);
    if (info == nullptr) return false;
    pops = info->memberCount;
  }
  return pops > 0 && replace(state, pops, kAllWords, true);
}

// What the host writes may be any word of the slot.
bool FlowRules::applyHostCall(const uint8_t* code, const Instruction& item,
                              StackState& state) const {
  using enum Opcode;
  switch (item.opcode) {
    case LOAD_BUILTIN: {
      const BuiltinFamily family = builtinVariable(operandU16(code, item.pc + 1)).family;
      const bool block =
          family == BuiltinFamily::GlobalElement || family == BuiltinFamily::GlobalArray;
      return push(state, family == BuiltinFamily::RunWord ? 1 : kAllWords, block);
    }
    case CALL_BUILTIN: {
      const uint32_t pops = builtinFunctionPops(operandU16(code, item.pc + 1));
      for (uint32_t k = 0; k <= pops && k < state.count; ++k) {
        state.widths[state.count - 1 - k] = kAllWords;
      }
      return pop(state, pops);
    }
    case HOST_UNARY_1:
    case HOST_UNARY_2:
    case HOST_UNARY_3:
      if (state.count == 0) return false;
      state.widths[state.count - 1u] = kAllWords;
      return true;
    case HOST_LOOKUP_1:
    case HOST_LOOKUP_2: {
      const uint32_t arguments = (operandU8(code, item.pc + 1) >> 5) & 3;
      if (arguments < 2) return true;
      if (!pop(state, arguments - 1) || state.count == 0) return false;
      state.widths[state.count - 1u] = kAllWords;
      return true;
    }
    default:
      return false;
  }
}

// The instructions whose effect the opcode table tells.
bool FlowRules::applyByTable(const uint8_t* code, const Instruction& item,
                             StackState& state) const {
  const OpcodeInfo& info = opcodeInfo(item.opcode);
  if (item.opcode >= Opcode::CTOR_VEC2_A && item.opcode <= Opcode::CTOR_MAT4) {
    return applyConstructor(code, item, state);
  }
  if (info.pops == 0 && info.pushes == 0) return true;
  if (info.pops == 0) return push(state, 1);
  if (info.pushes == 0) return pop(state, static_cast<uint32_t>(info.pops));
  return writeFirst(state, static_cast<uint32_t>(info.pops), writtenWords(code, item));
}

bool FlowRules::applyRest(DecodedFunction& function, const Instruction& item,
                          StackState& state) const {
  using enum Opcode;
  const uint8_t* code = function.code;
  const uint32_t t = state.count - 1u;
  switch (item.opcode) {
    case POP_N:
      return pop(state, operandU8(code, item.pc + 1));
    case PUSH_EMPTY:
      return push(state, 0);
    case PUSH_ZERO4:
    case PUSH_ONE4_F:
      return push(state, 4);
    case DUP:
      return state.count > 0 && push(state, state.widths[t], holdsBlock(state, t));
    case SWAP: {
      if (state.count < 2) return false;
      const uint32_t width = state.widths[t];
      const bool block = holdsBlock(state, t);
      setTemporary(state, t, state.widths[t - 1], holdsBlock(state, t - 1));
      setTemporary(state, t - 1, width, block);
      return true;
    }
    case CALL:
      return applyCall(operandU16(code, item.pc + 1), state);
    case LOAD_BUILTIN:
    case CALL_BUILTIN:
    case HOST_UNARY_1:
    case HOST_UNARY_2:
    case HOST_UNARY_3:
    case HOST_LOOKUP_1:
    case HOST_LOOKUP_2:
      return applyHostCall(function.code, item, state);
    case RETURN_VALUE:
    case RETURN_VALUE_2: {
      // A local can be the top slot too; such a function is rare enough for the plain handlers.
      if (state.count == 0) return false;
      const int32_t width = state.widths[t];
      if (function.returnWidth < 0 || width < function.returnWidth) function.returnWidth = width;
      function.returnsBlock = function.returnsBlock || holdsBlock(state, t);
      function.keepsIndices = function.keepsIndices || state.indexDepth != 0;
      return true;
    }
    case RETURN:
      function.keepsIndices = function.keepsIndices || state.indexDepth != 0;
      return true;
    case PUSH_INDEX:
      ++state.indexDepth;
      return pop(state, 1);
    case PUSH_INDEX_IMM:
      ++state.indexDepth;
      return true;
    default:
      return applyByTable(function.code, item, state);
  }
}

bool FlowRules::apply(DecodedFunction& function, const Instruction& item, StackState& state) const {
  using enum Opcode;
  switch (item.opcode) {
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
      return applyVariable(function, item, state);
    case SWIZZLE:
    case SWIZZLE_2:
    case SWIZZLE_3:
    case STRUCT_FIELD:
    case VEC_ELEMENT:
    case VEC_ELEMENT_2:
    case VEC_ELEMENT_3:
    case MAT_COLUMN:
    case ARRAY_ELEMENT:
      return applyElementRead(function, item, state);
    case CTOR_STRUCT:
    case CTOR_ARRAY:
      return applyAggregate(function, item, state);
    case EQ_AGG:
    case NE_AGG:
      return replace(state, 2, 2);
    case MAKE_UNIQUE:
      return state.count > 0;
    case MUL_MAT_MAT: {
      const uint32_t n = operandU8(function.code, item.pc + 1);
      return replace(state, 2, n * n);
    }
    case MUL_VEC_MAT:
    case MUL_MAT_VEC:
    case REFLECT:
      return replace(state, 2, operandU8(function.code, item.pc + 1));
    case CROSS:
      return replace(state, 2, 3);
    case REFRACT:
      return replace(state, 3, operandU8(function.code, item.pc + 1));
    default:
      return applyRest(function, item, state);
  }
}

}  // namespace shadermachine::engine
