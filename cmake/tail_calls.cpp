// Three handlers of the kinds that compilers treat differently; see TailCalls.cmake. Each of them
// ends in one jump.
#include <algorithm>
#include <cstring>

#include "engine/records.h"

#if !ENGINE_TAIL_CALLS
#error "no tail calls on this platform"
#endif

namespace shadermachine::engine {

Step plainKind(ENGINE_STATE) { ENGINE_NEXT; }

// The address of a parameter is taken, which some compilers only forget when they optimise.
Step addressKind(ENGINE_STATE) {
  float bound;
  std::memcpy(&bound, record->a, sizeof bound);
  scalar = std::max(scalar, bound);
  std::memcpy(record->d, &scalar, sizeof scalar);
  ENGINE_NEXT;
}

// Registers are kept over a call.
[[gnu::noinline]] float opaque(float x) {
  asm volatile("");
  return x + 1.0f;
}
Step callKind(ENGINE_STATE) {
  scalar = opaque(scalar);
  ENGINE_NEXT;
}

}  // namespace shadermachine::engine
