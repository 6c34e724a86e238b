// Structures and arrays that are passed, returned and held without the host looking once: what a
// translation makes of that shows only in what is read afterwards.

#include "fuzz/generator.h"

namespace shadermachine::fuzz {

// Null when there is none of the type; of any aggregate type when none is given.
const VariableRef* Generator::anyVariable(const Type* type) {
  std::vector<const VariableRef*> list;
  for (const VariableRef& variable : variables_) {
    if (type != nullptr ? variable.type == *type : !variable.type.isBasic()) {
      list.push_back(&variable);
    }
  }
  return list.empty() ? nullptr : choices_.of(list);
}

void Generator::load(const VariableRef& variable) {
  code_->emit(variable.isGlobal ? VM_OP_LOAD_GLOBAL : VM_OP_LOAD_LOCAL, {variable.index});
}

// A part of the variable, stored where it fits.
void Generator::readQuietly(const VariableRef& variable) {
  Type type = variable.type;
  load(variable);
  while (!type.isBasic()) {
    if (type.count > 0) {
      code_->emit(VM_OP_PUSH_INDEX_IMM, {choices_.below(type.count)});
      code_->emit(VM_OP_ARRAY_ELEMENT, {type.code});
      type.count = 0;
    } else {
      const auto& members = structs_[static_cast<size_t>(type.code)];
      const uint32_t member = choices_.below(static_cast<uint32_t>(members.size()));
      code_->emit(VM_OP_STRUCT_FIELD, {type.code, member});
      type = members[member];
    }
  }
  for (const VariableRef& target : variables_) {
    const Type& wanted = target.type;
    const bool agrees =
        wanted.isBasic() && (wanted.kind() == type.kind() || (wanted.kind() == WordKind::Float));
    if (agrees && wanted.words() <= type.words() && !choices_.oneIn(4)) return store(target);
  }
  code_->emit(VM_OP_POP);
}

void Generator::changeQuietly(const VariableRef& variable) {
  std::vector<PathChoice> path;
  Type part = walkInto(variable.type, path);
  while (!part.isBasic() && path.size() < 6) part = walkInto(part, path);
  if (!part.isBasic() || part.words() > 4) return;
  code_->emit(choices_.oneIn(2) ? VM_OP_PUSH_ONE4_F : VM_OP_PUSH_ZERO4);
  std::vector<int64_t> operands = {variable.index};
  for (const PathChoice& step : path) operands.push_back(step.index);
  code_->emit(variable.isGlobal ? VM_OP_STORE_GLOBAL_ELEM_IMM : VM_OP_STORE_LOCAL_ELEM_IMM,
              operands);
}

void Generator::quietCondition() {
  for (const VariableRef& variable : variables_) {
    const bool fits = variable.type.isBasic() && variable.type.kind() == WordKind::Bits;
    if (fits && !choices_.oneIn(3)) return load(variable);
  }
  condition();
}

void Generator::disturb(const VariableRef& held) {
  const VariableRef* const other = choices_.oneIn(2) ? anyVariable(nullptr) : &held;
  switch (choices_.below(6)) {
    case 0:
      return changeQuietly(*other);
    case 1:
      return readQuietly(*other);
    case 2: {
      const tools::Label end = code_->newLabel();
      quietCondition();
      code_->jumpIfFalse(end);
      changeQuietly(*other);
      code_->bind(end);
      return;
    }
    case 3:
      if (const VariableRef* const same = anyVariable(&other->type)) {
        load(*same);
        store(*other);
      }
      return;
    default:
      return;
  }
}

// A function that takes or gives the type and nothing else.
std::optional<uint16_t> Generator::quietFunction(const Type& type) {
  std::vector<uint16_t> list;
  for (size_t f = current_ + size_t{1}; f < functions_.size(); ++f) {
    const auto& parameters = functions_[f].parameters;
    if (parameters.size() == 1 && parameters[0] == type) list.push_back(static_cast<uint16_t>(f));
  }
  if (list.empty()) return std::nullopt;
  return choices_.of(list);
}

// The value on the stack goes into a variable or away.
void Generator::consume(const Type& type) {
  const VariableRef* const target = anyVariable(&type);
  if (target == nullptr || choices_.oneIn(4)) {
    code_->emit(type.isBasic() ? VM_OP_POP : VM_OP_POP_RELEASE);
    return;
  }
  store(*target);
  if (!type.isBasic() && choices_.oneIn(2)) readQuietly(*target);
}

void Generator::passQuietly() {
  const VariableRef* const variable = anyVariable(nullptr);
  if (variable == nullptr) return assign();
  const auto function = quietFunction(variable->type);
  const bool calls = function.has_value() && !choices_.oneIn(3);
  const std::optional<Type> result = calls ? functions_[*function].result : std::nullopt;
  if (result) code_->emit(VM_OP_PUSH_EMPTY);
  load(*variable);
  disturb(*variable);
  if (!calls) return consume(variable->type);
  code_->emit(VM_OP_CALL, {*function});
  if (choices_.oneIn(3)) disturb(*variable);
  code_->emit(VM_OP_POP_RELEASE);
  if (!result) return;
  disturb(*variable);
  consume(*result);
}

// Reads its parameter, and gives back a variable on each of its ways.
void Generator::writeQuietFunction() {
  const VariableRef parameter = variables_[0];
  const auto& result = functions_[current_].result;
  const bool givesVariable = result && !result->isBasic() && anyVariable(&*result) != nullptr;
  for (uint32_t i = choices_.between(1, 3); i > 0; --i) {
    if (choices_.oneIn(2)) readQuietly(parameter);
    disturb(parameter);
  }
  if (givesVariable && choices_.oneIn(2)) {
    const tools::Label end = code_->newLabel();
    quietCondition();
    code_->jumpIfFalse(end);
    load(*anyVariable(&*result));
    code_->emit(VM_OP_RETURN_VALUE);
    code_->bind(end);
    disturb(parameter);
  }
  if (!givesVariable) return finishFunction();
  load(*anyVariable(&*result));
  code_->emit(VM_OP_RETURN_VALUE);
}

}  // namespace shadermachine::fuzz
