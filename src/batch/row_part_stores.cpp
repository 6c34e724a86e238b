// Stores into parts of variables that the form leaves to their plain handlers: of structures and
// arrays, and at several run-time indices of a matrix. Indices are constants, or masked so that
// they are not negative: the others select components, or drop the store, and that shows only when
// they run.
#include <algorithm>

#include "batch/row_selector.h"
#include "instructions/access_path.h"
#include "instructions/stack_effect.h"

namespace shadermachine::batch {

using form::Kind;

namespace {

constexpr uint32_t kMostLooks = 64;  // for the store into a slot

}  // namespace

bool storesPart(Opcode opcode) {
  using enum Opcode;
  return opcode == STORE_LOCAL_ELEM || opcode == STORE_LOCAL_ELEM_IMM ||
         opcode == STORE_GLOBAL_ELEM || opcode == STORE_GLOBAL_ELEM_IMM;
}

form::Place RowSelector::variableOf(const Operation& plain, const DecodedInstruction& item) {
  return item.operands[0] + (namesGlobal(item.opcode) ? 0 : plain.site->call->localsSlot);
}

// The value that the block has stored as the slot's first word; without a value when that is not
// found.
form::Operand RowSelector::storedIn(Place slot, uint32_t i) const {
  const uint32_t begin = form_.blocks[block_].begin;
  const uint32_t end = i - std::min(i - begin, kMostLooks);
  while (i-- > end) {
    const Operation& store = form_.operations[i];
    if (store.kind == Kind::Plain || store.kind == Kind::PlainCall) return {};
    if (store.kind == Kind::Store && store.place == slot && store.first == 0) return store.in[0];
  }
  return {};
}

bool RowSelector::isMasked(Operand index) const {
  const Operation& made = form_.operations[index.value];
  if (made.kind != Kind::Operate || made.opcode != Opcode::BIT_AND) return false;
  for (uint32_t k = 0; k < 2; ++k) {
    const Operand mask = root({made.in[k].value, made.in[k].first + index.first});
    const Operation& by = form_.operations[mask.value];
    const bool isConstant = by.kind == Kind::Constant;
    if (isConstant && static_cast<int32_t>(*form_.constantWords(by, mask.first)) >= 0) return true;
  }
  return false;
}

// Sees to it that wherever indices lead below their bounds, the part lies inside the one before.
bool RowSelector::walkStep(StoredPart& part, PartType& type, Operand index, Place slot) const {
  const bool isFound = index.value != form::kNoValue;
  const Operand word = isFound ? root(index) : index;
  const bool isConstant = isFound && form_.operations[word.value].kind == Kind::Constant;
  if (!isConstant && (!isFound || part.limits.count == RowPath::kMost || !isMasked(word))) {
    return false;
  }
  const uint32_t number =
      isConstant ? *form_.constantWords(form_.operations[word.value], word.first) : 0;
  return walkTo(part, type, number, isConstant ? kNone : slot);
}

// `slot` holds the index, or is kNone where `number` is.
bool RowSelector::walkTo(StoredPart& part, PartType& type, uint32_t number, Place slot) const {
  const auto consult = [this](int32_t code) { return decoder_.consultStruct(code); };
  PathStep step;
  if (static_cast<int32_t>(number) < 0 || !hasParts(type)) return false;
  if (!pickPart(consult, type, number, step) || step.offset + step.size > part.bytes) return false;
  if (slot != kNone) {
    if (step.stride == 0 || step.stride % kRowWordBytes != 0) return false;
    const uint32_t bound = std::min(step.bound, (part.bytes - step.size) / step.stride + 1);
    part.slots[part.limits.count] = slot;
    part.limits.steps[part.limits.count++] = {step.stride / kRowWordBytes, bound};
  }
  part.first += static_cast<uint32_t>(step.offset);
  part.bytes = step.size;
  type = step.part;
  return true;
}

// The slot of a basic variable into which it stores, or kNone.
form::Place RowSelector::basicTarget(const Operation& plain) const {
  if (plain.kind != Kind::Plain || !storesPart(plain.opcode)) return kNone;
  const DecodedInstruction item = instructionOf(plain);
  const ShaderFunction& function = *shader_.functions[plain.site->call->function];
  const VarInfo* const info = namedVariable(item, shader_, function);
  return info != nullptr && isBasicVar(*info) ? variableOf(plain, item) : kNone;
}

bool RowSelector::findPart(const Operation& plain, uint32_t i, StoredPart& part) const {
  const DecodedInstruction item = instructionOf(plain);
  const ShaderFunction& function = *shader_.functions[plain.site->call->function];
  const VarInfo* const info = namedVariable(item, shader_, function);
  const auto top = static_cast<Place>(plain.site->topSlot());
  const uint32_t pushed = slotsOf(plain) - 1;
  if (info == nullptr) return false;
  part = {0, isBasicVar(*info) ? kSlotBytes : held(variableOf(plain, item)).bytes, false, {}, {}};
  PartType type = {info->type, info->count};
  for (uint32_t k = 0; k < item.operands[1]; ++k) {
    const bool walks = pushed == 0
                           ? walkTo(part, type, static_cast<uint32_t>(item.listedIndex(k)), kNone)
                           : walkStep(part, type, storedIn(top - k, i), top - k);
    if (!walks) return false;
  }
  part.isInline = type.type < 0 && type.count == 0;
  const bool inWords = part.bytes != 0 && (part.first | part.bytes) % kRowWordBytes == 0;
  return inWords && (!part.isInline || part.bytes <= kSlotBytes);
}

bool RowSelector::resolvePartStore(const Operation& plain) {
  StoredPart part;
  const DecodedInstruction item = instructionOf(plain);
  const Place slot = static_cast<Place>(plain.site->topSlot()) + 1 - slotsOf(plain);
  const Reference to = held(variableOf(plain, item));
  const Reference from = held(slot);
  hold(slot, {});
  // Without a step no part is chosen, and nothing stored.
  if (item.operands[1] == 0) return true;
  if (!findPart(plain, now_, part)) return false;
  const bool isBasic = basicTarget(plain) != kNone;
  const bool hasRows = (name(to) || isBasic) && (name(from) || part.isInline);
  if (!hasRows || (!part.isInline && from.bytes < part.bytes)) return false;
  // The record needs what found the part here.
  references_.append({kNone, parts_.size(), 0});
  parts_.append(part);
  const bool isMovedInside = !part.isInline && to.aggregate == from.aggregate;
  return (!isMovedInside || part.bytes <= kSlotBytes) && (isBasic || changesPart(to));
}

void RowSelector::selectStoredPart(uint32_t i) {
  const Operation& plain = form_.operations[i];
  if (instructionOf(plain).operands[1] == 0) return;
  const StoredPart& part = parts_[referenceOf(i, 2).first];
  const Place variable = basicTarget(plain);
  const uint32_t whole = variable == kNone ? rowOf(referenceOf(i)) : slotRows(variable);
  const uint32_t to = whole + part.first / kRowWordBytes;
  const uint32_t from = part.isInline ? slotRows(firstWordSlot(plain)) : rowOf(referenceOf(i, 1));
  const uint32_t words = part.bytes / kRowWordBytes;
  for (uint32_t at = 0; at < words; at += VM_COMPONENT_COUNT) {
    const uint32_t count = std::min<uint32_t>(words - at, VM_COMPONENT_COUNT);
    uint32_t targets[VM_COMPONENT_COUNT];
    uint32_t sources[VM_COMPONENT_COUNT];
    for (uint32_t w = 0; w < count; ++w) {
      targets[w] = to + at + w;
      sources[w] = from + at + w;
    }
    if (part.limits.count == 0) {
      copyParallel(targets, sources, count);
      continue;
    }
    flushCopies();
    Draft made = draft(functions_.storePart);
    made.n = count;
    made.path = paths_.size();
    paths_.append(part.limits);
    made.in[0] = operands_.size();
    for (uint32_t w = 0; w < count; ++w) operands_.append(sources[w]);
    made.in[1] = operands_.size();
    for (uint32_t k = 0; k < part.limits.count; ++k) operands_.append(placeRow(part.slots[k], 0));
    made.result = operands_.size();
    operands_.append(to + at);
    append(made);
  }
}

}  // namespace shadermachine::batch
