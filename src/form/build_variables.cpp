// The builder's constants, variables and stack instructions.

#include "form/builder.h"
#include "instructions/builtin_variables.h"
#include "machine/types.h"

namespace shadermachine::form {
namespace {

// Words of a basic variable whose bytes are whole words inside a slot; 0 for others.
uint32_t wholeWords(const VarInfo& info) {
  const bool whole = info.byteSize % 4 == 0 && info.byteSize <= kPlaceWords * 4;
  return isBasicVar(info) && whole ? info.byteSize / 4 : 0;
}

}  // namespace

bool Builder::buildConstant(Instance&, const Instruction& item) {
  using enum Opcode;
  constexpr uint32_t kOne = std::bit_cast<uint32_t>(1.0f);
  uint32_t words[4] = {};
  uint32_t n = 1;
  switch (item.opcode) {
    case PUSH_U8:
    case PUSH_U32:
    case PUSH_U32_2:
      words[0] = item.operands[0];
      break;
    case PUSH_ONE4_F:
      for (uint32_t& one : words) one = kOne;
      n = 4;
      break;
    case PUSH_ZERO4:
      n = 4;
      break;
    case PUSH_1_F:
      words[0] = kOne;
      break;
    case PUSH_0_F:
      break;
    default:
      words[0] = static_cast<uint32_t>(item.opcode) - static_cast<uint32_t>(PUSH_0);
      break;
  }
  pushOperand(constant(words, n), n);
  return true;
}

// Variables ---------------------------------------------------------------------------------------

bool Builder::loadVariable(Place place, const VarInfo& info) {
  if (!isBasicVar(info)) {
    resetSlot(++top_, Content::View);
    topSlot().variable = place;
    noteDirty(top_);
    return true;
  }
  const uint32_t n = wholeWords(info);
  if (n == 0) return false;
  pushOperand(load(place, 0, n), n);
  return true;
}

// exact: the words behind the variable's are somebody's.
bool Builder::storeVariable(Place place, const VarInfo& info, bool exact) {
  const uint32_t n = wholeWords(info);
  if (n == 0 || !holdsWords(0)) return false;
  store(place, 0, n, readTop(0, n), !exact);
  return true;
}

bool Builder::storeAggregate(Place place, const Instruction& item) {
  if (holdsWords(0)) return false;
  const Slot value = topSlot();
  const bool known = value.size == 0 || !form_.isHidden;
  const bool copies = value.content == Content::View && known && value.variable != place;
  if (!copies) flushSlot(top_);
  pop();
  flushViews(place);
  // A copy of a global may have to leave the rest of the run to the plain handlers.
  if (copies && value.variable < form_.globalCount && !form_.isHidden) flush();
  Operation made = operation(copies ? Kind::CopyBlock : Kind::StoreBlock);
  made.place = place;
  made.other = copies ? value.variable : static_cast<Place>(top_ + 1);
  made.first = copies ? value.offset : 0;
  made.size = copies ? value.size : 0;
  made.site = site(item.end);
  if (copies) nameBase(made, 0, value);
  append(made);
  return true;
}

bool Builder::loadComponent(Place place, const VarInfo& info, const Instruction& item) {
  const uint32_t bound = item.operands[0];
  const uint32_t c = item.operands[1];
  if (c >= bound || bound > kPlaceWords || !isBasicVar(info)) return false;
  if ((c + 1) * 4 > info.byteSize) {
    mustStayPlain_ = true;  // what lies there is nobody's, but the plain handlers know it
    return true;
  }
  pushOperand(load(place, c, 1), 1);
  return true;
}

bool Builder::buildVariable(Instance& instance, const Instruction& item) {
  using enum Opcode;
  const VarInfo& info = *namedVariable(item, shader_, *instance.function->record);
  const bool global = namesGlobal(item.opcode);
  const uint32_t number = item.operands[item.opcode == LOAD_LOCAL_COMPONENT ? 2 : 0];
  const Place place = global ? number : instance.call->localsSlot + number;
  // A parameter's slot may hold more words than the parameter: they are the argument's.
  const bool exact = global || number < instance.function->record->paramCount;
  switch (item.opcode) {
    case LOAD_GLOBAL:
      if (asksHost(machine_, info)) return loadHostVariable(number, info, item);
      return loadVariable(place, info);
    case LOAD_LOCAL:
      return loadVariable(place, info);
    case STORE_LOCAL:
    case STORE_GLOBAL:
      if (!isBasicVar(info)) return storeAggregate(place, item);
      if (!storeVariable(place, info, exact)) return false;
      pop();
      return true;
    case STORE_LOCAL_KEEP:
      return isBasicVar(info) && storeVariable(place, info, exact);
    default:
      return loadComponent(place, info, item);
  }
}

// Variables that the host fills -------------------------------------------------------------------

bool Builder::loadHostVariable(uint32_t number, const VarInfo& info, const Instruction& item) {
  const uint32_t n = wholeWords(info);
  const bool basic = isBasicVar(info);
  if (basic && n == 0) return false;
  flush();
  resetSlot(++top_);
  Operation ask = operation(basic ? Kind::HostVariable : Kind::HostAggregate, n);
  ask.place = static_cast<Place>(top_);
  ask.first = number;
  ask.site = site(item.end);
  const Value value = append(ask);
  if (!basic) {
    pop();
    return loadVariable(number, info);
  }
  writeSlot(top_, {value, 0}, n, true);
  topSlot().dirty = 0;  // the host has written into the slot itself
  return true;
}

bool Builder::buildBuiltin(Instance&, const Instruction& item) {
  const BuiltinVariable variable = builtinVariable(item.operands[0]);
  switch (variable.family) {
    case BuiltinFamily::RunWord: {
      Operation made = operation(Kind::RunWord, 1);
      made.first = variable.recordOffset;
      pushOperand({append(made), 0}, 1);
      return true;
    }
    case BuiltinFamily::HostValue:
    case BuiltinFamily::IndexedValue: {
      flush();
      resetSlot(++top_);
      Operation ask = operation(Kind::HostBuiltin, kPlaceWords);
      ask.place = static_cast<Place>(top_);
      ask.first = variable.callbackSlot;
      ask.count = variable.indexed ? 1 : 0;
      ask.site = site(item.end);
      const Value value = append(ask);
      writeSlot(top_, {value, 0}, kPlaceWords, true);
      topSlot().dirty = 0;
      return true;
    }
    default:
      return false;
  }
}

// The stacks --------------------------------------------------------------------------------------

bool Builder::buildSwap() {
  if (!holdsWords(0) || !holdsWords(1)) return false;
  // Through the slot above, which nobody has: both descriptions stay values.
  if (top_ + 1 >= machine_.stackCapacity) return false;
  copySlot(top_, top_ + 1);
  copySlot(top_ - 1, top_);
  copySlot(top_ + 1, top_ - 1);
  return true;
}

bool Builder::buildStack(Instance&, const Instruction& item) {
  using enum Opcode;
  switch (item.opcode) {
    case POP:
    case POP_N: {
      const uint32_t n = item.opcode == POP ? 1 : item.operands[0];
      for (uint32_t k = 0; k < n; ++k) {
        // A reference would be lost here, as in the plain handler.
        if (!holdsWords(static_cast<int32_t>(k))) return false;
      }
      pop(n);
      return true;
    }
    case POP_RELEASE:
      if (topSlot().content == Content::Block) releaseSlot(top_);
      pop();
      return true;
    case PUSH_EMPTY:
      resetSlot(++top_);
      return true;
    case DUP:
      if (!holdsWords(0)) return false;
      copySlot(top_, top_ + 1);
      ++top_;
      return true;
    case SWAP:
      return buildSwap();
    default:
      return false;
  }
}

bool Builder::buildIndexPush(Instance&, const Instruction& item) {
  if (indexTop_ + 1 >= VM_INDEX_STACK_CAPACITY) return false;
  Operand index;
  if (item.opcode == Opcode::PUSH_INDEX_IMM) {
    index = constantWord(item.operands[0]);
  } else {
    if (!holdsWords(0)) return false;
    index = readTop(0, 1);
    pop();
  }
  indices_[++indexTop_] = {index, epoch_, true};
  if (dirtyIndices_ > indexTop_) dirtyIndices_ = indexTop_;
  return true;
}

}  // namespace shadermachine::form
