// Records on rows: a row holds one 32-bit word of each invocation of a group. What every kernel and
// function of vectors computes for one invocation is computed for all of a group here, in the
// vectors of an instruction set.
//
//  - Rows are aligned to their size. Whole vectors are worked on: words of invocations that do not
//    take part are read and written, and mean nothing. Where they do mean something, in the rows of
//    variables, the masked form of a record keeps them.
//  - An operand's or result's component is a row anywhere. The result of a component may be the row
//    of the same component of an operand, or of one that only components before it read.
//  - Only the invocations with the lowest position run; the others wait at joins, which are
//    numbered in the order of the records.
#pragma once

#include <cstdint>

#include "machine/time_limit.h"

namespace shadermachine::batch {

inline constexpr uint32_t kRowWords = 64;
inline constexpr uint32_t kRowBytes = kRowWords * sizeof(uint32_t);

struct RowRecord;
struct RowState;

// Does a record's work and returns the record that is next; null when no invocation is left, or the
// time is over.
using RowStep = const RowRecord* (*)(const RowRecord* record, RowState& state);

struct HostRequest;

// Indices that say how many rows further a part begins.
struct RowPath {
  static constexpr uint32_t kMost = 3;
  uint32_t count;
  uint32_t checked;  // reads: invocations where one of so many reaches its bound end
  struct {
    uint32_t stride;
    uint32_t bound;
  } steps[kMost];
};

// What a step makes of the fields, if not this, is told where it is declared.
struct RowRecord {
  RowStep run;
  uint32_t* const* result;       // rows by component
  const uint32_t* const* in[3];  // likewise; one row of what is a scalar
  union {
    const RowRecord* target;  // the join that a jump leads to
    const HostRequest* request;
    const RowPath* path;
  };
  uint32_t n;     // components, as the instruction says; dimension of matrices; an error
  uint32_t join;  // number of a join
};
static_assert(sizeof(RowRecord) == 56);

inline constexpr uint32_t kNoJoin = UINT32_MAX;

struct RowState {
  alignas(64) uint32_t mask[kRowWords];  // all ones for those that run; when not isWhole only
  uint64_t active;                       // invocations that run
  uint32_t begin;                        // whole vectors between these words hold all of them
  uint32_t end;
  uint32_t isWhole;    // nobody waits anywhere
  uint32_t lowest;     // join where somebody waits, or kNoJoin
  uint64_t* waiting;   // by join: who waits there
  uint64_t* joinBits;  // a bit per join: somebody waits
  uint32_t joinCount;
  uint32_t isOver;  // the time is
  const RowRecord* const* joins;
  TimeLimit* timeLimit;
  uint32_t* errors;                  // by invocation
  void (*deliver)(RowState& state);  // the outputs of those that run
  void* host;
};

enum class InstructionSet { Baseline, Avx2, Avx512 };

struct StepForms {
  RowStep plain;
  RowStep masked;
};

struct RowFunctions {
  // By opcode; null for those that do more than compute a value from values. Instructions that
  // write fewer words than they read leave the others alone.
  StepForms byOpcode[256];
  // By opcode, for comparisons of one component: goes to the target where the outcome is 0.
  RowStep branches[256];
  StepForms copy;     // n rows of in[0]
  StepForms element;  // component in[1] of the n of in[0]; ends those outside
  StepForms column;   // column in[1] of the n times n matrix in[0]; likewise
  // n rows from row in[0] on, so much further as the path's indices in[1] say; likewise.
  StepForms readPart;
  RowStep storePart;   // the rows in[0] into those; nothing where an index reaches its bound
  RowStep checkIndex;  // ends invocations where in[0] reaches n
  StepForms divideByConstant;  // DIV_I whose second operand is the same for all
  RowStep branch;              // to the target, further on, where in[0] is 0
  RowStep loopBranch;          // to the target, further back, where in[0] is 0; a join follows
  RowStep join;                // those who wait here go on together
  RowStep jump;                // to the target, further on
  RowStep jumpBack;            // to the target, further back
  RowStep clock;               // looks at the time
  RowStep stop;                // with error n
  RowStep finish;              // likewise, outputs included
  void (*start)(RowState& state, uint64_t invocations);
  void (*clear)(uint32_t* const* rows, uint32_t count);
};

// Null where the processor lacks it or the library was built without it.
const RowFunctions* rowFunctions(InstructionSet set);
const RowFunctions& bestRowFunctions();

}  // namespace shadermachine::batch
