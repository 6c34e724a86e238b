// Functions of whole vectors and matrices, shared by the plain handlers and the translating engine.
// Sums start at 0.0 and run in increasing component order. Matrices are stored by columns. Results
// must not overlap operands.
#pragma once

#include <cmath>
#include <cstdint>

namespace shadermachine {

inline float dotProduct(const float* a, const float* b, uint32_t n) {
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) sum = sum + a[i] * b[i];
  return sum;
}

inline float vectorLength(const float* x, uint32_t n) { return std::sqrt(dotProduct(x, x, n)); }

inline float vectorDistance(const float* a, const float* b, uint32_t n) {
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) {
    const float difference = a[i] - b[i];
    sum = sum + difference * difference;
  }
  return std::sqrt(sum);
}

inline void crossProduct(float* result, const float* x, const float* y) {
  result[0] = x[1] * y[2] - y[1] * x[2];
  result[1] = x[2] * y[0] - y[2] * x[0];
  result[2] = x[0] * y[1] - y[0] * x[1];
}

// No length is tested: a zero vector gives NaNs.
inline void normalizeVector(float* result, const float* x, uint32_t n) {
  const float r = 1.0f / vectorLength(x, n);
  for (uint32_t i = 0; i < n; ++i) result[i] = x[i] * r;
}

inline void reflectVector(float* result, const float* incident, const float* normal, uint32_t n) {
  const float d = dotProduct(normal, incident, n);
  for (uint32_t i = 0; i < n; ++i) result[i] = incident[i] - normal[i] * (d + d);
}

inline void refractVector(float* result, const float* incident, const float* normal, float eta,
                          uint32_t n) {
  const float d = dotProduct(incident, normal, n);
  const float k = 1.0f - (eta * eta) * (1.0f - d * d);
  if (k < 0.0f) {  // total reflection; a NaN goes on and gives NaNs
    for (uint32_t i = 0; i < n; ++i) result[i] = 0.0f;
    return;
  }
  const float c = eta * d + std::sqrt(k);
  for (uint32_t i = 0; i < n; ++i) result[i] = incident[i] * eta - normal[i] * c;
}

// Row r of the matrix-vector product a * b.
inline float rowProduct(const float* a, const float* b, uint32_t r, uint32_t n) {
  float sum = 0.0f;
  for (uint32_t k = 0; k < n; ++k) sum = sum + a[k * n + r] * b[k];
  return sum;
}

inline void matrixTimesVector(float* result, const float* a, const float* b, uint32_t n) {
  for (uint32_t r = 0; r < n; ++r) result[r] = rowProduct(a, b, r, n);
}

inline void vectorTimesMatrix(float* result, const float* a, const float* b, uint32_t n) {
  for (uint32_t c = 0; c < n; ++c) result[c] = dotProduct(a, b + c * n, n);
}

inline void matrixTimesMatrix(float* result, const float* a, const float* b, uint32_t n) {
  for (uint32_t c = 0; c < n; ++c) matrixTimesVector(result + c * n, a, b + c * n, n);
}

}  // namespace shadermachine
