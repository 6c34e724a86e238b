// Which rows the references are: for every operation on structures and arrays, the aggregates that
// its slots hold where it runs. One pass over the form, in the order of its blocks.
//
// A reference is part of an aggregate of rows, and nothing that depends on the invocation: a view
// behind a run-time index becomes an aggregate of its own, a copy, and so does what MAKE_UNIQUE
// makes. On the ordinary machine references share blocks, so what a store changes shows through
// other references, unless it stores the whole variable, which then gets another block. Hence:
//
//  1. A whole store, where another slot holds part of the same aggregate, is left to the machine.
//  2. So is a store into a part of what a copy was taken from while a slot holds that copy.
//  3. At a join, a slot whose references differ holds none that is known. A way back must bring
//     what the loop began with.
#include <algorithm>

#include "batch/row_selector.h"
#include "instructions/stack_effect.h"
#include "machine/types.h"

namespace shadermachine::batch {

using form::Kind;

namespace {

constexpr uint32_t kMostStates = 1u << 20;  // references at the beginnings of blocks

bool isInRows(uint64_t bytes) {
  return bytes != 0 && bytes % kRowWordBytes == 0 && bytes <= RowProgram::kMaxBlockBytes;
}

bool isPop(Opcode opcode) {
  return opcode == Opcode::POP || opcode == Opcode::POP_N || opcode == Opcode::POP_RELEASE;
}

}  // namespace

bool isOnReferences(Opcode opcode) {
  using enum Opcode;
  return opcode == CTOR_STRUCT || opcode == CTOR_ARRAY || opcode == STRUCT_FIELD ||
         opcode == ARRAY_ELEMENT || opcode == MAKE_UNIQUE || opcode == DUP || opcode == SWAP ||
         opcode == EQ_AGG || opcode == NE_AGG || isPop(opcode) || storesPart(opcode);
}

DecodedInstruction RowSelector::instructionOf(const Operation& plain) const {
  const ShaderFunction& function = *shader_.functions[plain.site->call->function];
  DecodedInstruction instruction = {};
  decodeInstruction(shader_.code + function.codeOffset, plain.site->pc - 1, function.codeLength,
                    instruction);
  return instruction;
}

const StructInfo* RowSelector::structOf(uint32_t operand) {
  const auto type = static_cast<int16_t>(operand);
  return type < 0 ? nullptr : decoder_.consultStruct(type);
}

uint32_t RowSelector::slotsOf(const Operation& plain) const {
  const DecodedInstruction item = instructionOf(plain);
  return stackEffect(item, shader_, *shader_.functions[plain.site->call->function]).pops;
}

// Slots ------------------------------------------------------------------------------------------

// The slots that hold references somewhere get numbers.
bool RowSelector::trackSlots() {
  tracked_ = working_.allocate<uint32_t>(VM_STACK_CAPACITY + 1);
  if (working_.failed()) return false;
  const auto track = [this](Place slot) {
    if (slot < VM_STACK_CAPACITY) tracked_[slot] = 1;
  };
  for (uint32_t g = 0; g < shader_.globalCount; ++g) {
    if (!isBasicVar(shader_.globals[g])) track(g);
  }
  for (uint32_t i = 0; i < form_.operations.size(); ++i) {
    const Operation& operation = form_.operations[i];
    if (operation.kind == Kind::ShareView || operation.kind == Kind::MoveSlot) {
      track(operation.place);
    } else if (operation.kind == Kind::InitLocals) {
      for (uint32_t k = 0; k < operation.count; ++k) track(operation.place + k);
    } else if (operation.kind == Kind::Plain && isOnReferences(operation.opcode)) {
      const auto top = static_cast<Place>(operation.site->topSlot());
      track(top + 1 - std::max(1u, slotsOf(operation)));
      if (operation.opcode == Opcode::DUP) track(top + 1);
      if (operation.opcode == Opcode::SWAP) track(top);
    }
  }
  for (Place slot = 0; slot <= VM_STACK_CAPACITY; ++slot) {
    const bool isTracked = slot < VM_STACK_CAPACITY && tracked_[slot] != 0;
    tracked_[slot] = isTracked ? trackedSlots_.size() : kNone;
    if (isTracked) trackedSlots_.append(slot);
  }
  held_ = working_.allocate<Reference>(trackedSlots_.size());
  entries_ = working_.allocate<Reference*>(form_.blocks.size());
  if (working_.failed() || trackedSlots_.failed()) return false;
  std::fill_n(held_, trackedSlots_.size(), Reference{});
  return true;
}

RowSelector::Reference RowSelector::held(Place slot) const {
  const bool isTracked = slot < VM_STACK_CAPACITY && tracked_[slot] != kNone;
  return isTracked ? held_[tracked_[slot]] : Reference{};
}

void RowSelector::hold(Place slot, const Reference& reference) {
  if (slot < VM_STACK_CAPACITY && tracked_[slot] != kNone) held_[tracked_[slot]] = reference;
}

RowSelector::Reference RowSelector::addAggregate(Place place, uint64_t bytes) {
  if (!isInRows(bytes)) return {};
  Aggregate made = {
      rowCount_, static_cast<uint32_t>(bytes), place, kNone, kNone, kNone, kNone, false, false};
  aggregates_.append(made);
  rowCount_ += made.bytes / kRowWordBytes;
  return {aggregates_.size() - 1, 0, made.bytes};
}

RowSelector::Reference RowSelector::addCopy(Place place, uint32_t bytes, const Reference& of) {
  const Reference made = addAggregate(place, bytes);
  if (made.aggregate != kNone) aggregates_[made.aggregate].copied = of.aggregate;
  return made;
}

// Whether another slot than `slot`, up to `top`, holds part of the aggregate.
bool RowSelector::isShared(uint32_t aggregate, Place slot, int32_t top) const {
  for (uint32_t s = 0; s < trackedSlots_.size(); ++s) {
    const Place other = trackedSlots_[s];
    if (static_cast<int32_t>(other) > top) return false;
    if (other != slot && held_[s].aggregate == aggregate) return true;
  }
  return false;
}

bool RowSelector::isCopyHeld(uint32_t aggregate) const {
  for (uint32_t s = 0; s < trackedSlots_.size(); ++s) {
    const uint32_t at = held_[s].aggregate;
    if (at != kNone && aggregates_[at].copied == aggregate) return true;
  }
  return false;
}

// Ways --------------------------------------------------------------------------------------------

// What slots hold where control goes to a block further on.
bool RowSelector::arriveAt(uint32_t block) {
  Reference*& entry = entries_[block];
  const uint32_t count = trackedSlots_.size();
  if (entry == nullptr) {
    entry = working_.allocate<Reference>(count);
    if (working_.failed()) return false;
    std::copy_n(held_, count, entry);
  }
  for (uint32_t s = 0; s < count; ++s) {
    if (entry[s] != held_[s]) entry[s] = {};
  }
  return true;
}

// Slots above the top are nobody's.
bool RowSelector::bringsBack(const Operation& jump) const {
  const Reference* const entry = entries_[form_.order[jump.block]];
  for (uint32_t s = 0; entry != nullptr && s < trackedSlots_.size(); ++s) {
    if (static_cast<int32_t>(trackedSlots_[s]) > jump.site->topSlot()) break;
    if (entry[s].aggregate != kNone && entry[s] != held_[s]) return false;
  }
  return true;
}

bool RowSelector::resolveFlow(const Operation& operation) {
  haveAllCome_ = false;
  const uint32_t target = form_.order[operation.block];
  if (operation.kind == Kind::JumpBack)
    return target > block_ ? arriveAt(target) : bringsBack(operation);
  return target > block_ && arriveAt(target);
}

// Finds what all operations name. False at the first one that rows do not know.
bool RowSelector::resolveReferences() {
  if (!trackSlots()) return false;
  if (uint64_t{trackedSlots_.size()} * form_.blocks.size() > kMostStates) return false;
  for (uint32_t g = 0; g < shader_.globalCount; ++g) {
    if (isBasicVar(shader_.globals[g])) continue;
    hold(g, addAggregate(g, shader_.globals[g].byteSize));
    // A run that has no memory for its variables ends.
    if (held(g).aggregate == kNone) return false;
  }
  if (!arriveAt(0)) return false;
  for (block_ = 0; block_ < form_.blocks.size(); ++block_) {
    if (!resolveBlock(form_.blocks[block_])) return false;
  }
  return true;
}

bool RowSelector::resolveBlock(const form::Block& block) {
  haveAllCome_ = block_ == 0 && blockJoins_[0] == kNone;
  for (uint32_t s = 0; s < trackedSlots_.size(); ++s) {
    // Nobody knows what a block that only ways back lead to begins with.
    held_[s] = entries_[block_] == nullptr ? Reference{} : entries_[block_][s];
  }
  for (now_ = block.begin; now_ < block.end; ++now_) {
    // Some operations look at all slots that may hold a reference.
    if (watch_.isOverAfter(1 + trackedSlots_.size())) return false;
    info_[now_].references = references_.size();
    if (!isKnown(form_.operations[now_]) || !resolve(form_.operations[now_])) return false;
  }
  const bool isLast = block_ + 1 == form_.blocks.size();
  const bool ends =
      block.begin != block.end && form::endsBlock(form_.operations[block.end - 1].kind);
  return isLast || ends || arriveAt(block_ + 1);
}

// Operations -------------------------------------------------------------------------------------

bool RowSelector::resolve(const Operation& operation) {
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement:
    case Kind::CheckIndex:
      return name(held(operation.place)) && isReadable(operation, held(operation.place).bytes);
    case Kind::StorePart:
      return name(held(operation.place)) && changesPart(held(operation.place)) &&
             isStorable(operation, held(operation.place).bytes);
    case Kind::StoreIndexed:
      return isStorable(operation, kSlotBytes);
    case Kind::HostAggregate:
      beginWith(held(operation.first));
      return name(held(operation.first)) && changesPart(held(operation.first));
    case Kind::InitLocals:
      return resolveLocals(operation);
    case Kind::ShareView:
      return resolveView(operation);
    case Kind::CopyBlock:
    case Kind::StoreBlock:
      return resolveWholeStore(operation);
    case Kind::MoveSlot:
      if (held(operation.other).aggregate == kNone) return false;
      hold(operation.place, held(operation.other));
      hold(operation.other, {});
      return true;
    case Kind::ClearSlot:
    case Kind::ReleaseSlot:
      hold(operation.place, {});
      return true;
    case Kind::Plain:
      return !isOnReferences(operation.opcode) || resolvePlain(operation);
    case Kind::Branch:
    case Kind::Jump:
    case Kind::JumpBack:
      return resolveFlow(operation);
    default:
      return true;
  }
}

