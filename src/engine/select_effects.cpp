// Records of stores, of what the host and the plain handlers do, of references and of control flow.

#include "engine/selector.h"

namespace shadermachine::engine {
namespace {

uint32_t* siteAddress(const form::Site* site) {
  return reinterpret_cast<uint32_t*>(const_cast<form::Site*>(site));
}

Record makeRecord(RecordHandler run) {
  Record record = {};
  record.run = run;
  return record;
}

}  // namespace

// Stores ------------------------------------------------------------------------------------------

// Initial values of neighbouring slots, in one record.
bool Selector::selectZeros(const Operation& store) {
  const auto isZeroing = [&store](const Operation& other) {
    return other.kind == Kind::Store && other.spare && other.in[0] == store.in[0] &&
           other.first == 0 && other.place < form::kFirstIndexPlace;
  };
  const Operation& made = operation(store.in[0].value);
  if (made.kind != Kind::Constant || made.words != form::kPlaceWords || !isZeroing(store)) {
    return false;
  }
  bool wide = false;
  uint32_t count = 0;
  uint32_t next = now_;
  for (; next < blockEnd_; ++next) {
    const Operation& other = operation(next);
    if (other.kind == Kind::Nothing) continue;
    if (!isZeroing(other) || other.place != store.place + count) break;
    wide = wide || other.n > 4;
    claim(other.place, writtenBy(other).words);
    ++count;
  }
  Record record = makeRecord(wide ? &zeroWideSlotsStep : &zeroSlotsStep);
  record.d = addressOf(store.place);
  record.x = count;
  emit(record);
  skipUntil_ = next;
  return true;
}

void Selector::selectStore(const Operation& store) {
  if (selectZeros(store)) return;
  const Operand value = store.in[0];
  ValueInfo& info = values_[value.value];
  if (value.first == 0 && info.place == store.place && info.first == store.first &&
      info.address != nullptr) {
    memory(value);  // its own record writes it, or it has been there before
    return;
  }
  const uint32_t n = store.n;
  const bool exact = n == 3 && !store.spare;
  Record copy = {};
  if (n == 1 && inRegister(value, Register::Word, 1)) {
    copy.run = storeStep(true, false, 1, false);
  } else if (n == 1 && inRegister(value, Register::Scalar, 1)) {
    copy.run = storeStep(false, true, 1, false);
  } else if (n > 1 && n <= 4 && inRegister(value, Register::Vector, n)) {
    copy.run = storeStep(false, false, n, exact);
  } else {
    copy.a = memory(value);
    copy.x = n;
    copy.run = n <= 4 ? copyStep(n, exact) : &copyWordsStep;
  }
  claim(store.place, form::wordMask(store.first, n == 3 && !exact ? 4 : n));
  copy.d = addressOf(store.place, store.first);
  emit(copy);
  if (value.first == 0 && n == operation(value.value).words) {
    info.copy = store.place;
    info.copyWord = store.first;
    info.copyVersion = placeInfo(store.place).version;
  }
}

// Control flow ------------------------------------------------------------------------------------

void Selector::selectBranch(const Operation& branch) {
  const Operand condition = branch.in[0];
  RegisterState& held = registers_[static_cast<unsigned>(Register::Word)];
  const bool inWord = inRegister(condition, Register::Word, 1);
  const bool fuses = inWord && held.pending && comparison_ + 1 == records_.size() &&
                     held.record == comparison_ && !isUsedLater(condition.value);
  uint32_t index = 0;
  lastBranch_ = kNone;
  if (fuses) {
    index = comparison_;
    records_[index].run = branchForm_;
    compared_[index] = comparedOpcode_;
    held = {kNone, 0, 0, false};
    lastBranch_ = index;
  } else {
    Record record = makeRecord(inWord ? &branchWordStep : &branchMemoryStep);
    if (!inWord) record.a = memory(condition);
    index = emit(record);
  }
  comparison_ = kNone;
  links_.append({index, branch.block, false});
}

void Selector::selectJump(const Operation& jump) {
  if (jump.kind == Kind::Jump) {
    // What follows in order needs no jump.
    if (form_.blocks[form_.order[jump.block]].begin == now_ + 1) return;
    links_.append({emit(makeRecord(&jumpStep)), jump.block, false});
    return;
  }
  const bool closesLoop = lastBranch_ + 1 == records_.size() && loopForm_ != nullptr;
  if (!closesLoop) emit(makeRecord(&jumpBackStep));
  if (records_.failed()) return;
  const uint32_t index = records_.size() - 1;
  if (closesLoop) records_[index].run = loopForm_;
  records_[index].d = siteAddress(jump.site);
  links_.append({index, jump.block, true});
}

void Selector::selectEnd(const Operation& end) {
  if (end.kind == Kind::Clock) {
    forgetRegisters();
    Record clock = makeRecord(&clockStep);
    clock.site = end.site;
    emit(clock);
    return;
  }
  Record record = makeRecord(end.site->call->caller == nullptr ? &finishStep : &stopStep);
  record.site = end.site;
  record.x = end.first;
  emit(record);
}

// Aggregates --------------------------------------------------------------------------------------

void Selector::selectMember(const Operation& member) {
  const bool based = member.steps != nullptr;
  Record record = {};
  record.a = addressOf(member.place);
  record.x = member.first;
  record.y = member.size;
  record.size = member.words;
  if (based) {
    record.b = memory(member.in[0]);
    record.z = member.steps[0].stride;
  }
  produceWords(record, memberSteps(member.words, based), member.words);
}

// False when memory is short.
bool Selector::setLimits(const Operation& element, Record& record) {
  if (element.count == 0) return true;
  auto* limits = arena_.allocate<ElementLimits>();
  if (limits == nullptr) return false;
  *limits = {element.count, element.size, 0, nullptr};
  if (element.steps != nullptr) {
    limits->baseStride = element.steps[0].stride;
    limits->base = memory(element.in[1]);
  }
  record.c = reinterpret_cast<const uint32_t*>(limits);
  return true;
}

// A read of an element, or only the check of its index.
void Selector::selectReadElement(const Operation& element) {
  Record record = {};
  record.a = addressOf(element.place);
  record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
  record.y = element.stride;
  record.z = element.first;
  record.size = element.words;
  record.site = element.site;
  if (!setLimits(element, record)) return;
  const bool inWord = takeIndex(element.in[0], record);
  if (element.kind == Kind::CheckIndex) {
    record.run = checkIndexStep(inWord);
    emit(record);
    return;
  }
  produceWords(record, elementSteps(element.words, inWord), element.words);
}

// Several indices come from memory.
void Selector::selectDeepStore(const Operation& store, PartLimits& limits) {
  const bool inBlock = store.kind == Kind::StorePart;
  Record record = makeRecord(inBlock ? &storeDeepPartStep : &storeDeepWordsStep);
  for (uint32_t k = 0; k < store.count; ++k) limits.index[k] = memory(store.in[1 + k]);
  record.a = memory(store.in[0]);
  if (!inBlock) claimWritten(store);
  record.c = reinterpret_cast<const uint32_t*>(&limits);
  record.d = addressOf(store.place);
  record.x = store.first;
  record.size = store.n;
  emit(record);
}

void Selector::selectPartStore(const Operation& store) {
  const uint32_t n = store.n;
  auto* limits = arena_.allocate<PartLimits>();
  if (limits == nullptr) return;
  limits->bytes = store.size;
  limits->bytesStride = store.stride;
  limits->count = store.count;
  for (uint32_t k = 0; k < store.count; ++k) limits->steps[k] = store.steps[k];
  if (store.count > 1) return selectDeepStore(store, *limits);
  Record record = {};
  const bool inRegister =
      n <= 4 && Selector::inRegister(store.in[0], n == 1 ? Register::Scalar : Register::Vector, n);
  if (!inRegister) record.a = memory(store.in[0]);
  IndexSource source = IndexSource::None;
  if (store.count == 1) {
    source = takeIndex(store.in[1], record) ? IndexSource::Word : IndexSource::Memory;
    record.y = store.steps[0].stride;
    record.z = store.steps[0].bound;
  }
  const bool inBlock = store.kind == Kind::StorePart;
  if (!inBlock) claimWritten(store);
  record.run = storePartStep(inBlock, source, n, inRegister);
  record.c = reinterpret_cast<const uint32_t*>(limits);
  record.d = addressOf(store.place);
  record.x = store.first;
  record.size = n;
  emit(record);
}

// A load at run-time indices, of which the first is checked.
void Selector::selectLoadIndexed(const Operation& load) {
  const form::IndexStep& step = load.steps[0];
  Record record = {};
  record.a = addressOf(load.place) + load.first / sizeof(uint32_t);
  record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
  record.y = step.stride;
  record.z = step.bound == 0 ? UINT32_MAX : step.bound;
  record.size = load.words;
  record.site = load.site;
  const bool isPlanned = load.n > 1 || step.add != 0 || step.mask != UINT32_MAX;
  if (isPlanned) {
    auto* plan = arena_.allocate<IndexPlan>();
    if (plan == nullptr) return;
    const bool hasBase = load.n > 1;
    *plan = {step.add, step.mask, hasBase ? load.steps[1].stride : 0,
             hasBase ? memory(load.in[1]) : &step.add};
    record.c = reinterpret_cast<const uint32_t*>(plan);
  }
  const bool inWord = takeIndex(load.in[0], record);
  produceWords(record, indexedSteps(load.words, inWord, isPlanned), load.words);
}

void Selector::selectCheckBound(const Operation& check) {
  Record record = {};
  record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
  record.z = check.steps[0].bound;
  record.site = check.site;
  record.run = checkBoundStep(takeIndex(check.in[0], record));
  emit(record);
}

void Selector::selectCopyWords(const Operation& copy) {
  claimWritten(copy);
  Record record = makeRecord(&copyWordsStep);
  record.a = addressOf(copy.other) + copy.first / sizeof(uint32_t);
  record.d = addressOf(copy.place);
  record.x = copy.count;
  if (copy.steps != nullptr) {
    record.run = &copyIndexedStep;
    record.b = memory(copy.in[0]);
    record.y = copy.steps[0].stride;
  }
  emit(record);
}

// Null for all of an aggregate.
const uint32_t* Selector::partSource(const Operation& copy, uint32_t bytes) {
  if (bytes == 0) return nullptr;
  auto* part = arena_.allocate<PartSource>();
  if (part == nullptr) return nullptr;
  *part = {copy.first, bytes, 0, nullptr};
  if (copy.steps != nullptr) {
    part->stride = copy.steps[0].stride;
    part->index = memory(copy.in[0]);
  }
  return reinterpret_cast<const uint32_t*>(part);
}

// What blocks are asked for, and what may have to ask for one.
void Selector::selectStorage(const Operation& effect) {
  Record record = {};
  record.site = effect.site;
  if (effect.kind == Kind::FillStorage) record.c = partSource(effect, effect.count);
  forgetRegisters();
  claimWritten(effect);
  switch (effect.kind) {
    case Kind::OpenStorage:
      claim(effect.other, UINT32_MAX);
      record.run = &openStorageStep;
      record.d = addressOf(effect.other);
      record.a = addressOf(effect.place) - sizeof(FixedBlock) / sizeof(uint32_t);
      record.x = form_.storageAt(effect.place).bytes;
      break;
    case Kind::FillStorage:
      record.run = &fillStorageStep;
      record.d = addressOf(form_.storageAt(effect.place).slot);
      record.a = addressOf(effect.other);
      record.b = addressOf(effect.place);
      break;
    case Kind::ReserveStorage:
      record.run = &reserveStep;
      record.x = effect.count;
      break;
    default:
      record.run = &renewStep;
      record.d = addressOf(effect.place);
      record.x = effect.size;
      break;
  }
  emit(record);
}

void Selector::claimWritten(const Operation& operation) {
  const form::Written written = writtenBy(operation);
  for (Place p = written.place; p < written.end; ++p) claim(p, written.words);
}

void Selector::selectReference(const Operation& effect) {
  claimWritten(effect);
  Record record = {};
  record.d = addressOf(effect.place);
  record.site = effect.site;
  if (effect.kind == Kind::ClearSlot || effect.kind == Kind::ReleaseSlot) {
    record.run = effect.kind == Kind::ClearSlot ? &clearSlotStep : &releaseSlotStep;
    emit(record);
    return;
  }
  if (effect.kind == Kind::InitLocals) {
    forgetRegisters();
    record.run = &initLocalsStep;
    record.x = effect.count;
    record.y = effect.first;
    emit(record);
    return;
  }
  record.a = addressOf(effect.other);
  if (effect.kind == Kind::ShareView) {
    record.run = &shareViewStep;
    record.x = effect.size;
    record.y = effect.first;
    record.site = nullptr;
    if (effect.steps != nullptr) {
      record.b = memory(effect.in[0]);
      record.z = effect.steps[0].stride;
    }
    emit(record);
  } else if (effect.kind == Kind::MoveSlot) {
    // The whole slot, with its reference, which its old place gives up.
    record.run = &copyWordsStep;
    record.a -= 2;
    record.d -= 2;
    record.x = sizeof(ValueSlot) / sizeof(uint32_t);
    emit(record);
    Record clear = makeRecord(&clearSlotStep);
    clear.d = addressOf(effect.other);
    emit(clear);
  } else {
    record.run = effect.kind == Kind::CopyBlock ? &copyBlockStep : &storeBlockStep;
    // Before the registers are forgotten: one of them may have the index, for the last time.
    if (effect.kind == Kind::CopyBlock) record.c = partSource(effect, effect.size);
    forgetRegisters();
    emit(record);
  }
}

// The host and the plain handlers -----------------------------------------------------------------

void Selector::selectHost(const Operation& ask) {
  forgetRegisters();
  claim(ask.place, UINT32_MAX);
  Record record = {};
  record.site = ask.site;
  record.x = ask.first;
  uint32_t* slot = addressOf(ask.place);
  if (ask.kind == Kind::HostAggregate) {
    record.d = slot;
    record.run = &hostAggregateStep;
    emit(record);
    return;
  }
  if (ask.kind == Kind::HostBuiltin) {
    record.run = &hostBuiltinStep;
    record.d = slot;
    record.y = ask.count;
    const uint32_t index = emit(record);
    liveAt(now_, ask.place, 0);
    registers_[static_cast<unsigned>(Register::Vector)] = {now_, index, 4, false};
    return;
  }
  record.a = slot;
  // The host's words stay in the slot when nobody wants them elsewhere.
  if (values_[now_].home == kNone) liveAt(now_, ask.place, 0);
  if (ask.words > 4) {
    selectWideHost(ask, record);
  } else {
    produceWords(record, hostVariableSteps(ask.words), ask.words);
  }
}

// More words than a register has are in the slot itself, and copied from there.
void Selector::selectWideHost(const Operation& ask, Record record) {
  record.run = hostVariableSteps(ask.words).keep;
  emit(record);
  values_[now_].home = kNone;
  if (values_[now_].address == nullptr) liveAt(now_, ask.place, 0);
}

void Selector::selectPlain(const Operation& plain) {
  forgetRegisters();
  Record record = makeRecord(plain.kind == Kind::PlainCall ? &plainCallStep : &plainStep);
  record.site = plain.site;
  emit(record);
}

}  // namespace shadermachine::engine
