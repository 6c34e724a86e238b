// Record selection: constants, variables, element stores and the two stacks.

#include "engine/flow.h"
#include "engine/translator.h"
#include "machine/types.h"

namespace shadermachine::engine {

bool Translator::selectConstant(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  using enum Opcode;
  constexpr uint32_t kOne = std::bit_cast<uint32_t>(1.0f);
  uint32_t words[4] = {};
  uint32_t n = 1;
  switch (item.opcode) {
    case PUSH_U8:
      words[0] = operandU8(code, item.pc + 1);
      break;
    case PUSH_U32:
    case PUSH_U32_2:
      words[0] = operandU32(code, item.pc + 1);
      break;
    case PUSH_ONE4_F:
      for (uint32_t& word : words) word = kOne;
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
  out_.pushConstant(words, n);
  return true;
}

bool Translator::loadVariable(int32_t s, const VarInfo& info) {
  if (!isBasicVar(info)) {
    out_.setHome(++out_.top, 0);
    Entry& entry = out_.topEntry();
    entry.lazyView = true;
    entry.viewSlot = static_cast<uint32_t>(s);
    return true;
  }
  if (info.byteSize % 4 != 0 || info.byteSize > 64) return false;
  const uint32_t n = variableWords(info);
  if (out_.slot(s).width < n) out_.flushSlot(s);
  Entry entry = out_.slot(s);
  if (entry.lazyView || entry.block) return false;
  entry.width = static_cast<uint8_t>(n);
  entry.narrowedBy = nullptr;
  out_.setHome(++out_.top, n);
  out_.topEntry() = entry;
  return true;
}

bool Translator::storeVariable(int32_t s, const VarInfo& info, bool global) {
  if (info.byteSize % 4 != 0 || info.byteSize > 64) return false;
  const uint32_t n = variableWords(info);
  if (n == 0 || !isReadable(out_.topEntry(), n)) return false;
  Entry& variable = out_.slot(s);
  if (variable.lazyView || variable.block) return false;
  out_.storeTop(s, out_.home(s), n, global);
  variable.address = out_.home(s);
  variable.constant = false;
  variable.narrowedBy = nullptr;
  variable.width = static_cast<uint8_t>(n);
  return true;
}

bool Translator::selectVariable(Instance& instance, Instruction& item) {
  using enum Opcode;
  const uint8_t* code = instance.function->code;
  const bool global = item.opcode == LOAD_GLOBAL || item.opcode == STORE_GLOBAL ||
                      item.opcode == STORE_GLOBAL_ELEM_IMM;
  const bool component = item.opcode == LOAD_LOCAL_COMPONENT;
  const uint32_t number = operandU16(code, component ? item.pc + 3 : item.pc + 1);
  const VarInfo& info =
      global ? shader_.globals[number] : instance.function->record->locals[number];
  const auto s = static_cast<int32_t>(global ? number : instance.call->localsSlot + number);
  switch (item.opcode) {
    case LOAD_GLOBAL:
      if ((info.flags & VM_VAR_HOST) != 0 && machine_.callbacks.hostVariable != nullptr) {
        return loadHostVariable(number, item);
      }
      return loadVariable(s, info);
    case LOAD_LOCAL:
      return loadVariable(s, info);
    case STORE_LOCAL:
    case STORE_GLOBAL:
      return isBasicVar(info) ? storeVariable(s, info, global) : storeAggregate(s, item);
    case STORE_LOCAL_KEEP: {
      if (!isBasicVar(info) || out_.topEntry().block || out_.topEntry().lazyView) return false;
      const Entry kept = out_.topEntry();
      out_.memory(kept, kept.width == 0 ? 1 : kept.width);
      const int32_t top = out_.top;
      if (!isReadable(kept, variableWords(info))) return false;
      out_.push(kept);
      if (storeVariable(s, info, false)) return true;
      out_.top = top;
      return false;
    }
    case LOAD_LOCAL_COMPONENT: {
      const uint32_t bound = operandU8(code, item.pc + 1);
      const uint32_t c = operandU8(code, item.pc + 2);
      if (c >= bound || bound > VM_COMPONENT_COUNT || !isBasicVar(info)) return false;
      if ((c + 1) * 4 > info.byteSize || !loadVariable(s, info)) return false;
      out_.topEntry().address += c;
      out_.topEntry().width = 1;
      return true;
    }
    default:
      return storePart(s, info, code, item);
  }
}

// A store into a basic variable at a constant path.
bool Translator::storePart(int32_t s, const VarInfo& info, const uint8_t* code,
                           const Instruction& item) {
  if (!isBasicVar(info) || info.byteSize != typeByteSize(info.type)) return false;
  const uint32_t n = operandU16(code, item.pc + 3);
  if (n == 0 || n > 2 || out_.slot(s).block || out_.slot(s).lazyView) return false;
  const auto first = static_cast<int16_t>(operandU16(code, item.pc + 5));
  const uint32_t words = info.byteSize / 4;
  if (isVectorType(info.type) && n == 1) {
    if (first < 0) return writeSelected(s, words, static_cast<uint16_t>(-first));
    return static_cast<uint32_t>(first) < words && writePart(s, static_cast<uint32_t>(first), 1);
  }
  if (!isMatrixType(info.type) || first < 0) return false;
  const uint32_t rows = typeStride(info.type) / 4;
  const uint32_t column = static_cast<uint32_t>(first) * rows;
  if (column >= words) return false;
  if (n == 1) return writePart(s, column, rows);
  const auto second = static_cast<int16_t>(operandU16(code, item.pc + 7));
  if (second < 0 || static_cast<uint32_t>(second) >= rows) return false;
  return writePart(s, column + static_cast<uint32_t>(second), 1);
}

bool Translator::writePart(int32_t s, uint32_t firstWord, uint32_t n) {
  if (!isReadable(out_.topEntry(), n)) return false;
  out_.flushSlot(s);  // the words beside the part must be there
  out_.storeTop(s, out_.home(s) + firstWord, n, true);
  out_.forgetSlot(s);
  return true;
}

bool Translator::writeSelected(int32_t s, uint32_t words, uint32_t pattern) {
  const uint32_t count = (pattern >> 8) & 7;
  if (count == 0 || count > 4 || !isReadable(out_.topEntry(), count)) return false;
  for (uint32_t i = 0; i < count; ++i) {
    if (((pattern >> (2 * i)) & 3) >= words) return false;
  }
  // Component by component, from words that the store itself must not change.
  if (out_.refersTo(out_.topEntry(), s)) out_.flushSlot(out_.top);
  out_.flushSlot(s);  // the words beside the part must be there
  const Entry value = out_.topEntry();
  for (uint32_t i = 0; i < count; ++i) {
    Entry component = value;
    component.address = out_.memory(value, count) + i;
    component.width = 1;
    out_.topEntry() = component;
    out_.storeTop(s, out_.home(s) + ((pattern >> (2 * i)) & 3), 1, true);
    out_.forgetSlot(s);
    out_.top += 1;
  }
  out_.pop();
  return true;
}

bool Translator::selectStack(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  using enum Opcode;
  switch (item.opcode) {
    case POP:
    case POP_N: {
      const uint32_t n = item.opcode == POP ? 1 : operandU8(code, item.pc + 1);
      for (uint32_t k = 0; k < n; ++k) {
        const Entry& entry = out_.topEntry(static_cast<int32_t>(k));
        // A reference would be lost here, as in the plain handler.
        if (entry.block || entry.lazyView) return false;
      }
      out_.pop(n);
      return true;
    }
    case POP_RELEASE:
      if (out_.topEntry().block) return false;
      out_.pop();
      return true;
    case PUSH_EMPTY:
      out_.pushHome(0);
      return true;
    case DUP: {
      const Entry copy = out_.topEntry();
      if (copy.block || copy.lazyView) return false;
      out_.setHome(out_.top + 1, 0);
      out_.push(copy);
      return true;
    }
    default:
      return false;
  }
}

bool Translator::selectIndexPush(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  if (out_.indexTop + 1 >= VM_INDEX_STACK_CAPACITY) return false;
  const int32_t i = out_.indexTop + 1;
  if (item.opcode == Opcode::PUSH_INDEX_IMM) {
    const uint32_t value = operandU8(code, item.pc + 1);
    out_.pushConstant(&value, 1);
  } else if (!isReadable(out_.topEntry(), 1)) {
    return false;
  }
  Entry entry = out_.topEntry();
  const int32_t s = out_.top;
  out_.pop();
  entry.width = 1;
  entry.narrowedBy = nullptr;
  out_.forgetRange(out_.indexHome(i), 1);
  // Nothing may refer to a slot that no longer belongs to the stack.
  const bool moved = entry.address == out_.home(s) && out_.moveHome(entry, out_.indexHome(i));
  out_.index(i) = entry;
  out_.indexTop = i;
  if (!moved && out_.refersTo(entry, s)) {
    out_.memory(entry, 1);
    out_.flushIndex(i);
  }
  return true;
}

}  // namespace shadermachine::engine
