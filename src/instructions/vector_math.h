// Functions of whole vectors and matrices. F is a float, or a vector with the float of one
// invocation in every lane. Sums start at 0.0 and run in increasing component order. Matrices are
// stored by columns. Results must not overlap operands.
#pragma once

#include "instructions/values.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

template <class F>
F dotProduct(const F* a, const F* b, uint32_t n) {
  F sum = {};
  for (uint32_t i = 0; i < n; ++i) sum = sum + a[i] * b[i];
  return sum;
}

template <class F>
F vectorLength(const F* x, uint32_t n) {
  return squareRoot(dotProduct(x, x, n));
}

template <class F>
F vectorDistance(const F* a, const F* b, uint32_t n) {
  F sum = {};
  for (uint32_t i = 0; i < n; ++i) {
    const F difference = a[i] - b[i];
    sum = sum + difference * difference;
  }
  return squareRoot(sum);
}

template <class F>
void crossProduct(F* result, const F* x, const F* y) {
  result[0] = x[1] * y[2] - y[1] * x[2];
  result[1] = x[2] * y[0] - y[2] * x[0];
  result[2] = x[0] * y[1] - y[0] * x[1];
}

// No length is tested: a zero vector gives NaNs.
template <class F>
void normalizeVector(F* result, const F* x, uint32_t n) {
  const F r = 1.0f / vectorLength(x, n);
  for (uint32_t i = 0; i < n; ++i) result[i] = x[i] * r;
}

template <class F>
void reflectVector(F* result, const F* incident, const F* normal, uint32_t n) {
  const F d = dotProduct(normal, incident, n);
  for (uint32_t i = 0; i < n; ++i) result[i] = incident[i] - normal[i] * (d + d);
}

template <class F>
void refractVector(F* result, const F* incident, const F* normal, F eta, uint32_t n) {
  const F d = dotProduct(incident, normal, n);
  const F k = 1.0f - (eta * eta) * (1.0f - d * d);
  const F c = eta * d + squareRoot(k);
  for (uint32_t i = 0; i < n; ++i) {
    // Total reflection gives zeros; a NaN goes on and gives NaNs.
    result[i] = k < 0.0f ? F{} : incident[i] * eta - normal[i] * c;
  }
}

// A NaN product negates the normal too.
template <class F>
void faceforwardVector(F* result, const F* normal, const F* incident, const F* reference,
                       uint32_t n) {
  const F d = dotProduct(reference, incident, n);
  // A difference and no change of sign: 0.0 gives 0.0.
  for (uint32_t i = 0; i < n; ++i) result[i] = d < 0.0f ? normal[i] : 0.0f - normal[i];
}

// Row r of the matrix-vector product a * b.
template <class F>
F rowProduct(const F* a, const F* b, uint32_t r, uint32_t n) {
  F sum = {};
  for (uint32_t k = 0; k < n; ++k) sum = sum + a[k * n + r] * b[k];
  return sum;
}

template <class F>
void matrixTimesVector(F* result, const F* a, const F* b, uint32_t n) {
  for (uint32_t r = 0; r < n; ++r) result[r] = rowProduct(a, b, r, n);
}

template <class F>
void vectorTimesMatrix(F* result, const F* a, const F* b, uint32_t n) {
  for (uint32_t c = 0; c < n; ++c) result[c] = dotProduct(a, b + c * n, n);
}

template <class F>
void matrixTimesMatrix(F* result, const F* a, const F* b, uint32_t n) {
  for (uint32_t c = 0; c < n; ++c) matrixTimesVector(result + c * n, a, b + c * n, n);
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
