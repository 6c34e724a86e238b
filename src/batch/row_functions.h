// The row functions of one instruction set: included by a source that defines SHADERMACHINE_TARGET
// and kVectorBytes, and is compiled for that set.
#pragma once

#include <cstring>

#include "batch/c_library.h"
#include "batch/noise.h"
#include "batch/row_flow.h"
#include "instructions/operand_shapes.h"
#include "instructions/vector_math.h"

namespace shadermachine::batch {
inline namespace SHADERMACHINE_TARGET {

// All that run have the same word.
inline bool isSameForAll(const RowState& state, const uint32_t* row) {
  const uint32_t first = row[std::countr_zero(state.active)];
  return findInvocations(state, [&](uint32_t at) { return loadRow(row, at) != first; }) == 0;
}

// What takes long is computed once where the operands are the same for all: functions of the time,
// say. False where they are not.
template <class K, bool masked>
bool componentOfSame(RowState& state, uint32_t* result, const uint32_t* a, const uint32_t* b) {
  if (!isSameForAll(state, a) || !isSameForAll(state, b)) return false;
  const auto someone = static_cast<uint32_t>(std::countr_zero(state.active));
  RowWords value;
  if constexpr (K::kOperands == 1) {
    value = applyKernel<K>(splat<RowWords>(a[someone]));
  } else {
    value = applyKernel<K>(splat<RowWords>(a[someone]), splat<RowWords>(b[someone]));
  }
  const RowStore<masked> store(state);
  RowRange(state).forEach([&](uint32_t at) { store(result, at, value); });
  return true;
}

// Bit i of `scalars`: operand i is a scalar, whatever the component.
template <class K, unsigned scalars, bool masked>
const RowRecord* componentRows(const RowRecord* record, RowState& state) {
  const RowStore<masked> store(state);
  const RowRange range(state);
  for (uint32_t i = 0; i < record->n; ++i) {
    uint32_t* const result = record->result[i];
    const auto rowOf = [&](uint32_t k) { return record->in[k][(scalars >> k & 1) != 0 ? 0 : i]; };
    const uint32_t* const a = rowOf(0);
    if constexpr (std::is_base_of_v<AsksCLibrary, K>) {
      if (componentOfSame<K, masked>(state, result, a, rowOf(K::kOperands - 1))) continue;
    }
    if constexpr (K::kOperands == 1) {
      range.forEach([&](uint32_t at) { store(result, at, applyKernel<K>(loadRow(a, at))); });
    } else if constexpr (K::kOperands == 2) {
      const uint32_t* const b = rowOf(1);
      range.forEach(
          [&](uint32_t at) { store(result, at, applyKernel<K>(loadRow(a, at), loadRow(b, at))); });
    } else {
      const uint32_t* const b = rowOf(1);
      const uint32_t* const c = rowOf(2);
      range.forEach([&](uint32_t at) {
        store(result, at, applyKernel<K>(loadRow(a, at), loadRow(b, at), loadRow(c, at)));
      });
    }
  }
  return record + 1;
}

// What DivI computes, by one multiplication: the reciprocal is a little too large, by more than its
// product with a dividend can be wrong and by less than would reach the next quotient.
template <bool masked>
const RowRecord* divideByConstant(const RowRecord* record, RowState& state) {
  using Ints = Like<RowWords, int32_t>;
  const RowStore<masked> store(state);
  for (uint32_t i = 0; i < record->n; ++i) {
    const uint32_t* const dividends = record->in[0][i];
    const auto divisor = static_cast<int32_t>(record->in[1][i][0]);
    if (divisor == 0 || divisor == -1) {
      RowRange(state).forEach([&](uint32_t at) {
        store(record->result[i], at, divisor == 0 ? RowWords{} : 0u - loadRow(dividends, at));
      });
      continue;
    }
    const double reciprocal = (1.0 + 0x1p-40) / divisor;
    RowRange(state).forEach([&](uint32_t at) {
      const auto a = loadRow<Ints>(dividends, at);
      const auto divide = [reciprocal](auto half) {
        return convertTo<int32_t>(convertTo<double>(half) * reciprocal);
      };
      const Ints quotients = joinHalves(divide(lowHalf(a)), divide(highHalf(a)));
      store(record->result[i], at, std::bit_cast<RowWords>(quotients));
    });
  }
  return record + 1;
}

// `wanted` where some component gives it, else the other truth value.
template <uint32_t wanted, bool masked, class Holds>
const RowRecord* findRows(const RowRecord* record, RowState& state, Holds holds) {
  const RowStore<masked> store(state);
  RowRange(state).forEach([&](uint32_t at) {
    RowWords found = {};
    for (uint32_t i = 0; i < record->n; ++i) found |= booleanOf(holds(i, at) == wanted);
    store(record->result[0], at, wanted != 0 ? found : 1u - found);
  });
  return record + 1;
}

template <class K, uint32_t wanted, bool masked>
const RowRecord* findComponentRows(const RowRecord* record, RowState& state) {
  return findRows<wanted, masked>(record, state, [record](uint32_t i, uint32_t at) {
    return applyKernel<K>(loadRow(record->in[0][i], at), loadRow(record->in[1][i], at));
  });
}

template <uint32_t wanted, bool masked>
const RowRecord* findTruthRows(const RowRecord* record, RowState& state) {
  return findRows<wanted, masked>(record, state, [record](uint32_t i, uint32_t at) {
    return booleanOf(loadRow(record->in[0][i], at) != 0u);
  });
}

// Calls `function` with the operands of the invocations at each position, as floats by component:
// operand k has counts[k] of them, and `results` are stored.
template <bool masked, size_t operands, class Function>
[[gnu::always_inline]] inline void wholeRows(const RowRecord* record, RowState& state,
                                             const uint32_t (&counts)[operands], uint32_t results,
                                             Function function) {
  const RowStore<masked> store(state);
  RowRange(state).forEach([&](uint32_t at) __attribute__((always_inline)) {
    RowFloats in[operands][VM_COMPONENT_COUNT];
    RowFloats out[VM_COMPONENT_COUNT];
    for (size_t k = 0; k < operands; ++k) {
      for (uint32_t i = 0; i < counts[k]; ++i) in[k][i] = loadRow<RowFloats>(record->in[k][i], at);
    }
    function(out, in);
    for (uint32_t i = 0; i < results; ++i) {
      store(record->result[i], at, std::bit_cast<RowWords>(out[i]));
    }
  });
}

// With the component count known to the compiler: vectors and matrices have up to 4.
template <class Function>
[[gnu::always_inline]] inline void withCount(uint32_t n, Function function) {
  if (n == 3) return function(std::integral_constant<uint32_t, 3>{});
  if (n == 2) return function(std::integral_constant<uint32_t, 2>{});
  if (n == 4) return function(std::integral_constant<uint32_t, 4>{});
  function(std::integral_constant<uint32_t, 1>{});
}

template <bool masked>
const RowRecord* lengthRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 1>(record, state, {n}, 1,
                         [n](auto& out, auto& in) { out[0] = vectorLength(in[0], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* distanceRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 2>(record, state, {n, n}, 1,
                         [n](auto& out, auto& in) { out[0] = vectorDistance(in[0], in[1], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* dotRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 2>(record, state, {n, n}, 1,
                         [n](auto& out, auto& in) { out[0] = dotProduct(in[0], in[1], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* crossRows(const RowRecord* record, RowState& state) {
  wholeRows<masked, 2>(record, state, {3, 3}, 3,
                       [](auto& out, auto& in) { crossProduct(out, in[0], in[1]); });
  return record + 1;
}
template <bool masked>
const RowRecord* normalizeRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 1>(record, state, {n}, n,
                         [n](auto& out, auto& in) { normalizeVector(out, in[0], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* faceforwardRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 3>(record, state, {n, n, n}, n, [n](auto& out, auto& in) {
      faceforwardVector(out, in[0], in[1], in[2], n);
    });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* reflectRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 2>(record, state, {n, n}, n,
                         [n](auto& out, auto& in) { reflectVector(out, in[0], in[1], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* refractRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 3>(record, state, {n, n, 1}, n, [n](auto& out, auto& in) {
      refractVector(out, in[0], in[1], in[2][0], n);
    });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* matrixMatrixRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 2>(record, state, {n * n, n * n}, n * n,
                         [n](auto& out, auto& in) { matrixTimesMatrix(out, in[0], in[1], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* vectorMatrixRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 2>(record, state, {n, n * n}, n,
                         [n](auto& out, auto& in) { vectorTimesMatrix(out, in[0], in[1], n); });
  });
  return record + 1;
}
template <bool masked>
const RowRecord* matrixVectorRows(const RowRecord* record, RowState& state) {
  withCount(record->n, [&](auto n) {
    wholeRows<masked, 2>(record, state, {n * n, n}, n,
                         [n](auto& out, auto& in) { matrixTimesVector(out, in[0], in[1], n); });
  });
  return record + 1;
}

template <uint32_t results, bool masked>
const RowRecord* noiseRows(const RowRecord* record, RowState& state) {
  wholeRows<masked, 1>(record, state, {record->n}, results, [record](auto& out, auto& in) {
    using Half = decltype(lowHalf(out[0]));
    Half low[4], high[4];
    for (uint32_t i = 0; i < record->n; ++i) {
      low[i] = lowHalf(in[0][i]);
      high[i] = highHalf(in[0][i]);
    }
    const NoiseTables& tables = noiseTables();
    const RowFloats value = joinHalves(noiseOf<Half>(tables, kNoiseSettings, low, record->n),
                                       noiseOf<Half>(tables, kNoiseSettings, high, record->n));
    for (uint32_t i = 0; i < results; ++i) out[i] = value;
  });
  return record + 1;
}

// Bit i: operand i is a scalar beside operands of several components.
consteval unsigned scalarOperands(const OperandShape& shape) {
  unsigned scalars = 0;
  for (unsigned i = 0; shape.out == WordCount::N && i < shape.operands; ++i) {
    if (shape.in[i] == WordCount::One) scalars |= 1u << i;
  }
  return scalars;
}

template <class K, KernelShape shape>
consteval StepForms kernelForms(Opcode) {
  if constexpr (shape == KernelShape::allOf) {
    return {&findComponentRows<K, 0, false>, &findComponentRows<K, 0, true>};
  } else if constexpr (shape == KernelShape::anyOf) {
    return {&findComponentRows<K, 1, false>, &findComponentRows<K, 1, true>};
  } else {
    constexpr unsigned kScalars = scalarOperands(kernelShape(shape));
    return {&componentRows<K, kScalars, false>, &componentRows<K, kScalars, true>};
  }
}

// Comparisons, and other instructions that give truth values of one component, as branches.
template <class K, KernelShape shape>
consteval RowStep kernelBranch(Opcode) {
  constexpr bool kIsReduction = shape == KernelShape::allOf || shape == KernelShape::anyOf;
  constexpr bool kGivesTruth = std::is_same_v<typename K::Result, uint32_t> && K::kOperands < 3;
  if constexpr (kGivesTruth && !kIsReduction && scalarOperands(kernelShape(shape)) == 0) {
    return &branchRows<K>;
  }
  return nullptr;
}
consteval RowStep noBranch(Opcode) { return nullptr; }

consteval StepForms functionOf(Opcode opcode) {
  switch (opcode) {
    case Opcode::LENGTH:
      return {&lengthRows<false>, &lengthRows<true>};
    case Opcode::DISTANCE:
      return {&distanceRows<false>, &distanceRows<true>};
    case Opcode::DOT:
      return {&dotRows<false>, &dotRows<true>};
    case Opcode::CROSS:
      return {&crossRows<false>, &crossRows<true>};
    case Opcode::NORMALIZE:
      return {&normalizeRows<false>, &normalizeRows<true>};
    case Opcode::FACEFORWARD:
      return {&faceforwardRows<false>, &faceforwardRows<true>};
    case Opcode::REFLECT:
      return {&reflectRows<false>, &reflectRows<true>};
    case Opcode::REFRACT:
      return {&refractRows<false>, &refractRows<true>};
    case Opcode::MUL_MAT_MAT:
      return {&matrixMatrixRows<false>, &matrixMatrixRows<true>};
    case Opcode::MUL_VEC_MAT:
      return {&vectorMatrixRows<false>, &vectorMatrixRows<true>};
    case Opcode::MUL_MAT_VEC:
      return {&matrixVectorRows<false>, &matrixVectorRows<true>};
    case Opcode::ANY_B:
      return {&findTruthRows<1, false>, &findTruthRows<1, true>};
    case Opcode::ALL_B:
      return {&findTruthRows<0, false>, &findTruthRows<0, true>};
    case Opcode::NOISE1:
      return {&noiseRows<1, false>, &noiseRows<1, true>};
    case Opcode::NOISE2:
      return {&noiseRows<2, false>, &noiseRows<2, true>};
    case Opcode::NOISE3:
      return {&noiseRows<3, false>, &noiseRows<3, true>};
    case Opcode::NOISE4:
      return {&noiseRows<4, false>, &noiseRows<4, true>};
    default:
      return {};
  }
}

#define OPCODE(number, mnemonic, handler, ...) handler(Opcode::mnemonic),
constexpr RowFunctions kRowFunctions = {
#define HANDLER(...) functionOf
#define KERNEL(shape, kernel) kernelForms<kernel, KernelShape::shape>
    .byOpcode =
        {
#include "instructions/opcodes.def"
        },
#undef KERNEL
#undef HANDLER
#define HANDLER(...) noBranch
#define KERNEL(shape, kernel) kernelBranch<kernel, KernelShape::shape>
    .branches =
        {
#include "instructions/opcodes.def"
        },
#undef KERNEL
#undef HANDLER
    .copy = {&copyRows<false>, &copyRows<true>},
    .element = {&elementRows<false>, &elementRows<true>},
    .column = {&columnRows<false>, &columnRows<true>},
    .readPart = {&readPart<false>, &readPart<true>},
    .storePart = &storePart,
    .checkIndex = &checkIndex,
    .divideByConstant = {&divideByConstant<false>, &divideByConstant<true>},
    .branch = &branchOnRow,
    .loopBranch = &loopBranch,
    .join = &joinHere,
    .jump = &jumpOn,
    .jumpBack = &jumpBack,
    .clock = &lookAtClock,
    .stop = &stopHere,
    .finish = &finishHere,
    .start = &start,
    .clear = &clearRows,
};
#undef OPCODE

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine::batch