bool RowSelector::name(const Reference& reference) {
  references_.append(reference);
  if (reference.aggregate == kNone) return false;
  aggregates_[reference.aggregate].isNamed = true;
  return true;
}

// Called before the operation names what it replaces.
void RowSelector::beginWith(const Reference& reference) {
  if (reference.aggregate == kNone || !haveAllCome_) return;
  Aggregate& aggregate = aggregates_[reference.aggregate];
  if (!aggregate.isNamed) aggregate.replacedBy = now_;
}

bool RowSelector::changesPart(const Reference& reference) {
  if (isCopyHeld(reference.aggregate)) return false;
  aggregates_[reference.aggregate].isStored = true;
  return true;
}

bool RowSelector::resolveLocals(const Operation& init) {
  const VarInfo* const locals = shader_.functions[init.site->call->function]->locals;
  for (uint32_t k = 0; k < init.count; ++k) {
    const VarInfo& info = locals[init.first + k];
    const bool isBasic = isBasicVar(info);
    const Reference made = isBasic ? Reference{} : addAggregate(init.place + k, info.byteSize);
    hold(init.place + k, made);
    if (!name(made) && !isBasic) return false;
  }
  return true;
}

bool RowSelector::resolveView(const Operation& share) {
  const Reference whole = held(share.other);
  const uint32_t size = share.size == 0 ? whole.bytes : share.size;
  if (!name(whole) || size % kRowWordBytes != 0 || !isReadable(share, whole.bytes)) return false;
  const Reference part = {whole.aggregate, whole.first + share.first, size};
  const Reference made = share.steps == nullptr ? part : addCopy(share.place, size, whole);
  hold(share.place, made);
  return name(made);
}

