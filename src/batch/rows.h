// Instructions on rows: a row holds one 32-bit word of each invocation of a group, a value of n
// words is n rows one after another. What every kernel and function of vectors computes for one
// invocation is computed for all of a group here, in the vectors of an instruction set.
//
//  - Rows are aligned to their size. Whole vectors are worked on: words beyond the count are read
//  and
//    written, and mean nothing.
//  - Results are rows of their own, none of the operands'.
#pragma once

#include <cstdint>

namespace shadermachine::batch {

inline constexpr uint32_t kRowWords = 64;
inline constexpr uint32_t kRowBytes = kRowWords * sizeof(uint32_t);

struct RowOperands {
  uint32_t* result;
  const uint32_t* in[3];
  uint32_t n;      // components, as the instruction says; dimension of matrices
  uint32_t count;  // invocations, at most kRowWords
};

using RowFunction = void (*)(const RowOperands&);

enum class InstructionSet { Baseline, Avx2, Avx512 };

// By opcode; null for those that do more than compute a value from values. Instructions that write
// fewer words than they read leave the others alone.
struct RowFunctions {
  RowFunction byOpcode[256];
};

// Null where the processor lacks it or the library was built without it.
const RowFunctions* rowFunctions(InstructionSet set);
const RowFunctions& bestRowFunctions();

}  // namespace shadermachine::batch
