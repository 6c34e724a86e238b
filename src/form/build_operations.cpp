// The builder's arithmetic, constructors, swizzles and parts of values by index.

#include <algorithm>

#include "form/builder.h"
#include "instructions/operand_shapes.h"

namespace shadermachine::form {

// Arithmetic and functions ------------------------------------------------------------------------

bool Builder::buildOperation(Instance&, const Instruction& item) {
  const OperandShape& shape = operandShape(item.opcode);
  if (shape.operands == 0) return false;
  const bool counted = item.info().operands[0] != OperandKind::None;
  const uint32_t n = counted ? item.operands[0] : item.opcode == Opcode::CROSS ? 3 : 1;
  for (uint32_t i = 0; i < shape.operands; ++i) {
    if (!holdsWords(static_cast<int32_t>(i))) return false;
  }
  if (n > shape.most && shape.isComponentWise) return buildWide(item, n);
  if (n < shape.least || n > shape.most) return false;
  Operation made = operation(Kind::Operate, shape.resultWords(n));
  made.opcode = item.opcode;
  made.n = static_cast<uint8_t>(n);
  const int32_t below = shape.operands - 1;
  for (int32_t i = 0; i <= below; ++i) {
    made.in[i] = readTop(below - i, shape.operandWords(static_cast<uint32_t>(i), n));
  }
  pop(static_cast<uint32_t>(below));
  writeSlot(top_, {append(made), 0}, made.words, shape.replacesSlot);
  return true;
}

// A component-wise instruction on more components than a vector has, in steps of up to four.
bool Builder::buildWide(const Instruction& item, uint32_t n) {
  const OperandShape& shape = operandShape(item.opcode);
  if (n > kPlaceWords || shape.out != WordCount::N ||
      item.info().operands[0] != OperandKind::Count) {
    return false;
  }
  const int32_t below = shape.operands - 1;
  Operand operands[3];
  for (int32_t i = 0; i <= below; ++i) {
    operands[i] = readTop(below - i, shape.operandWords(static_cast<uint32_t>(i), n));
  }
  Operand results[4];
  uint32_t steps = 0;
  for (uint32_t from = 0; from < n; from += 4, ++steps) {
    Operation made = operation(Kind::Operate, std::min(4u, n - from));
    made.opcode = item.opcode;
    made.n = made.words;
    for (int32_t i = 0; i <= below; ++i) {
      made.in[i] = shape.in[i] == WordCount::N ? word(operands[i], from) : operands[i];
    }
    // Word i of the slot is word i of its part's operand.
    results[steps] = {append(made), 0};
  }
  pop(static_cast<uint32_t>(below));
  const Place scratch = kFirstScratchPlace + form_.scratchPlaces++;
  for (uint32_t i = 0; i < steps; ++i) {
    store(scratch, 4 * i, std::min(4u, n - 4 * i), results[i]);
  }
  writeSlot(top_, load(scratch, 0, n), n, false);
  return true;
}

// Constructors ------------------------------------------------------------------------------------

// n words as one value.
Operand Builder::compose(const Operand* words, uint32_t n) {
  bool run = true;
  bool constants = true;
  uint32_t values[4] = {};
  for (uint32_t i = 0; i < n; ++i) {
    run = run && words[i].value == words[0].value && words[i].first == words[0].first + i;
    constants = constants && constantOf(words[i], values[i]);
  }
  if (run) return words[0];
  if (constants) return constant(values, n);
  Operation made = operation(Kind::Compose, n);
  for (uint32_t i = 0; i < n; ++i) made.in[i] = words[i];
  return {append(made), 0};
}

// Any number of words, more than four of them through scratch words.
Operand Builder::gatherWords(const Operand* words, uint32_t n) {
  if (n <= 4) return compose(words, n);
  const Place scratch = kFirstScratchPlace + form_.scratchPlaces++;
  for (uint32_t i = 0; i < n; i += 4) {
    const uint32_t count = std::min(4u, n - i);
    store(scratch, i, count, compose(words + i, count));
  }
  return load(scratch, 0, n);
}

bool Builder::buildConstructor(Instance&, const Instruction& item) {
  constexpr uint32_t kLargestCount = 16;
  const uint32_t operands = item.operands[0];
  if (operands == 0) return true;
  const ConstructedShape made = constructedShape(item.opcode);
  const uint32_t n = made.words();
  if (operands > n) return false;
  for (uint32_t i = 0; i < operands; ++i) {
    const auto k = static_cast<int32_t>(operands - 1 - i);
    if (item.listedCount(i) > kLargestCount || !holdsWords(k)) return false;
  }
  const uint32_t single = operands == 1 ? item.listedCount(0) : 0;
  if (made.isMatrix && single == 1) return buildDiagonal(made.n);
  if (made.isMatrix && single >= n) return buildSubMatrix(squareDimension(single), made.n);

  Operand words[kPlaceWords];
  uint32_t filled = 0;
  for (uint32_t i = 0; i < operands; ++i) {
    const uint32_t count = std::min<uint32_t>(item.listedCount(i), n - filled);
    if (count == 0) continue;
    const Operand value = readTop(static_cast<int32_t>(operands - 1 - i), count);
    for (uint32_t j = 0; j < count; ++j) words[filled++] = word(value, j);
  }
  if (single == 1) {
    while (filled < n) words[filled++] = words[0];
  }
  pop(operands - 1);
  // Words that the operands do not reach stay the first operand's.
  if (filled > 0) writeSlot(top_, gatherWords(words, filled), filled, false);
  return true;
}

bool Builder::buildDiagonal(uint32_t dimension) {
  const Operand scalar = readTop(0, 1);
  const Operand zero = constantWord(0);
  Operand words[kPlaceWords];
  for (uint32_t i = 0; i < dimension * dimension; ++i) {
    words[i] = i % (dimension + 1) == 0 ? scalar : zero;
  }
  writeSlot(top_, gatherWords(words, dimension * dimension), dimension * dimension, false);
  return true;
}

bool Builder::buildSubMatrix(uint32_t from, uint32_t dimension) {
  const Operand matrix = readTop(0, from * from);
  if (from == dimension) return true;
  Operand words[kPlaceWords];
  for (uint32_t c = 0; c < dimension; ++c) {
    for (uint32_t r = 0; r < dimension; ++r) words[c * dimension + r] = word(matrix, c * from + r);
  }
  writeSlot(top_, gatherWords(words, dimension * dimension), dimension * dimension, false);
  return true;
}

// Parts -------------------------------------------------------------------------------------------

bool Builder::buildSwizzle(Instance&, const Instruction& item) {
  const uint32_t n = item.operands[1];
  const uint32_t mask = item.operands[2];
  if (n == 0 || n > 4 || !holdsWords(0)) return false;
  const Operand source = readTop(0, swizzleReach(mask, n));
  Operand words[4];
  for (uint32_t i = 0; i < n; ++i) words[i] = word(source, swizzleSelector(mask, i));
  writeSlot(top_, compose(words, n), n, true);
  return true;
}

// The top of the index stack; it is used up.
Operand Builder::takeIndex() {
  const Index& index = indices_[indexTop_];
  const bool known = index.epoch == epoch_ && index.operand.value != kNoValue;
  const Operand operand =
      known ? index.operand : load(kFirstIndexPlace + static_cast<Place>(indexTop_), 0, 1);
  --indexTop_;
  return operand;
}

bool Builder::buildElement(Instance&, const Instruction& item) {
  const uint32_t n = item.operands[0];
  if (n == 0 || n > kPlaceWords || !holdsWords(0) || indexTop_ < 0) return false;
  const Operand value = readTop(0, n);
  const Site* stop = site(item.end);
  const Operand index = takeIndex();
  uint32_t i = 0;
  if (constantOf(index, i) && i < n) {
    writeSlot(top_, word(value, i), 1, false);
    return true;
  }
  Operation made = operation(Kind::Element, 1);
  made.n = static_cast<uint8_t>(n);
  made.in[0] = value;
  made.in[1] = index;
  made.site = stop;
  writeSlot(top_, {append(made), 0}, 1, false);
  return true;
}

bool Builder::buildColumn(Instance&, const Instruction& item) {
  const uint32_t n = item.operands[0];
  if (n < 2 || n > 4 || !holdsWords(0) || indexTop_ < 0) return false;
  const Operand matrix = readTop(0, n * n);
  const Site* stop = site(item.end);
  const Operand index = takeIndex();
  uint32_t i = 0;
  if (constantOf(index, i) && i < n) {
    writeSlot(top_, word(matrix, i * n), n, false);
    return true;
  }
  Operation made = operation(Kind::Column, n);
  made.n = static_cast<uint8_t>(n);
  made.in[0] = matrix;
  made.in[1] = index;
  made.site = stop;
  writeSlot(top_, {append(made), 0}, n, false);
  return true;
}

}  // namespace shadermachine::form
