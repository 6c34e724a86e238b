// Record selection: constructors, swizzles and parts picked by index or member.

#include "engine/flow.h"
#include "engine/translator.h"
#include "machine/types.h"

namespace shadermachine::engine {
namespace {

// Words 0 to 3 that a swizzle picks: one run of neighbours?
bool isRun(uint32_t mask, uint32_t n) {
  for (uint32_t i = 1; i < n; ++i) {
    if (((mask >> (2 * i)) & 3) != (mask & 3) + i) return false;
  }
  return true;
}

}  // namespace

// Constructors ------------------------------------------------------------------------------------

bool Translator::selectConstructor(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  using enum Opcode;
  const uint32_t operands = operandU16(code, item.pc + 1);
  const uint8_t* counts = code + item.pc + 3;
  if (operands == 0) return true;
  if (item.opcode > CTOR_MAT2) return false;
  const uint32_t n =
      item.opcode == CTOR_MAT2
          ? 4
          : (static_cast<uint32_t>(item.opcode) - static_cast<uint32_t>(CTOR_VEC2_A)) % 3 + 2;
  if (operands > n || (item.opcode == CTOR_MAT2 && operands == 1)) return false;
  uint32_t reached = 0;
  for (uint32_t i = 0; i < operands; ++i) {
    const Entry& entry = out_.topEntry(static_cast<int32_t>(operands - 1 - i));
    if (counts[i] > VM_COMPONENT_COUNT || !isReadable(entry, counts[i])) return false;
    reached += counts[i];
  }
  if (operands == 1 && counts[0] == 1) return selectSplat(item, n);
  // One operand fills the result from its own first words, which stay where they are.
  if (operands == 1) return true;
  if (reached < n || item.keepsWords) return false;
  return selectAppend(item, n, counts, operands) || selectGather(item, n, counts, operands);
}

bool Translator::selectSplat(Instruction& item, uint32_t n) {
  const Entry first = out_.topEntry();
  if (item.keepsWords) return false;
  if (first.constant) {
    const uint32_t words[4] = {*first.address, *first.address, *first.address, *first.address};
    out_.pop();
    out_.pushConstant(words, n);
  } else {
    out_.prepareHome(out_.top, out_.top);
    const bool inScalar = out_.inRegister(first, Register::Scalar, 1);
    Record record = {};
    if (!inScalar) record.a = out_.memory(out_.topEntry(), 1);
    out_.produce(record, splatSteps(n, inScalar), Register::Vector, n, out_.top);
    lastOperation_ = {out_.recordCount() - 1, kSplat, inScalar ? 1u : 0u, n};
  }
  endResult(item, first, n);
  return true;
}

// A vector in its register with one more component behind it.
bool Translator::selectAppend(Instruction& item, uint32_t n, const uint8_t* counts,
                              uint32_t operands) {
  if (operands != 2 || counts[1] != 1 || counts[0] != n - 1) return false;
  const Entry first = out_.topEntry(1);
  if (!out_.inRegister(first, Register::Vector, n - 1)) return false;
  const int32_t s = out_.top - 1;
  out_.prepareHome(s, s);
  const Entry last = out_.topEntry();
  const bool inScalar = out_.inRegister(last, Register::Scalar, 1);
  Record record = {};
  if (!inScalar) record.a = out_.memory(last, 1);
  out_.produce(record, appendSteps(n - 1, inScalar), Register::Vector, n, s);
  endResult(item, first, n);
  return true;
}

bool Translator::selectGather(Instruction& item, uint32_t n, const uint8_t* counts,
                              uint32_t operands) {
  const int32_t s = out_.top - static_cast<int32_t>(operands) + 1;
  const Entry first = out_.slot(s);
  out_.prepareHome(s, s);
  Record record = {};
  const uint32_t* words[4] = {};
  uint32_t inScalar = n;
  uint32_t filled = 0;
  bool constant = true;
  for (uint32_t i = 0; i < operands; ++i) {
    const Entry& entry = out_.slot(s + static_cast<int32_t>(i));
    if (counts[i] == 0) continue;
    constant = constant && entry.constant;
    if (counts[i] == 1 && inScalar == n && filled < n &&
        out_.inRegister(entry, Register::Scalar, 1)) {
      inScalar = filled++;
      continue;
    }
    const uint32_t* address = out_.memory(entry, counts[i]);
    for (uint32_t j = 0; j < counts[i] && filled < n; ++j) words[filled++] = address + j;
  }
  if (constant) {
    uint32_t values[4] = {};
    // The operands reach n components, so every word has its address.
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
    for (uint32_t i = 0; i < n; ++i) values[i] = *words[i];
    out_.pop(operands);
    out_.pushConstant(values, n);
  } else {
    record.a = words[0];
    record.b = words[1];
    record.c = words[2];
    record.e = words[3];
    out_.produce(record, gatherSteps(n, inScalar), Register::Vector, n, s);
  }
  endResult(item, first, n);
  return true;
}

// Swizzles ----------------------------------------------------------------------------------------

bool Translator::selectSwizzle(Instance& instance, Instruction& item) {
  const uint8_t* instruction = instance.function->code + item.pc;
  const uint32_t n = instruction[2];
  const uint32_t mask = instruction[3];
  if (n == 0 || n > 4) return false;
  const Entry source = out_.topEntry();
  uint32_t needed = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t selector = (mask >> (2 * i)) & 3;
    if (selector + 1 > needed) needed = selector + 1;
  }
  if (!isReadable(source, needed)) return false;
  if (isRun(mask, n)) {
    Entry& entry = out_.topEntry();
    entry.address += mask & 3;
    entry.width = static_cast<uint8_t>(n);
    entry.narrowedBy = nullptr;
    return true;
  }
  const int32_t s = out_.top;
  out_.prepareHome(s, s);
  Record record = {};
  if (out_.inRegister(source, Register::Vector, needed)) {
    out_.produce(record, shuffleSteps(n, mask), Register::Vector, n, s);
    return true;
  }
  const uint32_t* words = out_.memory(source, needed);
  record.a = words + (mask & 3);
  record.b = words + ((mask >> 2) & 3);
  record.c = words + ((mask >> 4) & 3);
  record.e = words + ((mask >> 6) & 3);
  out_.produce(record, gatherSteps(n, n), Register::Vector, n, s);
  return true;
}

