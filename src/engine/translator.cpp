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

bool Translator::selectNothing(Instance&, Instruction&) { return true; }

// All other opcodes have selectKernel(): the component-wise instructions, and those that it leaves
// to their plain handlers.
constexpr Translator::SelectorRange Translator::kSelectorRanges[] = {
    {Opcode::NOP, Opcode::NOP, &Translator::selectNothing},
    {Opcode::NOP_45, Opcode::NOP_46, &Translator::selectNothing},
    {Opcode::NOP_49, Opcode::NOP_51, &Translator::selectNothing},
    {Opcode::LOAD_LOCAL, Opcode::LOAD_GLOBAL, &Translator::selectVariable},
    {Opcode::LOAD_LOCAL_COMPONENT, Opcode::LOAD_LOCAL_COMPONENT, &Translator::selectVariable},
    {Opcode::STORE_LOCAL, Opcode::STORE_LOCAL, &Translator::selectVariable},
    {Opcode::STORE_GLOBAL, Opcode::STORE_GLOBAL, &Translator::selectVariable},
    {Opcode::STORE_LOCAL_KEEP, Opcode::STORE_LOCAL_KEEP, &Translator::selectVariable},
    {Opcode::STORE_LOCAL_ELEM_IMM, Opcode::STORE_LOCAL_ELEM_IMM, &Translator::selectVariable},
    {Opcode::STORE_GLOBAL_ELEM_IMM, Opcode::STORE_GLOBAL_ELEM_IMM, &Translator::selectVariable},
    {Opcode::LOAD_BUILTIN, Opcode::LOAD_BUILTIN, &Translator::selectBuiltin},
    {Opcode::PUSH_U8, Opcode::PUSH_1_F, &Translator::selectConstant},
    {Opcode::POP, Opcode::PUSH_EMPTY, &Translator::selectStack},
    {Opcode::DUP, Opcode::DUP, &Translator::selectStack},
    {Opcode::PUSH_INDEX, Opcode::PUSH_INDEX_IMM, &Translator::selectIndexPush},
    {Opcode::JUMP, Opcode::JUMP, &Translator::selectJump},
    {Opcode::JUMP_IF_FALSE, Opcode::JUMP_IF_FALSE, &Translator::selectBranch},
    {Opcode::CALL, Opcode::CALL, &Translator::selectCall},
    {Opcode::RETURN, Opcode::RETURN_VALUE_2, &Translator::selectReturn},
    {Opcode::DISCARD, Opcode::HALT, &Translator::selectStop},
    {Opcode::CTOR_VEC2_A, Opcode::CTOR_MAT4, &Translator::selectConstructor},
    {Opcode::SWIZZLE, Opcode::SWIZZLE_3, &Translator::selectSwizzle},
    {Opcode::VEC_ELEMENT, Opcode::VEC_ELEMENT_3, &Translator::selectComponent},
    {Opcode::MAT_COLUMN, Opcode::MAT_COLUMN, &Translator::selectColumn},
    {Opcode::ARRAY_ELEMENT, Opcode::ARRAY_ELEMENT, &Translator::selectArrayElement},
    {Opcode::STRUCT_FIELD, Opcode::STRUCT_FIELD, &Translator::selectMember},
    {Opcode::LENGTH, Opcode::REFRACT, &Translator::selectGeometry},
    {Opcode::MUL_MAT_MAT, Opcode::MUL_MAT_VEC, &Translator::selectProduct},
    {Opcode::NOISE1, Opcode::NOISE4, &Translator::selectNoise},
};

consteval Translator::Selectors Translator::makeSelectors() {
  Selectors selectors = {};
  for (Selector& selector : selectors) selector = &Translator::selectKernel;
  for (const SelectorRange& range : kSelectorRanges) {
    for (auto i = static_cast<unsigned>(range.first); i <= static_cast<unsigned>(range.last); ++i) {
      selectors[i] = range.selector;
    }
  }
  return selectors;
}

bool Translator::select(Instance& instance, Instruction& item) {
  static constexpr Selectors kSelectors = makeSelectors();
  return (this->*kSelectors[static_cast<unsigned>(item.opcode)])(instance, item);
}

}  // namespace shadermachine::engine
