// Handlers of the component-wise instructions, instantiated from the kernels that the plain
// handlers use: per operation, by component count and by where the operands come from.
#pragma once

#include "engine/steps.h"
#include "engine/vectors.h"

namespace shadermachine::engine {

template <class T>
consteval Register registerOf() {
  return std::is_same_v<T, float> ? Register::Scalar : Register::Word;
}

template <class T>
T loadScalar(const uint32_t* address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

// One operand of a record: of a kernel argument's type when the record works on one component, else
// a vector register.
template <class T, uint32_t n, bool isScalar, bool inRegister>
auto operand(const uint32_t* address, uint32_t word, FloatVector vector, float scalar) {
  if constexpr (n == 1) {
    if constexpr (!inRegister) {
      return loadScalar<T>(address);
    } else if constexpr (std::is_same_v<T, float>) {
      return scalar;
    } else {
      return static_cast<T>(word);
    }
  } else if constexpr (isScalar) {
    const float x = inRegister ? scalar : loadScalar<float>(address);
    return splat(x);
  } else {
    return inRegister ? vector : loadVector<n>(address);
  }
}

template <uint32_t n, bool stores, class T>
void keepResult(const Record* record, T result, uint32_t& word, FloatVector& vector,
                float& scalar) {
  if constexpr (std::is_same_v<T, FloatVector>) {
    if constexpr (stores) storeVector<n>(record->d, result);
    vector = result;
  } else {
    if constexpr (stores) std::memcpy(record->d, &result, sizeof result);
    if constexpr (std::is_same_v<T, float>) {
      scalar = result;
    } else {
      word = static_cast<uint32_t>(result);
    }
  }
}

template <class K, uint32_t n, class... Operands>
auto applyOperands(Operands... operands) {
  if constexpr (n == 1) {
    return K{}(operands...);
  } else {
    return applyLanes<K, n>(operands...);
  }
}

template <class K, uint32_t n, unsigned form, bool stores>
Step unaryStep(ENGINE_STATE) {
  using T = typename K::Argument;
  const auto a = operand<T, n, false, (form & 1) != 0>(record->a, word, vector, scalar);
  keepResult<n, stores>(record, applyOperands<K, n>(a), word, vector, scalar);
  ENGINE_NEXT;
}

template <class K, uint32_t n, unsigned scalars, unsigned form, bool stores>
Step binaryStep(ENGINE_STATE) {
  using T = typename K::Argument;
  const auto a =
      operand<T, n, (scalars & 1) != 0, (form & 1) != 0>(record->a, word, vector, scalar);
  const auto b =
      operand<T, n, (scalars & 2) != 0, (form & 2) != 0>(record->b, word, vector, scalar);
  keepResult<n, stores>(record, applyOperands<K, n>(a, b), word, vector, scalar);
  ENGINE_NEXT;
}

// Forms 1, 2 and 3: the first, second or third operand is in its register.
template <class K, uint32_t n, unsigned scalars, unsigned form, bool stores>
Step ternaryStep(ENGINE_STATE) {
  using T = typename K::Argument;
  const auto a = operand<T, n, (scalars & 1) != 0, form == 1>(record->a, word, vector, scalar);
  const auto b = operand<T, n, (scalars & 2) != 0, form == 2>(record->b, word, vector, scalar);
  const auto c = operand<T, n, (scalars & 4) != 0, form == 3>(record->c, word, vector, scalar);
  keepResult<n, stores>(record, applyOperands<K, n>(a, b, c), word, vector, scalar);
  ENGINE_NEXT;
}

template <class K, unsigned form>
bool comparisonHolds(const Record* record, uint32_t word, FloatVector vector, float scalar) {
  using T = typename K::Argument;
  const T a = operand<T, 1, true, (form & 1) != 0>(record->a, word, vector, scalar);
  const T b = operand<T, 1, true, (form & 2) != 0>(record->b, word, vector, scalar);
  return K{}(a, b) != 0;
}

// Goes to the target when the comparison is false.
template <class K, unsigned form>
Step compareAndBranch(ENGINE_STATE) {
  if (!comparisonHolds<K, form>(record, word, vector, scalar)) ENGINE_GO(record->target);
  ENGINE_NEXT;
}

// Goes to the target when the comparison is false, else back to the loop's start (c and d as of
// timeStep()).
template <class K, unsigned form>
Step compareAndLoop(ENGINE_STATE) {
  if (!comparisonHolds<K, form>(record, word, vector, scalar)) ENGINE_GO(record->target);
  if (--machine.timeLimit.ticksLeft == 0) ENGINE_STAY(timeStep);
  ENGINE_GO(objectAt<Record>(record->c));
}

// Back to a branch at the loop's start, which is at c: compares at once, a and b as the branch. d
// as of timeStep().
template <class K>
Step jumpAndTest(ENGINE_STATE) {
  if (--machine.timeLimit.ticksLeft == 0) ENGINE_STAY(timeStep);
  const auto* branch = objectAt<Record>(record->c);
  if (!comparisonHolds<K, 0>(record, word, vector, scalar)) ENGINE_GO(branch->target);
  ENGINE_GO(branch + 1);
}

// Word a and 1, to d.
template <class K>
auto countUp(const Record* record) {
  using T = typename K::Argument;
  using Increment = std::conditional_t<std::is_same_v<T, float>, IncF, IncI>;
  const auto count = Increment{}(loadScalar<typename Increment::Argument>(record->a));
  std::memcpy(record->d, &count, sizeof count);
  return static_cast<T>(count);
}

// An increment, and what the next record does with its result: jumpAndTest() or compareAndLoop().
template <class K>
Step countAndTest(ENGINE_STATE) {
  const auto count = countUp<K>(record);
  ++record;
  if (--machine.timeLimit.ticksLeft == 0) ENGINE_STAY(timeStep);
  const auto* branch = objectAt<Record>(record->c);
  if (K{}(count, loadScalar<typename K::Argument>(record->b)) == 0) ENGINE_GO(branch->target);
  ENGINE_GO(branch + 1);
}
template <class K>
Step countAndLoop(ENGINE_STATE) {
  const auto count = countUp<K>(record);
  ++record;
  if (K{}(count, loadScalar<typename K::Argument>(record->b)) == 0) ENGINE_GO(record->target);
  if (--machine.timeLimit.ticksLeft == 0) ENGINE_STAY(timeStep);
  ENGINE_GO(objectAt<Record>(record->c));
}

// DIV_I by 2 to the power b, from 1 to 30: there are no shifts among the instructions, so shaders
// divide.
struct DivByPowerI : Kernel<int32_t(int32_t, int32_t)> {
  template <class I>
  I operator()(I a, I b) const {
    const I belowZero = (a >> 31) & (((I{} + 1) << b) - 1);
    return (a + belowZero) >> b;
  }
};

// The second operation on the first one's result; scalarB: the first one's b is a scalar. c, if the
// second operation has two operands, is its right one, or left when swapped. Integers: form 3 is of
// a and c.
template <class First, bool scalarB, class Second, bool swapped, uint32_t n, unsigned form,
          bool stores>
Step pairStep(ENGINE_STATE) {
  using T = typename First::Argument;
  using U = typename Second::Argument;
  constexpr bool cInRegister = form == 3 && registerOf<T>() == Register::Word;
  constexpr bool bInRegister = (form & 2) != 0 && !cInRegister;
  const auto a = operand<T, n, false, (form & 1) != 0>(record->a, word, vector, scalar);
  const auto b = operand<T, n, scalarB, bInRegister>(record->b, word, vector, scalar);
  const auto inner = applyOperands<First, n>(a, b);
  if constexpr (Second::kOperands == 1) {
    keepResult<n, stores>(record, applyOperands<Second, n>(static_cast<U>(inner)), word, vector,
                          scalar);
  } else {
    const auto c = operand<U, n, false, cInRegister>(record->c, word, vector, scalar);
    const auto left = swapped ? c : static_cast<decltype(c)>(inner);
    const auto right = swapped ? static_cast<decltype(c)>(inner) : c;
    keepResult<n, stores>(record, applyOperands<Second, n>(left, right), word, vector, scalar);
  }
  ENGINE_NEXT;
}

// Whole-value comparison of n components: one word, `wanted` when some component gives it.
template <class K, uint32_t wanted, uint32_t n, unsigned form, bool stores>
Step findStep(ENGINE_STATE) {
  const auto a = operand<float, n, false, (form & 1) != 0>(record->a, word, vector, scalar);
  const auto b = operand<float, n, false, (form & 2) != 0>(record->b, word, vector, scalar);
  uint32_t found = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t holds =
        applyKernel<K>(std::bit_cast<uint32_t>(a[i]), std::bit_cast<uint32_t>(b[i]));
    found |= static_cast<uint32_t>(holds == wanted);
  }
  keepResult<1, stores>(record, found != 0 ? wanted : 1 - wanted, word, vector, scalar);
  ENGINE_NEXT;
}

}  // namespace shadermachine::engine