// Parts by index ----------------------------------------------------------------------------------

// The top of the index stack as operand b; true when it is in the word register.
bool Translator::takeIndexOperand(Record& record) {
  const Entry& entry = out_.index(out_.indexTop);
  if (out_.inRegister(entry, Register::Word, 1)) return true;
  record.b = out_.memory(entry, 1);
  return false;
}

bool Translator::selectComponent(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  const uint32_t n = operandU8(code, item.pc + 1);
  const Entry first = out_.topEntry();
  if (n == 0 || n > VM_COMPONENT_COUNT || !isReadable(first, n)) return false;
  const Entry index = out_.index(out_.indexTop);
  const int32_t s = out_.top;
  if (index.constant) {
    if (*index.address >= n || item.keepsWords) return false;
    Entry& entry = out_.topEntry();
    entry.address += *index.address;
    entry.width = 1;
  } else {
    if (!beginResult(item, 1, 1)) return false;
    Record record = {};
    record.a = out_.memory(out_.topEntry(), n);
    record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
    record.y = n;
    record.site = out_.site(item.end, 0);
    const bool inWord = takeIndexOperand(record);
    out_.produceWord(record, componentSteps(inWord), s);
  }
  --out_.indexTop;
  endResult(item, first, 1);
  return true;
}

bool Translator::selectColumn(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  const uint32_t n = operandU8(code, item.pc + 1);
  const Entry first = out_.topEntry();
  if (n < 2 || n > 4 || !isReadable(first, n * n) || item.keepsWords) return false;
  const Entry index = out_.index(out_.indexTop);
  const int32_t s = out_.top;
  if (index.constant) {
    if (*index.address >= n) return false;
    Entry& entry = out_.topEntry();
    entry.address += *index.address * n;
    entry.width = static_cast<uint8_t>(n);
  } else {
    out_.prepareHome(s, s);
    Record record = {};
    record.a = out_.memory(out_.topEntry(), n * n);
    record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
    record.site = out_.site(item.end, 0);
    const bool inWord = takeIndexOperand(record);
    out_.produce(record, columnSteps(n, inWord), Register::Vector, n, s);
  }
  --out_.indexTop;
  endResult(item, first, n);
  return true;
}

