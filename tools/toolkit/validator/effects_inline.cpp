// Scalars, vectors and matrices: instructions on inline values.

#include <algorithm>

#include "effects.h"
#include "instructions/operand_shapes.h"

namespace shadermachine::tools::effects {
namespace {

// Reads words of the top value and writes others over its first ones; the rest stay as they were.
void overwrite(Step& step, uint32_t reads, uint32_t written) {
  step.needWords(0, reads);
  step.write(0, written);
}

uint32_t count(const Step& step) { return step.operand(0); }

// The bits of a number that is not negative leave no sign.
bool givesPosition(const Step& step) {
  return step.instruction.opcode == Opcode::BIT_AND && count(step) != 0 &&
         (step.stack.below(0).isPosition || step.stack.below(1).isPosition);
}

// Noise and products have no meaning without components.
bool isZero(Step& step, const OperandShape& shape) {
  const bool hasMatrix = shape.in[0] == WordCount::NSquared || shape.in[1] == WordCount::NSquared;
  if (count(step) != 0 || (shape.results == 0 && !hasMatrix)) return false;
  step.error(hasMatrix ? "dimension 0" : "count 0");
  step.end();
  return true;
}

}  // namespace

void shaped(Step& step) {
  const OperandShape& shape = operandShape(step.instruction.opcode);
  if (isZero(step, shape)) return;
  const uint32_t n = count(step);
  // Asked before the operands leave the stack.
  const bool isPosition = givesPosition(step);
  for (uint32_t i = 0; i < shape.operands; ++i) {
    step.needWords(shape.operands - 1 - i, shape.operandWords(i, n));
  }
  step.stack.drop(shape.operands - 1u);
  if (shape.replacesSlot) {
    step.stack.set(0, inlineSlot(shape.resultWords(n)));
  } else {
    step.write(0, shape.resultWords(n));
  }
  if (isPosition) step.stack.below(0).isPosition = true;
}

void anyTrue(Step& step) { overwrite(step, count(step), 1); }
void allTrue(Step& step) { overwrite(step, count(step), 1); }

void swizzle(Step& step) {
  const uint32_t n = step.operand(1);
  step.needWords(0, swizzleReach(step.operand(2), n));
  step.stack.set(0, inlineSlot(n));
}

void vectorElement(Step& step) { overwrite(step, count(step), 1); }
void matrixColumn(Step& step) { overwrite(step, count(step) * count(step), count(step)); }

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
    // What does not fit into the result is not read either.
    const uint32_t taken = std::min(std::min(listed, kMaxComponents), components - filled);
    step.needWords(n - 1 - i, taken);
    filled += taken;
  }
  step.stack.drop(n - 1);
  step.write(0, filled);
}

// The upper left block of the one operand, itself a square matrix.
void takeBlock(Step& step, uint32_t dimension) {
  const uint32_t source = squareDimension(step.instruction.listedCount(0));
  overwrite(step, (dimension - 1) * source + dimension, dimension * dimension);
}

bool isOneOperandOf(const Step& step, uint32_t fewest, uint32_t most) {
  if (step.operand(0) != 1) return false;
  const uint32_t listed = step.instruction.listedCount(0);
  return listed >= fewest && listed <= most;
}

}  // namespace

void constructVectorOf(Step& step, uint32_t components) {
  if (!hasOperands(step, components)) return;
  if (isOneOperandOf(step, 1, 1)) return overwrite(step, 1, components);
  fillComponents(step, components);
}

void constructMatrixOf(Step& step, uint32_t dimension) {
  const uint32_t components = dimension * dimension;
  if (!hasOperands(step, components)) return;
  if (isOneOperandOf(step, 1, 1)) return overwrite(step, 1, components);
  if (isOneOperandOf(step, components, kMaxComponents)) return takeBlock(step, dimension);
  fillComponents(step, components);
}

}  // namespace shadermachine::tools::effects
