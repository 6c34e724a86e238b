// Plain handlers of the component-wise instructions: one template per shape, one kernel per
// operation. Names follow the operands: V a vector, S a scalar (component 0 of its slot).
#pragma once

#include "instructions/kernels.h"
#include "machine/machine.h"

namespace shadermachine {

// T[i] = K(T[i])
template <class K>
void unary(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, kernelLimit<K>(), n)) return;
  uint32_t* t = topSlot(machine).value.words;
  for (uint32_t i = 0; i < n; ++i) t[i] = applyKernel<K>(t[i]);
}

// T[0] = K(T[0])
template <class K>
void scalarUnary(Machine& machine) {
  uint32_t* t = topSlot(machine).value.words;
  t[0] = applyKernel<K>(t[0]);
}

// A[0] = K(A[0], B[0])
template <class K>
void scalarBinary(Machine& machine) {
  uint32_t* a = topSlot(machine, 1).value.words;
  a[0] = applyKernel<K>(a[0], topSlot(machine).value.words[0]);
  popSlot(machine);
}

// How the operands of an instruction vary with the component: a vector's do, a scalar's do not.
// Scalars are read before the loop, since the result may overwrite them.
struct Vector {
  const uint32_t* words;
  uint32_t operator[](uint32_t i) const { return words[i]; }
};
struct Scalar {
  explicit Scalar(const uint32_t* words) : word(words[0]) {}
  uint32_t word;
  uint32_t operator[](uint32_t) const { return word; }
};

template <class K, class Left, class Right>
void binaryForm(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, kernelLimit<K>(), n)) return;
  uint32_t* a = topSlot(machine, 1).value.words;
  const Left left{a};
  const Right right{topSlot(machine).value.words};
  for (uint32_t i = 0; i < n; ++i) a[i] = applyKernel<K>(left[i], right[i]);
  popSlot(machine);
}

template <class K, class First, class Second, class Third>
void ternaryForm(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, kernelLimit<K>(), n)) return;
  uint32_t* x = topSlot(machine, 2).value.words;
  const First first{x};
  const Second second{topSlot(machine, 1).value.words};
  const Third third{topSlot(machine).value.words};
  for (uint32_t i = 0; i < n; ++i) x[i] = applyKernel<K>(first[i], second[i], third[i]);
  popSlots(machine, 2);
}

template <class K>
void binary(Machine& machine) {
  binaryForm<K, Vector, Vector>(machine);
}
template <class K>
void binaryVS(Machine& machine) {
  binaryForm<K, Vector, Scalar>(machine);
}
template <class K>
void binarySV(Machine& machine) {
  binaryForm<K, Scalar, Vector>(machine);
}
template <class K>
void ternary(Machine& machine) {
  ternaryForm<K, Vector, Vector, Vector>(machine);
}
template <class K>
void ternaryVSS(Machine& machine) {
  ternaryForm<K, Vector, Scalar, Scalar>(machine);
}
template <class K>
void ternaryVVS(Machine& machine) {
  ternaryForm<K, Vector, Vector, Scalar>(machine);
}
template <class K>
void ternarySSV(Machine& machine) {
  ternaryForm<K, Scalar, Scalar, Vector>(machine);
}

// A[0] = `wanted` when K(A[i], B[i]) is `wanted` for some i, else the other truth value.
template <class K, uint32_t wanted>
void findComponent(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, kernelLimit<K>(), n)) return;
  uint32_t* a = topSlot(machine, 1).value.words;
  const uint32_t* b = topSlot(machine).value.words;
  uint32_t i = 0;
  while (i < n && applyKernel<K>(a[i], b[i]) != wanted) ++i;
  a[0] = i < n ? wanted : 1 - wanted;
  popSlot(machine);
}

template <class K>
void allOf(Machine& machine) {
  findComponent<K, 0>(machine);
}
template <class K>
void anyOf(Machine& machine) {
  findComponent<K, 1>(machine);
}

}  // namespace shadermachine
