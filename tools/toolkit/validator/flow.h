// Concern: the stack along all paths through one function.
#pragma once

#include <algorithm>
#include <set>
#include <vector>

#include "step.h"

namespace shadermachine::tools {

// Bounds the work on programs made to be hard.
class Budget {
 public:
  // False once everything is spent.
  bool spend(uint64_t amount) {
    left_ -= std::min(amount, left_);
    return left_ != 0;
  }
  bool isSpent() const { return left_ == 0; }

 private:
  uint64_t left_ = uint64_t{1} << 22;
};

class FunctionFlow {
 public:
  // The decoded function must stay where it is.
  FunctionFlow(const Program& program, uint32_t function, const DecodedFunction& decoded);

  // Follows all paths until nothing changes, given how the functions are known to return so far.
  // Calling it again goes on from what is known.
  void search(Budget& budget);
  // How the function returns on the paths followed so far.
  const ReturnSummary& summary() const { return summary_; }

  // Goes over every reached instruction once more, now with diagnostics.
  void report(Diagnostics& diagnostics, FunctionFacts& facts);

 private:
  struct Block {
    bool isReached = false;
    AbstractStack stack;  // what holds at its first instruction, whichever way it is reached
  };
  struct Reporting {
    Diagnostics& diagnostics;
    FunctionFacts& facts;
  };

  bool isBlockStart(uint32_t index) const;
  void walkBlock(uint32_t index, Budget* budget, Reporting* reporting);
  void flowTo(uint32_t target, const AbstractStack& stack, const Instruction& from, Budget* budget,
              Reporting* reporting);
  void reportJoin(Block& block, const AbstractStack& stack, const Instruction& from,
                  uint32_t targetOffset, Diagnostics& diagnostics);

  const Program& program_;
  const uint32_t function_;
  const DecodedFunction& decoded_;
  // Once reached, a block's stack keeps its size, and what is known of its slots only gets less:
  // that ends the search. Paths of another size are told by report(), from the stack that came
  // first.
  std::vector<Block> blocks_;      // per block start, in code order
  std::vector<uint32_t> blockAt_;  // per instruction: number of the block that starts there
  std::vector<uint32_t> starts_;   // per block: its first instruction
  std::set<uint32_t> pending_;     // blocks
  ReturnSummary summary_;
};

}  // namespace shadermachine::tools
