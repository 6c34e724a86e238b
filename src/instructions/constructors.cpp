// Constructors of vectors and matrices: they move words, whatever their type.

#include "instructions/handlers.h"
#include "instructions/operand_shapes.h"

namespace shadermachine {
namespace {

// The operand counts of one instruction.
struct CountList {
  uint32_t length;
  uint8_t counts[VM_COMPONENT_COUNT];
};

// An operand list longer than the result has components ends the run; so does a count byte above
// 24, the largest from which a 4x4 block can be taken.
bool fetchCounts(Machine& machine, uint32_t components, CountList& list) {
  constexpr uint8_t kMaxCount = 24;
  list.length = fetchU16(machine);
  bool valid = list.length <= components;
  for (uint32_t i = 0; i < list.length; ++i) {
    const uint8_t count = fetchU8(machine);
    // Read to the end all the same: the run then ends behind the whole instruction.
    if (count > kMaxCount) valid = false;
    if (valid) list.counts[i] = count;
  }
  if (!valid) stopRun(machine, VM_ERR_INVALID_SHADER);
  return valid;
}

const ValueSlot& operand(Machine& machine, const CountList& list, uint32_t i) {
  return topSlot(machine, static_cast<int32_t>(list.length - 1 - i));
}

ValueSlot& resultSlot(Machine& machine, const CountList& list) {
  return topSlot(machine, static_cast<int32_t>(list.length - 1));
}

// Takes the operands' components in order until the result is full; components that they do not
// reach keep what the first operand's slot held.
void fillComponents(Machine& machine, const CountList& list, uint32_t components) {
  uint32_t* result = resultSlot(machine, list).value.words;
  // The result grows over the first operand, whose words are copied onto themselves before any
  // others follow.
  uint32_t filled = 0;
  for (uint32_t i = 0; i < list.length; ++i) {
    const uint32_t* source = operand(machine, list, i).value.words;
    for (uint32_t j = 0; j < list.counts[i] && filled < components; ++j) {
      result[filled++] = source[j];
    }
  }
}

void makeDiagonal(uint32_t* words, uint32_t dimension) {
  const uint32_t scalar = words[0];
  for (uint32_t i = 0; i < dimension * dimension; ++i) {
    words[i] = i % (dimension + 1) == 0 ? scalar : 0;
  }
}

// In this order no source component is overwritten before it is read.
void takeBlock(uint32_t* words, uint32_t sourceDimension, uint32_t dimension) {
  for (uint32_t c = 0; c < dimension; ++c) {
    for (uint32_t r = 0; r < dimension; ++r) {
      words[c * dimension + r] = words[c * sourceDimension + r];
    }
  }
}

}  // namespace

void constructVectorOf(Machine& machine, uint32_t components) {
  CountList list;
  if (!fetchCounts(machine, components, list) || list.length == 0) return;
  if (list.length == 1 && list.counts[0] == 1) {
    uint32_t* words = topSlot(machine).value.words;
    for (uint32_t i = 1; i < components; ++i) words[i] = words[0];
    return;
  }
  fillComponents(machine, list, components);
  popSlots(machine, list.length - 1);
}

void constructMatrixOf(Machine& machine, uint32_t dimension) {
  const uint32_t components = dimension * dimension;
  CountList list;
  if (!fetchCounts(machine, components, list) || list.length == 0) return;
  uint32_t* words = resultSlot(machine, list).value.words;
  if (list.length == 1 && list.counts[0] == 1) {
    makeDiagonal(words, dimension);
  } else if (list.length == 1 && list.counts[0] >= components) {
    takeBlock(words, squareDimension(list.counts[0]), dimension);
  } else {
    fillComponents(machine, list, components);
  }
  popSlots(machine, list.length - 1);
}

}  // namespace shadermachine
