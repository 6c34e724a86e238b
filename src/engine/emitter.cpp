#include "engine/emitter.h"

namespace shadermachine::engine {
namespace {

constexpr uint32_t kPoolWords = 512;
// A read of four words at the last constant, or of a matrix, must stay inside the pool.
constexpr uint32_t kPoolPadding = 16;

}  // namespace

Emitter::Emitter(Arena& arena, Machine& machine)
    : arena_(arena),
      machine_(machine),
      // One more than the stack has: the selection of a record may push an entry for a moment.
      entries_(arena.allocate<Entry>(static_cast<size_t>(machine.stackCapacity) + 1)) {}

Record* Emitter::finish() {
  Record* result = arena_.allocate<Record>(records_.size());
  if (result == nullptr || failed()) return nullptr;
  std::memcpy(static_cast<void*>(result), records_.data(), records_.size() * sizeof(Record));
  return result;
}

// Stack -------------------------------------------------------------------------------------------

void Emitter::setHome(int32_t s, uint32_t width, bool block) {
  forgetSlot(s);
  entries_[s] = {home(s), nullptr, static_cast<uint8_t>(width), block, false, false, 0, 0, 0};
}

const uint32_t* Emitter::constant(const uint32_t* words, uint32_t n) {
  if (constants_ == nullptr || constantsFree_ < n) {
    constants_ = arena_.allocate<uint32_t>(kPoolWords + kPoolPadding);
    if (constants_ == nullptr) return indexHome(0);  // the translation has failed
    constantsFree_ = kPoolWords;
  }
  uint32_t* result = constants_ + (kPoolWords - constantsFree_);
  std::memcpy(result, words, n * sizeof(uint32_t));
  constantsFree_ -= n;
  return result;
}

void Emitter::pushConstant(const uint32_t* words, uint32_t n) {
  setHome(++top, n);
  topEntry().address = constant(words, n);
  topEntry().constant = true;
}

// Registers ---------------------------------------------------------------------------------------

bool Emitter::inRegister(const Entry& entry, Register which, uint32_t n) const {
  if (which == Register::None) return false;
  const RegisterState& held = registers_[static_cast<unsigned>(which)];
  return held.address == entry.address && held.address != nullptr && held.width >= n;
}

void Emitter::settle(RegisterState& held) {
  if (!held.pending) return;
  const uint32_t index = held.producer;
  records_[index].run = stores_[index];
  records_[index].d = const_cast<uint32_t*>(held.address);
  // A record can have filled two registers.
  for (RegisterState& other : registers_) {
    if (other.producer == index) other.pending = false;
  }
}

void Emitter::settleRange(const uint32_t* address, uint32_t n) {
  for (RegisterState& held : registers_) {
    if (held.pending && address < held.address + held.width && held.address < address + n) {
      settle(held);
    }
  }
}

const uint32_t* Emitter::memory(const Entry& entry, uint32_t n) {
  settleRange(entry.address, n);
  return entry.address;
}

bool Emitter::isLive(const RegisterState& held) const {
  const auto inside = [&](const Entry& entry) {
    return !entry.lazyView && entry.address >= held.address &&
           entry.address < held.address + held.width;
  };
  for (int32_t s = 0; s <= top; ++s) {
    if (inside(entries_[s])) return true;
  }
  for (int32_t i = 0; i <= indexTop; ++i) {
    if (inside(indices_[i])) return true;
  }
  return false;
}

void Emitter::clobber(Register which) {
  RegisterState& held = state(which);
  if (held.pending && isLive(held)) settle(held);
  held = {};
}

void Emitter::claim(Register which, const uint32_t* address, uint32_t producer, uint32_t n) {
  state(which) = {address, producer, n, true};
}

void Emitter::forgetRegisters() {
  clobber(Register::Word);
  clobber(Register::Scalar);
  clobber(Register::Vector);
}

void Emitter::forgetRange(const uint32_t* address, uint32_t n) {
  const auto forget = [&](RegisterState& held) {
    const bool within = held.address != nullptr && address < held.address + held.width &&
                        held.address < address + n;
    if (within) held = {};
  };
  for (RegisterState& held : registers_) forget(held);
  forget(previous_);
}

bool Emitter::moveHome(Entry& entry, uint32_t* newHome) {
  const uint32_t* old = entry.address;
  bool moved = false;
  for (RegisterState& held : registers_) {
    if (!held.pending || held.address != old) continue;
    // An earlier record would store before those behind it have read what lies there now.
    if (held.producer + 1 != records_.size()) return false;
    if (!moved && isLive(held)) return false;
    held.address = newHome;
    moved = true;
  }
  if (moved) entry.address = newHome;
  return moved;
}

// Entries -----------------------------------------------------------------------------------------

bool Emitter::refersTo(const Entry& entry, int32_t s) const {
  const uint32_t* begin = machine_.stack[s].value.words;
  return !entry.lazyView && entry.address >= begin && entry.address < begin + VM_COMPONENT_COUNT;
}

void Emitter::demandAll(const Entry& entry) {
  if (entry.narrowedBy == nullptr) return;
  entry.narrowedBy->keepsWords = true;
  retry_ = true;
}

void Emitter::evict(int32_t s, int32_t except) {
  for (int32_t t = 0; t <= top && t < except; ++t) {
    if (t != s && refersTo(entries_[t], s)) flushSlot(t);
  }
  // A lazily loaded view names its variable, not its words.
  for (int32_t t = 0; t <= top && t < except; ++t) {
    if (entries_[t].lazyView && entries_[t].viewSlot == static_cast<uint32_t>(s)) flushSlot(t);
  }
  for (int32_t i = 0; i <= indexTop; ++i) {
    if (refersTo(indices_[i], s)) flushIndex(i);
  }
}

void Emitter::copyTo(const Entry& entry, uint32_t* to, bool exact) {
  const uint32_t n = entry.width;
  if (n == 0) return;
  Record copy = {};
  copy.d = to;
  if (n == 1 && inRegister(entry, Register::Word, 1)) {
    copy.run = storeStep(true, false, 1, exact);
  } else if (n == 1 && inRegister(entry, Register::Scalar, 1)) {
    copy.run = storeStep(false, true, 1, exact);
  } else if (n > 1 && n <= 4 && inRegister(entry, Register::Vector, n)) {
    copy.run = storeStep(false, false, n, exact);
  } else {
    copy.a = memory(entry, n);
    copy.x = n;
    copy.run = n <= 4 ? copyStep(n, exact) : &copyWordsStep;
  }
  emit(copy);
}

void Emitter::flushSlot(int32_t s) {
  Entry& entry = entries_[s];
  demandAll(entry);
  if (entry.lazyView) {
    Record share = {};
    share.run = &shareViewStep;
    share.d = home(s);
    share.a = home(static_cast<int32_t>(entry.viewSlot));
    share.x = entry.viewSize;
    share.y = entry.viewOffset;
    emit(share);
    setHome(s, VM_COMPONENT_COUNT, true);
    return;
  }
  if (entry.address == home(s)) {
    settleRange(entry.address, entry.width == 0 ? 1 : entry.width);
    return;
  }
  evict(s, INT32_MAX);
  copyTo(entry, home(s), false);
  setHome(s, entry.width, entry.block);
}

void Emitter::flushIndex(int32_t i) {
  Entry& entry = indices_[i];
  if (entry.address == indexHome(i)) return settleRange(entry.address, 1);
  copyTo(entry, indexHome(i), false);
  forgetRange(indexHome(i), 1);
  entry.address = indexHome(i);
  entry.constant = false;
}

void Emitter::flush() {
  for (int32_t s = 0; s <= top; ++s) flushSlot(s);
  flushIndices();
}

void Emitter::flushIndices() {
  for (int32_t i = 0; i <= indexTop; ++i) flushIndex(i);
}

// Records -----------------------------------------------------------------------------------------

uint32_t Emitter::emit(const Record& record) {
  const uint32_t index = records_.size();
  records_.append(record);
  stores_.append(nullptr);
  branches_.append(nullptr);
  return index;
}

void Emitter::prepareHome(int32_t s, int32_t firstOperand) { evict(s, firstOperand); }

void Emitter::produce(Record record, StepPair steps, Register result, uint32_t n, int32_t s) {
  top = s - 1;
  previous_ = state(result);
  // What was dropped unwritten is in no memory that could be read again.
  if (previous_.pending && !isLive(previous_)) previous_ = {};
  previous_.pending = false;
  clobber(result);
  record.run = steps.keep;
  const uint32_t index = emit(record);
  if (failed()) return;
  stores_[index] = steps.store;
  branches_[index] = nextBranch;
  nextBranch = nullptr;
  top = s;
  setHome(s, n);
  claim(result, home(s), index, n);
}

void Emitter::produceWord(const Record& record, StepPair steps, int32_t s) {
  top = s - 1;
  clobber(Register::Word);
  produce(record, steps, Register::Scalar, 1, s);
  if (failed()) return;
  claim(Register::Word, home(s), records_.size() - 1, 1);
}

void Emitter::produceWords(Record record, StepPair steps, uint32_t n, int32_t s) {
  if (n == 1) return produceWord(record, steps, s);
  if (n <= 4) return produce(record, steps, Register::Vector, n, s);
  record.run = steps.keep;
  produceInMemory(record, n, s);
}

void Emitter::holdVector(const Entry& entry, uint32_t n) {
  clobber(Register::Vector);
  state(Register::Vector) = {entry.address, records_.size() - 1, n, false};
}

void Emitter::produceInMemory(Record record, uint32_t n, int32_t s) {
  record.d = home(s);
  emit(record);
  top = s;
  setHome(s, n);
}

bool Emitter::takeBack(const Entry& value, Register which, int32_t s, Record& record) {
  RegisterState& held = state(which);
  const bool fresh =
      held.pending && held.address == value.address && held.producer + 1 == records_.size();
  const int32_t before = top;
  top = s - 1;
  const bool named = fresh && isLive(held);
  top = before;
  if (!fresh || named) return false;
  record = records_.back();
  records_.removeLast();
  stores_.removeLast();
  branches_.removeLast();
  held = previous_;
  previous_ = {};
  return true;
}

void Emitter::storeTop(int32_t variable, uint32_t* address, uint32_t n, bool exact) {
  evict(variable, top);
  Entry value = topEntry();
  value.width = static_cast<uint8_t>(n);
  // A value that lies in the variable itself is read from there.
  if (refersTo(value, variable)) memory(value, n);
  pop();
  forgetRange(address, exact || n != 3 ? n : 4);
  // A value that the last record has left in a register is stored by that record.
  if (!(exact && n == 3) && isFreshResult(value, n) && moveHome(value, address)) {
    for (RegisterState& held : registers_) {
      if (held.address == address) settle(held);
    }
    return;
  }
  copyTo(value, address, exact);
  for (RegisterState& held : registers_) {
    if (held.address == value.address && held.width >= n && !isLive(held)) {
      held.address = address;
      held.pending = false;
      held.width = n;
    }
  }
}

bool Emitter::isFreshResult(const Entry& entry, uint32_t n) const {
  for (const RegisterState& held : registers_) {
    if (held.pending && held.address == entry.address && held.width == n &&
        held.producer + 1 == records_.size()) {
      return true;
    }
  }
  return false;
}

bool Emitter::fuseBranch(const Entry& condition) {
  RegisterState& held = state(Register::Word);
  if (!held.pending || held.address != condition.address) return false;
  if (held.producer + 1 != records_.size() || branches_[held.producer] == nullptr) return false;
  if (isLive(held)) return false;
  records_[held.producer].run = branches_[held.producer];
  held = {};
  return true;
}

const Site* Emitter::site(uint32_t pc, uint32_t opcode, int32_t slotTop) {
  Site* result = arena_.allocate<Site>();
  if (result == nullptr) return nullptr;
  *result = {call, pc, slotTop - static_cast<int32_t>(call->localsSlot), indexTop, opcode};
  return result;
}

const Site* Emitter::site(uint32_t pc, uint32_t opcode) { return site(pc, opcode, top); }

}  // namespace shadermachine::engine
