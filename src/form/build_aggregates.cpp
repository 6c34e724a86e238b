// The builder's reads of parts of structures and arrays, and the table of all methods.

#include <algorithm>

#include "form/builder.h"
#include "machine/types.h"

namespace shadermachine::form {
namespace {

// A part that a slot can hold as words.
bool isReadable(uint32_t bytes) { return bytes != 0 && bytes % 4 == 0 && bytes <= kPlaceWords * 4; }

const VarInfo* memberOf(const StructInfo* info, uint32_t number) {
  if (info == nullptr || info->members == nullptr || number >= info->memberCount) return nullptr;
  return &info->members[number];
}

}  // namespace

// An operation on the indexed element of a view, which uses the index up.
Operation Builder::elementOf(Kind kind, const Instruction& item, const Slot& view,
                             uint32_t stride) {
  Operation made = operation(kind);
  made.place = view.variable;
  made.first = view.offset;
  made.stride = stride;
  if (view.size != 0) {
    made.count = view.size / stride;
    made.size = view.baseStep == nullptr ? view.offset + view.size : 0;
  }
  made.site = site(item.end);
  made.in[0] = takeIndex();
  return made;
}

// A view inside a checked element needs the element's index to be found.
void Builder::nameBase(Operation& made, uint32_t operand, const Slot& view) {
  made.steps = view.baseStep;
  if (view.baseStep != nullptr) made.in[operand] = view.base;
}

// `bytes` bytes at `offset` of the indexed element of a view.
void Builder::readElement(const Instruction& item, const Slot& view, uint32_t stride,
                          uint32_t offset, uint32_t bytes) {
  Operation made = elementOf(Kind::ReadElement, item, view, stride);
  made.words = static_cast<uint8_t>(bytes / 4);
  made.first += offset;
  nameBase(made, 1, view);
  resetSlot(top_);
  writeSlot(top_, {append(made), 0}, made.words, true);
}

// The member that the next instruction reads of an element, when a slot can hold it.
const VarInfo* Builder::memberReadNext(const Instance& instance, const StructInfo& element) const {
  if (instance.current + 1 >= instance.function->count) return nullptr;
  const Instruction& next = instance.function->instructions[instance.current + 1];
  if (next.isTarget || next.opcode != Opcode::STRUCT_FIELD) return nullptr;
  const VarInfo* member =
      memberOf(decoder_.consultStruct(static_cast<int32_t>(next.operands[0])), next.operands[1]);
  if (member == nullptr || !isBasicVar(*member) || !isReadable(member->byteSize)) return nullptr;
  const bool inside = uint64_t{member->memberOffset} + member->byteSize <= element.size;
  return inside ? member : nullptr;
}

// The view becomes one of the indexed element. Its index is checked here, where the plain handlers
// check it, and added where the element is read.
bool Builder::enterElement(const Instruction& item, uint32_t stride) {
  const Slot view = topSlot();
  if (view.baseStep != nullptr) return false;
  auto* step = form_.arena.allocate<IndexStep>();
  if (step == nullptr) return false;
  *step = {stride, view.size / stride};
  const Operation check = elementOf(Kind::CheckIndex, item, view, stride);
  append(check);
  Slot& element = topSlot();
  element.size = stride;
  element.base = check.in[0];
  element.baseStep = step;
  return true;
}

bool Builder::buildArrayElement(Instance& instance, const Instruction& item) {
  const Slot view = topSlot();
  if (view.content != Content::View || indexTop_ < 0) return false;
  const auto type = static_cast<int16_t>(item.operands[0]);
  if (type < 0) {
    const uint32_t bytes = typeByteSize(type);
    if (bytes == 0) return false;
    readElement(item, view, bytes, 0, bytes);
    return true;
  }
  const StructInfo* info = decoder_.consultStruct(type);
  if (info == nullptr || info->size == 0) return false;
  const VarInfo* member = memberReadNext(instance, *info);
  if (member == nullptr) return enterElement(item, info->size);
  readElement(item, view, info->size, member->memberOffset, member->byteSize);
  ++instance.current;
  return true;
}

// The variable that the next instruction stores the top slot into; null when it does not.
const VarInfo* Builder::storedNext(const Instance& instance, Place& place) const {
  if (instance.current + 1 >= instance.function->count) return nullptr;
  const Instruction& next = instance.function->instructions[instance.current + 1];
  const bool global = next.opcode == Opcode::STORE_GLOBAL;
  if (next.isTarget || (!global && next.opcode != Opcode::STORE_LOCAL)) return nullptr;
  place = global ? next.operands[0] : instance.call->localsSlot + next.operands[0];
  return namedVariable(next, shader_, *instance.function->record);
}

// Bytes of operand k of a constructor, 0 for one that is no inline value.
uint32_t Builder::constructedBytes(const Instruction& item, uint32_t k) const {
  const auto type = static_cast<int16_t>(item.operands[0]);
  if (item.opcode == Opcode::CTOR_ARRAY) return typeByteSize(type);
  const VarInfo& member = decoder_.consultStruct(type)->members[k];
  return isBasicVar(member) ? member.byteSize : 0;
}

// What is stored at once need not be made before: its parts are stored, one after another.
bool Builder::buildAggregate(Instance& instance, const Instruction& item) {
  Place place = 0;
  const VarInfo* const target = storedNext(instance, place);
  if (form_.isHidden || target == nullptr || isBasicVar(*target)) return false;
  const auto type = static_cast<int16_t>(item.operands[0]);
  const StructInfo* const info = type < 0 ? nullptr : decoder_.consultStruct(type);
  const bool isArray = item.opcode == Opcode::CTOR_ARRAY;
  if (isArray ? type >= 0 : info == nullptr || info->members == nullptr) return false;
  const uint32_t n = isArray ? item.operands[1] : info->memberCount;
  uint32_t bytes = 0;
  for (uint32_t k = 0; k < n; ++k) {
    const uint32_t part = constructedBytes(item, k);
    if (!isReadable(part) || !holdsWords(static_cast<int32_t>(n - 1 - k))) return false;
    bytes = std::min(bytes + part, kMostSmallBytes + 1);
  }
  if (n == 0 || bytes > kMostSmallBytes || (!isArray && bytes != info->size)) return false;
  storeConstructed(item, place, n, bytes);
  ++instance.current;
  return true;
}

void Builder::storeConstructed(const Instruction& item, Place place, uint32_t n, uint32_t bytes) {
  flushViews(place);
  Operation renew = operation(Kind::Renew);
  renew.place = place;
  renew.size = bytes;
  renew.site = site(item.end);
  append(renew);
  uint32_t at = 0;
  for (uint32_t k = 0; k < n; ++k) {
    Operation part = operation(Kind::StorePart);
    const uint32_t size = constructedBytes(item, k);
    part.place = place;
    part.first = at;
    part.n = static_cast<uint8_t>(size / 4);
    part.size = at += size;
    part.in[0] = readTop(static_cast<int32_t>(n - 1 - k), part.n);
    append(part);
  }
  pop(n);
}

bool Builder::buildMember(Instance&, const Instruction& item) {
  const Slot view = topSlot();
  if (view.content != Content::View) return false;
  const VarInfo* found =
      memberOf(decoder_.consultStruct(static_cast<int32_t>(item.operands[0])), item.operands[1]);
  if (found == nullptr) return false;
  const VarInfo& member = *found;
  const uint64_t end = uint64_t{member.memberOffset} + member.byteSize;
  const uint32_t limit = view.size != 0 ? view.size : 1u << 30;
  if (member.byteSize == 0 || end > limit) return false;
  const uint32_t offset = view.offset + member.memberOffset;
  if (!isBasicVar(member)) {
    // A member of a member is there when all around it is: that is known of checked elements.
    if (view.size != 0 && view.baseStep == nullptr) return false;
    topSlot().offset = offset;
    topSlot().size = member.byteSize;
    return true;
  }
  if (!isReadable(member.byteSize)) return false;
  Operation made = operation(Kind::ReadMember, member.byteSize / 4);
  made.place = view.variable;
  made.first = offset;
  made.size = view.size != 0 ? view.offset + view.size : offset + member.byteSize;
  if (view.baseStep != nullptr) made.size = 0;
  nameBase(made, 0, view);
  resetSlot(top_);
  writeSlot(top_, {append(made), 0}, made.words, true);
  return true;
}

// All other opcodes have buildOperation(): the instructions on inline values, and those that it
// leaves to their plain handlers.
constexpr Builder::MethodRange Builder::kMethodRanges[] = {
    {Opcode::NOP, Opcode::NOP, &Builder::buildNothing},
    {Opcode::NOP_45, Opcode::NOP_46, &Builder::buildNothing},
    {Opcode::NOP_49, Opcode::NOP_51, &Builder::buildNothing},
    {Opcode::LOAD_LOCAL, Opcode::LOAD_GLOBAL, &Builder::buildVariable},
    {Opcode::LOAD_LOCAL_COMPONENT, Opcode::LOAD_LOCAL_COMPONENT, &Builder::buildVariable},
    {Opcode::STORE_LOCAL, Opcode::STORE_LOCAL, &Builder::buildVariable},
    {Opcode::STORE_GLOBAL, Opcode::STORE_GLOBAL, &Builder::buildVariable},
    {Opcode::STORE_LOCAL_KEEP, Opcode::STORE_LOCAL_KEEP, &Builder::buildVariable},
    {Opcode::STORE_LOCAL_ELEM, Opcode::STORE_LOCAL_ELEM_IMM, &Builder::buildPartStore},
    {Opcode::STORE_GLOBAL_ELEM, Opcode::STORE_GLOBAL_ELEM_IMM, &Builder::buildPartStore},
    {Opcode::LOAD_BUILTIN, Opcode::LOAD_BUILTIN, &Builder::buildBuiltin},
    {Opcode::PUSH_U8, Opcode::PUSH_1_F, &Builder::buildConstant},
    {Opcode::POP, Opcode::PUSH_EMPTY, &Builder::buildStack},
    {Opcode::DUP, Opcode::SWAP, &Builder::buildStack},
    {Opcode::PUSH_INDEX, Opcode::PUSH_INDEX_IMM, &Builder::buildIndexPush},
    {Opcode::JUMP, Opcode::JUMP, &Builder::buildJump},
    {Opcode::JUMP_IF_FALSE, Opcode::JUMP_IF_FALSE, &Builder::buildBranch},
    {Opcode::CALL, Opcode::CALL, &Builder::buildCall},
    {Opcode::RETURN, Opcode::RETURN_VALUE_2, &Builder::buildReturn},
    {Opcode::DISCARD, Opcode::HALT, &Builder::buildStop},
    {Opcode::CTOR_VEC2_A, Opcode::CTOR_MAT4, &Builder::buildConstructor},
    {Opcode::SWIZZLE, Opcode::SWIZZLE_3, &Builder::buildSwizzle},
    {Opcode::VEC_ELEMENT, Opcode::VEC_ELEMENT_3, &Builder::buildElement},
    {Opcode::MAT_COLUMN, Opcode::MAT_COLUMN, &Builder::buildColumn},
    {Opcode::ARRAY_ELEMENT, Opcode::ARRAY_ELEMENT, &Builder::buildArrayElement},
    {Opcode::STRUCT_FIELD, Opcode::STRUCT_FIELD, &Builder::buildMember},
    {Opcode::CTOR_STRUCT, Opcode::CTOR_STRUCT, &Builder::buildAggregate},
    {Opcode::CTOR_ARRAY, Opcode::CTOR_ARRAY, &Builder::buildAggregate},
};

consteval Builder::Methods Builder::makeMethods() {
  Methods methods = {};
  for (Method& method : methods) method = &Builder::buildOperation;
  for (const MethodRange& range : kMethodRanges) {
    for (auto i = static_cast<unsigned>(range.first); i <= static_cast<unsigned>(range.last); ++i) {
      methods[i] = range.method;
    }
  }
  return methods;
}

bool Builder::buildInstruction(Instance& instance, const Instruction& item) {
  static constexpr Methods kMethods = makeMethods();
  return (this->*kMethods[static_cast<unsigned>(item.opcode)])(instance, item);
}

}  // namespace shadermachine::form
