#include "engine/selector.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

namespace shadermachine::engine {

using form::kFirstIndexPlace;
using form::kFirstScratchPlace;
using form::kPlaceWords;

namespace {

// A read of four words at the last constant, or of a matrix, must stay inside the pool.
constexpr uint32_t kPadding = 16;

// Operations between a value and the store that its record can take the place of.
constexpr uint32_t kFarthest = 64;

// Operations that leave no record behind, whoever uses their values.
bool isSilent(Kind kind) {
  return kind == Kind::Nothing || kind == Kind::Constant || kind == Kind::RunWord ||
         kind == Kind::Load;
}

}  // namespace

Selector::Selector(const form::Form& form, form::Arena& arena, Machine& machine)
    : form_(form), arena_(arena), machine_(machine) {}

// Analysis ----------------------------------------------------------------------------------------

bool Selector::start() {
  for (uint32_t i = 0; i < form_.operations.size(); ++i) {
    values_.append({0, 0, nullptr, kNone, 0, kNone, 0, 0, kNone, 0, 0, kNone, false});
  }
  for (uint32_t p = 0; p < form_.placeCount(); ++p) places_.append({kNone, 0});
  const uint32_t scratchPlaces = form_.firstStorage == UINT32_MAX
                                     ? form_.scratchPlaces
                                     : form_.firstStorage - kFirstScratchPlace;
  scratchPlaces_ = arena_.allocate<uint32_t>(size_t{scratchPlaces} * kPlaceWords + kPadding);
  constants_ = arena_.allocate<uint32_t>(size_t{form_.constants.size()} + kPadding);
  startStorages();
  if (values_.failed() || places_.failed() || storagePlaces_.failed() || arena_.failed()) {
    return false;
  }
  if (form_.constants.size() > 0) {
    std::memcpy(constants_, &form_.constants[0], form_.constants.size() * sizeof(uint32_t));
  }
  return true;
}

// Each storage's words lie in a fixed block.
void Selector::startStorages() {
  for (uint32_t k = 0; k < form_.storages.size(); ++k) {
    const form::Storage& storage = form_.storages[k];
    if (!storage.isUsable) continue;
    const size_t data = storage.bytes + kPadding * sizeof(uint32_t);
    auto* block = arena_.allocate<FixedBlock>(1 + data / sizeof(FixedBlock) + 1);
    if (block == nullptr) return;
    auto* words = reinterpret_cast<uint32_t*>(block + 1);
    for (Place p = storage.first; p < storage.first + storage.count; ++p) {
      storagePlaces_.append(words);
      words += form_.wordsOf(p);
    }
  }
}

// Uses, and which operations the record of their only user can take along: those that nothing with
// a record of its own stands between.
void Selector::analyseBlock(const form::Block& block) {
  Value previous = kNone;  // the last operation with a record
  for (uint32_t i = block.begin; i < block.end; ++i) {
    const Operation& user = operation(i);
    const uint32_t operands = operandCount(user);
    for (uint32_t k = 0; k < operands; ++k) {
      ValueInfo& used = values_[user.in[k].value];
      ++used.uses;
      used.lastUse = i;
    }
  }
  for (uint32_t i = block.begin; i < block.end; ++i) {
    const Operation& user = operation(i);
    if (isSilent(user.kind)) continue;
    const uint32_t operands = operandCount(user);
    for (uint32_t k = 0; k < operands; ++k) {
      const Value value = user.in[k].value;
      if (value != previous || values_[value].uses != 1 || !joins(user, k, value)) continue;
      values_[value].joined = true;
      // What it reads is read here now.
      const Operation& inner = operation(value);
      const uint32_t innerOperands = operandCount(inner);
      for (uint32_t j = 0; j < innerOperands; ++j) {
        ValueInfo& read = values_[inner.in[j].value];
        read.lastUse = std::max(read.lastUse, i);
        if (!read.joined) continue;
        const Operation& innermost = operation(inner.in[j].value);
        for (uint32_t m = 0; m < operandCount(innermost); ++m) {
          ValueInfo& deep = values_[innermost.in[m].value];
          deep.lastUse = std::max(deep.lastUse, i);
        }
      }
      break;
    }
    previous = i;
  }
}

// True when the value's record can write the place's words instead of the store: between the two
// nobody reads the place, writes it, looks at it, has a reference there or leaves the block.
bool Selector::canMakeAt(Value value, uint32_t store) const {
  if (store - value > kFarthest) return false;
  const Operation& target = operation(store);
  const uint32_t words = writtenBy(target).words;
  for (uint32_t i = value + 1; i < store; ++i) {
    const Operation& between = operation(i);
    if (between.kind == Kind::Branch || form::isSeen(between.kind)) return false;
    if (between.kind == Kind::Load && between.place == target.place) return false;
    if (form::touchesReference(between, target.place)) return false;
    if (form::readBy(between).has(target.place)) return false;
    const form::Written written = writtenBy(between);
    if (written.place <= target.place && target.place < written.end &&
        (written.words & words) != 0) {
      return false;
    }
    const uint32_t operands = operandCount(between);
    for (uint32_t k = 0; k < operands; ++k) {
      const Value read = between.in[k].value;
      const Operation& made = operation(read);
      const bool loaded = made.kind == Kind::Load && made.place == target.place;
      if (loaded || (values_[read].home == target.place && read != value)) return false;
    }
  }
  return true;
}

void Selector::chooseHomes(const form::Block& block) {
  for (uint32_t i = block.begin; i < block.end; ++i) {
    const Operation& store = operation(i);
    if (store.kind != Kind::Store) continue;
    const Value value = store.in[0].value;
    ValueInfo& info = values_[value];
    const Operation& made = operation(value);
    if (info.home != kNone || info.joined || store.in[0].first != 0 || made.words != store.n) {
      continue;
    }
    if (isSilent(made.kind) || made.kind == Kind::HostBuiltin) continue;
    // Three components are written as four words.
    if (store.n == 3 && !store.spare) continue;
    if (!canMakeAt(value, i)) continue;
    info.home = store.place;
    info.homeWord = store.first;
    info.homeStore = i;
  }
}

// No value has been written home before its store into a slot whose reference the operation uses.
bool Selector::keepsReferences(const Operation& operation) const {
  const Value oldest = now_ > kFarthest ? now_ - kFarthest : 0;
  for (Value v = oldest; v < now_; ++v) {
    const ValueInfo& info = values_[v];
    const bool early = info.home != kNone && info.homeStore > now_;
    if (early && form::touchesReference(operation, info.home)) return false;
  }
  return true;
}

// Where values are --------------------------------------------------------------------------------

uint32_t* Selector::addressOf(Place place, uint32_t word) {
  if (place < kFirstIndexPlace) return machine_.stack[place].value.words + word;
  if (place < kFirstScratchPlace) return &machine_.indexStack[place - kFirstIndexPlace];
  if (place >= form_.firstStorage) return storagePlaces_[place - form_.firstStorage] + word;
  return scratchPlaces_ + size_t{place - kFirstScratchPlace} * kPlaceWords + word;
}

bool Selector::inRegister(Operand operand, Register which, uint32_t n) const {
  if (which == Register::None || operand.first != 0) return false;
  const RegisterState& held = registers_[static_cast<unsigned>(which)];
  return held.value == operand.value && held.width >= n;
}

// Words that live as long as the block's values do.
uint32_t* Selector::scratch(uint32_t n) {
  constexpr uint32_t kPoolWords = 1024;
  const uint32_t words = (n + 3) & ~3u;
  if (poolFree_ < words) {
    pool_ = arena_.allocate<uint32_t>(kPoolWords + kPadding);
    if (pool_ == nullptr) return machine_.stack[0].value.words;  // the selection has failed
    poolFree_ = kPoolWords;
  }
  uint32_t* result = pool_ + (kPoolWords - poolFree_);
  poolFree_ -= words;
  return result;
}

void Selector::settle(RegisterState& held) {
  if (!held.pending) return;
  ValueInfo& info = values_[held.value];
  if (info.address == nullptr) info.address = scratch(operation(held.value).words);
  const uint32_t record = held.record;
  records_[record].run = storing_[record];
  records_[record].d = info.address;
  // A record can have filled two registers.
  for (RegisterState& other : registers_) {
    if (other.record == record && other.value == held.value) other.pending = false;
  }
}

// The operand's words in memory.
const uint32_t* Selector::memory(Operand operand) {
  for (RegisterState& held : registers_) {
    if (held.value == operand.value) settle(held);
  }
  const Operation& made = operation(operand.value);
  if (made.kind == Kind::Constant) return constants_ + made.first + operand.first;
  if (made.kind == Kind::RunWord) {
    const auto* fields = reinterpret_cast<const uint8_t*>(static_cast<ShaderMachine*>(&machine_));
    return objectAt<uint32_t>(fields + made.first);
  }
  assert(values_[operand.value].address != nullptr);  // else nobody has stored it, nor will
  return values_[operand.value].address + operand.first;
}

void Selector::clobber(Register which) {
  RegisterState& held = registers_[static_cast<unsigned>(which)];
  if (held.value != kNone && held.pending && isUsedLater(held.value)) settle(held);
  held = {kNone, 0, 0, false};
}

void Selector::forgetRegisters() {
  clobber(Register::Word);
  clobber(Register::Scalar);
  clobber(Register::Vector);
}

void Selector::liveAt(Value value, Place place, uint32_t word) {
  ValueInfo& info = values_[value];
  info.address = addressOf(place, word);
  info.place = place;
  info.first = word;
  PlaceInfo& here = placeInfo(place);
  info.nextHere = here.values;
  here.values = value;
}

// Gives a value whose place is about to change another one.
void Selector::moveAway(Value value) {
  ValueInfo& info = values_[value];
  const uint32_t n = operation(value).words;
  bool pending = false;
  for (const RegisterState& held : registers_) {
    pending = pending || (held.value == value && held.pending);
  }
  // A pending value is written where it was made: before the copy's place was its own.
  if (!pending && info.copy != kNone && info.copy != info.place &&
      placeInfo(info.copy).version == info.copyVersion) {
    return liveAt(value, info.copy, info.copyWord);
  }
  uint32_t* to = scratch(n);
  if (!pending) {
    Record copy = {};
    copy.a = info.address;
    copy.d = to;
    copy.x = n;
    copy.run = n <= 4 ? copyStep(n, false) : &copyWordsStep;
    emit(copy);
  }
  info.address = to;
  info.place = kNone;
}

// Before words of a place change: values that lie there and are still used go elsewhere.
void Selector::claim(Place place, uint32_t words) {
  PlaceInfo& info = placeInfo(place);
  ++info.version;
  Value value = info.values;
  info.values = kNone;
  while (value != kNone) {
    const Value next = values_[value].nextHere;
    if (isUsedLater(value) && values_[value].place == place) {
      if ((form::wordMask(values_[value].first, operation(value).words) & words) != 0) {
        moveAway(value);
      } else {
        values_[value].nextHere = info.values;
        info.values = value;
      }
    }
    value = next;
  }
}

// Records -----------------------------------------------------------------------------------------

uint32_t Selector::emit(const Record& record) {
  records_.append(record);
  origins_.append(now_);
  storing_.append(nullptr);
  compared_.append(kNone);
  return records_.size() - 1;
}

// Decides where the value of the current operation will be when it is in memory: in its home, else
// where `otherwise` says, else undecided (null).
uint32_t* Selector::claimHome(uint32_t* otherwise) {
  ValueInfo& info = values_[now_];
  if (info.home != kNone) {
    const uint32_t n = operation(now_).words;
    claim(info.home, form::wordMask(info.homeWord, n == 3 ? 4 : n));
    liveAt(now_, info.home, info.homeWord);
  } else {
    info.address = otherwise;
  }
  return info.address;
}

void Selector::produce(Record record, StepPair steps, Register result, uint32_t* otherwise) {
  if (values_[now_].address == nullptr) claimHome(otherwise);
  clobber(result);
  record.run = steps.keep;
  const uint32_t index = emit(record);
  if (records_.failed() || storing_.failed()) return;
  storing_[index] = steps.store;
  registers_[static_cast<unsigned>(result)] = {now_, index, operation(now_).words, true};
}

// A part of unknown kind: one word goes to both registers that hold one, up to four go to the
// vector register, more to memory.
void Selector::produceWords(Record record, StepPair steps, uint32_t n, uint32_t* otherwise) {
  if (n > 4) {
    record.run = steps.keep;
    return produceInMemory(record, otherwise);
  }
  if (n > 1) return produce(record, steps, Register::Vector, otherwise);
  clobber(Register::Word);
  produce(record, steps, Register::Scalar, otherwise);
  registers_[static_cast<unsigned>(Register::Word)] =
      registers_[static_cast<unsigned>(Register::Scalar)];
}

void Selector::produceInMemory(Record record, uint32_t* otherwise) {
  uint32_t* address = claimHome(otherwise);
  if (address == nullptr) address = values_[now_].address = scratch(operation(now_).words);
  record.d = address;
  emit(record);
}

// Blocks ------------------------------------------------------------------------------------------

void Selector::selectBlock(const form::Block& block) {
  for (RegisterState& held : registers_) held = {kNone, 0, 0, false};
  comparison_ = lastBranch_ = kNone;
  blockEnd_ = block.end;
  analyseBlock(block);
  chooseHomes(block);
  for (now_ = block.begin; now_ < block.end && !records_.failed(); ++now_) {
    if (now_ >= skipUntil_ && !values_[now_].joined) selectOperation(operation(now_));
  }
  // Values end with the block; so does their scratch memory.
}

void Selector::selectOperation(const Operation& operation) {
  assert(keepsReferences(operation));
  switch (operation.kind) {
    case Kind::Nothing:
    case Kind::Constant:
    case Kind::RunWord:
      return;
    case Kind::Load:
      return liveAt(now_, operation.place, operation.first);
    case Kind::Store:
      return selectStore(operation);
    case Kind::Compose:
      return selectCompose(operation);
    case Kind::Operate:
      return selectOperate(operation);
    case Kind::Element:
      return selectElement(operation);
    case Kind::Column:
      return selectColumn(operation);
    case Kind::ReadMember:
      return selectMember(operation);
    case Kind::ReadElement:
    case Kind::CheckIndex:
      return selectReadElement(operation);
    case Kind::StorePart:
    case Kind::StoreIndexed:
      return selectPartStore(operation);
    case Kind::LoadIndexed:
      return selectLoadIndexed(operation);
    case Kind::CheckBound:
      return selectCheckBound(operation);
    case Kind::CopyWords:
      return selectCopyWords(operation);
    case Kind::OpenStorage:
    case Kind::ReserveStorage:
    case Kind::FillStorage:
    case Kind::Renew:
      return selectStorage(operation);
    case Kind::HostVariable:
    case Kind::HostAggregate:
    case Kind::HostBuiltin:
      return selectHost(operation);
    case Kind::Plain:
    case Kind::PlainCall:
      return selectPlain(operation);
    case Kind::Branch:
      return selectBranch(operation);
    case Kind::Jump:
    case Kind::JumpBack:
      return selectJump(operation);
    case Kind::Clock:
    case Kind::Finish:
    case Kind::Stop:
      return selectEnd(operation);
    default:
      return selectReference(operation);
  }
}

const Record* Selector::select() {
  if (!start()) return nullptr;
  for (uint32_t b = 0; b < form_.blocks.size(); ++b) {
    blockStarts_.append(records_.size());
    selectBlock(form_.blocks[b]);
  }
  return link();
}

// Jumps get the addresses of their targets.
const Record* Selector::link() {
  if (records_.failed() || origins_.failed() || storing_.failed() || blockStarts_.failed() ||
      compared_.failed() || links_.failed() || arena_.failed()) {
    return nullptr;
  }
  Record* records = arena_.allocate<Record>(records_.size());
  if (records == nullptr) return nullptr;
  std::memcpy(static_cast<void*>(records), records_.data(), records_.size() * sizeof(Record));
  for (uint32_t i = 0; i < links_.size(); ++i) {
    const Link& link = links_[i];
    const uint32_t start = blockStarts_[form_.order[link.target]];
    const Record* to = records + start;
    if (link.back) {
      records[link.record].c = reinterpret_cast<const uint32_t*>(to);
      shortenLoop(records, link.record, start);
    } else {
      records[link.record].target = to;
    }
  }
  return records;
}

// A jump back to a comparison compares at once; an increment before a jump back jumps itself. The
// records that are passed over stay as they are: others may jump to them.
void Selector::shortenLoop(Record* records, uint32_t jump, uint32_t start) const {
  Record& back = records[jump];
  const bool tests = compared_[jump] == kNone;
  const uint32_t opcode = compared_[tests ? start : jump];
  if (opcode == kNone) return;
  const KernelForms& forms = kernelForms(opcode);
  if (tests) {
    back.run = forms.jumpsAndTests;
    // A block's first record has its operands in memory.
    back.a = records[start].a;
    back.b = records[start].b;
  }
  if (jump == 0) return;
  Record& count = records[jump - 1];
  const Opcode increment = forms.argument == Register::Word ? Opcode::INC_I : Opcode::INC_F;
  const bool increments = count.run == kernelForms(static_cast<unsigned>(increment)).steps[0][0][1];
  // The increment's register is the comparison's left operand, or its place.
  const bool isCompared = tests ? count.d == back.a : back.run == forms.loops[1];
  if (increments && isCompared) count.run = tests ? forms.countsAndTests : forms.countsAndLoops;
}

}  // namespace shadermachine::engine