// Parts of aggregates -----------------------------------------------------------------------------

// Appends the read of `bytes` bytes of the indexed element of a lazily loaded aggregate; the index
// is consumed.
void Translator::emitElement(const Instruction& item, const Entry& view, uint32_t stride,
                             uint32_t offset, uint32_t bytes) {
  const int32_t s = out_.top;
  const uint32_t n = bytes / 4;
  out_.prepareHome(s, s);
  Record record = {};
  record.a = out_.home(static_cast<int32_t>(view.viewSlot));
  record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
  record.y = stride;
  record.z = view.viewOffset + offset;
  record.size = n;
  record.site = out_.site(item.end, 0);
  if (view.viewSize != 0) {
    const uint32_t limits[2] = {view.viewSize / stride, view.viewOffset + view.viewSize};
    record.c = out_.constant(limits, 2);
  }
  const bool inWord = takeIndexOperand(record);
  --out_.indexTop;
  out_.produceWords(record, elementSteps(n, inWord), n, s);
}

bool Translator::selectArrayElement(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  const Entry view = out_.topEntry();
  if (!view.lazyView) return false;
  const auto type = static_cast<int16_t>(operandU16(code, item.pc + 1));
  if (type < 0) {
    const uint32_t bytes = typeByteSize(type);
    if (bytes == 0) return false;
    emitElement(item, view, bytes, 0, bytes);
    return true;
  }
  // An element that is a structure is read by the member instruction behind.
  const StructInfo* info = structType(machine_, type);
  if (info == nullptr || info->size == 0) return false;
  if (instance.current + 1 >= instance.function->count) return false;
  const Instruction& next = instance.function->instructions[instance.current + 1];
  if (next.isTarget || next.opcode != Opcode::STRUCT_FIELD || next.pc != item.end) return false;
  const StructInfo* record =
      structType(machine_, static_cast<int32_t>(operandU16(code, next.pc + 1)));
  const uint32_t number = operandU32(code, next.pc + 3);
  if (record == nullptr || record->members == nullptr || number >= record->memberCount) {
    return false;
  }
  const VarInfo& member = record->members[number];
  const uint64_t end = uint64_t{member.memberOffset} + member.byteSize;
  if (!isBasicVar(member) || member.byteSize == 0 || member.byteSize % 4 != 0 ||
      member.byteSize > 64 || end > info->size) {
    return false;
  }
  emitElement(item, view, info->size, member.memberOffset, member.byteSize);
  ++instance.current;
  return true;
}

bool Translator::readMember(const Entry& view, uint32_t offset, uint32_t bytes) {
  const int32_t s = out_.top;
  const uint32_t n = bytes / 4;
  out_.prepareHome(s, s);
  Record record = {};
  record.a = out_.home(static_cast<int32_t>(view.viewSlot));
  record.x = offset;
  // A member of a member is there only when the member around it is.
  record.y = view.viewSize != 0 ? view.viewOffset + view.viewSize : offset + bytes;
  record.size = n;
  out_.produceWords(record, memberSteps(n), n, s);
  return true;
}

bool Translator::selectMember(Instance& instance, Instruction& item) {
  const uint8_t* instruction = instance.function->code + item.pc;
  const Entry view = out_.topEntry();
  if (!view.lazyView) return false;
  const StructInfo* info = structType(machine_, static_cast<int32_t>(operandU16(instruction, 1)));
  const uint32_t number = operandU32(instruction, 3);
  if (info == nullptr || info->members == nullptr || number >= info->memberCount) return false;
  const VarInfo& member = info->members[number];
  const uint64_t end = uint64_t{member.memberOffset} + member.byteSize;
  const uint32_t limit = view.viewSize != 0 ? view.viewSize : 1u << 30;
  if (member.byteSize == 0 || end > limit) return false;
  const uint32_t offset = view.viewOffset + member.memberOffset;
  if (isBasicVar(member)) {
    if (member.byteSize % 4 != 0 || member.byteSize > 64) return false;
    return readMember(view, offset, member.byteSize);
  }
  if (view.viewSize != 0) return false;
  Entry& entry = out_.topEntry();
  entry.viewOffset = offset;
  entry.viewSize = member.byteSize;
  return true;
}

}  // namespace shadermachine::engine
