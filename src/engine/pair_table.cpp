// Two operations in one record.

#include <array>

#include "engine/kernel_steps.h"
#include "instructions/opcode_info.h"

namespace shadermachine::engine {
namespace {

// By form: which of the first operation's operands come from their register.
using PairForms = std::array<StepPair, 4>;
constexpr unsigned kNoPair = UINT32_MAX;

// Floats ------------------------------------------------------------------------------------------

using PairCounts = std::array<PairForms, 3>;   // one, two, and three or four components
using PairOrders = std::array<PairCounts, 2>;  // as written, swapped
using PairSeconds = std::array<PairOrders, 4>;

template <class First, bool scalarB, class Second, bool swapped, uint32_t n, unsigned form>
consteval StepPair pairOf() {
  return {&pairStep<First, scalarB, Second, swapped, n, form, false>,
          &pairStep<First, scalarB, Second, swapped, n, form, true>};
}

template <class First, bool scalarB, class Second, bool swapped, uint32_t n>
consteval PairForms pairForms() {
  return {pairOf<First, scalarB, Second, swapped, n, 0>(),
          pairOf<First, scalarB, Second, swapped, n, 1>(),
          pairOf<First, scalarB, Second, swapped, n, 2>(),
          pairOf<First, scalarB, Second, swapped, n, 3>()};
}

template <class First, bool scalarB, class Second, bool swapped>
consteval PairCounts pairCounts() {
  return {pairForms<First, false, Second, swapped, 1>(),
          pairForms<First, scalarB, Second, swapped, 2>(),
          pairForms<First, scalarB, Second, swapped, 4>()};
}

template <class First, bool scalarB, class Second>
consteval PairOrders pairOrders() {
  return {pairCounts<First, scalarB, Second, false>(), pairCounts<First, scalarB, Second, true>()};
}

template <class First, bool scalarB>
consteval PairSeconds pairSeconds() {
  return {pairOrders<First, scalarB, AddF>(), pairOrders<First, scalarB, SubF>(),
          pairOrders<First, scalarB, MulF>(), pairOrders<First, scalarB, DivF>()};
}

constexpr std::array<PairSeconds, 4> kPairKernels = {
    pairSeconds<AddF, false>(), pairSeconds<SubF, false>(), pairSeconds<MulF, false>(),
    pairSeconds<MulF, true>()};

unsigned pairSecond(unsigned opcode) {
  switch (static_cast<Opcode>(opcode)) {
    case Opcode::ADD_F:
      return 0;
    case Opcode::SUB_F:
      return 1;
    case Opcode::MUL_F:
    case Opcode::COMP_MUL_F:
      return 2;
    case Opcode::DIV_F:
      return 3;
    default:
      return kNoPair;
  }
}

unsigned pairFirst(unsigned operation) {
  if (operation == kScaleOperation) return 3;
  const unsigned row = pairSecond(operation);
  return row < 3 ? row : kNoPair;
}

// Integers and bits -------------------------------------------------------------------------------

using WordSeconds = std::array<PairForms, 7>;

template <class First>
consteval WordSeconds wordSeconds() {
  return {
      pairForms<First, false, AddI, false, 1>(),      pairForms<First, false, MulI, false, 1>(),
      pairForms<First, false, BitXor, false, 1>(),    pairForms<First, false, BitAnd, false, 1>(),
      pairForms<First, false, SubI, false, 1>(),      pairForms<First, false, SubI, true, 1>(),
      pairForms<First, false, IntToFloat, false, 1>()};
}

constexpr std::array<WordSeconds, 6> kWordPairs = {
    wordSeconds<AddI>(),   wordSeconds<MulI>(), wordSeconds<BitXor>(),
    wordSeconds<BitAnd>(), wordSeconds<SubI>(), wordSeconds<DivByPowerI>()};

constexpr unsigned kSwappedDifference = 5;

unsigned wordSecond(unsigned opcode) {
  switch (static_cast<Opcode>(opcode)) {
    case Opcode::ADD_I:
      return 0;
    case Opcode::MUL_I:
      return 1;
    case Opcode::BIT_XOR:
      return 2;
    case Opcode::BIT_AND:
      return 3;
    case Opcode::SUB_I:
      return 4;
    case Opcode::INT_TO_FLOAT:
      return 6;
    default:
      return kNoPair;
  }
}

unsigned wordFirst(unsigned operation) {
  if (operation == kShiftOperation) return 5;
  const unsigned row = wordSecond(operation);
  return row < 5 ? row : kNoPair;
}

bool isWordPair(unsigned first, unsigned second) {
  return wordFirst(first) != kNoPair && wordSecond(second) != kNoPair;
}

}  // namespace

bool isPairable(unsigned first, unsigned second, uint32_t n) {
  if (pairFirst(first) != kNoPair && pairSecond(second) != kNoPair) return true;
  return n == 1 && isWordPair(first, second);
}

StepPair pairSteps(unsigned first, unsigned second, bool swapped, uint32_t n, unsigned form) {
  if (n == 1 && isWordPair(first, second)) {
    const bool isDifference = static_cast<Opcode>(second) == Opcode::SUB_I;
    const unsigned row = swapped && isDifference ? kSwappedDifference : wordSecond(second);
    return kWordPairs[wordFirst(first)][row][form];
  }
  const uint32_t count = n < 3 ? n - 1 : 2;
  return kPairKernels[pairFirst(first)][pairSecond(second)][swapped ? 1 : 0][count][form];
}

}  // namespace shadermachine::engine
