// Functions of whole vectors and matrices, in registers. Sums start at 0.0 and run in increasing
// component order, as in the plain handlers' functions.

#include <cmath>

#include "engine/steps.h"
#include "engine/vectors.h"
#include "instructions/vector_math.h"
#include "noise/evaluation.h"

namespace shadermachine::engine {
namespace {

template <uint32_t n>
float sumOf(FloatVector terms) {
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) sum = sum + terms[i];
  return sum;
}

// 0.0 and a square are that square, which is no -0.0.
template <uint32_t n>
float sumOfSquares(FloatVector x) {
  const FloatVector squares = x * x;
  float sum = squares[0];
  for (uint32_t i = 1; i < n; ++i) sum = sum + squares[i];
  return sum;
}

struct Length {
  template <uint32_t n>
  static float apply(FloatVector x, FloatVector) {
    return std::sqrt(sumOfSquares<n>(x));
  }
};
struct Distance {
  template <uint32_t n>
  static float apply(FloatVector a, FloatVector b) {
    return std::sqrt(sumOfSquares<n>(a - b));
  }
};
struct Dot {
  template <uint32_t n>
  static float apply(FloatVector a, FloatVector b) {
    return sumOf<n>(a * b);
  }
};
struct Normalize {
  template <uint32_t n>
  static FloatVector apply(FloatVector x, FloatVector) {
    return x * splat(1.0f / std::sqrt(sumOfSquares<n>(x)));
  }
};
struct Cross {
  template <uint32_t n>
  static FloatVector apply(FloatVector x, FloatVector y) {
    const FloatVector x1 = __builtin_shufflevector(x, x, 1, 2, 0, 3);
    const FloatVector x2 = __builtin_shufflevector(x, x, 2, 0, 1, 3);
    const FloatVector y1 = __builtin_shufflevector(y, y, 1, 2, 0, 3);
    const FloatVector y2 = __builtin_shufflevector(y, y, 2, 0, 1, 3);
    return x1 * y2 - y1 * x2;
  }
};
struct Reflect {
  template <uint32_t n>
  static FloatVector apply(FloatVector incident, FloatVector normal) {
    const float d = sumOf<n>(normal * incident);
    return incident - normal * splat(d + d);
  }
};

template <class Function, uint32_t n, unsigned form, bool stores>
Step geometryStep(ENGINE_STATE) {
  const FloatVector a = (form & 1) != 0 ? vector : loadVector<n>(record->a);
  const FloatVector b = (form & 2) != 0 ? vector : loadVector<n>(record->b);
  const auto result = Function::template apply<n>(a, b);
  if constexpr (std::is_same_v<decltype(result), const float>) {
    scalar = result;
    if constexpr (stores) std::memcpy(record->d, &result, sizeof result);
  } else {
    vector = result;
    if constexpr (stores) storeVector<n>(record->d, result);
  }
  ENGINE_NEXT;
}

template <class Function, uint32_t n>
StepPair geometryForm(unsigned form) {
  constexpr StepPair kSteps[] = {
      {&geometryStep<Function, n, 0, false>, &geometryStep<Function, n, 0, true>},
      {&geometryStep<Function, n, 1, false>, &geometryStep<Function, n, 1, true>},
      {&geometryStep<Function, n, 2, false>, &geometryStep<Function, n, 2, true>},
      {&geometryStep<Function, n, 3, false>, &geometryStep<Function, n, 3, true>}};
  return kSteps[form];
}

template <class Function>
StepPair geometrySteps(uint32_t n, unsigned form) {
  return n == 2   ? geometryForm<Function, 2>(form)
         : n == 3 ? geometryForm<Function, 3>(form)
                  : geometryForm<Function, 4>(form);
}

template <uint32_t n, unsigned form, bool stores>
Step dotMaxStep(ENGINE_STATE) {
  const FloatVector a = (form & 1) != 0 ? vector : loadVector<n>(record->a);
  const FloatVector b = (form & 2) != 0 ? vector : loadVector<n>(record->b);
  const float bound = std::bit_cast<float>(*record->c);
  scalar = MaxF{}(Dot::apply<n>(a, b), bound);
  if constexpr (stores) std::memcpy(record->d, &scalar, sizeof scalar);
  ENGINE_NEXT;
}

template <uint32_t n>
StepPair dotMaxForm(unsigned form) {
  constexpr StepPair kSteps[] = {{&dotMaxStep<n, 0, false>, &dotMaxStep<n, 0, true>},
                                 {&dotMaxStep<n, 1, false>, &dotMaxStep<n, 1, true>},
                                 {&dotMaxStep<n, 2, false>, &dotMaxStep<n, 2, true>},
                                 {&dotMaxStep<n, 3, false>, &dotMaxStep<n, 3, true>}};
  return kSteps[form];
}

// One-operand functions read b as a.
template <class Function>
StepPair oneOperandSteps(uint32_t n, unsigned form) {
  return geometrySteps<Function>(n, form == 0 ? 0 : 3);
}

template <uint32_t n, bool stores>
Step refractStep(ENGINE_STATE) {
  const FloatVector incident = loadVector<n>(record->a);
  const FloatVector normal = loadVector<n>(record->b);
  const float eta = std::bit_cast<float>(*record->c);
  const float d = sumOf<n>(incident * normal);
  const float k = 1.0f - (eta * eta) * (1.0f - d * d);
  vector = FloatVector{};
  if (!(k < 0.0f)) vector = incident * splat(eta) - normal * splat(eta * d + std::sqrt(k));
  if constexpr (stores) storeVector<n>(record->d, vector);
  ENGINE_NEXT;
}

template <uint32_t n, bool stores>
Step faceforwardStep(ENGINE_STATE) {
  const FloatVector kept = loadVector<n>(record->a);
  const float d = sumOf<n>(loadVector<n>(record->c) * loadVector<n>(record->b));
  vector = d < 0.0f ? kept : splat(0.0f) - kept;
  if constexpr (stores) storeVector<n>(record->d, vector);
  ENGINE_NEXT;
}

// Column k of an n times n matrix. The last 3-component column must not read past the slot.
template <uint32_t n>
FloatVector column(const uint32_t* matrix, uint32_t k) {
  return loadVector<n>(matrix + k * n);
}

template <uint32_t n, bool inRegister, bool stores>
Step matrixVectorStep(ENGINE_STATE) {
  const FloatVector x = inRegister ? vector : loadVector<n>(record->b);
  FloatVector sum = {};
  for (uint32_t k = 0; k < n; ++k) sum = sum + column<n>(record->a, k) * splat(x[k]);
  vector = sum;
  if constexpr (stores) storeVector<n>(record->d, sum);
  ENGINE_NEXT;
}

template <uint32_t n, bool inRegister, bool stores>
Step vectorMatrixStep(ENGINE_STATE) {
  const FloatVector x = inRegister ? vector : loadVector<n>(record->a);
  FloatVector result = {};
  for (uint32_t c = 0; c < n; ++c) result[c] = sumOf<n>(x * column<n>(record->b, c));
  vector = result;
  if constexpr (stores) storeVector<n>(record->d, result);
  ENGINE_NEXT;
}

// Apart from their handlers: a handler with an array of its own cannot end in a jump.
[[gnu::noinline]] float noiseOf(const uint32_t* words, uint32_t n) {
  float point[4] = {};
  std::memcpy(point, words, n * sizeof(float));
  return noiseScalar(point, n);
}

[[gnu::noinline]] void multiplyMatrices(const Record& record) {
  float a[VM_COMPONENT_COUNT];
  float b[VM_COMPONENT_COUNT];
  float result[VM_COMPONENT_COUNT] = {};
  const uint32_t n = record.x;
  std::memcpy(a, record.a, n * n * sizeof(float));
  std::memcpy(b, record.b, n * n * sizeof(float));
  matrixTimesMatrix(result, a, b, n);
  std::memcpy(record.d, result, n * n * sizeof(float));
}

template <uint32_t results, bool stores>
Step noiseStep(ENGINE_STATE) {
  const float value = noiseOf(record->a, record->x);
  if constexpr (results == 1) {
    scalar = value;
    if constexpr (stores) std::memcpy(record->d, &value, sizeof value);
  } else {
    vector = splat(value);
    if constexpr (stores) storeVector<results == 2 ? 2 : 4>(record->d, vector);
  }
  ENGINE_NEXT;
}

template <uint32_t n>
StepPair refractPair() {
  return {&refractStep<n, false>, &refractStep<n, true>};
}
template <uint32_t n>
StepPair faceforwardPair() {
  return {&faceforwardStep<n, false>, &faceforwardStep<n, true>};
}
template <uint32_t n>
StepPair matrixVectorPair(bool inRegister) {
  if (inRegister) return {&matrixVectorStep<n, true, false>, &matrixVectorStep<n, true, true>};
  return {&matrixVectorStep<n, false, false>, &matrixVectorStep<n, false, true>};
}
template <uint32_t n>
StepPair vectorMatrixPair(bool inRegister) {
  if (inRegister) return {&vectorMatrixStep<n, true, false>, &vectorMatrixStep<n, true, true>};
  return {&vectorMatrixStep<n, false, false>, &vectorMatrixStep<n, false, true>};
}

}  // namespace