bool RowSelector::resolveWholeStore(const Operation& store) {
  const Reference to = held(store.place);
  const Reference from = held(store.other);
  if (from.aggregate != to.aggregate) beginWith(to);
  if (!name(to) || !name(from) || from.bytes != to.bytes) return false;
  Aggregate& target = aggregates_[to.aggregate];
  if (store.kind == Kind::StoreBlock) hold(store.other, {});
  const bool isWhole = to.first == 0 && to.bytes == target.bytes;
  target.isStored = true;
  return isWhole && !isShared(to.aggregate, store.place, store.site->topSlot());
}

bool RowSelector::resolvePlain(const Operation& plain) {
  const auto top = static_cast<Place>(plain.site->topSlot());
  const Reference held0 = held(top);
  switch (plain.opcode) {
    case Opcode::CTOR_STRUCT:
    case Opcode::CTOR_ARRAY:
      return resolveConstructor(plain);
    case Opcode::STRUCT_FIELD:
      return resolveMember(plain);
    case Opcode::ARRAY_ELEMENT:
      return resolveElement(plain);
    case Opcode::MAKE_UNIQUE: {
      const Reference made = addAggregate(top, held0.bytes);
      hold(top, made);
      return name(held0) && name(made);
    }
    case Opcode::DUP:
      // It adds no reference: what becomes of the block does not depend on the copy.
      hold(top + 1, {});
      return true;
    case Opcode::SWAP: {
      const Reference below = held(top - 1);
      hold(top - 1, held0);
      hold(top, below);
      return true;
    }
    case Opcode::EQ_AGG:
    case Opcode::NE_AGG: {
      const Reference below = held(top - 1);
      hold(top - 1, {});
      hold(top, {});
      return name(below) && name(held0) && below.bytes == held0.bytes;
    }
    default:
      if (storesPart(plain.opcode)) return resolvePartStore(plain);
      for (uint32_t k = 0; k < slotsOf(plain); ++k) hold(top - k, {});
      return true;
  }
}

