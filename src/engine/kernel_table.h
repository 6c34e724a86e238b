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
  // Comparisons in loops: a jump back to one with its operands in memory; an increment before that
  // jump; an increment before a comparison of what it gives that closes the loop.
  RecordHandler jumpsAndTests;
  RecordHandler countsAndTests;
  RecordHandler countsAndLoops;
};

struct StepPair {
  RecordHandler keep;   // leaves the result in a register only
  RecordHandler store;  // stores it too
};

// Operations besides the opcodes: the product of a vector and a scalar at b, and the quotient of
// one integer and 2 to the power at b.
inline constexpr unsigned kScaleOperation = 256;
inline constexpr unsigned kShiftOperation = 257;

// pair_table.cpp: two operations in one record, the second on the first one's result, n components
// each. Floats: a sum, difference, product or quotient of a sum, difference or product. Integers
// and bits, of one component: sums, differences, products, XOR and AND of each other and of shifts,
// and what they give as a float. The first operation's operands and form as usual, the other
// operand of the second at c. swapped: c is the second operation's left operand. Integers have one
// form less and kFirstAndOther: the first one's left operand and the second one's other are the
// same value, in the register.
inline constexpr unsigned kFirstAndOther = 3;
bool isPairable(unsigned first, unsigned second, uint32_t n);
StepPair pairSteps(unsigned first, unsigned second, bool swapped, uint32_t n, unsigned form);

// By opcode, or one of the operations above.
const KernelForms& kernelForms(unsigned operation);

}  // namespace shadermachine::engine
