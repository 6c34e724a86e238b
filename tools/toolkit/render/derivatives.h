// Derivatives within a block of 2 x 2 fragments, by record and replay: every run of a fragment
// notes the values it passes to HOST_UNARY, and the next run of its neighbours is answered from
// them.
#pragma once

#include <shadermachine/machine.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace shadermachine::tools {

class DerivativeRecord {
 public:
  static constexpr unsigned kFragments = 4;
  using Value = std::array<float, 4>;
  struct Differences {
    Value dx = {};
    Value dy = {};
  };

  // Forgets everything, for another block.
  void clear();
  // What was noted since the last call becomes what answers.
  void turn();
  // A run of a fragment begins; bit 0 of its number is its column, bit 1 its row.
  void startFragment(unsigned fragment);
  // How often the run has asked so far, and back to where it had asked so often: what the same run
  // has passed since stays noted, which is what it will pass again.
  size_t asked() const { return isUsed_ ? (*noted_)[fragment_].count : 0; }
  void resume(size_t asked) {
    if (isUsed_) (*noted_)[fragment_].count = asked;
  }

  // A fragment's run has reached HOST_UNARY. A call is known by its place in the code and by how
  // often the run has come there before. Neighbours that have not come there, or that nothing is
  // known of, contribute no difference. Never throws; without memory all differences are 0.
  Differences answer(const ShaderMachine& machine, const Value& value);

  bool isUsed() const { return isUsed_; }
  // Whether every fragment has passed the same values as before, so that no answer would change.
  bool isSettled() const;

 private:
  // More calls of one run than these get no differences.
  static constexpr size_t kMaxCalls = 1024;

  struct Call {
    const ShaderFunction* function;
    uint32_t pc;
    uint32_t occurrence;
    uint32_t components;
    Value value;

    bool isSameSite(const Call& other) const {
      return function == other.function && pc == other.pc;
    }
  };
  struct Run {
    size_t count = 0;
    std::array<Call, kMaxCalls> calls;
  };
  using Runs = std::array<Run, kFragments>;

  const Value* find(unsigned fragment, const Call& call, size_t index) const;

  std::unique_ptr<Runs> noted_;
  std::unique_ptr<Runs> answering_;
  unsigned fragment_ = 0;
  bool isUsed_ = false;
};

}  // namespace shadermachine::tools
