#include "flow.h"

#include <algorithm>

namespace shadermachine::tools {
namespace {

constexpr uint32_t kNoBlock = UINT32_MAX;

// Units of work: an instruction on a small stack is one, and so is a saved slot. Those that take
// many operands look for twins of each.
uint64_t costOfStep(const AbstractStack& stack, const Instruction& instruction) {
  const uint64_t size = stack.size();
  const uint64_t cost = 1 + size / 64 + instruction.length() / 16;
  const Opcode opcode = instruction.opcode;
  const bool takesMany =
      opcode == Opcode::CALL || opcode == Opcode::CTOR_STRUCT || opcode == Opcode::CTOR_ARRAY;
  return takesMany ? cost + size * size / 256 : cost;
}
uint64_t costOfMerge(const AbstractStack& stack) { return 1 + stack.size() / 16; }
uint64_t costOfCopy(const AbstractStack& stack) { return 1 + stack.size(); }

}  // namespace

FunctionFlow::FunctionFlow(const Program& program, uint32_t function,
                           const DecodedFunction& decoded)
    : program_(program), function_(function), decoded_(decoded) {
  const size_t count = decoded.instructions.size();
  blockAt_.assign(count, kNoBlock);
  for (uint32_t i = 0; i < count; ++i) {
    if (i != 0 && !decoded.isJumpTarget[i]) continue;
    blockAt_[i] = static_cast<uint32_t>(starts_.size());
    starts_.push_back(i);
  }
  blocks_.resize(starts_.size());
  if (!blocks_.empty()) blocks_[0].isReached = true;
}

bool FunctionFlow::isBlockStart(uint32_t index) const { return blockAt_[index] != kNoBlock; }

void FunctionFlow::search(Budget& budget) {
  // All again: a callee may return otherwise than it was known to.
  for (uint32_t i = 0; i < blocks_.size(); ++i) {
    if (blocks_[i].isReached) pending_.insert(i);
  }
  while (!pending_.empty() && !budget.isSpent()) {
    // In code order, since most paths lead down: a block is walked when what leads there has been.
    const uint32_t block = *pending_.begin();
    pending_.erase(pending_.begin());
    walkBlock(starts_[block], &budget, nullptr);
  }
}

void FunctionFlow::report(Diagnostics& diagnostics, FunctionFacts& facts) {
  Reporting reporting = {diagnostics, facts};
  facts.returnKind = summary_.kind;
  facts.returnWords = summary_.words;
  facts.returnType = summary_.type;
  facts.returnCount = summary_.count;
  for (uint32_t i = 0; i < blocks_.size(); ++i) {
    if (blocks_[i].isReached) walkBlock(starts_[i], nullptr, &reporting);
  }
}

void FunctionFlow::walkBlock(uint32_t index, Budget* budget, Reporting* reporting) {
  // A copy: other paths may lead here later and are compared with what holds at the start.
  AbstractStack stack = blocks_[blockAt_[index]].stack;
  const uint32_t locals = program_.shader.functions[function_]->localCount;
  for (;;) {
    const Instruction& instruction = decoded_.instructions[index];
    if (budget != nullptr && !budget->spend(costOfStep(stack, instruction))) return;
    if (reporting != nullptr) {
      reporting->facts.instructions[index].depth = static_cast<int32_t>(locals + stack.size());
    }
    Step step(program_, function_, instruction, stack,
              reporting == nullptr ? nullptr : &reporting->diagnostics);
    step.apply();
    // While searching only: a report must find what was known when the search ended.
    if (budget != nullptr) summary_.mergeWith(step.returned);
    if (reporting != nullptr) {
      uint32_t& maximum = reporting->facts.maximumDepth;
      maximum = std::max(maximum, locals + stack.size());
    }
    // Before the end is looked at: a jump ends the way on, but not the way to its target.
    if (instruction.target != kNoTarget) {
      flowTo(instruction.target, stack, instruction, budget, reporting);
    }
    if (step.hasEnded()) return;
    if (++index == decoded_.instructions.size()) {
      if (decoded_.isComplete) step.error("control runs off the end of the code");
      return;
    }
    if (isBlockStart(index)) return flowTo(index, stack, instruction, budget, reporting);
  }
}

void FunctionFlow::flowTo(uint32_t target, const AbstractStack& stack, const Instruction& from,
                          Budget* budget, Reporting* reporting) {
  const uint32_t number = blockAt_[target];
  Block& block = blocks_[number];
  if (reporting != nullptr) {
    return reportJoin(block, stack, from, decoded_.instructions[target].pc, reporting->diagnostics);
  }
  if (!budget->spend(block.isReached ? costOfMerge(stack) : costOfCopy(stack))) return;
  if (!block.isReached) {
    block.isReached = true;
    block.stack = stack;
    pending_.insert(number);
  } else if (block.stack.size() == stack.size() && block.stack.mergeWith(stack)) {
    pending_.insert(number);
  }
}

void FunctionFlow::reportJoin(Block& block, const AbstractStack& stack, const Instruction& from,
                              uint32_t targetOffset, Diagnostics& diagnostics) {
  const auto error = [&](const std::string& message) {
    diagnostics.error({static_cast<int32_t>(function_), from.pc, from.info().mnemonic}, message);
  };
  if (block.stack.size() != stack.size()) {
    return error(text("reaches offset ", targetOffset, " with ", counted(stack.size(), "value"),
                      " above the locals, another path with ", block.stack.size()));
  }
  for (uint32_t k = 0; k < stack.size(); ++k) {
    if (block.stack.below(k).kind != SlotKind::Conflict || !stack.below(k).isKnown()) continue;
    error(text("reaches offset ", targetOffset, " with S", k, " as ",
               describe(program_.types, stack.below(k)), ", another path with something else"));
    block.stack.set(k, unknownSlot());  // once is enough
  }
}

}  // namespace shadermachine::tools
