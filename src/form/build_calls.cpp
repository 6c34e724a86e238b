// The builder's functions and control flow: calls that are inlined, returns, jumps, and
// instructions that are left to their plain handlers.

#include "form/builder.h"

namespace shadermachine::form {
namespace {

// Beyond these, calls are left to the plain handlers.
constexpr int32_t kMaxInlineDepth = 40;
constexpr uint32_t kMaxOperations = 120000;

// Words of a basic variable, rounded up.
uint32_t variableWords(const VarInfo& info) { return (inlineByteSize(info) + 3) / 4; }

}  // namespace

// Functions ---------------------------------------------------------------------------------------

Builder::Instance* Builder::enter(const DecodedFunction& function, InlinedCall* call,
                                  Instance* caller) {
  auto* instance = working_.allocate<Instance>();
  auto* labels = working_.allocate<uint32_t>(function.count);
  if (instance == nullptr || labels == nullptr) return nullptr;
  *instance = {&function, call, caller, labels, kNoBlock, 0, indexTop_, false, false};
  for (uint32_t i = 0; i < function.count; ++i) {
    if (function.instructions[i].isTarget) labels[i] = newBlock();
  }
  call_ = call;
  innermost_ = instance;
  enterLocals(*instance);
  return instance;
}

// Parameters are where the caller left them; the other locals get their initial values.
void Builder::enterLocals(Instance& instance) {
  const ShaderFunction& record = *instance.function->record;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  // Nobody has given the entry function arguments.
  const int32_t params = instance.caller == nullptr ? 0 : record.paramCount;
  for (int32_t k = 0; k < params; ++k) flushSlot(base + k);
  for (int32_t k = 0; k < params; ++k) noteAggregate(base + k, record.locals[k], false);
  for (int32_t k = params; k < record.localCount; ++k) resetSlot(base + k);
  top_ = base + record.localCount - 1;
  if (params == record.localCount) return;
  constexpr uint32_t kZeros[kPlaceWords] = {};
  const Operand zeros = constant(kZeros, kPlaceWords);
  for (int32_t k = params; k < record.localCount; ++k) {
    const uint32_t words = variableWords(record.locals[k]);
    if (!isBasicVar(record.locals[k])) {
      initAggregate(base, k, record.locals[k]);
    } else if (words > 0) {
      store(static_cast<Place>(base + k), 0, words, zeros, true);
    }
  }
}

void Builder::initAggregate(int32_t base, int32_t k, const VarInfo& info) {
  noteAggregate(base + k, info, true);
  Operation init = operation(Kind::InitLocals);
  init.place = static_cast<Place>(base + k);
  init.first = static_cast<uint32_t>(k);
  init.count = 1;
  init.site = site(0);
  append(init);
}

void Builder::noteAggregate(int32_t slot, const VarInfo& info, bool canSettle) {
  if (!isBasicVar(info)) {
    form_.aggregates.append({static_cast<Place>(slot), canSettle ? info.byteSize : 0});
  }
}

void Builder::joinAt(Instance& instance, const Instruction& item) {
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  const int32_t locals = instance.function->record->localCount;
  if (!instance.flowEnded) flush();
  placeBlock(instance.labels[instance.current]);
  top_ = base + locals - 1;
  for (uint32_t t = 0; t < item.count; ++t) {
    const bool block = (item.blocks[t / 64] >> (t % 64) & 1) != 0;
    resetSlot(++top_, block ? Content::Block : Content::Words);
  }
  const int32_t depth = instance.indexBase + item.indexDepth;
  if (depth >= VM_INDEX_STACK_CAPACITY) {
    mustStayPlain_ = true;  // behind a certain overflow of the index stack nothing has a meaning
    return;
  }
  indexTop_ = depth;
  dirtyIndices_ = indexTop_ + 1;
}

void Builder::lookAtClock(const Instruction& item) {
  if (form_.operations.size() < nextClock_) return;
  Operation clock = operation(Kind::Clock);
  clock.site = site(item.pc);
  append(clock);
  nextClock_ = form_.operations.size() + kOperationsPerClock;
}

void Builder::step(Instance& instance) {
  const Instruction& item = instance.function->instructions[instance.current];
  if (item.isTarget) joinAt(instance, item);
  if (mustStayPlain_) return;
  instance.flowEnded = false;
  lookAtClock(item);
  if (!buildInstruction(instance, item)) buildPlain(instance, item);
  // Code behind a certain overflow of the index stack has no depth to be built for.
  mustStayPlain_ = mustStayPlain_ || indexTop_ >= VM_INDEX_STACK_CAPACITY;
  ++instance.current;
}

// Goes on in the caller; null behind the entry function.
Builder::Instance* Builder::leave(Instance& instance) {
  Instance* caller = instance.caller;
  innermost_ = caller;
  if (caller == nullptr) return nullptr;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  const DecodedFunction& function = *instance.function;
  const int32_t params = function.record->paramCount;
  top_ = base + params - 1;
  if (instance.joinsAtEnd) {
    placeBlock(instance.endBlock);
    if (function.returnsValue) {
      resetSlot(base - 1, function.returnsBlock ? Content::Block : Content::Words);
    }
  } else if (instance.flowEnded) {
    placeBlock(newBlock());  // the function never returns: nothing leads to what follows
  }
  for (int32_t k = 0; k < params && function.storesToParam; ++k) {
    const bool aggregate = !isBasicVar(function.record->locals[k]);
    resetSlot(base + k, aggregate ? Content::Block : Content::Words);
  }
  call_ = caller->call;
  --inlineDepth_;
  return caller;
}

// Calls -------------------------------------------------------------------------------------------

bool Builder::canInline(const Instance& instance, uint32_t number,
                        const DecodedFunction* callee) const {
  if (callee == nullptr || callee->keepsIndices || inlineDepth_ >= kMaxInlineDepth) return false;
  if (form_.operations.size() > kMaxOperations) return false;
  for (const InlinedCall* at = instance.call; at != nullptr; at = at->caller) {
    if (at->function == number) return false;
  }
  const ShaderFunction& record = *callee->record;
  const int32_t locals = top_ + 1 - record.paramCount;
  if (locals + record.localCount + static_cast<int32_t>(callee->maxTemporaries) >=
      machine_.stackCapacity) {
    return false;
  }
  for (int32_t k = 0; k < record.paramCount; ++k) {
    const bool reference = slots_[locals + k].content != Content::Words;
    if (isBasicVar(record.locals[k]) == reference) return false;
  }
  return true;
}

bool Builder::buildCall(Instance& instance, const Instruction& item) {
  const uint32_t number = item.operands[0];
  if (decoder_.isPlainCall(number)) return false;
  const DecodedFunction* callee = decoder_.function(number);
  if (!canInline(instance, number, callee)) return false;
  auto* call = form_.arena.allocate<InlinedCall>();
  if (call == nullptr) return true;
  *call = {instance.call,
           number,
           static_cast<uint32_t>(top_ + 1 - callee->record->paramCount),
           instance.call->frameIndex + 1,
           item.end,
           top_ - static_cast<int32_t>(instance.call->localsSlot)};
  ++inlineDepth_;
  enter(*callee, call, &instance);
  return true;
}

// Returns -----------------------------------------------------------------------------------------

// The top slot becomes the slot below the locals, with all its words and its reference.
void Builder::moveResult(Instance& instance) {
  const int32_t result = static_cast<int32_t>(instance.call->localsSlot) - 1;
  if (topSlot().content != Content::Words) {
    flushSlot(top_);
    Operation move = operation(Kind::MoveSlot);
    move.place = static_cast<Place>(result);
    move.other = static_cast<Place>(top_);
    append(move);
    resetSlot(result, Content::Block);
    resetSlot(top_);
    return;
  }
  copySlot(top_, result);
  pop();
}

void Builder::leaveLocals(const Instance& instance) {
  const ShaderFunction& record = *instance.function->record;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  for (int32_t s = base + record.localCount; s <= top_; ++s) {
    if (slots_[s].content != Content::Block) continue;
    Operation clear = operation(Kind::ClearSlot);
    clear.place = static_cast<Place>(s);
    append(clear);
  }
  releaseLocals(record, base, record.paramCount);
}

void Builder::releaseLocals(const ShaderFunction& record, int32_t base, int32_t first) {
  for (int32_t k = first; k < record.localCount; ++k) {
    if (!isBasicVar(record.locals[k])) releaseSlot(base + k);
  }
}

void Builder::releaseSlot(int32_t s) {
  Operation release = operation(Kind::ReleaseSlot);
  release.place = static_cast<Place>(s);
  append(release);
}

void Builder::buildEntryReturn(Instance& instance, const Instruction& item) {
  const ShaderFunction& record = *instance.function->record;
  const auto base = static_cast<int32_t>(instance.call->localsSlot);
  bool references = false;
  for (int32_t s = base + record.localCount; s <= top_; ++s) {
    references = references || slots_[s].content != Content::Words;
  }
  if (!references) releaseLocals(record, base, 0);
  Operation last = operation(references ? Kind::Plain : Kind::Finish);
  if (references) {
    flush();
    last.opcode = item.opcode;
    last.site = site(item.pc + 1, static_cast<uint32_t>(item.opcode), top_);
  } else {
    for (int32_t i = dirtyIndices_; i <= indexTop_; ++i) flushIndex(i);
    last.site = site(item.end, 0, base + record.localCount - 1);
  }
  append(last);
  if (references) {
    // The plain handler has ended the run.
    Operation stop = operation(Kind::Stop);
    stop.site = last.site;
    append(stop);
  }
  instance.flowEnded = true;
}

bool Builder::buildReturn(Instance& instance, const Instruction& item) {
  if (instance.caller == nullptr) {
    buildEntryReturn(instance, item);
    return true;
  }
  if (item.opcode != Opcode::RETURN) moveResult(instance);
  leaveLocals(instance);
  // The only return at the end of the code goes on with the caller.
  const bool last = instance.current + 1 == instance.function->count;
  if (last && !instance.joinsAtEnd) return true;
  top_ =
      static_cast<int32_t>(instance.call->localsSlot) + instance.function->record->paramCount - 1;
  flush();
  if (!instance.joinsAtEnd) instance.endBlock = newBlock();
  instance.joinsAtEnd = true;
  instance.flowEnded = true;
  if (last) return true;
  Operation jump = operation(Kind::Jump);
  jump.block = instance.endBlock;
  append(jump);
  return true;
}

bool Builder::buildStop(Instance& instance, const Instruction& item) {
  const bool halts = item.opcode == Opcode::HALT;
  for (int32_t i = dirtyIndices_; i <= indexTop_; ++i) flushIndex(i);
  if (halts) flushViews(kNoValue);
  Operation stop = operation(halts ? Kind::Finish : Kind::Stop);
  stop.first = halts ? VM_ERR_HALTED : VM_ERR_DISCARDED;
  stop.site = site(item.end);
  append(stop);
  instance.flowEnded = true;
  return true;
}

// Jumps -------------------------------------------------------------------------------------------

uint32_t Builder::labelOf(Instance& instance, uint32_t pc) {
  return instance.labels[Decoder::indexOf(*instance.function, pc)];
}

bool Builder::buildJump(Instance& instance, const Instruction& item) {
  const uint32_t target = item.operands[0];
  flush();
  Operation jump = operation(target <= item.end ? Kind::JumpBack : Kind::Jump);
  jump.block = labelOf(instance, target);
  if (jump.kind == Kind::JumpBack) jump.site = site(target);
  append(jump);
  instance.flowEnded = true;
  return true;
}

bool Builder::buildBranch(Instance& instance, const Instruction& item) {
  const uint32_t target = item.operands[0];
  if (topSlot().content != Content::Words) {
    mustStayPlain_ = true;  // its condition is part of a reference
    return true;
  }
  const Operand condition = readTop(0, 1);
  pop();
  uint32_t word = 0;
  if (constantOf(condition, word) && word != 0) return true;
  flush();
  Operation branch = operation(Kind::Branch);
  branch.in[0] = condition;
  branch.block = labelOf(instance, target);
  if (target <= item.end) {
    // The way back has a block of its own, where time is counted.
    const BackBranch back = {newBlock(), branch.block, site(target)};
    backBranches_.append(back);
    branch.block = back.block;
  }
  append(branch);
  return true;
}

// Plain handlers ----------------------------------------------------------------------------------

void Builder::buildPlain(const Instance& instance, const Instruction& item) {
  if (item.opcode == Opcode::STORE_LOCAL || item.opcode == Opcode::STORE_LOCAL_KEEP) {
    // Of another block than its own from here on.
    const uint32_t number = item.operands[0];
    noteAggregate(static_cast<int32_t>(instance.call->localsSlot + number),
                  instance.function->record->locals[number], false);
  }
  flush();
  const StackEffect effect = stackEffect(item, shader_, *instance.function->record);
  const bool calls = item.opcode == Opcode::CALL;
  Operation plain = operation(calls ? Kind::PlainCall : Kind::Plain);
  plain.opcode = item.opcode;
  plain.site = site(item.pc + 1, static_cast<uint32_t>(item.opcode), top_);
  append(plain);
  ++epoch_;  // whatever was described by values is in its place, and may have changed there
  const Content topContent = top_ >= 0 ? topSlot().content : Content::Words;
  const Content second = top_ >= 1 ? topSlot(1).content : Content::Words;
  const auto operands = static_cast<int32_t>(effect.pops);
  const Content first = operands > 0 ? topSlot(operands - 1).content : Content::Words;
  pop(effect.pops);
  for (uint32_t i = 0; i < effect.pushes; ++i) resetSlot(++top_);
  const int32_t indexBefore = indexTop_;
  indexTop_ += effect.indices;
  if (indexTop_ > indexBefore && indexTop_ < VM_INDEX_STACK_CAPACITY) indices_[indexTop_] = {};
  dirtyIndices_ = indexTop_ + 1;
  switch (effect.reference) {
    case Reference::None:
      break;
    case Reference::OfFirst:
      topSlot().content = first;
      break;
    case Reference::OfTop:
      topSlot().content = topSlot(1).content = topContent;
      break;
    case Reference::Swapped:
      topSlot().content = second;
      topSlot(1).content = topContent;
      break;
    case Reference::Fresh:
      topSlot().content = Content::Block;
      break;
    case Reference::Result:
      notePlainCall(item.operands[0]);
      break;
  }
}

// A call through the plain handlers may have left a reference in its result slot, and takes the
// references of aggregate arguments into its parameters.
void Builder::notePlainCall(uint32_t number) {
  if (decoder_.isPlainCall(number)) return;
  const DecodedFunction* callee = decoder_.function(number);
  const int32_t params = shader_.functions[number]->paramCount;
  if (callee != nullptr && !callee->returnsValue) return;
  if (top_ - params < 0) return;
  const bool block = callee == nullptr || callee->returnsBlock;
  resetSlot(top_ - params, block ? Content::Block : Content::Words);
}

}  // namespace shadermachine::form
