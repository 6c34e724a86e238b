#include "form/builder.h"

#include <algorithm>
#include <memory>

namespace shadermachine::form {

Builder::Builder(Form& form, Decoder& decoder, Arena& working, Machine& machine)
    : form_(form),
      decoder_(decoder),
      working_(working),
      machine_(machine),
      shader_(*machine.shader),
      slots_(working.allocate<Slot>(static_cast<size_t>(machine.stackCapacity))) {}

// Blocks and operations ---------------------------------------------------------------------------

uint32_t Builder::newBlock() {
  form_.order.append(kNoBlock);
  return form_.order.size() - 1;
}

// Operations from here on are the block's. Values described so far are the block's before.
void Builder::placeBlock(uint32_t block) {
  if (form_.failed()) return;
  const uint32_t at = form_.operations.size();
  if (form_.blocks.size() > 0) form_.blocks.back().end = at;
  form_.order[block] = form_.blocks.size();
  form_.blocks.append({at, at});
  ++epoch_;
  for (uint32_t i = 0; i < dirtySlots_.size(); ++i) slots_[dirtySlots_[i]].isListed = false;
  dirtySlots_.clear();
  dirtyIndices_ = indexTop_ + 1;
}

Operation Builder::operation(Kind kind, uint32_t words) const {
  Operation made;
  made.kind = kind;
  made.words = static_cast<uint8_t>(words);
  return made;
}

Value Builder::append(const Operation& made) {
  form_.operations.append(made);
  return form_.operations.size() - 1;
}

Operand Builder::constant(const uint32_t* words, uint32_t n) {
  Operation made = operation(Kind::Constant, n);
  made.first = form_.constants.size();
  for (uint32_t i = 0; i < n; ++i) form_.constants.append(words[i]);
  return {append(made), 0};
}

bool Builder::constantOf(Operand operand, uint32_t& word) const {
  if (form_.failed()) return false;
  const Operation& made = form_.operations[operand.value];
  if (made.kind != Kind::Constant) return false;
  word = *form_.constantWords(made, operand.first);
  return true;
}

Operand Builder::load(Place place, uint32_t first, uint32_t n) {
  Operation made = operation(Kind::Load, n);
  made.place = place;
  made.first = first;
  return {append(made), 0};
}

void Builder::store(Place place, uint32_t first, uint32_t n, Operand value, bool spare) {
  Operation made = operation(Kind::Store);
  made.place = place;
  made.first = first;
  made.n = static_cast<uint8_t>(n);
  made.in[0] = value;
  made.spare = spare;
  append(made);
}

// Slots -------------------------------------------------------------------------------------------

// The slot's words are in its place, or nobody's.
void Builder::resetSlot(int32_t s, Content content) {
  Slot& reset = slots_[s];
  const bool listed = reset.isListed;
  reset = {};
  reset.content = content;
  reset.isListed = listed;
}

void Builder::noteDirty(int32_t s) {
  if (slots_[s].isListed) return;
  slots_[s].isListed = true;
  dirtySlots_.append(s);
}

void Builder::pushOperand(Operand value, uint32_t n) {
  resetSlot(++top_);
  writeSlot(top_, value, n, true);
}

// Writes n words over the slot's first ones. What is described below them stays, unless the
// instruction replaces the slot.
void Builder::writeSlot(int32_t s, Operand value, uint32_t n, bool replaces) {
  Slot& written = slots_[s];
  auto* part = working_.allocate<Part>();
  if (part == nullptr) return;
  const Part* below = replaces || !isCurrent(written) ? nullptr : written.parts;
  while (below != nullptr && below->end <= n) below = below->below;
  *part = {value, n, below};
  if (replaces) {
    written.wholeInParts = true;
    written.dirty = n;
  } else if (!isCurrent(written)) {
    written.wholeInParts = false;
    written.dirty = n;
  } else {
    written.dirty = std::max(written.dirty, n);
  }
  written.epoch = epoch_;
  written.parts = part;
  noteDirty(s);
}

// Slot `to` gets all words that slot `from` has, whoever knows them.
void Builder::copySlot(int32_t from, int32_t to) {
  const Slot source = slots_[from];
  const bool known = isCurrent(source) && source.parts != nullptr;
  resetSlot(to);
  if (!known || !source.wholeInParts) {
    writeSlot(to, load(static_cast<Place>(from), 0, kPlaceWords), kPlaceWords, true);
  }
  const Part* parts[kPlaceWords] = {};
  uint32_t count = 0;
  for (const Part* part = known ? source.parts : nullptr; part != nullptr; part = part->below) {
    parts[count++] = part;
  }
  while (count-- > 0) writeSlot(to, parts[count]->operand, parts[count]->end, false);
  slots_[to].wholeInParts = true;
}

// Words that reach over several parts, one by one.
Operand Builder::composeParts(const Slot& from, uint32_t n) {
  Operand words[4];
  const Part* part = from.parts;
  for (uint32_t i = 0; i < n; ++i) {
    while (part != nullptr && part->end <= i) part = part->below;
    if (part == nullptr) return {};
    words[i] = word(part->operand, i);
  }
  return compose(words, n);
}

// The slot's first n words as one value. Words that nothing has described are the place's.
Operand Builder::read(int32_t s, uint32_t n) {
  const Slot& from = slots_[s];
  if (isCurrent(from) && from.parts != nullptr) {
    if (n <= from.parts->end) return from.parts->operand;
    if (n <= 4) {
      const Operand composed = composeParts(from, n);
      if (composed.value != kNoValue) return composed;
    }
    flushSlot(s);
  }
  return load(static_cast<Place>(s), 0, n);
}

void Builder::flushSlot(int32_t s) {
  Slot& flushed = slots_[s];
  const auto place = static_cast<Place>(s);
  if (flushed.content == Content::View) {
    Operation share = operation(Kind::ShareView);
    share.place = place;
    share.other = flushed.variable;
    share.first = flushed.offset;
    share.size = flushed.size;
    nameBase(share, 0, flushed);
    append(share);
    return resetSlot(s, Content::Block);
  }
  if (!isCurrent(flushed)) return;
  uint32_t from = 0;
  for (const Part* part = flushed.parts; part != nullptr && from < flushed.dirty;
       part = part->below) {
    const uint32_t end = std::min(part->end, flushed.dirty);
    const bool spare = flushed.wholeInParts && from == 0 && part->below == nullptr;
    store(place, from, end - from, word(part->operand, from), spare);
    from = end;
  }
  flushed.dirty = 0;
}

void Builder::flushIndex(int32_t i) {
  if (!indices_[i].dirty || indices_[i].epoch != epoch_) return;
  store(kFirstIndexPlace + static_cast<Place>(i), 0, 1, indices_[i].operand);
  indices_[i].dirty = false;
}

// Views of one aggregate variable, or all (kNoValue), get their references.
void Builder::flushViews(Place variable) {
  for (uint32_t i = 0; i < dirtySlots_.size(); ++i) {
    const int32_t s = dirtySlots_[i];
    const bool view = s <= top_ && slots_[s].content == Content::View;
    if (view && (variable == kNoValue || slots_[s].variable == variable)) flushSlot(s);
  }
}

// Brings everything up to the tops to where the plain handlers would have it.
void Builder::flush() {
  for (uint32_t i = 0; i < dirtySlots_.size(); ++i) {
    const int32_t s = dirtySlots_[i];
    slots_[s].isListed = false;
    if (s <= top_) flushSlot(s);
  }
  dirtySlots_.clear();
  for (int32_t i = dirtyIndices_; i <= indexTop_; ++i) flushIndex(i);
  dirtyIndices_ = indexTop_ + 1;
}

const Site* Builder::site(uint32_t pc, uint32_t opcode, int32_t slotTop) {
  Site* made = form_.arena.allocate<Site>();
  if (made == nullptr) return nullptr;
  *made = {call_, pc, slotTop - static_cast<int32_t>(call_->localsSlot), indexTop_, opcode};
  return made;
}

bool Builder::outOfTime() {
  constexpr uint32_t kOperationsPerLook = 1024;
  if (form_.operations.size() < nextLook_) return false;
  nextLook_ = form_.operations.size() + kOperationsPerLook;
  return isHalfOver(machine_.timeLimit);
}

// Slots and indices that operations name, for tables of places.
void Builder::countPlaces() {
  const auto note = [this](Place place, uint32_t count) {
    if (place < kFirstIndexPlace) {
      form_.slotCount = std::max(form_.slotCount, place + count);
    } else if (place < kFirstScratchPlace) {
      form_.indexCount = std::max(form_.indexCount, place + count - kFirstIndexPlace);
    }
  };
  for (uint32_t i = 0; i < form_.operations.size(); ++i) {
    const Operation& made = form_.operations[i];
    note(made.place, std::max(made.count, 1u));
    note(made.other, 1);
  }
}

BuildResult Builder::build(uint32_t entryFunction) {
  if (!decoder_.decodeFrom(entryFunction)) {
    return decoder_.isOutOfTime() ? BuildResult::OutOfTime : BuildResult::OutOfMemory;
  }
  const DecodedFunction* function = decoder_.function(entryFunction);
  if (function == nullptr) return BuildResult::LeftPlain;
  auto* call = form_.arena.allocate<InlinedCall>();
  if (call == nullptr || slots_ == nullptr) return BuildResult::OutOfMemory;
  const ShaderFunction& record = *function->record;
  *call = {nullptr, entryFunction, shader_.globalCount, 0, 0, 0};
  const int32_t locals = shader_.globalCount;
  if (locals + record.localCount + static_cast<int32_t>(function->maxTemporaries) >
      machine_.stackCapacity) {
    return BuildResult::LeftPlain;
  }
  form_.globalCount = shader_.globalCount;
  top_ = locals - 1;
  placeBlock(newBlock());
  Instance* instance = enter(*function, call, nullptr);
  while (instance != nullptr && !failed() && !mustStayPlain_) {
    if (outOfTime()) return BuildResult::OutOfTime;
    if (instance->current < instance->function->count) {
      step(*instance);
      instance = innermost_;
    } else {
      instance = leave(*instance);
    }
  }
  for (uint32_t i = 0; i < backBranches_.size() && !failed(); ++i) {
    placeBlock(backBranches_[i].block);
    Operation back = operation(Kind::JumpBack);
    back.block = backBranches_[i].target;
    back.site = backBranches_[i].site;
    append(back);
  }
  if (failed() || backBranches_.failed() || dirtySlots_.failed()) {
    return BuildResult::OutOfMemory;
  }
  if (mustStayPlain_) return BuildResult::LeftPlain;
  form_.blocks.back().end = form_.operations.size();
  countPlaces();
  return BuildResult::Built;
}

BuildResult buildForm(Form& form, Decoder& decoder, Arena& working, Machine& machine) {
  auto* builder = static_cast<Builder*>(std::malloc(sizeof(Builder)));
  if (builder == nullptr) return BuildResult::OutOfMemory;
  std::construct_at(builder, form, decoder, working, machine);
  const BuildResult result = builder->build(machine.shader->entryIndex);
  std::destroy_at(builder);
  std::free(builder);
  return result;
}

}  // namespace shadermachine::form
