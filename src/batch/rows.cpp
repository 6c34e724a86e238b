#include "batch/rows.h"

#include <initializer_list>

namespace shadermachine::batch {

extern const RowFunctions kBaselineRows;
#if defined(SHADERMACHINE_X86_64_ROWS)
extern const RowFunctions kAvx2Rows;
extern const RowFunctions kAvx512Rows;
#endif

const RowFunctions* rowFunctions(InstructionSet set) {
  if (set == InstructionSet::Baseline) return &kBaselineRows;
#if defined(SHADERMACHINE_X86_64_ROWS)
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("avx2")) return nullptr;
  if (set == InstructionSet::Avx2) return &kAvx2Rows;
  // What all processors with vectors of 64 bytes but the first have.
  const bool isComplete = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
                          __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq");
  if (isComplete) return &kAvx512Rows;
#endif
  return nullptr;
}

const RowFunctions& bestRowFunctions() {
  for (const InstructionSet set : {InstructionSet::Avx512, InstructionSet::Avx2}) {
    const RowFunctions* functions = rowFunctions(set);
    if (functions != nullptr) return *functions;
  }
  return kBaselineRows;
}

}  // namespace shadermachine::batch
