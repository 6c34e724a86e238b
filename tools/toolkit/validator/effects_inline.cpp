// Scalars, vectors and matrices: instructions on inline values.

#include <algorithm>
#include <initializer_list>

#include "effects.h"

namespace shadermachine::tools::effects {
namespace {

// Reads the given words of its operands, deepest first; drops all but the deepest.
void consume(Step& step, std::initializer_list<uint32_t> reads) {
  auto k = static_cast<uint32_t>(reads.size());
  for (uint32_t words : reads) step.needWords(--k, words);
  step.stack.drop(static_cast<uint32_t>(reads.size()) - 1);
}

// The result goes to the first words of the deepest operand's slot; the others stay as they were.
void overwrite(Step& step, std::initializer_list<uint32_t> reads, uint32_t written) {
  consume(step, reads);
  step.write(0, written);
}

// The result replaces the deepest operand's whole slot.
void replace(Step& step, std::initializer_list<uint32_t> reads, uint32_t words) {
  consume(step, reads);
  step.stack.set(0, inlineSlot(words));
}

uint32_t count(const Step& step) { return step.operand(0); }

// A count of 0 has no meaning for the instruction.
bool isZero(Step& step, const char* noun) {
  if (count(step) != 0) return false;
  step.error(noun, " 0");
  step.end();
  return true;
}

}  // namespace

void unary(Step& step) { overwrite(step, {count(step)}, count(step)); }
void scalarUnary(Step& step) { overwrite(step, {1}, 1); }

// The bits of a number that is not negative leave no sign.
void binary(Step& step) {
  const bool isPosition = step.instruction.opcode == Opcode::BIT_AND && count(step) != 0 &&
                          (step.stack.below(0).isPosition || step.stack.below(1).isPosition);
  overwrite(step, {count(step), count(step)}, count(step));
  if (isPosition) step.stack.below(0).isPosition = true;
}

void binaryVS(Step& step) { overwrite(step, {count(step), 1}, count(step)); }
void binarySV(Step& step) { overwrite(step, {1, count(step)}, count(step)); }
void scalarBinary(Step& step) { overwrite(step, {1, 1}, 1); }
void allOf(Step& step) { overwrite(step, {count(step), count(step)}, 1); }
void anyOf(Step& step) { allOf(step); }

void ternary(Step& step) { overwrite(step, {count(step), count(step), count(step)}, count(step)); }
void ternaryVSS(Step& step) { overwrite(step, {count(step), 1, 1}, count(step)); }
void ternaryVVS(Step& step) { overwrite(step, {count(step), count(step), 1}, count(step)); }
void ternarySSV(Step& step) { overwrite(step, {1, 1, count(step)}, count(step)); }

void multiplyMatMat(Step& step) {
  const uint32_t n = count(step);
  if (!isZero(step, "dimension")) replace(step, {n * n, n * n}, n * n);
}
void multiplyVecMat(Step& step) {
  const uint32_t n = count(step);
  if (!isZero(step, "dimension")) replace(step, {n, n * n}, n);
}
void multiplyMatVec(Step& step) {
  const uint32_t n = count(step);
  if (!isZero(step, "dimension")) replace(step, {n * n, n}, n);
}

void anyTrue(Step& step) { overwrite(step, {count(step)}, 1); }
void allTrue(Step& step) { overwrite(step, {count(step)}, 1); }

void swizzle(Step& step) {
  const uint32_t n = step.operand(1);
  const uint32_t mask = step.operand(2);
  uint32_t reads = 0;
  for (uint32_t i = 0; i < n; ++i) reads = std::max(reads, ((mask >> (2 * i)) & 3) + 1);
  replace(step, {reads}, n);
}

void vectorElement(Step& step) { overwrite(step, {count(step)}, 1); }
void matrixColumn(Step& step) { overwrite(step, {count(step) * count(step)}, count(step)); }

void length(Step& step) { overwrite(step, {count(step)}, 1); }
void distance(Step& step) { overwrite(step, {count(step), count(step)}, 1); }
void dot(Step& step) { overwrite(step, {count(step), count(step)}, 1); }
void cross(Step& step) { replace(step, {3, 3}, 3); }
void normalize(Step& step) { unary(step); }
void faceforward(Step& step) { ternary(step); }
void reflect(Step& step) { replace(step, {count(step), count(step)}, count(step)); }
void refract(Step& step) { replace(step, {count(step), count(step), 1}, count(step)); }

void writeNoise(Step& step, uint32_t results) {
  if (!isZero(step, "count")) overwrite(step, {count(step)}, results);
}

namespace {

// Largest count byte of a constructor's operand, whose words fill an inline value.
constexpr uint32_t kMaxComponents = VM_COMPONENT_COUNT;

bool hasOperands(Step& step, uint32_t components) {
  const uint32_t n = step.operand(0);
  if (n > components) {
    step.error(counted(n, "operand"), " for a result of ", counted(components, "component"));
    step.end();
    return false;
  }
  return n != 0 && step.needDepth(n);
}

// Takes the operands' components in order until the result is full.
void fillComponents(Step& step, uint32_t components) {
  const uint32_t n = step.operand(0);
  uint32_t filled = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t listed = step.instruction.listedCount(i);
    if (listed > kMaxComponents) step.error("count ", listed, " is above ", kMaxComponents);
    const uint32_t taken = std::min(std::min(listed, kMaxComponents), components - filled);
    step.needWords(n - 1 - i, taken);
    filled += taken;
  }
  step.stack.drop(n - 1);
  step.write(0, filled);
}

// The upper left block of the one operand, itself a square matrix.
void takeBlock(Step& step, uint32_t dimension) {
  const uint32_t listed = step.instruction.listedCount(0);
  const uint32_t source = listed >= 16 ? 4 : listed >= 9 ? 3 : 2;
  overwrite(step, {(dimension - 1) * source + dimension}, dimension * dimension);
}

bool isOneOperandOf(const Step& step, uint32_t fewest, uint32_t most) {
  if (step.operand(0) != 1) return false;
  const uint32_t listed = step.instruction.listedCount(0);
  return listed >= fewest && listed <= most;
}

}  // namespace

void constructVectorOf(Step& step, uint32_t components) {
  if (!hasOperands(step, components)) return;
  if (isOneOperandOf(step, 1, 1)) return overwrite(step, {1}, components);
  fillComponents(step, components);
}

void constructMatrixOf(Step& step, uint32_t dimension) {
  const uint32_t components = dimension * dimension;
  if (!hasOperands(step, components)) return;
  if (isOneOperandOf(step, 1, 1)) return overwrite(step, {1}, components);
  if (isOneOperandOf(step, components, kMaxComponents)) return takeBlock(step, dimension);
  fillComponents(step, components);
}

}  // namespace shadermachine::tools::effects
