// Products of square matrices and vectors.

#include "instructions/float_operands.h"
#include "instructions/handlers.h"
#include "instructions/vector_math.h"

namespace shadermachine {
namespace {

using Product = void (*)(float*, const float*, const float*, uint32_t);

void multiply(Machine& machine, Product product, bool resultIsMatrix) {
  uint32_t n;
  if (!fetchCount(machine, kMaxDimension, n)) return;
  if (n == 0) return stopRun(machine, VM_ERR_INVALID_SHADER);
  const Floats a(topSlot(machine, 1));
  const Floats b(topSlot(machine));
  float result[VM_COMPONENT_COUNT] = {};
  product(result, a.c, b.c, n);
  setInline(topSlot(machine, 1), result, resultIsMatrix ? n * n : n);
  popSlot(machine);
}

}  // namespace

void multiplyMatMat(Machine& machine) { multiply(machine, matrixTimesMatrix<float>, true); }
void multiplyVecMat(Machine& machine) { multiply(machine, vectorTimesMatrix<float>, false); }
void multiplyMatVec(Machine& machine) { multiply(machine, matrixTimesVector<float>, false); }

}  // namespace shadermachine
