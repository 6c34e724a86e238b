// The row functions of one instruction set: included by a source that defines SHADERMACHINE_TARGET
// and kVectorBytes, and is compiled for that set.
#pragma once

#include <cstring>

#include "batch/c_library.h"
#include "batch/noise.h"
#include "batch/rows.h"
#include "instructions/opcode_info.h"
#include "instructions/vector_math.h"

namespace shadermachine::batch {
inline namespace SHADERMACHINE_TARGET {

inline constexpr uint32_t kRowLanes = SHADERMACHINE_VECTOR_BYTES / sizeof(uint32_t);
using RowWords = VectorOf<uint32_t, kRowLanes>::Type;
using RowFloats = VectorOf<float, kRowLanes>::Type;

template <class V = RowWords>
V loadRow(const uint32_t* rows, uint32_t word, uint32_t at) {
  V value;
  std::memcpy(&value, rows + word * kRowWords + at, sizeof value);
  return value;
}

template <class V>
void storeRow(uint32_t* rows, uint32_t word, uint32_t at, V value) {
  std::memcpy(rows + word * kRowWords + at, &value, sizeof value);
}

// Bit i of `scalars`: operand i is a scalar, whatever the component.
template <class K, unsigned scalars>
void componentRows(const RowOperands& o) {
  for (uint32_t i = 0; i < o.n; ++i) {
    const auto operand = [&](uint32_t k, uint32_t at) {
      return loadRow(o.in[k], (scalars >> k & 1) != 0 ? 0 : i, at);
    };
    for (uint32_t at = 0; at < o.count; at += kRowLanes) {
      if constexpr (K::kOperands == 1) {
        storeRow(o.result, i, at, applyKernel<K>(operand(0, at)));
      } else if constexpr (K::kOperands == 2) {
        storeRow(o.result, i, at, applyKernel<K>(operand(0, at), operand(1, at)));
      } else {
        storeRow(o.result, i, at, applyKernel<K>(operand(0, at), operand(1, at), operand(2, at)));
      }
    }
  }
}

// `wanted` where some component gives it, else the other truth value.
template <uint32_t wanted, class Holds>
void findRows(const RowOperands& o, Holds holds) {
  for (uint32_t at = 0; at < o.count; at += kRowLanes) {
    RowWords found = {};
    for (uint32_t i = 0; i < o.n; ++i) found |= booleanOf(holds(i, at) == wanted);
    storeRow(o.result, 0, at, wanted != 0 ? found : 1u - found);
  }
}

template <class K, uint32_t wanted>
void findComponentRows(const RowOperands& o) {
  findRows<wanted>(o, [&o](uint32_t i, uint32_t at) {
    return applyKernel<K>(loadRow(o.in[0], i, at), loadRow(o.in[1], i, at));
  });
}

template <uint32_t wanted>
void findTruthRows(const RowOperands& o) {
  findRows<wanted>(
      o, [&o](uint32_t i, uint32_t at) { return booleanOf(loadRow(o.in[0], i, at) != 0u); });
}

// Calls `function` with the operands of the invocations at each position, as floats by component:
// operand k has counts[k] of them, and `results` are stored.
template <size_t operands, class Function>
[[gnu::always_inline]] inline void wholeRows(const RowOperands& o,
                                             const uint32_t (&counts)[operands], uint32_t results,
                                             Function function) {
  for (uint32_t at = 0; at < o.count; at += kRowLanes) {
    RowFloats in[operands][VM_COMPONENT_COUNT];
    RowFloats out[VM_COMPONENT_COUNT];
    for (size_t k = 0; k < operands; ++k) {
      for (uint32_t i = 0; i < counts[k]; ++i) in[k][i] = loadRow<RowFloats>(o.in[k], i, at);
    }
    function(out, in);
    for (uint32_t i = 0; i < results; ++i) storeRow(o.result, i, at, out[i]);
  }
}

// With the usual component counts known to the compiler.
template <class Function>
[[gnu::always_inline]] inline void withCount(uint32_t n, Function function) {
  if (n == 3) return function(std::integral_constant<uint32_t, 3>{});
  if (n == 2) return function(std::integral_constant<uint32_t, 2>{});
  if (n == 4) return function(std::integral_constant<uint32_t, 4>{});
  function(n);
}

inline void lengthRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<1>(o, {n}, 1, [n](auto& out, auto& in) { out[0] = vectorLength(in[0], n); });
  });
}
inline void distanceRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<2>(o, {n, n}, 1,
                 [n](auto& out, auto& in) { out[0] = vectorDistance(in[0], in[1], n); });
  });
}
inline void dotRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<2>(o, {n, n}, 1, [n](auto& out, auto& in) { out[0] = dotProduct(in[0], in[1], n); });
  });
}
inline void crossRows(const RowOperands& o) {
  wholeRows<2>(o, {3, 3}, 3, [](auto& out, auto& in) { crossProduct(out, in[0], in[1]); });
}
inline void normalizeRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<1>(o, {n}, n, [n](auto& out, auto& in) { normalizeVector(out, in[0], n); });
  });
}
inline void faceforwardRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<3>(o, {n, n, n}, n,
                 [n](auto& out, auto& in) { faceforwardVector(out, in[0], in[1], in[2], n); });
  });
}
inline void reflectRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<2>(o, {n, n}, n, [n](auto& out, auto& in) { reflectVector(out, in[0], in[1], n); });
  });
}
inline void refractRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<3>(o, {n, n, 1}, n,
                 [n](auto& out, auto& in) { refractVector(out, in[0], in[1], in[2][0], n); });
  });
}

