// The selector's records.
#include <algorithm>

#include "batch/row_selector.h"
#include "instructions/builtin_variables.h"
#include "instructions/lookup_form.h"
#include "instructions/operand_shapes.h"

namespace shadermachine::batch {

using form::Kind;

// Rows --------------------------------------------------------------------------------------------

uint32_t RowSelector::takeRow() {
  if (spareRows_.size() == 0) return rowCount_++;
  const uint32_t row = spareRows_.back();
  spareRows_.removeLast();
  return row;
}

// Rows for the words of a value that have none yet, until its last use.
void RowSelector::takeRows(uint32_t i) {
  const uint32_t first = info_[i].rows;
  for (uint32_t w = 0; w < form_.operations[i].words; ++w) {
    if (rows_[first + w] != kNone) continue;
    rows_[first + w] = takeRow();
    info_[i].ownsRows |= 1u << w;
  }
  const uint32_t last = info_[i].lastUse == kNone ? i : info_[i].lastUse;
  info_[i].alsoExpiring = info_[last].expiring;
  info_[last].expiring = i;
}

void RowSelector::expire(uint32_t i) {
  for (uint32_t v = info_[i].expiring; v != kNone; v = info_[v].alsoExpiring) {
    for (uint32_t w = 0; w < form_.operations[v].words; ++w) {
      if ((info_[v].ownsRows >> w & 1) != 0) spareRows_.append(rows_[info_[v].rows + w]);
    }
  }
}

// Copies are carried out in order, those between two other records in one.
void RowSelector::copy(uint32_t to, uint32_t from) {
  if (to == from) return;
  copiesTo_.append(to);
  copiesFrom_.append(from);
}

// As if all were read before any is written.
void RowSelector::copyParallel(uint32_t* to, uint32_t* from, uint32_t count) {
  bool overwrites = false;  // a row that a later one comes from
  for (uint32_t w = 0; w < count; ++w) {
    overwrites = overwrites || std::find(to, to + w, from[w]) != to + w;
  }
  for (uint32_t w = 0; overwrites && w < count; ++w) {
    // Through rows of their own: all are read before the first is written.
    const uint32_t row = takeRow();
    copy(row, from[w]);
    from[w] = row;
  }
  for (uint32_t w = 0; w < count; ++w) {
    copy(to[w], from[w]);
    if (overwrites) spareRows_.append(from[w]);
  }
}

void RowSelector::flushCopies() {
  const uint32_t count = copiesTo_.size();
  if (count == 0) return;
  Draft made = draft(functions_.copy.masked);
  made.n = count;
  made.result = operands_.size();
  for (uint32_t i = 0; i < count; ++i) operands_.append(copiesTo_[i]);
  made.in[0] = operands_.size();
  for (uint32_t i = 0; i < count; ++i) operands_.append(copiesFrom_[i]);
  copiesTo_.clear();
  copiesFrom_.clear();
  append(made);
}

uint32_t RowSelector::listOperand(Operand value, uint32_t count) {
  const uint32_t first = operands_.size();
  for (uint32_t w = 0; w < count; ++w) operands_.append(rowOf({value.value, value.first + w}));
  return first;
}

uint32_t RowSelector::listResult(uint32_t i) {
  const uint32_t first = operands_.size();
  for (uint32_t w = 0; w < form_.operations[i].words; ++w) {
    operands_.append(rows_[info_[i].rows + w]);
  }
  return first;
}

// Masked when some row of the result is a place's.
RowStep RowSelector::stepFor(StepForms forms, uint32_t i) const {
  const uint32_t all = form::wordMask(0, form_.operations[i].words);
  return info_[i].ownsRows == all ? forms.plain : forms.masked;
}

// Records -----------------------------------------------------------------------------------------

RowSelector::Draft RowSelector::draft(RowStep run) const {
  return {run, kNone, {kNone, kNone, kNone}, kNone, kNone, 0, kNone, kNone, now_};
}

void RowSelector::append(const Draft& made, uint32_t value) {
  drafts_.append(made);
  lastMade_ = value;
}

void RowSelector::appendJoin() {
  Draft join = draft(functions_.join);
  join.join = joinCount_++;
  append(join);
}

void RowSelector::selectBlock(uint32_t block) {
  now_ = form_.blocks[block].begin;
  if (blockJoins_[block] != kNone) {
    flushCopies();
    blockJoins_[block] = drafts_.size();
    appendJoin();
  }
  wantedUntil_ = 0;
  for (uint32_t i = form_.blocks[block].begin; i < form_.blocks[block].end && !isTooMuch(); ++i) {
    now_ = i;
    const uint32_t before = operandCount();
    selectOperation(i);
    expire(i);
    if (info_[i].lastUse != kNone) wantedUntil_ = std::max(wantedUntil_, info_[i].lastUse);
    if (operandCount() - looked_ >= kOperandsPerLook) appendLook();
    isOverTime_ = isOverTime_ || watch_.isOverAfter(1 + operandCount() - before);
  }
  flushCopies();
}

// Those of copies that are not a record yet included.
uint32_t RowSelector::operandCount() const {
  return operands_.size() + copiesTo_.size() + copiesFrom_.size();
}

bool RowSelector::isTooMuch() const {
  return isOverTime_ || rowCount_ > kMaxRows || drafts_.size() > kMaxRecords ||
         operandCount() > kMaxOperands;
}

// The form looks at the clock by its operations, of which one may be thousands of rows.
void RowSelector::appendLook() {
  flushCopies();
  append(draft(functions_.clock));
  looked_ = operands_.size();
}

void RowSelector::selectOperation(uint32_t i) {
  const Operation& operation = form_.operations[i];
  switch (operation.kind) {
    case Kind::Load:
      return selectLoad(i);
    case Kind::Store:
      return selectStore(i);
    case Kind::Operate:
      return selectOperate(i);
    case Kind::Element:
      return selectChoice(i, functions_.element);
    case Kind::Column:
      return selectChoice(i, functions_.column);
    case Kind::HostVariable:
    case Kind::HostBuiltin:
      return selectHost(i);
    case Kind::Plain:
      return selectPlain(i);
    case Kind::Branch:
      return selectBranch(i);
    case Kind::Jump:
    case Kind::JumpBack:
      return selectJump(i);
    case Kind::Clock:
      flushCopies();
      return append(draft(functions_.clock));
    case Kind::Finish:
    case Kind::Stop: {
      flushCopies();
      const bool delivers = operation.first == VM_OK || operation.first == VM_ERR_HALTED;
      Draft end = draft(delivers ? functions_.finish : functions_.stop);
      end.n = operation.first;
      return append(end);
    }
    default:
      return selectAggregate(i);
  }
}

void RowSelector::selectLoad(uint32_t i) {
  const Operation& load = form_.operations[i];
  if (info_[i].lastUse == kNone || rows_[info_[i].rows] != kNone) return;
  takeRows(i);
  for (uint32_t w = 0; w < load.words; ++w) {
    copy(rows_[info_[i].rows + w], placeRow(load.place, load.first + w));
  }
}

void RowSelector::selectStore(uint32_t i) {
  const Operation& store = form_.operations[i];
  uint32_t to[form::kPlaceWords];
  uint32_t from[form::kPlaceWords];
  for (uint32_t w = 0; w < store.n; ++w) {
    to[w] = placeRow(store.place, store.first + w);
    from[w] = rowOf({store.in[0].value, store.in[0].first + w});
  }
  copyParallel(to, from, store.n);
}

bool RowSelector::isConstant(Operand value, uint32_t words) const {
  for (uint32_t w = 0; w < words; ++w) {
    const Operand word = root({value.value, value.first + w});
    if (form_.operations[word.value].kind != Kind::Constant) return false;
  }
  return true;
}

void RowSelector::selectOperate(uint32_t i) {
  const Operation& operation = form_.operations[i];
  const OperandShape& shape = operandShape(operation.opcode);
  flushCopies();
  takeRows(i);
  StepForms forms = functions_.byOpcode[static_cast<unsigned>(operation.opcode)];
  const bool dividesByConstant =
      operation.opcode == Opcode::DIV_I && isConstant(operation.in[1], operation.n);
  if (dividesByConstant) forms = functions_.divideByConstant;
  Draft made = draft(stepFor(forms, i));
  made.n = operation.n;
  if (shape.isComponentWise && shape.out == WordCount::N) made.n = operation.words;
  made.result = listResult(i);
  for (uint32_t k = 0; k < shape.operands; ++k) {
    made.in[k] = listOperand(operation.in[k], form::operandWords(operation, k));
  }
  append(made, i);
}

void RowSelector::selectChoice(uint32_t i, StepForms forms) {
  const Operation& operation = form_.operations[i];
  flushCopies();
  takeRows(i);
  Draft made = draft(stepFor(forms, i));
  made.n = operation.n;
  made.result = listResult(i);
  for (uint32_t k = 0; k < 2; ++k) {
    made.in[k] = listOperand(operation.in[k], form::operandWords(operation, k));
  }
  append(made);
}

// Control flow ------------------------------------------------------------------------------------

// Where a block that is a jump back, and nothing else, leads to; kNone for others.
uint32_t RowSelector::loopBehind(uint32_t block) const {
  uint32_t i = form_.blocks[block].begin;
  while (i < form_.blocks[block].end && form_.operations[i].kind == Kind::Nothing) ++i;
  if (i == form_.blocks[block].end || form_.operations[i].kind != Kind::JumpBack) return kNone;
  return form_.order[form_.operations[i].block];
}

// A branch that closes a loop: those who leave it wait behind it, where no value made before may
// be wanted.
bool RowSelector::selectLoopBranch(uint32_t i) {
  const uint32_t target = loopBehind(form_.order[form_.operations[i].block]);
  if (target == kNone || target > block_) return false;
  if (wantedUntil_ > i) return false;
  Draft branch = draft(functions_.loopBranch);
  branch.in[0] = listOperand(form_.operations[i].in[0], 1);
  branch.target = target;
  append(branch);
  appendJoin();
  return true;
}

void RowSelector::selectBranch(uint32_t i) {
  const Operation& branch = form_.operations[i];
  flushCopies();
  if (selectLoopBranch(i)) return;
  const Operand condition = root(branch.in[0]);
  const Operation& made = form_.operations[condition.value];
  const uint32_t target = form_.order[branch.block];
  const bool follows = lastMade_ == condition.value && made.kind == Kind::Operate;
  const RowStep fused = follows ? functions_.branches[static_cast<unsigned>(made.opcode)] : nullptr;
  if (fused != nullptr && made.n == 1 && info_[condition.value].ownsRows == 1 &&
      info_[condition.value].lastUse == i) {
    drafts_.back().run = fused;
    drafts_.back().target = target;
    lastMade_ = kNone;
    return;
  }
  Draft record = draft(functions_.branch);
  record.in[0] = listOperand(branch.in[0], 1);
  record.target = target;
  append(record);
}

void RowSelector::selectJump(uint32_t i) {
  const Operation& jump = form_.operations[i];
  const uint32_t target = form_.order[jump.block];
  flushCopies();
  const bool leadsBack = target <= block_;
  if (!leadsBack && target == block_ + 1) return;
  Draft record = draft(leadsBack ? functions_.jumpBack : functions_.jump);
  record.target = target;
  append(record);
}

// The host ----------------------------------------------------------------------------------------

uint32_t RowSelector::indexRow(const Operation& operation) const {
  const int32_t top = operation.site->indexTop;
  if (top < 0) return kNone;
  const Place place = form::kFirstIndexPlace + static_cast<Place>(top);
  return placeWords_[form_.placeNumber(place) * form::kPlaceWords].row;
}

void RowSelector::appendRequest(RowStep run, const RequestRows& rows) {
  Draft record = draft(run);
  record.request = requests_.size();
  requests_.append(rows);
  append(record);
}

void RowSelector::selectHost(uint32_t i) {
  const Operation& ask = form_.operations[i];
  const bool isBuiltin = ask.kind == Kind::HostBuiltin;
  flushCopies();
  RequestRows rows = {{}, rowCount_, kNone, kNone, kNone};
  rowCount_ += form::kPlaceWords;
  for (uint32_t w = 0; w < ask.words; ++w) rows_[info_[i].rows + w] = rows.answer + w;
  rows.request.number = ask.first;
  rows.request.words = ask.words;
  if (isBuiltin) {
    rows.request.callbackSlot = ask.first;
    for (uint32_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) {
      const BuiltinVariable variable = builtinVariable(id);
      const bool answersInSlot = variable.family == BuiltinFamily::HostValue ||
                                 variable.family == BuiltinFamily::IndexedValue;
      if (answersInSlot && variable.callbackSlot == ask.first) rows.request.number = id;
    }
  }
  if (!isBuiltin || ask.count != 0) rows.index = indexRow(ask);
  appendRequest(isBuiltin ? &askForBuiltin : &askForVariable, rows);
  for (uint32_t w = 0; w < ask.words; ++w) {
    if (placeWord(ask.place, w).isLoaded) copy(placeRow(ask.place, w), rows.answer + w);
  }
}

// A row function on whole slots, in place.
void RowSelector::selectOnSlots(const Operation& plain) {
  const uint32_t pops = static_cast<uint8_t>(opcodeInfo(plain.opcode).pops);
  const Place first = static_cast<Place>(plain.site->topSlot()) + 1 - pops;
  Draft made = draft(functions_.byOpcode[static_cast<unsigned>(plain.opcode)].masked);
  made.n = instructionOf(plain).operands[0];
  for (uint32_t k = 0; k < pops; ++k) {
    made.in[k] = operands_.size();
    for (uint32_t w = 0; w < form::kPlaceWords; ++w) operands_.append(placeRow(first + k, w));
  }
  made.result = made.in[0];
  append(made);
}

void RowSelector::selectPlain(uint32_t i) {
  const Operation& plain = form_.operations[i];
  const auto top = static_cast<Place>(plain.site->topSlot());
  if (isOnReferences(plain.opcode)) return selectOnReferences(i);
  flushCopies();
  if (isReturn(plain.opcode)) {
    Draft end = draft(functions_.finish);
    end.n = VM_OK;
    return append(end);
  }
  if (!asksHost(plain.opcode)) return selectOnSlots(plain);
  RequestRows rows = {{}, kNone, kNone, kNone, kNone};
  rows.request.words = form::kPlaceWords;
  const bool isUnary = plain.opcode <= Opcode::HOST_UNARY_3;
  const Opcode first = isUnary ? Opcode::HOST_UNARY_1 : Opcode::HOST_LOOKUP_1;
  rows.request.number = static_cast<uint32_t>(plain.opcode) - static_cast<uint32_t>(first);
  if (isUnary) {
    rows.answer = slotRows(top);
    return appendRequest(&askForUnary, rows);
  }
  rows.request.form = instructionOf(plain).operands[0];
  const uint32_t arguments = lookupArguments(rows.request.form);
  if (arguments < 2) return;
  rows.answer = slotRows(top - (arguments - 1));
  rows.coords = slotRows(top - (arguments - 2));
  if (arguments == 3) rows.extra = slotRows(top);
  appendRequest(&askForLookup, rows);
}

}  // namespace shadermachine::batch
