// Record selection: jumps, calls and returns, and instructions left to their plain handlers.

#include "engine/flow.h"
#include "engine/translator.h"

namespace shadermachine::engine {
namespace {

// Beyond these, calls are left to the plain handlers.
constexpr uint32_t kMaxRecords = 60000;

uint32_t* siteAddress(const Site* site) {
  return reinterpret_cast<uint32_t*>(const_cast<Site*>(site));
}

Record makeRecord(RecordHandler run) {
  Record record = {};
  record.run = run;
  return record;
}

}  // namespace

// Jumps -------------------------------------------------------------------------------------------

void Translator::linkTo(Instance& instance, uint32_t record, uint32_t pc, bool back) {
  // Targets were found by the decoder, so the search cannot miss.
  uint32_t low = 0;
  uint32_t high = instance.function->count;
  while (high - low > 1) {
    const uint32_t middle = (low + high) / 2;
    (instance.function->instructions[middle].pc <= pc ? low : high) = middle;
  }
  links_.append({record, low, back});
}

bool Translator::selectJump(Instance& instance, Instruction& item) {
  const uint32_t target = item.end + operandU32(instance.function->code, item.end - 4);
  const bool back = target <= item.end;
  out_.flush();
  instance.flowEnded = true;
  if (!back) {
    linkTo(instance, out_.emit(makeRecord(&jumpStep)), target);
    return true;
  }
  const bool closesLoop =
      !item.isTarget && lastBranch_.record + 1 == out_.recordCount() && lastBranch_.loop != nullptr;
  if (!closesLoop) out_.emit(makeRecord(&jumpBackStep));
  const uint32_t record = out_.recordCount() - 1;
  if (out_.failed()) return true;
  if (closesLoop) out_.record(record).run = lastBranch_.loop;
  out_.record(record).d = siteAddress(out_.site(target, 0));
  linkTo(instance, record, target, true);
  return true;
}

bool Translator::selectBranch(Instance& instance, Instruction& item) {
  if (!isReadable(out_.topEntry(), 1)) out_.flushSlot(out_.top);
  outgrown_ = outgrown_ || out_.topEntry().block;
  const uint32_t target = item.end + operandU32(instance.function->code, item.end - 4);
  const Entry condition = out_.topEntry();
  const bool backward = target <= item.end;
  out_.pop();
  if (condition.constant && *condition.address != 0) return true;
  // The branch keeps the condition's register through the records that bring the rest home.
  out_.flush();
  uint32_t branch = out_.recordCount() - 1;
  lastBranch_ = {UINT32_MAX - 1, nullptr};
  if (out_.fuseBranch(condition)) {
    if (!backward) lastBranch_ = {branch, loopForm_};
  } else {
    Record record = makeRecord(&branchMemoryStep);
    if (out_.inRegister(condition, Register::Word, 1)) {
      record.run = &branchWordStep;
    } else {
      record.a = out_.memory(condition, 1);
    }
    branch = out_.emit(record);
  }
  if (!backward) {
    linkTo(instance, branch, target);
    return true;
  }
  // Not taken: over the two records of the way back.
  targets_.append({branch, branch + 2, false});
  targets_.append({out_.emit(makeRecord(&jumpStep)), branch + 3, false});
  Record back = makeRecord(&jumpBackStep);
  back.d = siteAddress(out_.site(target, 0));
  linkTo(instance, out_.emit(back), target, true);
  return true;
}

// Long code looks at the clock without a jump, too.
void Translator::lookAtClock(const Instruction& item) {
  constexpr uint32_t kDistance = 1024;
  if (out_.recordCount() - lastClock_ < kDistance) return;
  out_.flush();
  out_.forgetRegisters();
  Record record = makeRecord(&clockStep);
  record.site = out_.site(item.pc, 0);
  lastClock_ = out_.emit(record);
}

// Plain handlers ----------------------------------------------------------------------------------

void Translator::selectPlain(Instance& instance, const Instruction& item) {
  const auto localCount = static_cast<int32_t>(instance.function->record->localCount);
  const int32_t base = static_cast<int32_t>(instance.call->localsSlot) + localCount;
  out_.flush();
  StackState state = {};
  state.count = item.count;
  state.indexDepth = item.indexDepth;
  for (uint32_t t = 0; t < state.count; ++t) {
    const Entry& entry = out_.slot(base + static_cast<int32_t>(t));
    state.widths[t] = entry.width;
    state.blockMask |= uint64_t{entry.block} << t;
  }
  const int32_t indexBefore = out_.indexTop;
  DecodedFunction scratch = *instance.function;
  FlowRules(decoder_, machine_).apply(scratch, item, state);

  const bool calls = item.opcode == Opcode::CALL;
  Record record = makeRecord(calls ? &plainCallStep : &plainStep);
  record.site = out_.site(item.pc + 1, static_cast<uint32_t>(item.opcode));
  out_.forgetRegisters();
  out_.emit(record);
  for (uint32_t t = 0; t < state.count; ++t) {
    out_.setHome(base + static_cast<int32_t>(t), state.widths[t],
                 ((state.blockMask >> t) & 1) != 0);
  }
  out_.top = base + state.count - 1;
  out_.indexTop = indexBefore + state.indexDepth - item.indexDepth;
  if (out_.indexTop > indexBefore && out_.indexTop < VM_INDEX_STACK_CAPACITY) {
    setIndexHome(out_.indexTop);
  }
}

void Translator::setIndexHome(int32_t i) {
  out_.index(i) = {};
  out_.index(i).address = out_.indexHome(i);
  out_.index(i).width = 1;
}

bool Translator::selectStop(Instance& instance, Instruction& item) {
  // After HALT the outputs are delivered: references lie where the plain handlers leave them.
  for (int32_t s = 0; s <= out_.top; ++s) {
    if (out_.slot(s).lazyView) out_.flushSlot(s);
  }
  out_.flushIndices();
  Record record = makeRecord(out_.call->caller == nullptr ? &finishStep : &stopStep);
  record.site = out_.site(item.end, 0);
  record.x = item.opcode == Opcode::DISCARD ? VM_ERR_DISCARDED : VM_ERR_HALTED;
  out_.emit(record);
  instance.flowEnded = true;
  return true;
}

// Calls -------------------------------------------------------------------------------------------

bool Translator::canInline(const Instance& caller, uint32_t function) const {
  if (inlineDepth_ >= kMaxCallDepth) return false;
  for (const Instance* at = &caller; at != nullptr; at = at->caller) {
    if (at->call->function == function) return false;
  }
  return true;
}

bool Translator::selectCall(Instance& instance, Instruction& item) {
  const uint32_t number = operandU16(instance.function->code, item.pc + 1);
  // Only the plain handlers keep the words of an argument that its parameter does not have.
  const bool plain = item.keepsWords || decoder_.isPlainCall(number) ||
                     !canInline(instance, number) || out_.recordCount() > kMaxRecords;
  const DecodedFunction* callee = plain ? nullptr : decoder_.decoded(number);
  if (callee == nullptr || callee->keepsIndices) return false;
  if (callee->order > instance.function->order) return false;
  const ShaderFunction& record = *callee->record;
  const int32_t locals = out_.top + 1 - record.paramCount;
  if (locals + record.localCount + static_cast<int32_t>(callee->maxTemporaries) >=
      machine_.stackCapacity) {
    return false;
  }
  for (uint32_t k = 0; k < record.paramCount; ++k) {
    const Entry& argument = out_.slot(locals + static_cast<int32_t>(k));
    if (isBasicVar(record.locals[k]) && (argument.block || argument.lazyView)) return false;
  }
  inlineCall(instance, item, *callee);
  return true;
}

void Translator::inlineCall(Instance& instance, Instruction& item, const DecodedFunction& callee) {
  const uint32_t function = operandU16(instance.function->code, item.pc + 1);
  auto* call = arena_.allocate<InlinedCall>();
  if (call == nullptr) return;
  const int32_t callerTop = out_.top;
  *call = {instance.call,
           function,
           static_cast<uint32_t>(out_.top + 1 - callee.record->paramCount),
           instance.call->frameIndex + 1,
           item.end,
           out_.top - static_cast<int32_t>(instance.call->localsSlot)};
  Instance inner = {&callee, call, &instance, nullptr, 0, false, false};
  const uint64_t cut = argumentsWithRest(inner);
  ++inlineDepth_;
  out_.call = call;
  enterLocals(inner);
  translateFunction(inner);
  out_.call = instance.call;
  --inlineDepth_;
  out_.top = callerTop;
  for (uint32_t k = 0; k < callee.record->paramCount; ++k) {
    Entry& argument = out_.slot(static_cast<int32_t>(call->localsSlot + k));
    if (((cut >> k) & 1) != 0 && argument.narrowedBy == nullptr) argument.narrowedBy = &item;
  }
}

// Bit k: argument k has words that its parameter has not; the callee's translation loses them.
uint64_t Translator::argumentsWithRest(const Instance& callee) {
  static_assert(kMaxTemporaries <= 64, "arguments are temporaries");
  const ShaderFunction& record = *callee.function->record;
  uint64_t result = 0;
  for (uint32_t k = 0; k < record.paramCount; ++k) {
    const Entry& argument = out_.slot(static_cast<int32_t>(callee.call->localsSlot + k));
    const bool hasRest =
        isBasicVar(record.locals[k]) &&
        (argument.width > variableWords(record.locals[k]) || argument.narrowedBy != nullptr);
    result |= uint64_t{hasRest} << k;
  }
  return result;
}

// Parameters stay as the caller left them; the other locals get their initial values.
void Translator::enterLocals(Instance& instance) {
  const ShaderFunction& record = *instance.function->record;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  // Nobody has given the entry function arguments.
  const int32_t params = instance.caller == nullptr ? 0 : record.paramCount;
  bool aggregate = false;
  bool wide = false;
  for (int32_t k = 0; k < record.localCount; ++k) {
    const VarInfo& info = record.locals[k];
    if (k < params) {
      Entry& argument = out_.slot(base + k);
      if (!isBasicVar(info)) {
        out_.flushSlot(base + k);
        out_.slot(base + k).block = true;
      } else if (argument.width >= variableWords(info)) {
        argument.width = static_cast<uint8_t>(variableWords(info));
        argument.narrowedBy = nullptr;
      }
      continue;
    }
    aggregate = aggregate || !isBasicVar(info);
    wide = wide || variableWords(info) > 4;
    out_.top = base + k;
    out_.evictAll(base + k);
    out_.setHome(base + k, isBasicVar(info) ? variableWords(info) : 0, !isBasicVar(info));
  }
  out_.top = base + record.localCount - 1;
  const uint32_t own = static_cast<uint32_t>(record.localCount - params);
  if (own == 0) return;
  Record init = makeRecord(aggregate ? &initLocalsStep
                           : wide    ? &zeroWideSlotsStep
                                     : &zeroSlotsStep);
  init.d = out_.home(base + params);
  init.x = own;
  if (aggregate) {
    init.y = static_cast<uint32_t>(params);
    init.site = out_.site(0, 0);
    out_.forgetRegisters();
  }
  out_.emit(init);
}

// Returns -----------------------------------------------------------------------------------------

void Translator::moveReturnValue(Instance& instance) {
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  const int32_t result = base - 1;
  const int32_t s = out_.top;
  // Nothing stands for the slot's old value any more, a register as little as another entry.
  out_.evictAll(result);
  out_.forgetSlot(result);
  Entry value = out_.topEntry();
  if (value.block || value.lazyView) {
    out_.flushSlot(s);
    Record move = makeRecord(&copyWordsStep);
    // The whole slot, with its reference, which its old place gives up.
    move.a = out_.home(s) - 2;
    move.d = out_.home(result) - 2;
    move.x = sizeof(ValueSlot) / sizeof(uint32_t);
    out_.emit(move);
    Record clear = makeRecord(&clearSlotStep);
    clear.d = out_.home(s);
    out_.emit(clear);
    out_.setHome(result, VM_COMPONENT_COUNT, true);
    return;
  }
  out_.pop();
  if (value.address == out_.home(s)) out_.moveHome(value, out_.home(result));
  if (value.address == out_.home(result)) {
    out_.slot(result) = value;
    return;
  }
  bool ownSlot = false;
  for (int32_t t = base; t <= s; ++t) ownSlot = ownSlot || out_.refersTo(value, t);
  const Entry kept = value;
  out_.setHome(result, value.width);
  out_.slot(result) = kept;
  if (ownSlot) {
    out_.memory(kept, kept.width == 0 ? 1 : kept.width);
    out_.flushSlot(result);
  }
}

void Translator::leaveLocals(Instance& instance) {
  const ShaderFunction& record = *instance.function->record;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  for (int32_t s = base + record.localCount; s <= out_.top; ++s) {
    const Entry& left = out_.slot(s);
    if (!left.block && !left.lazyView) continue;
    out_.flushSlot(s);
    Record clear = makeRecord(&clearSlotStep);
    clear.d = out_.home(s);
    out_.emit(clear);
  }
  for (int32_t k = record.paramCount; k < record.localCount; ++k) {
    if (isBasicVar(record.locals[k])) continue;
    Record release = makeRecord(&releaseSlotStep);
    release.d = out_.home(base + k);
    out_.emit(release);
  }
}

void Translator::selectEntryReturn(Instance& instance, const Instruction& item) {
  const ShaderFunction& record = *instance.function->record;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  bool references = false;
  for (int32_t k = 0; k < record.localCount; ++k) {
    references = references || !isBasicVar(record.locals[k]);
  }
  for (int32_t s = base + record.localCount; s <= out_.top; ++s) {
    references = references || out_.slot(s).block || out_.slot(s).lazyView;
  }
  if (references) {
    out_.flush();
    Record plain = makeRecord(&plainStep);
    plain.site = out_.site(item.pc + 1, static_cast<uint32_t>(item.opcode));
    out_.emit(plain);
  } else {
    out_.flushIndices();
    Record finish = makeRecord(&finishStep);
    finish.site = out_.site(item.end, 0, base + record.localCount - 1);
    out_.emit(finish);
  }
  instance.flowEnded = true;
}

bool Translator::selectReturn(Instance& instance, Instruction& item) {
  if (instance.caller == nullptr) {
    selectEntryReturn(instance, item);
    return true;
  }
  if (item.opcode != Opcode::RETURN) moveReturnValue(instance);
  leaveLocals(instance);
  // The only return at the end of the code goes on with the caller.
  const bool last = instance.current + 1 == instance.function->count;
  if (last && !instance.joinsAtEnd) return true;
  const int32_t base = static_cast<int32_t>(instance.call->localsSlot);
  const int32_t parameters = instance.function->record->paramCount;
  out_.top = base + parameters - 1;
  out_.flush();
  instance.joinsAtEnd = true;
  instance.flowEnded = true;
  if (!last) links_.append({out_.emit(makeRecord(&jumpStep)), kEnd, false});
  return true;
}

// Functions ---------------------------------------------------------------------------------------

void Translator::beginInstruction(Instance& instance, const Instruction& item) {
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  const int32_t locals = instance.function->record->localCount;
  if (item.isTarget && instance.current > 0) {
    if (!instance.flowEnded) out_.flush();
    out_.forgetRegisters();
    out_.top = base + locals - 1;
    for (uint32_t t = 0; t < item.state->count; ++t) {
      ++out_.top;
      out_.setHome(out_.top, item.state->widths[t], ((item.state->blockMask >> t) & 1) != 0);
    }
    for (int32_t k = 0; k < locals; ++k) {
      const VarInfo& info = instance.function->record->locals[k];
      if (isBasicVar(info)) out_.setHome(base + k, variableWords(info));
    }
  }
  instance.flowEnded = false;
  instance.labels[instance.current] = out_.recordCount();
}

void Translator::translateFunction(Instance& instance) {
  const DecodedFunction& function = *instance.function;
  const uint32_t firstLink = links_.size();
  const int32_t indexBase = out_.indexTop;
  instance.labels = arena_.allocate<uint32_t>(function.count);
  if (instance.labels == nullptr) return;
  // A jump to the first instruction finds what the function was entered with in memory.
  if (function.instructions[0].isTarget) {
    out_.flush();
    out_.forgetRegisters();
  }
  for (instance.current = 0; instance.current < function.count; ++instance.current) {
    Instruction& item = function.instructions[instance.current];
    if (item.isTarget) {
      const int32_t depth = indexBase + item.state->indexDepth;
      if (depth >= VM_INDEX_STACK_CAPACITY) outgrown_ = true;
      if (instance.flowEnded) {
        for (int32_t i = indexBase + 1; i <= depth && !outgrown_; ++i) {
          setIndexHome(i);
        }
        out_.indexTop = depth;
      }
    }
    beginInstruction(instance, item);
    // Some of an instruction's work goes through all slots.
    outgrown_ = outgrown_ || decoder_.isOverTime(1 + static_cast<uint32_t>(out_.top + 1) / 64);
    if (out_.failed() || out_.retry() || outgrown_) return;
    lookAtClock(item);
    if (!select(instance, item)) selectPlain(instance, item);
    // Code behind a certain overflow of the index stack has no depth to be translated for.
    outgrown_ = outgrown_ || out_.indexTop >= VM_INDEX_STACK_CAPACITY;
  }
  const uint32_t end = out_.recordCount();
  if (instance.joinsAtEnd) {
    out_.forgetRegisters();
    const auto base = static_cast<int32_t>(instance.call->localsSlot);
    if (function.returnWidth >= 0) {
      out_.setHome(base - 1, static_cast<uint32_t>(function.returnWidth), function.returnsBlock);
    }
  }
  for (uint32_t i = firstLink; i < links_.size(); ++i) {
    const Link& link = links_[i];
    const uint32_t to = link.instruction == kEnd ? end : instance.labels[link.instruction];
    targets_.append({link.record, to, link.back});
  }
  while (links_.size() > firstLink) links_.removeLast();
}

}  // namespace shadermachine::engine
