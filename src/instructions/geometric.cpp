// Geometric functions of float vectors.

#include "instructions/float_operands.h"
#include "instructions/handlers.h"
#include "instructions/vector_math.h"

namespace shadermachine {
namespace {

using Combination = float (*)(const float*, const float*, uint32_t);

// A[0] = a scalar made of the vectors A and B.
void combine(Machine& machine, Combination combination) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  const Floats a(topSlot(machine, 1));
  const Floats b(topSlot(machine));
  const float result = combination(a.c, b.c, n);
  storeFloats(topSlot(machine, 1), &result, 1);
  popSlot(machine);
}

}  // namespace

void length(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  const Floats x(topSlot(machine));
  const float result = vectorLength(x.c, n);
  storeFloats(topSlot(machine), &result, 1);
}

void distance(Machine& machine) { combine(machine, vectorDistance<float>); }
void dot(Machine& machine) { combine(machine, dotProduct<float>); }

void cross(Machine& machine) {
  const Floats a(topSlot(machine, 1));
  const Floats b(topSlot(machine));
  float result[3];
  crossProduct(result, a.c, b.c);
  setInline(topSlot(machine, 1), result, 3);
  popSlot(machine);
}

void normalize(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  const Floats x(topSlot(machine));
  float result[VM_COMPONENT_COUNT];
  normalizeVector(result, x.c, n);
  storeFloats(topSlot(machine), result, n);
}

void faceforward(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  const Floats normal(topSlot(machine, 2));
  const Floats incident(topSlot(machine, 1));
  const Floats reference(topSlot(machine));
  float result[VM_COMPONENT_COUNT];
  faceforwardVector(result, normal.c, incident.c, reference.c, n);
  storeFloats(topSlot(machine, 2), result, n);
  popSlots(machine, 2);
}

void reflect(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  const Floats incident(topSlot(machine, 1));
  const Floats normal(topSlot(machine));
  float result[VM_COMPONENT_COUNT];
  reflectVector(result, incident.c, normal.c, n);
  setInline(topSlot(machine, 1), result, n);
  popSlot(machine);
}

void refract(Machine& machine) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  const Floats incident(topSlot(machine, 2));
  const Floats normal(topSlot(machine, 1));
  const Floats eta(topSlot(machine));
  float result[VM_COMPONENT_COUNT];
  refractVector(result, incident.c, normal.c, eta.c[0], n);
  setInline(topSlot(machine, 2), result, n);
  popSlots(machine, 2);
}

}  // namespace shadermachine
