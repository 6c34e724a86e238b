// What a translated program is made of: records, each a handler address and its resolved operands,
// run one after another by handlers that end in a call of the next record's handler.
#pragma once

#include "form/form.h"
#include "machine/machine.h"

namespace shadermachine::engine {

// Values travel between neighbouring records in three registers: integers and booleans in the word
// register, floats in the scalar register, two to four components in the vector register.
using FloatVector = float __attribute__((vector_size(16)));
using WordVector = uint32_t __attribute__((vector_size(16)));
using IntVector = int32_t __attribute__((vector_size(16)));

using form::InlinedCall;
using form::Site;

// What records do at the end of their work. With tail calls each handler jumps to the next, without
// it returns to a loop. A compiler that calls where it should jump fills the host's stack, so the
// build asks for tail calls (cmake/TailCalls.cmake) only after it has seen the jumps. On Windows
// vectors are passed by address, and a jump would leave the frame that they lie in.
#if defined(SHADERMACHINE_TAIL_CALLS) && (defined(__x86_64__) || defined(__aarch64__)) && \
    !defined(_WIN32) && !defined(__CYGWIN__)
#define ENGINE_TAIL_CALLS 1
#else
#define ENGINE_TAIL_CALLS 0
#endif
#if defined(__clang__)
#define ENGINE_MUST_TAIL [[clang::musttail]]
#else
#define ENGINE_MUST_TAIL
#endif

struct Record;

#define ENGINE_STATE                                                        \
  [[maybe_unused]] const Record *record, [[maybe_unused]] Machine &machine, \
      [[maybe_unused]] uint32_t word, [[maybe_unused]] FloatVector vector,  \
      [[maybe_unused]] float scalar

#if ENGINE_TAIL_CALLS
using Step = void;
#define ENGINE_GO(next) ENGINE_MUST_TAIL return (next)->run((next), machine, word, vector, scalar)
#define ENGINE_STAY(handler) ENGINE_MUST_TAIL return handler(record, machine, word, vector, scalar)
#define ENGINE_END return
#else
struct Step {
  const Record* next;
  uint32_t word;
  FloatVector vector;
  float scalar;
};
#define ENGINE_GO(next) \
  return Step { (next), word, vector, scalar }
#define ENGINE_STAY(handler) return handler(record, machine, word, vector, scalar)
#define ENGINE_END \
  return Step { nullptr, word, vector, scalar }
#endif
// Nobody reads the registers after this record: they need not survive the calls it makes.
#define ENGINE_FORGET     \
  word = 0;               \
  vector = FloatVector{}; \
  scalar = 0.0f
#define ENGINE_NEXT ENGINE_GO(record + 1)

using RecordHandler = Step (*)(ENGINE_STATE);

// Operands are addresses: of a slot's words, of a constant, or of an entry of the index stack. The
// meaning of a to d, x, y and z is the handler's; d is always where a result is stored.
struct Record {
  RecordHandler run;
  const uint32_t* a;
  const uint32_t* b;
  const uint32_t* c;
  uint32_t* d;
  union {
    const Site* site;
    const Record* target;
    const uint32_t* e;
  };
  uint32_t x;
  uint32_t y;
  uint32_t z;
  uint32_t size;
};
static_assert(sizeof(Record) == 64);

// Runs records until one ends the run.
inline void runRecords(const Record* first, Machine& machine) {
#if ENGINE_TAIL_CALLS
  first->run(first, machine, 0, FloatVector{}, 0.0f);
#else
  Step step = {first, 0, FloatVector{}, 0.0f};
  while (step.next != nullptr) {
    step = step.next->run(step.next, machine, step.word, step.vector, step.scalar);
  }
#endif
}

}  // namespace shadermachine::engine
