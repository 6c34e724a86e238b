#include "batch/row_selector.h"

#include <algorithm>

#include "instructions/operand_shapes.h"

namespace shadermachine::batch {

using form::Kind;

// What is known -----------------------------------------------------------------------------------

namespace {

// Words of whole slots.
bool writesSlots(Kind kind) {
  return form::isSeen(kind) || kind == Kind::InitLocals || kind == Kind::StoreIndexed;
}

}  // namespace

bool asksHost(Opcode opcode) {
  using enum Opcode;
  return opcode == HOST_UNARY_1 || opcode == HOST_UNARY_2 || opcode == HOST_UNARY_3 ||
         opcode == HOST_LOOKUP_1 || opcode == HOST_LOOKUP_2;
}

// The instructions on slots that a row function can do: on up to four components as a rule.
bool RowSelector::isKnownPlain(const Operation& plain) const {
  if (asksHost(plain.opcode) || isOnReferences(plain.opcode)) return true;
  // The entry function's: those of inlined calls are operations.
  if (isReturn(plain.opcode)) return true;
  if (functions_.byOpcode[static_cast<unsigned>(plain.opcode)].plain == nullptr) return false;
  const bool countsAll = plain.opcode == Opcode::ANY_B || plain.opcode == Opcode::ALL_B;
  const uint32_t n = instructionOf(plain).operands[0];
  return opcodeInfo(plain.opcode).operands[0] == OperandKind::Count && n > 0 &&
         n <= (countsAll ? form::kPlaceWords : 4u);
}

bool RowSelector::isKnown(const Operation& operation) const {
  switch (operation.kind) {
    case Kind::Operate:
      return functions_.byOpcode[static_cast<unsigned>(operation.opcode)].plain != nullptr;
    case Kind::Plain:
      return isKnownPlain(operation);
    case Kind::PlainCall:
      return false;
    default:
      return true;
  }
}

bool RowSelector::hasKnownOutputs() const {
  for (const int32_t global : form_.outputs) {
    const auto number = static_cast<uint32_t>(global);
    if (number < shader_.globalCount && !isBasicVar(shader_.globals[number])) return false;
  }
  return true;
}

bool RowSelector::leads(const RowRecord& record) const {
  return drafts_[static_cast<uint32_t>(&record - program_.first)].target != kNone;
}

bool RowSelector::select() {
  if (!prepare()) return false;
  const bool isKnown = hasKnownOutputs() && resolveReferences();
  firstUnknown_ = isKnown ? form_.operations.size() : now_;
  if (!isKnown) return !working_.failed();
  for (uint32_t b = 0; b < form_.blocks.size(); ++b) {
    lookBack(b);
    placeWords(b);
    selectBlock(b);
    if (isTooMuch()) return true;
  }
  return finish();
}

bool RowSelector::prepare() {
  const uint32_t count = form_.operations.size();
  const size_t words = size_t{form_.placeCount()} * form::kPlaceWords;
  info_ = working_.allocate<Info>(count);
  placeWords_ = working_.allocate<PlaceWord>(words);
  blockJoins_ = working_.allocate<uint32_t>(form_.blocks.size());
  if (working_.failed() || !listConstants()) return false;
  for (size_t w = 0; w < words; ++w) placeWords_[w] = {kNone, kNone, kNone, 0, false, false};
  for (uint32_t b = 0; b < form_.blocks.size(); ++b) blockJoins_[b] = kNone;
  for (uint32_t i = 0; i < count; ++i) {
    const Operation& operation = form_.operations[i];
    info_[i] = {kNone, kNone, rows_.size(), kNone, kNone, 0, 0};
    for (uint32_t w = 0; w < operation.words; ++w) rows_.append(kNone);
    notePlaces(operation);
  }
  for (uint32_t o = 0; o < 2; ++o) {
    const int32_t global = o == 0 ? shader_.outputGlobal0 : shader_.outputGlobal1;
    if (global >= 0 && global < shader_.globalCount) slotRows(static_cast<Place>(global));
  }
  return !rows_.failed();
}

template <class Function>
void RowSelector::forEachSlot(const Operation& operation, Function function) const {
  for (Place slot = firstSlot(operation); slot < endSlot(operation); ++slot) function(slot);
  const Place variable = basicTarget(operation);
  if (variable != kNone) function(variable);
}

// What is loaded, and where control comes from elsewhere.
void RowSelector::notePlaces(const Operation& operation) {
  if (operation.kind == Kind::Load) {
    for (uint32_t w = 0; w < operation.words; ++w) {
      placeWord(operation.place, operation.first + w).isLoaded = true;
    }
  } else if (operation.kind == Kind::Plain) {
    forEachSlot(operation, [this](Place slot) {
      for (uint32_t w = 0; w < form::kPlaceWords; ++w) placeWord(slot, w).isLoaded = true;
      slotRows(slot);
    });
  } else if (operation.kind == Kind::StoreIndexed) {
    slotRows(operation.place);
  } else if (operation.kind == Kind::Branch || operation.kind == Kind::Jump ||
             operation.kind == Kind::JumpBack) {
    blockJoins_[form_.order[operation.block]] = 0;
  }
}

// Where words are ---------------------------------------------------------------------------------

form::Operand RowSelector::root(Operand value) const {
  while (form_.operations[value.value].kind == Kind::Compose) {
    value = form_.operations[value.value].in[value.first];
  }
  return value;
}

uint32_t RowSelector::knownRowOf(Operand value) const {
  const Operand found = root(value);
  return rows_[info_[found.value].rows + found.first];
}

// Of the slots that an operation reads or writes whole.
form::Place RowSelector::firstSlot(const Operation& operation) const {
  if (operation.kind != Kind::Plain) return operation.place;
  if (isOnReferences(operation.opcode)) return firstWordSlot(operation);
  if (isReturn(operation.opcode)) return endSlot(operation);
  return static_cast<Place>(std::max(0, operation.site->topSlot() - 2));
}

form::Place RowSelector::endSlot(const Operation& operation) const {
  if (operation.kind == Kind::InitLocals) return operation.place + operation.count;
  if (operation.kind != Kind::Plain) return operation.place + 1;
  return static_cast<Place>(operation.site->topSlot() + 1);
}

uint32_t RowSelector::rowOf(Operand value) {
  const Operand found = root(value);
  uint32_t& row = rows_[info_[found.value].rows + found.first];
  const Operation& made = form_.operations[found.value];
  if (row == kNone && made.kind == Kind::Constant) {
    row = constantRow(*form_.constantWords(made, found.first));
  } else if (row == kNone && made.kind == Kind::RunWord) {
    row = runWordRow(made.first);
  }
  return row;
}

// All words that constantRow() can be asked for, sorted: a shader may have very many, and choose
// them.
bool RowSelector::listConstants() {
  constants_.append(0);
  for (uint32_t i = 0; i < form_.constants.size(); ++i) constants_.append(form_.constants[i]);
  if (constants_.failed()) return false;
  uint32_t* const first = constants_.data();
  std::sort(first, first + constants_.size());
  const auto count = static_cast<uint32_t>(std::unique(first, first + constants_.size()) - first);
  while (constants_.size() > count) constants_.removeLast();
  for (uint32_t i = 0; i < count; ++i) constantRows_.append(kNone);
  return !constantRows_.failed();
}

uint32_t RowSelector::constantRow(uint32_t word) {
  const uint32_t* const first = constants_.data();
  const uint32_t* const found = std::lower_bound(first, first + constants_.size(), word);
  uint32_t& row = constantRows_[static_cast<uint32_t>(found - first)];
  if (row == kNone) row = rowCount_++;
  return row;
}

uint32_t RowSelector::runWordRow(uint32_t offset) {
  for (uint32_t i = 0; i < runWords_.size(); ++i) {
    if (runWords_[i] == offset) return runWordRows_[i];
  }
  runWords_.append(offset);
  runWordRows_.append(rowCount_);
  return rowCount_++;
}

uint32_t RowSelector::placeRow(Place place, uint32_t word) {
  uint32_t& row = placeWord(place, word).row;
  if (row == kNone) row = rowCount_++;
  return row;
}

// All rows of a slot, one after another; called before any of them is named.
uint32_t RowSelector::slotRows(Place place) {
  if (placeWord(place, 0).row == kNone) {
    for (uint32_t w = 0; w < form::kPlaceWords; ++w) placeRow(place, w);
  }
  return placeRow(place, 0);
}

RowSelector::PlaceWord& RowSelector::wordInBlock(Place place, uint32_t word) {
  PlaceWord& found = placeWord(place, word);
  if (found.block != block_) {
    found.block = block_;
    found.store = kNone;
    found.busy = 0;
  }
  return found;
}

// The last use of every value and the next store behind every load and store of a block.
void RowSelector::lookBack(uint32_t block) {
  block_ = block;
  for (uint32_t i = form_.blocks[block].end; i-- > form_.blocks[block].begin;) {
    const Operation& operation = form_.operations[i];
    const bool stores = operation.kind == Kind::Store;
    if (stores || operation.kind == Kind::Load) {
      const uint32_t count = stores ? operation.n : operation.words;
      for (uint32_t w = 0; w < count; ++w) {
        PlaceWord& word = wordInBlock(operation.place, operation.first + w);
        info_[i].nextStore = std::min(info_[i].nextStore, word.store);
        if (stores) word.store = i;
      }
    } else if (writesSlots(operation.kind)) {
      forEachSlot(operation, [this, i](Place slot) {
        for (uint32_t w = 0; w < form::kPlaceWords; ++w) wordInBlock(slot, w).store = i;
      });
    }
    lookBackAtAggregates(i);
    useOperands(i);
  }
}

void RowSelector::useOperands(uint32_t i) {
  const Operation& operation = form_.operations[i];
  const uint32_t use = operation.kind == Kind::Compose ? info_[i].lastUse : i;
  if (use == kNone) return;
  for (uint32_t k = 0; k < form::operandCount(operation); ++k) {
    Info& used = info_[operation.in[k].value];
    used.lastUse = used.lastUse == kNone ? use : std::max(used.lastUse, use);
  }
}

// Loads that are the place's rows, and stored values that are computed there.
void RowSelector::placeWords(uint32_t block) {
  barrier_ = 0;
  for (uint32_t i = form_.blocks[block].begin; i < form_.blocks[block].end; ++i) {
    const Operation& operation = form_.operations[i];
    if (operation.kind == Kind::Store) {
      placeStore(i);
    } else if (operation.kind == Kind::Load && info_[i].lastUse != kNone) {
      placeLoad(i);
    } else if (operation.kind == Kind::Branch) {
      barrier_ = i + 1;
    } else if (writesSlots(operation.kind)) {
      placeAnswer(i);
    } else if (operation.kind == Kind::ReadMember || operation.kind == Kind::ReadElement) {
      placeRead(i);
    }
  }
}

void RowSelector::placeLoad(uint32_t i) {
  const Operation& load = form_.operations[i];
  const bool stays = info_[i].lastUse <= info_[i].nextStore;
  for (uint32_t w = 0; w < load.words; ++w) {
    const uint32_t row = placeRow(load.place, load.first + w);
    if (stays) rows_[info_[i].rows + w] = row;
    PlaceWord& word = wordInBlock(load.place, load.first + w);
    word.busy = std::max(word.busy, stays ? info_[i].lastUse : i);
  }
}

// The host reads the current index; its answer goes to a place too when somebody loads that.
void RowSelector::placeAnswer(uint32_t i) {
  const Operation& ask = form_.operations[i];
  if (ask.site != nullptr && ask.site->indexTop >= 0) {
    const Place index = form::kFirstIndexPlace + static_cast<Place>(ask.site->indexTop);
    placeRow(index, 0);
    wordInBlock(index, 0).busy = i;
  }
  if (ask.kind == Kind::Plain) barrier_ = i + 1;
  forEachSlot(ask, [this, i](Place slot) {
    for (uint32_t w = 0; w < form::kPlaceWords; ++w) {
      PlaceWord& word = wordInBlock(slot, w);
      word.busy = i;
      word.isStored = true;
    }
  });
}

void RowSelector::placeStore(uint32_t i) {
  const Operation& store = form_.operations[i];
  for (uint32_t w = 0; w < store.n; ++w) {
    const Operand value = root({store.in[0].value, store.in[0].first + w});
    const uint32_t row = placeRow(store.place, store.first + w);
    PlaceWord& word = wordInBlock(store.place, store.first + w);
    word.isStored = true;
    if (canLiveIn(word.busy, i, value) &&
        !readsBefore(form_.operations[value.value], row, value.first)) {
      rows_[info_[value.value].rows + value.first] = row;
      word.busy = std::max(i, info_[value.value].lastUse);
    } else {
      word.busy = std::max(word.busy, i);
    }
  }
}

// Whether the value may be computed into a place's row, which is in use up to `busy`.
bool RowSelector::canLiveIn(uint32_t busy, uint32_t store, Operand value) const {
  const Operation& made = form_.operations[value.value];
  const Info& info = info_[value.value];
  const bool isComputed =
      made.kind == Kind::Operate || made.kind == Kind::Element || made.kind == Kind::Column;
  return isComputed && rows_[info.rows + value.first] == kNone && busy <= value.value &&
         barrier_ <= value.value && info.lastUse <= info_[store].nextStore;
}

// Whether a component behind the word's own is computed from the row.
bool RowSelector::readsBefore(const Operation& operation, uint32_t row, uint32_t word) const {
  if (operation.kind != Kind::Operate || !operandShape(operation.opcode).isComponentWise) {
    return false;
  }
  for (uint32_t k = 0; k < form::operandCount(operation); ++k) {
    const uint32_t count = form::operandWords(operation, k);
    const bool isScalar = count == 1 && operation.words > 1;
    for (uint32_t w = 0; w < count; ++w) {
      if (!isScalar && w <= word) continue;
      if (isScalar && word + 1u == operation.words) continue;
      if (knownRowOf({operation.in[k].value, operation.in[k].first + w}) == row) return true;
    }
  }
  return false;
}

}  // namespace shadermachine::batch
