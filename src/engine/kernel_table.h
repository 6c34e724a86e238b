// For every component-wise instruction, the handlers that records can use.
#pragma once

#include "engine/records.h"

namespace shadermachine::engine {

enum class Register : uint8_t { Word, Scalar, Vector, None };

struct KernelForms {
  uint8_t operands;        // 0 for instructions that are not component-wise
  uint8_t scalarOperands;  // bit i: operand i is a scalar whatever the component count
  Register argument;       // register of one component
  Register result;
  bool singleWord;   // the result is one word, whatever the component count
  bool hasAllForms;  // else operands come from memory only
  // By component count 1 to 4, by form, and by whether the result is stored too. A form says which
  // operand comes from its register: 0 none; one and two operands: 1 the first, 2 the second, 3
  // both; three operands: the number of the operand.
  RecordHandler steps[4][4][2];
  // Comparisons of one component, by form.
  RecordHandler branches[4];
  RecordHandler loops[4];
};

struct StepPair {
  RecordHandler keep;   // leaves the result in a register only
  RecordHandler store;  // stores it too
};

// An operation besides the opcodes: the product of a vector and a scalar at b.
inline constexpr unsigned kScaleOperation = 256;
const KernelForms& scaleForms();

// A sum, difference, product or quotient of the result of a sum, difference or product, n
// components each: the first operation's operands and form as usual, the other operand of the
// second at c. swapped: c is the second operation's left operand.
bool isPairable(unsigned first, unsigned second);
StepPair pairSteps(unsigned first, unsigned second, bool swapped, uint32_t n, unsigned form);

// Indexed by opcode.
const KernelForms& kernelForms(unsigned opcode);

}  // namespace shadermachine::engine
