// Kernels applied to the components of a vector register at once. Each overload computes in every
// lane exactly what the kernel computes for one component.
#pragma once

#include <bit>

#include "engine/records.h"
#include "instructions/kernels.h"

namespace shadermachine::engine {

inline FloatVector asFloats(WordVector v) { return std::bit_cast<FloatVector>(v); }
inline FloatVector asFloats(IntVector v) { return std::bit_cast<FloatVector>(v); }
inline WordVector asWords(FloatVector v) { return std::bit_cast<WordVector>(v); }
inline IntVector asInts(FloatVector v) { return std::bit_cast<IntVector>(v); }

inline FloatVector splat(float x) { return FloatVector{x, x, x, x}; }

// A comparison's lanes of all ones or none as booleans.
inline FloatVector asBooleans(IntVector mask) {
  return asFloats(std::bit_cast<WordVector>(mask) & WordVector{1, 1, 1, 1});
}

inline FloatVector select(IntVector mask, FloatVector a, FloatVector b) {
  return asFloats((mask & asInts(a)) | (~mask & asInts(b)));
}

inline FloatVector lanes(AddF, FloatVector a, FloatVector b) { return a + b; }
inline FloatVector lanes(SubF, FloatVector a, FloatVector b) { return a - b; }
inline FloatVector lanes(MulF, FloatVector a, FloatVector b) { return a * b; }
inline FloatVector lanes(DivF, FloatVector a, FloatVector b) { return a / b; }
inline FloatVector lanes(MulByReciprocalF, FloatVector a, FloatVector b) {
  return a * (splat(1.0f) / b);
}
inline FloatVector lanes(MinF, FloatVector a, FloatVector b) { return select(a < b, a, b); }
inline FloatVector lanes(MaxF, FloatVector a, FloatVector b) { return select(a > b, a, b); }
inline FloatVector lanes(StepF, FloatVector edge, FloatVector x) {
  return select(edge > x, splat(0.0f), splat(1.0f));
}
inline FloatVector lanes(NegF, FloatVector x) { return splat(0.0f) - x; }
inline FloatVector lanes(IncF, FloatVector x) { return x + splat(1.0f); }
inline FloatVector lanes(DecF, FloatVector x) { return x - splat(1.0f); }

inline FloatVector lanes(AddI, FloatVector a, FloatVector b) {
  return asFloats(asWords(a) + asWords(b));
}
inline FloatVector lanes(SubI, FloatVector a, FloatVector b) {
  return asFloats(asWords(a) - asWords(b));
}
inline FloatVector lanes(MulI, FloatVector a, FloatVector b) {
  return asFloats(asWords(a) * asWords(b));
}
inline FloatVector lanes(BitOr, FloatVector a, FloatVector b) {
  return asFloats(asWords(a) | asWords(b));
}
inline FloatVector lanes(BitXor, FloatVector a, FloatVector b) {
  return asFloats(asWords(a) ^ asWords(b));
}
inline FloatVector lanes(BitAnd, FloatVector a, FloatVector b) {
  return asFloats(asWords(a) & asWords(b));
}
inline FloatVector lanes(BitNot, FloatVector x) { return asFloats(~asWords(x)); }

inline FloatVector lanes(LessF, FloatVector a, FloatVector b) { return asBooleans(a < b); }
inline FloatVector lanes(LessEqualF, FloatVector a, FloatVector b) { return asBooleans(a <= b); }
inline FloatVector lanes(GreaterF, FloatVector a, FloatVector b) { return asBooleans(a > b); }
inline FloatVector lanes(GreaterEqualF, FloatVector a, FloatVector b) { return asBooleans(a >= b); }
inline FloatVector lanes(EqualF, FloatVector a, FloatVector b) { return asBooleans(a == b); }
inline FloatVector lanes(NotEqualF, FloatVector a, FloatVector b) { return asBooleans(a != b); }

inline FloatVector lanes(AbsF, FloatVector x) {
  return asFloats(asWords(x) & WordVector{0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF});
}

// As floorValue(), lane by lane.
inline FloatVector floorLanes(FloatVector x) {
  const IntVector sign = asInts(x) & IntVector{INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
  const FloatVector magnitude = lanes(AbsF{}, x);
  const FloatVector bound = select(magnitude < splat(kTwoTo23), splat(kTwoTo23), splat(0.0f));
  const FloatVector c = asFloats(asInts(bound) | sign);
  const FloatVector r = (x + c) - c;
  return r - select(r - x <= splat(0.0f), splat(0.0f), splat(1.0f));
}
inline FloatVector lanes(FloorF, FloatVector x) { return floorLanes(x); }
inline FloatVector lanes(FractF, FloatVector x) { return x - floorLanes(x); }
inline FloatVector lanes(ModF, FloatVector x, FloatVector y) { return x - floorLanes(x / y) * y; }

inline FloatVector lanes(ClampF, FloatVector x, FloatVector lo, FloatVector hi) {
  const FloatVector m = select(x > lo, x, lo);
  return select(m < hi, m, hi);
}
inline FloatVector lanes(MixF, FloatVector x, FloatVector y, FloatVector a) {
  return x * (splat(1.0f) - a) + y * a;
}

template <class K, class... Operands>
concept HasLanes = requires(K kernel, Operands... operands) {
  lanes(kernel, operands...);
};

// Any kernel, component by component: n of them, the other lanes are zero.
template <class K, uint32_t n, class... Operands>
FloatVector eachComponent(Operands... operands) {
  FloatVector result = {};
  for (uint32_t i = 0; i < n; ++i) {
    result[i] = std::bit_cast<float>(applyKernel<K>(std::bit_cast<uint32_t>(operands[i])...));
  }
  return result;
}

template <class K, uint32_t n, class... Operands>
FloatVector applyLanes(Operands... operands) {
  if constexpr (HasLanes<K, Operands...>) {
    return lanes(K{}, operands...);
  } else {
    return eachComponent<K, n>(operands...);
  }
}

// Loads and stores of n components. Three take a whole register: the fourth word of a slot that
// holds three is dead.
template <uint32_t n>
FloatVector loadVector(const uint32_t* words) {
  if constexpr (n == 2) {
    using PairVector = uint64_t __attribute__((vector_size(16)));
    uint64_t pair;
    std::memcpy(&pair, words, sizeof pair);
    return std::bit_cast<FloatVector>(PairVector{pair, 0});
  } else {
    FloatVector v;
    std::memcpy(&v, words, sizeof v);
    return v;
  }
}

// For stores to words of any alignment. memcpy() would do, but clang 14 goes through a copy of the
// vector on the stack then, and guards it; with __attribute__ behind `using` it takes no notice of
// the alignment.
typedef float LooseVector __attribute__((vector_size(16), aligned(4), may_alias));
typedef uint64_t LoosePair __attribute__((aligned(4), may_alias));

template <uint32_t n>
void storeVector(uint32_t* words, FloatVector v) {
  if constexpr (n == 2) {
    using PairVector = uint64_t __attribute__((vector_size(16)));
    *reinterpret_cast<LoosePair*>(words) = std::bit_cast<PairVector>(v)[0];
  } else {
    *reinterpret_cast<LooseVector*>(words) = v;
  }
}

}  // namespace shadermachine::engine
