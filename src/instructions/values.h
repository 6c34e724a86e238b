// What kernels compute on: a float or a word, or a vector of the compiler's with one of them in
// every lane. A kernel that is written with these functions and with operators gives every lane of
// a vector the bits that it gives a single value.
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

// Code for vectors is compiled once for each instruction set. This namespace keeps the linker from
// taking one compilation's functions for another's.
#ifndef SHADERMACHINE_TARGET
#define SHADERMACHINE_TARGET baseline
#endif

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

template <class V>
inline constexpr bool kIsVector = !std::is_arithmetic_v<V>;

// typedef, because g++ 12 loses the attribute of a `using` that depends on a parameter.
template <class Lane, size_t lanes>
struct VectorOf {
  typedef Lane Type __attribute__((vector_size(lanes * sizeof(Lane))));
};

template <class V>
consteval size_t countLanes() {
  if constexpr (kIsVector<V>) {
    return sizeof(V) / sizeof(std::declval<V>()[0]);
  } else {
    return 1;
  }
}
template <class V>
inline constexpr size_t kLanes = countLanes<V>();

template <class V, class Lane, bool isVector = kIsVector<V>>
struct LikeType {
  using Type = Lane;
};
template <class V, class Lane>
struct LikeType<V, Lane, true> {
  using Type = typename VectorOf<Lane, kLanes<V>>::Type;
};
// As many lanes as V has, each a Lane.
template <class V, class Lane>
using Like = typename LikeType<V, Lane>::Type;

// One value in every lane. What is subtracted is zero, so that -0.0 stays -0.0.
template <class V, class Lane>
V splat(Lane value) {
  if constexpr (kIsVector<V>) {
    return value - V{};
  } else {
    return value;
  }
}

template <class V>
Like<V, uint32_t> bitsOf(V value) {
  return std::bit_cast<Like<V, uint32_t>>(value);
}
template <class V>
Like<V, float> floatOf(V bits) {
  return std::bit_cast<Like<V, float>>(bits);
}

// The outcome of a comparison as a boolean: 0 or 1.
inline uint32_t booleanOf(bool holds) { return holds; }
template <class Mask>
requires kIsVector<Mask> Like<Mask, uint32_t> booleanOf(Mask mask) {
  return std::bit_cast<Like<Mask, uint32_t>>(mask) & 1u;
}

// The outcome of a comparison of doubles, for floats.
inline bool narrowed(bool holds) { return holds; }
template <class Mask>
requires kIsVector<Mask> Like<Mask, int32_t> narrowed(Mask mask) {
  return __builtin_convertvector(mask, Like<Mask, int32_t>);
}

// Truncates; every lane must fit.
template <class Lane, class V>
Like<V, Lane> convertTo(V value) {
  if constexpr (kIsVector<V>) {
    return __builtin_convertvector(value, Like<V, Lane>);
  } else {
    return static_cast<Lane>(value);
  }
}

// The halves of a vector, and a vector of two halves.
template <size_t first, class V, size_t... i>
auto lanesFrom(V v, std::index_sequence<i...>) {
  return __builtin_shufflevector(v, v, (first + i)...);
}
template <class V>
auto lowHalf(V v) {
  return lanesFrom<0>(v, std::make_index_sequence<kLanes<V> / 2>{});
}
template <class V>
auto highHalf(V v) {
  return lanesFrom<kLanes<V> / 2>(v, std::make_index_sequence<kLanes<V> / 2>{});
}
template <class V, size_t... i>
auto joinLanes(V low, V high, std::index_sequence<i...>) {
  return __builtin_shufflevector(low, high, i...);
}
template <class V>
auto joinHalves(V low, V high) {
  return joinLanes(low, high, std::make_index_sequence<kLanes<V> * 2>{});
}

// No lane of b may be 0, nor -1 where a is INT32_MIN. Vectors divide as doubles, which hold every
// quotient of 32-bit integers exactly enough to truncate.
inline int32_t quotient(int32_t a, int32_t b) { return a / b; }
template <class V>
requires kIsVector<V> V quotient(V a, V b) {
  const auto divide = [](auto x, auto y) {
    return convertTo<int32_t>(convertTo<double>(x) / convertTo<double>(y));
  };
  return joinHalves(divide(lowHalf(a), lowHalf(b)), divide(highHalf(a), highHalf(b)));
}

// What operators cannot say and every instruction set can.
#if defined(__SSE2__)
inline __m128 rootsOf(__m128 x) { return _mm_sqrt_ps(x); }
#endif
#if defined(__SSE4_1__)
inline __m128 floorsOf(__m128 x) { return _mm_floor_ps(x); }
#endif
#if defined(__AVX__)
inline __m256 rootsOf(__m256 x) { return _mm256_sqrt_ps(x); }
inline __m256 floorsOf(__m256 x) { return _mm256_floor_ps(x); }
#endif
#if defined(__AVX512F__)
inline __m512 rootsOf(__m512 x) { return _mm512_maskz_sqrt_ps(0xFFFF, x); }
inline __m512 floorsOf(__m512 x) {
  return _mm512_maskz_roundscale_ps(0xFFFF, x, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
}
#endif
#if defined(__aarch64__)
inline float32x4_t rootsOf(float32x4_t x) { return vsqrtq_f32(x); }
inline float32x4_t floorsOf(float32x4_t x) { return vrndmq_f32(x); }
#endif

template <class V>
V squareRoot(V x) {
  if constexpr (!kIsVector<V>) {
    return std::sqrt(x);
  } else if constexpr (requires { rootsOf(x); }) {
    return V(rootsOf(x));
  } else {
    V result;
    for (size_t i = 0; i < kLanes<V>; ++i) result[i] = std::sqrt(x[i]);
    return result;
  }
}

// Of floats and doubles.
template <class V>
V magnitude(V x) {
  if constexpr (sizeof(V) == kLanes<V> * sizeof(double)) {
    return std::bit_cast<V>(std::bit_cast<Like<V, int64_t>>(x) & INT64_MAX);
  } else {
    return floatOf(bitsOf(x) & 0x7FFFFFFFu);
  }
}
template <class V>
V withSignOf(V size, V sign) {
  return floatOf((bitsOf(size) & 0x7FFFFFFFu) | (bitsOf(sign) & 0x80000000u));
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
