// One record on rows that lie one after another.
#pragma once

#include "batch/rows.h"

namespace shadermachine::tests {

inline void callRows(const batch::RowFunctions& functions, batch::RowStep run, uint32_t* result,
                     const uint32_t* const (&operands)[3], uint32_t n) {
  constexpr uint32_t kRows = 16;
  uint32_t* results[kRows];
  const uint32_t* in[3][kRows];
  for (uint32_t w = 0; w < kRows; ++w) {
    results[w] = result + w * batch::kRowWords;
    for (uint32_t k = 0; k < 3; ++k) in[k][w] = operands[k] + w * batch::kRowWords;
  }
  batch::RowRecord record = {};
  record.result = results;
  for (uint32_t k = 0; k < 3; ++k) record.in[k] = in[k];
  record.n = n;
  batch::RowState state = {};
  functions.start(state, ~uint64_t{0});
  run(&record, state);
}

}  // namespace shadermachine::tests
