// The C library's functions for vectors of floats: in every lane the bits that the library gives.
//
// The library computes sin, cos, exp, exp2, log and pow in doubles and rounds once. So does this,
// with the same polynomials and tables, and knows how far its doubles can lie from the library's:
// a few roundings, another order of operations, or fused operations, which the library has on some
// processors only. Where both ends of that interval round to the same float, this is the result;
// the other lanes, few in ten thousand, ask the library. The inverse functions are computed in
// floats by the library's own steps, which leaves nothing to choose. tan is always the library's.
//
// That the result is the library's for every float is shown by scripts/prove_c_library.sh, for one
// library at a time. With any other library each lane asks it (cLibraryIsProven).
//
// Polynomials and tables of the first group are from Arm's optimized routines (MIT or Apache-2.0
// with LLVM exceptions). The inverse functions follow fdlibm: Copyright (C) 1993 by Sun
// Microsystems, Inc. All rights reserved. Developed at SunPro, a Sun Microsystems, Inc. business.
// Permission to use, copy, modify, and distribute this software is freely granted, provided that
// this notice is preserved.
#pragma once

#include <cmath>
#include <limits>

#include "batch/c_library_check.h"
#include "batch/c_library_tables.h"
#include "instructions/kernels.h"

namespace shadermachine::batch {
inline namespace SHADERMACHINE_TARGET {

template <class F>
using HalfDoubles = Like<decltype(lowHalf(std::declval<F>())), double>;

// A result known to lie between two floats.
template <class F>
struct Interval {
  F low, high;
};

// Doubles, and how far the library's may lie from them.
template <class D>
struct Estimate {
  D value, error;
};

// Rounds the estimates of both halves of a vector.
template <class D>
auto roundEstimates(const Estimate<D>& first, const Estimate<D>& second) {
  const auto low = joinHalves(convertTo<float>(first.value - first.error),
                              convertTo<float>(second.value - second.error));
  const auto high = joinHalves(convertTo<float>(first.value + first.error),
                               convertTo<float>(second.value + second.error));
  return Interval<std::remove_const_t<decltype(low)>>{low, high};
}

// The lanes of a mask as bits.
template <class Mask>
uint64_t lanesOf(Mask mask) {
#if defined(__AVX512DQ__)
  if constexpr (sizeof mask == 64) return _mm512_movepi32_mask(std::bit_cast<__m512i>(mask));
#endif
#if defined(__AVX__)
  if constexpr (sizeof mask == 32) {
    return static_cast<uint32_t>(_mm256_movemask_ps(std::bit_cast<__m256>(mask)));
  }
#endif
#if defined(__SSE2__)
  if constexpr (sizeof mask == 16) {
    return static_cast<uint32_t>(_mm_movemask_ps(std::bit_cast<__m128>(mask)));
  }
#endif
  uint64_t bits = 0;
  for (size_t i = 0; i < kLanes<Mask>; ++i) bits |= static_cast<uint64_t>(mask[i] & 1) << i;
  return bits;
}

// The given lanes of a result replaced by what the library gives.
template <class F, class Function, class... Operands>
[[gnu::noinline]] F askLibrary(F result, uint64_t lanes, Function function, Operands... operands) {
  for (; lanes != 0; lanes &= lanes - 1) {
    const auto i = static_cast<size_t>(std::countr_zero(lanes));
    result[i] = function(operands[i]...);
  }
  return result;
}

// The result where both ends of the interval are the same, which NaN is not, and the library's
// elsewhere.
template <class F, class Function, class... Operands>
F settle(const Interval<F>& interval, Function function, Operands... operands) {
  const uint64_t open = lanesOf(interval.low != interval.high);
  if (open != 0) [[unlikely]]
    return askLibrary(interval.low, open, function, operands...);
  return interval.low;
}

template <class F, class Function, class... Operands>
F askForAll(Function function, Operands... operands) {
  constexpr uint64_t kAll = ~uint64_t{0} >> (64 - kLanes<F>);
  return askLibrary(F{}, kAll, function, operands...);
}

template <class D>
D lookUp(const double* table, Like<D, int64_t> index) {
#if defined(__AVX512F__)
  if constexpr (sizeof(D) == 64) {
    return D(_mm512_mask_i64gather_pd(__m512d{}, 0xFF, std::bit_cast<__m512i>(index), table, 8));
  }
#endif
#if defined(__AVX2__)
  if constexpr (sizeof(D) == 32) {
    return D(_mm256_i64gather_pd(table, std::bit_cast<__m256i>(index), 8));
  }
#endif
  D result;
  for (size_t i = 0; i < kLanes<D>; ++i) result[i] = table[index[i]];
  return result;
}

// The sine of x plus as many quarter turns; right for magnitudes below 2^20.
template <class D>
[[gnu::always_inline]] inline Estimate<D> estimateSine(D x, int64_t quarters) {
  // The sum's low bits are the nearest integer.
  constexpr double kToInteger = 0x1.8p52;
  // pi / 2 in two parts, the first so short that its products with n are exact.
  constexpr double kHigh = 0x1.921fb544p+0;
  constexpr double kLow = 0x1.0b4611a626331p-34;
  const D shifted = x * 0x1.45f306dc9c883p-1 + kToInteger;
  const D n = shifted - kToInteger;
  const D r = (x - n * kHigh) - n * kLow;
  const D r2 = r * r;
  const D r3 = r * r2;
  const D sine = (r + r3 * kSine[0]) + (r3 * r2) * (kSine[1] + r2 * kSine[2]);
  const D r4 = r2 * r2;
  const D cosine =
      ((1.0 + r2 * kCosine[0]) + r4 * kCosine[1]) + (r4 * r2) * (kCosine[2] + r2 * kCosine[3]);
  const auto quadrant = std::bit_cast<Like<D, int64_t>>(shifted) + quarters;
  const D size = (quadrant & 1) != 0 ? cosine : sine;
  const auto signs = (quadrant & 2) << 62;
  const D value = std::bit_cast<D>(std::bit_cast<Like<D, int64_t>>(size) ^ signs);
  // The library's reduction below 120 is off by so much per quarter turn.
  return {value, magnitude(value) * 0x1p-36 + magnitude(n) * 0x1p-50};
}

template <class F>
[[gnu::always_inline]] inline Interval<F> sineInterval(F x, int64_t quarters) {
  const auto estimates = [quarters](auto half) {
    return estimateSine(convertTo<double>(half), quarters);
  };
  Interval<F> result = roundEstimates(estimates(lowHalf(x)), estimates(highHalf(x)));
  const auto isLarge = !(magnitude(x) < 0x1p20f);
  result.low = isLarge ? splat<F>(NAN) : result.low;
  return result;
}

// 2 to the power of the sum of r and what the bits of `shifted` below its 2^47 tell: 32nds.
template <class D>
D powerOfTwo(D shifted, D r, const double (&c)[3]) {
  const auto k = std::bit_cast<Like<D, int64_t>>(shifted);
  const auto root = std::bit_cast<Like<D, int64_t>>(lookUp<D>(kRoots, k & 31));
  const D scale = std::bit_cast<D>(root + (k << 47));
  return (((c[0] * r + c[1]) * (r * r)) + (c[2] * r + 1.0)) * scale;
}

// Keeps an exponent where doubles hold the power; what is beyond rounds to 0 or infinity. A NaN
// stays.
template <class D>
D clampExponent(D x, double limit) {
  const D atMost = x > limit ? splat<D>(limit) : x;
  return atMost < -limit ? splat<D>(-limit) : atMost;
}

template <class D>
Estimate<D> estimatePowerOfTwo(D given, double error) {
  constexpr double kToInteger = 0x1.8p47;
  const D x = clampExponent(given, 200.0);
  const D shifted = x + kToInteger;
  const D value = powerOfTwo(shifted, x - (shifted - kToInteger), kPowerOfTwo);
  return {value, value * error};
}

template <class D>
Estimate<D> estimateExponential(D x) {
  constexpr double kToInteger = 0x1.8p52;
  const D z = clampExponent(x, 150.0) * 0x1.71547652b82fep+5;
  const D shifted = z + kToInteger;
  const D value = powerOfTwo(shifted, z - (shifted - kToInteger), kExponential);
  return {value, value * 0x1p-36};
}

// A positive normal float as m * 2^exponent, m between 0.7 and 1.4, in sixteen ranges.
template <class F>
struct Split {
  F m;
  Like<F, int32_t> exponent, range;
};
template <class F>
Split<F> splitFloat(F x) {
  // Unsigned: what is no positive float wraps, and means nothing.
  const auto offset = std::bit_cast<Like<F, int32_t>>(bitsOf(x) - 0x3f330000u);
  const auto exponent = offset >> 23;
  return {floatOf(bitsOf(x) - (bitsOf(exponent) << 23)), exponent, (offset >> 19) & 15};
}

template <class D>
Estimate<D> estimateLogarithm(D m, D exponent, Like<D, int64_t> range) {
  const D r = m * lookUp<D>(kInverses, range) - 1.0;
  const D base = lookUp<D>(kLogarithms, range) + exponent * 0x1.62e42fefa39efp-1;
  const D r2 = r * r;
  const D curve = kLogarithm[0] * r2 + (kLogarithm[1] * r + kLogarithm[2]);
  const D value = curve * r2 + (base + r);
  return {value, magnitude(value) * 0x1p-36};
}

template <class D>
D binaryLogarithm(D m, D exponent, Like<D, int64_t> range) {
  const D r = m * lookUp<D>(kInverses, range) - 1.0;
  const D base = lookUp<D>(kBinaryLogarithms, range) + exponent;
  const D r2 = r * r;
  const auto& c = kBinaryLogarithm;
  const D q = (c[2] * r + c[3]) * r2 + (c[4] * r + base);
  return (c[0] * r + c[1]) * (r2 * r2) + q;
}

template <class F, class Function>
Interval<F> logarithmInterval(const Split<F>& split, Function estimate) {
  const auto half = [&](auto take) {
    return estimate(convertTo<double>(take(split.m)), convertTo<double>(take(split.exponent)),
                    convertTo<int64_t>(take(split.range)));
  };
  return roundEstimates(half([](auto v) { return lowHalf(v); }),
                        half([](auto v) { return highHalf(v); }));
}

// Positive, normal, finite.
template <class F>
auto isOrdinary(F x) {
  return (x >= std::numeric_limits<float>::min()) & (x < INFINITY);
}

// The arc tangent by fdlibm's steps: one of five ranges, each with its reduction.
template <class F>
F arcTangent(F given) {
  const F x = magnitude(given);
  const auto isSmall = x < 0.4375f;
  const auto below11 = x < 0.6875f;
  const auto below19 = x < 1.1875f;
  const auto below39 = x < 2.4375f;
  const auto choose = [&](F small, F a, F b, F c, F d) {
    return isSmall ? small : below11 ? a : below19 ? b : below39 ? c : d;
  };
  const auto chooseValue = [&](float a, float b, float c, float d) {
    return choose(F{}, splat<F>(a), splat<F>(b), splat<F>(c), splat<F>(d));
  };
  const F one = splat<F>(1.0f);
  const F above = choose(x, 2.0f * x - 1.0f, x - 1.0f, x - 1.5f, -one);
  const F under = choose(one, 2.0f + x, x + 1.0f, 1.0f + 1.5f * x, x);
  const F t = above / under;
  const F z = t * t;
  const F w = z * z;
  const auto& c = kArcTangent;
  const F odd = w * (c[1] + w * (c[3] + w * (c[5] + w * (c[7] + w * c[9]))));
  const F even = z * (c[0] + w * (c[2] + w * (c[4] + w * (c[6] + w * (c[8] + w * c[10])))));
  const F correction = t * (even + odd);
  const F high =
      chooseValue(4.6364760399e-01f, 7.8539812565e-01f, 9.8279368877e-01f, 1.5707962513e+00f);
  const F low =
      chooseValue(5.0121582440e-09f, 3.7748947079e-08f, 3.4473217170e-08f, 7.5497894159e-08f);
  const F value = isSmall ? t - correction : high - ((correction - low) - t);
  const F whole = x >= 0x1p25f ? splat<F>(1.5707962513e+00f + 7.5497894159e-08f) : value;
  return withSignOf(x < 0x1p-29f ? x : whole, given);
}

template <class F>
F clearLowBits(F x) {
  return floatOf(bitsOf(x) & 0xfffff000u);
}

// For magnitudes below 1.
template <class F>
F arcSine(F given) {
  constexpr float kHalfPi = 1.57079637050628662109375f;
  constexpr float kHalfPiRest = -4.37113900018624283e-8f;
  constexpr float kQuarterPi = 0.785398185253143310546875f;
  const F x = magnitude(given);
  const auto isSmall = x < 0.5f;
  const F t = isSmall ? x * x : (1.0f - x) * 0.5f;
  const auto& c = kArcSine;
  const F p = t * (c[0] + t * (c[1] + t * (c[2] + t * (c[3] + t * c[4]))));
  const F s = squareRoot(t);
  const F w = clearLowBits(s);
  const F rest = (t - w * w) / (s + w);
  const F q = 2.0f * s * p - (kHalfPiRest - 2.0f * rest);
  const F middle = kQuarterPi - (q - (kQuarterPi - 2.0f * w));
  const F nearOne = kHalfPi - (2.0f * (s + s * p) - kHalfPiRest);
  const F large = x >= std::bit_cast<float>(0x3F79999Au) ? nearOne : middle;
  const F small = x < 0x1p-27f ? x : x + x * p;
  return withSignOf(isSmall ? small : large, given);
}

template <class F>
F arcCosine(F x) {
  constexpr float kPi = 3.1415925026e+00f;
  constexpr float kHalfPi = 1.5707962513e+00f;
  constexpr float kHalfPiRest = 7.5497894159e-08f;
  const auto isSmall = magnitude(x) < 0.5f;
  const auto isNegative = x < 0.0f;
  const F z = isSmall ? x * x : (isNegative ? 1.0f + x : 1.0f - x) * 0.5f;
  const auto& p = kArcCosineAbove;
  const auto& q = kArcCosineBelow;
  const F above = z * (p[0] + z * (p[1] + z * (p[2] + z * (p[3] + z * (p[4] + z * p[5])))));
  const F below = 1.0f + z * (q[0] + z * (q[1] + z * (q[2] + z * q[3])));
  const F r = above / below;
  const F s = squareRoot(z);
  const F w = clearLowBits(s);
  const F rest = (z - w * w) / (s + w);
  const F positive = 2.0f * (w + (r * s + rest));
  const F negative = kPi - 2.0f * (s + (r * s - kHalfPiRest));
  const F small = kHalfPi - (x - (kHalfPiRest - x * r));
  return isSmall ? small : isNegative ? negative : positive;
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine::batch

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

template <class F>
requires kIsVector<F>
struct CLibrary<F> {
  static F sin(F x) {
    if (isLibraryBest()) return batch::askForAll<F>(::sinf, x);
    batch::Interval<F> result = batch::sineInterval(x, 0);
    const auto isTiny = magnitude(x) < 0x1p-12f;
    result = {isTiny ? x : result.low, isTiny ? x : result.high};
    return batch::settle(result, ::sinf, x);
  }

  static F cos(F x) {
    if (isLibraryBest()) return batch::askForAll<F>(::cosf, x);
    return batch::settle(batch::sineInterval(x, 1), ::cosf, x);
  }

  static F tan(F x) { return batch::askForAll<F>(::tanf, x); }

  static F asin(F x) {
    if (!batch::cLibraryIsProven) return batch::askForAll<F>(::asinf, x);
    return libraryUnless(magnitude(x) < 1.0f, batch::arcSine(x), ::asinf, x);
  }

  static F acos(F x) {
    if (!batch::cLibraryIsProven) return batch::askForAll<F>(::acosf, x);
    return libraryUnless(magnitude(x) < 1.0f, batch::arcCosine(x), ::acosf, x);
  }

  static F atan(F x) {
    if (!batch::cLibraryIsProven) return batch::askForAll<F>(::atanf, x);
    // NOLINTNEXTLINE(misc-redundant-expression): a NaN is left to the library
    return libraryUnless(x == x, batch::arcTangent(x), ::atanf, x);
  }

  // The quotient's arc tangent, in one of four quadrants. Zeros, infinities and quotients that
  // might be out of range are left to the library.
  static F atan2(F y, F x) {
    if (!batch::cLibraryIsProven) return batch::askForAll<F>(::atan2f, y, x);
    constexpr float kPi = 3.1415927410e+00f;
    constexpr float kPiRest = -8.7422776573e-08f;
    const F z = batch::arcTangent(magnitude(y / x));
    const F left = kPi - (z - kPiRest);
    const F result = withSignOf(x < 0.0f ? left : z, y);
    const auto known = isModerate(magnitude(x)) & isModerate(magnitude(y));
    return libraryUnless(known, result, ::atan2f, y, x);
  }

  // 0 to a positive power is 0. The library's polynomials are right to 0.0017 ulp, on either side
  // of where two of their ranges meet, and roundings add less than 2^-16 ulp; the error taken is at
  // least 0.0039 ulp.
  static F pow(F base, F exponent) {
    if (isLibraryBest()) return batch::askForAll<F>(::powf, base, exponent);
    const auto split = batch::splitFloat(base);
    const auto estimate = [&](auto take) {
      const auto logarithm = batch::binaryLogarithm(convertTo<double>(take(split.m)),
                                                    convertTo<double>(take(split.exponent)),
                                                    convertTo<int64_t>(take(split.range)));
      return batch::estimatePowerOfTwo(logarithm * convertTo<double>(take(exponent)), 0x1p-32);
    };
    batch::Interval<F> result = batch::roundEstimates(estimate([](auto v) { return lowHalf(v); }),
                                                      estimate([](auto v) { return highHalf(v); }));
    const auto known = batch::isOrdinary(base) & (magnitude(exponent) < INFINITY);
    const auto isZero = (bitsOf(base) == 0u) & (exponent > 0.0f);
    result = {isZero ? F{} : known ? result.low : splat<F>(NAN), isZero ? F{} : result.high};
    return batch::settle(result, ::powf, base, exponent);
  }

  static F exp(F x) {
    if (isLibraryBest()) return batch::askForAll<F>(::expf, x);
    const auto result =
        batch::roundEstimates(batch::estimateExponential(convertTo<double>(lowHalf(x))),
                              batch::estimateExponential(convertTo<double>(highHalf(x))));
    return batch::settle(result, ::expf, x);
  }

  static F exp2(F x) {
    if (isLibraryBest()) return batch::askForAll<F>(::exp2f, x);
    const auto result =
        batch::roundEstimates(batch::estimatePowerOfTwo(convertTo<double>(lowHalf(x)), 0x1p-36),
                              batch::estimatePowerOfTwo(convertTo<double>(highHalf(x)), 0x1p-36));
    return batch::settle(result, ::exp2f, x);
  }

  static F log(F x) {
    if (isLibraryBest()) return batch::askForAll<F>(::logf, x);
    batch::Interval<F> result = batch::logarithmInterval(
        batch::splitFloat(x),
        [](auto m, auto e, auto range) { return batch::estimateLogarithm(m, e, range); });
    result.low = batch::isOrdinary(x) ? result.low : splat<F>(NAN);
    return batch::settle(result, ::logf, x);
  }

 private:
  // Two doubles at a time are slower than the library.
  static bool isLibraryBest() { return kLanes<F> < 8 || !batch::cLibraryIsProven; }

  template <class Mask, class Function, class... Operands>
  static F libraryUnless(Mask known, F result, Function function, Operands... operands) {
    const uint64_t open = batch::lanesOf(~known);
    if (open != 0) [[unlikely]]
      return batch::askLibrary(result, open, function, operands...);
    return result;
  }

  static auto isModerate(F x) { return (x > 0x1p-29f) & (x < 0x1p29f); }
};

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