// A temporary of rows of its own, in the slot of the first operand.
bool RowSelector::resolveConstructor(const Operation& plain) {
  const DecodedInstruction item = instructionOf(plain);
  const bool isArray = plain.opcode == Opcode::CTOR_ARRAY;
  const StructInfo* const info = structOf(item.operands[0]);
  const auto type = static_cast<int16_t>(item.operands[0]);
  if ((!isArray || type >= 0) && (info == nullptr || info->members == nullptr)) return false;
  const uint32_t count = isArray ? item.operands[1] : info->memberCount;
  const uint64_t element = info == nullptr ? typeByteSize(type) : info->size;
  const Place slot = static_cast<Place>(plain.site->topSlot() + 1) - count;
  const Reference made = addAggregate(slot, isArray ? element * count : element);
  if (count == 0 || !name(made)) return false;
  uint64_t at = 0;
  for (uint32_t k = 0; k < count; ++k) {
    const uint64_t size = isArray ? element : info->members[k].byteSize;
    const bool isInline = isArray ? type < 0 : isBasicVar(info->members[k]);
    const Reference operand =
        isInline ? Reference{kNone, 0, static_cast<uint32_t>(size)} : held(slot + k);
    at += size;
    if (size % kRowWordBytes != 0 || at > made.bytes || operand.bytes != size) return false;
    if (isInline && size > kSlotBytes) return false;
    if (!name(operand) && !isInline) return false;
    hold(slot + k, {});
  }
  hold(slot, made);
  return true;
}

bool RowSelector::resolveMember(const Operation& plain) {
  const DecodedInstruction item = instructionOf(plain);
  const StructInfo* const info = structOf(item.operands[0]);
  const auto top = static_cast<Place>(plain.site->topSlot());
  const Reference view = held(top);
  if (info == nullptr || info->members == nullptr || item.operands[1] >= info->memberCount)
    return false;
  const VarInfo& member = info->members[item.operands[1]];
  const uint64_t end = uint64_t{member.memberOffset} + member.byteSize;
  const bool inWords = (member.memberOffset | member.byteSize) % kRowWordBytes == 0;
  const bool isBasic = isBasicVar(member);
  if (!inWords || end > view.bytes || member.byteSize == 0) return false;
  if (isBasic && member.byteSize > kSlotBytes) return false;
  const Reference part = {view.aggregate, view.first + member.memberOffset, member.byteSize};
  hold(top, isBasic ? Reference{} : part);
  return name(part) && (name(held(top)) || isBasic);
}

bool RowSelector::resolveElement(const Operation& plain) {
  const DecodedInstruction item = instructionOf(plain);
  const auto type = static_cast<int16_t>(item.operands[0]);
  const StructInfo* const info = structOf(item.operands[0]);
  const auto top = static_cast<Place>(plain.site->topSlot());
  const Reference view = held(top);
  const uint32_t size = type < 0 ? typeByteSize(type) : info == nullptr ? 0 : info->size;
  if (size == 0 || size % kRowWordBytes != 0 || size > view.bytes || !name(view)) return false;
  const bool isInline = type < 0;
  if (isInline && size > kSlotBytes) return false;
  const Reference made = isInline ? Reference{kNone, 0, size} : addCopy(top, size, view);
  hold(top, isInline ? Reference{} : made);
  return name(made) || isInline;
}

}  // namespace shadermachine::batch