inline void matrixMatrixRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<2>(o, {n * n, n * n}, n * n,
                 [n](auto& out, auto& in) { matrixTimesMatrix(out, in[0], in[1], n); });
  });
}
inline void vectorMatrixRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<2>(o, {n, n * n}, n,
                 [n](auto& out, auto& in) { vectorTimesMatrix(out, in[0], in[1], n); });
  });
}
inline void matrixVectorRows(const RowOperands& o) {
  withCount(o.n, [&o](auto n) {
    wholeRows<2>(o, {n * n, n}, n,
                 [n](auto& out, auto& in) { matrixTimesVector(out, in[0], in[1], n); });
  });
}

template <uint32_t results>
void noiseRows(const RowOperands& o) {
  wholeRows<1>(o, {o.n}, results, [&o](auto& out, auto& in) {
    using Half = decltype(lowHalf(out[0]));
    Half low[4], high[4];
    for (uint32_t i = 0; i < o.n; ++i) {
      low[i] = lowHalf(in[0][i]);
      high[i] = highHalf(in[0][i]);
    }
    const NoiseTables& tables = noiseTables();
    const RowFloats value = joinHalves(noiseOf<Half>(tables, kNoiseSettings, low, o.n),
                                       noiseOf<Half>(tables, kNoiseSettings, high, o.n));
    for (uint32_t i = 0; i < results; ++i) out[i] = value;
  });
}

// The shapes of the opcode table.
template <class K>
consteval RowFunction unary(Opcode) {
  return &componentRows<K, 0>;
}
template <class K>
consteval RowFunction scalarUnary(Opcode) {
  return &componentRows<K, 0>;
}
template <class K>
consteval RowFunction binary(Opcode) {
  return &componentRows<K, 0>;
}
template <class K>
consteval RowFunction scalarBinary(Opcode) {
  return &componentRows<K, 0>;
}
template <class K>
consteval RowFunction binaryVS(Opcode) {
  return &componentRows<K, 2>;
}
template <class K>
consteval RowFunction binarySV(Opcode) {
  return &componentRows<K, 1>;
}
template <class K>
consteval RowFunction ternary(Opcode) {
  return &componentRows<K, 0>;
}
template <class K>
consteval RowFunction ternaryVSS(Opcode) {
  return &componentRows<K, 6>;
}
template <class K>
consteval RowFunction ternaryVVS(Opcode) {
  return &componentRows<K, 4>;
}
template <class K>
consteval RowFunction ternarySSV(Opcode) {
  return &componentRows<K, 3>;
}
template <class K>
consteval RowFunction allOf(Opcode) {
  return &findComponentRows<K, 0>;
}
template <class K>
consteval RowFunction anyOf(Opcode) {
  return &findComponentRows<K, 1>;
}

consteval RowFunction functionOf(Opcode opcode) {
  switch (opcode) {
    case Opcode::LENGTH:
      return &lengthRows;
    case Opcode::DISTANCE:
      return &distanceRows;
    case Opcode::DOT:
      return &dotRows;
    case Opcode::CROSS:
      return &crossRows;
    case Opcode::NORMALIZE:
      return &normalizeRows;
    case Opcode::FACEFORWARD:
      return &faceforwardRows;
    case Opcode::REFLECT:
      return &reflectRows;
    case Opcode::REFRACT:
      return &refractRows;
    case Opcode::MUL_MAT_MAT:
      return &matrixMatrixRows;
    case Opcode::MUL_VEC_MAT:
      return &vectorMatrixRows;
    case Opcode::MUL_MAT_VEC:
      return &matrixVectorRows;
    case Opcode::ANY_B:
      return &findTruthRows<1>;
    case Opcode::ALL_B:
      return &findTruthRows<0>;
    case Opcode::NOISE1:
      return &noiseRows<1>;
    case Opcode::NOISE2:
      return &noiseRows<2>;
    case Opcode::NOISE3:
      return &noiseRows<3>;
    case Opcode::NOISE4:
      return &noiseRows<4>;
    default:
      return nullptr;
  }
}

constexpr RowFunctions kRowFunctions = {{
#define HANDLER(...) functionOf
#define KERNEL(shape, kernel) shape<kernel>
#define OPCODE(number, mnemonic, handler, ...) handler(Opcode::mnemonic),
#include "instructions/opcodes.def"
#undef OPCODE
#undef KERNEL
#undef HANDLER
}};

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine::batch