StepPair lengthSteps(uint32_t n, unsigned form) { return oneOperandSteps<Length>(n, form); }
StepPair normalizeSteps(uint32_t n, unsigned form) { return oneOperandSteps<Normalize>(n, form); }
StepPair distanceSteps(uint32_t n, unsigned form) { return geometrySteps<Distance>(n, form); }
StepPair dotSteps(uint32_t n, unsigned form) { return geometrySteps<Dot>(n, form); }
StepPair dotMaxSteps(uint32_t n, unsigned form) {
  return n == 2 ? dotMaxForm<2>(form) : n == 3 ? dotMaxForm<3>(form) : dotMaxForm<4>(form);
}
StepPair crossSteps(unsigned form) { return geometrySteps<Cross>(3, form); }
StepPair reflectSteps(uint32_t n, unsigned form) { return geometrySteps<Reflect>(n, form); }

StepPair refractSteps(uint32_t n) {
  return n == 2 ? refractPair<2>() : n == 3 ? refractPair<3>() : refractPair<4>();
}

StepPair faceforwardSteps(uint32_t n) {
  return n == 2 ? faceforwardPair<2>() : n == 3 ? faceforwardPair<3>() : faceforwardPair<4>();
}

StepPair matrixVectorSteps(uint32_t n, unsigned form) {
  const bool inRegister = (form & 2) != 0;
  return n == 2   ? matrixVectorPair<2>(inRegister)
         : n == 3 ? matrixVectorPair<3>(inRegister)
                  : matrixVectorPair<4>(inRegister);
}

StepPair vectorMatrixSteps(uint32_t n, unsigned form) {
  const bool inRegister = (form & 1) != 0;
  return n == 2   ? vectorMatrixPair<2>(inRegister)
         : n == 3 ? vectorMatrixPair<3>(inRegister)
                  : vectorMatrixPair<4>(inRegister);
}

Step matrixMatrixStep(ENGINE_STATE) {
  multiplyMatrices(*record);
  ENGINE_NEXT;
}

StepPair noiseSteps(uint32_t results) {
  constexpr StepPair kSteps[] = {{&noiseStep<1, false>, &noiseStep<1, true>},
                                 {&noiseStep<2, false>, &noiseStep<2, true>},
                                 {&noiseStep<3, false>, &noiseStep<3, true>},
                                 {&noiseStep<4, false>, &noiseStep<4, true>}};
  return kSteps[results - 1];
}

}  // namespace shadermachine::engine
