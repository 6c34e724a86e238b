// The steps that ask the host: all invocations that run in one request, or one by one.
#include <algorithm>
#include <bit>

#include "batch/batch.h"
#include "batch/row_program.h"
#include "batch/row_selector.h"
#include "instructions/builtin_variables.h"
#include "instructions/lookup_form.h"

namespace shadermachine::batch {
namespace {

constexpr uint32_t kTicksPerCall = 128;

ShaderBatch& batchOf(RowState& state) { return *static_cast<ShaderBatch*>(state.host); }

BatchRequest groupOf(RowState& state, uint32_t* rows, uint32_t count) {
  ShaderBatch& batch = batchOf(state);
  return {rows,
          kRowWords,
          count,
          batch.invocation,
          batch.groupCount,
          state.active,
          batch.userData + batch.invocation};
}

// Host calls take time that jumps do not show.
const RowRecord* proceed(const RowRecord* record, RowState& state) {
  const auto calls = static_cast<uint64_t>(std::popcount(state.active));
  if (!chargeTimeLimit(*state.timeLimit, calls * kTicksPerCall)) return record + 1;
  state.isOver = 1;
  return nullptr;
}

void spread(const RowState& state, uint32_t* rows, uint32_t count) {
  for (uint32_t w = 0; w < count; ++w) {
    uint32_t* const row = rows + w * kRowWords;
    std::fill(row + state.begin, row + state.end, row[0]);
  }
}

template <class Function>
void forEachInvocation(const RowState& state, Function function) {
  for (uint64_t left = state.active; left != 0; left &= left - 1) {
    function(static_cast<uint32_t>(std::countr_zero(left)));
  }
}

struct Column {
  uint32_t words[VM_COMPONENT_COUNT];
};

Column takeColumn(const uint32_t* rows, uint32_t i, uint32_t count = VM_COMPONENT_COUNT) {
  Column column = {};
  for (uint32_t w = 0; w < count; ++w) column.words[w] = rows[w * kRowWords + i];
  return column;
}

void putColumn(uint32_t* rows, uint32_t i, const Column& column, uint32_t count) {
  for (uint32_t w = 0; w < count; ++w) rows[w * kRowWords + i] = column.words[w];
}

// The current index of every invocation; -1 without a row.
const int32_t* indicesOf(const uint32_t* row) {
  struct alignas(kRowBytes) Row {
    int32_t words[kRowWords];
  };
  static constexpr Row kNoIndices = [] {
    Row none = {};
    for (int32_t& index : none.words) index = -1;
    return none;
  }();
  return row == nullptr ? kNoIndices.words : reinterpret_cast<const int32_t*>(row);
}

uint64_t userDataOf(RowState& state, uint32_t i) {
  const ShaderBatch& batch = batchOf(state);
  return batch.userData[batch.invocation + i];
}

void answerOneByOne(RowState& state, const HostRequest& request, const VarInfo& info) {
  const VmHostVariableCallback callback = batchOf(state).callbacks.hostVariable;
  if (callback == nullptr) return;
  // The host finds there what was in the variable before, as in a machine's slot.
  forEachInvocation(state, [&](uint32_t i) {
    Column column = takeColumn(request.answer, i, request.words);
    const HostVariableRequest single = {
        column.words,        &info, request.number, info.count, indicesOf(request.index)[i],
        userDataOf(state, i)};
    callback(&single);
    putColumn(request.answer, i, column, request.words);
  });
}

// The values of a global that is a structure or array, one by one. As a rule they are the same for
// all: rows are filled then, not columns.
void fillBlocksOneByOne(RowState& state, const HostRequest& request, const VarInfo& info) {
  const ShaderBatch& batch = batchOf(state);
  const VmHostVariableCallback callback = batch.callbacks.hostVariable;
  const bool isFirst = request.isFirst != 0;
  for (uint32_t w = 0; isFirst && callback == nullptr && w < request.words; ++w) {
    std::fill_n(request.answer + w * kRowWords, kRowWords, 0u);
  }
  if (callback == nullptr) return;
  const auto first = static_cast<uint32_t>(std::countr_zero(state.active));
  uint32_t* const* const words = batch.rowProgram->blocks;
  // A block that is the same for all is read from its rows once.
  bool wasSame = true;
  for (uint32_t w = 0; wasSame && !isFirst && w < request.words; ++w) {
    const uint32_t* const row = request.answer + w * kRowWords;
    wasSame = std::memcmp(row, row + 1, (kRowWords - 1) * sizeof(uint32_t)) == 0;
  }
  uint32_t* const before = words[2];
  for (uint32_t w = 0; w < request.words; ++w) {
    before[w] = isFirst ? 0 : request.answer[w * kRowWords + first];
  }
  bool isSame = true;
  uint64_t unwritten = 0;  // those whose rows are to be filled with words[0]
  forEachInvocation(state, [&](uint32_t i) {
    uint32_t* const own = words[i == first ? 0 : 1];
    if (wasSame) std::memcpy(own, before, request.words * sizeof(uint32_t));
    for (uint32_t w = 0; !wasSame && w < request.words; ++w) {
      own[w] = request.answer[w * kRowWords + i];
    }
    const HostVariableRequest single = {
        own, &info, request.number, info.count, indicesOf(request.index)[i], userDataOf(state, i)};
    callback(&single);
    const bool isEqual =
        i == first || std::memcmp(own, words[0], request.words * sizeof(uint32_t)) == 0;
    isSame = isSame && isEqual;
    if (isEqual) unwritten |= uint64_t{1} << i;
    for (uint32_t w = 0; !isEqual && w < request.words; ++w) {
      request.answer[w * kRowWords + i] = own[w];
    }
  });
  const bool fillsRows = isSame && state.isWhole != 0;
  for (uint32_t w = 0; w < request.words; ++w) {
    uint32_t* const row = request.answer + w * kRowWords;
    if (fillsRows) {
      std::fill(row + state.begin, row + state.end, words[0][w]);
      continue;
    }
    for (uint64_t left = unwritten; left != 0; left &= left - 1) {
      row[std::countr_zero(left)] = words[0][w];
    }
  }
}

// Rows of a variable: those of invocations that wait keep their words, those of the first one too,
// where the answer for all stands.
BatchAnswer askForAggregate(RowState& state, const HostRequest& request, const VarInfo& info) {
  const ShaderBatch& batch = batchOf(state);
  const bool keepsFirst = (state.active & 1) == 0 && state.isWhole == 0;
  uint32_t* const before = batch.rowProgram->blocks[0];
  for (uint32_t w = 0; keepsFirst && w < request.words; ++w) {
    before[w] = request.answer[w * kRowWords];
  }
  const BatchVariableRequest wide = {groupOf(state, request.answer, request.words), &info,
                                     indicesOf(request.index), request.number};
  const BatchAnswer answer = batch.batchCallbacks.hostAggregate(&wide);
  if (answer != VM_BATCH_SAME_FOR_ALL) return answer;
  if (state.isWhole != 0) {
    spread(state, request.answer, request.words);
    return answer;
  }
  for (uint32_t w = 0; w < request.words; ++w) {
    uint32_t* const row = request.answer + w * kRowWords;
    const uint32_t word = row[0];
    if (keepsFirst) row[0] = before[w];
    forEachInvocation(state, [row, word](uint32_t i) { row[i] = word; });
  }
  return answer;
}

// Through a callback that fills one slot.
void fillOneByOne(RowState& state, const HostRequest& request, VmBuiltinCallback callback) {
  if (callback == nullptr) return;
  forEachInvocation(state, [&](uint32_t i) {
    Column column = takeColumn(request.answer, i);
    callback(column.words, 1, indicesOf(request.index)[i], userDataOf(state, i));
    putColumn(request.answer, i, column, VM_COMPONENT_COUNT);
  });
}

uint64_t samplerOf(const HostRequest& request, uint32_t i) {
  return request.answer[i] | uint64_t{request.answer[kRowWords + i]} << 32;
}

uint32_t paramOf(const HostRequest& request) { return request.number == 0 ? 16 : 0; }

void lookUpOneByOne(RowState& state, const HostRequest& request) {
  const VmLookupCallback callback = batchOf(state).callbacks.lookup[request.number];
  if (callback == nullptr) return;
  forEachInvocation(state, [&](uint32_t i) {
    Column result = takeColumn(request.answer, i);
    Column coords = takeColumn(request.coords, i);
    const LookupRequest single = {result.words,
                                  samplerOf(request, i),
                                  reinterpret_cast<float*>(coords.words),
                                  lookupKind(request.form),
                                  paramOf(request),
                                  request.extra == nullptr ? 0 : request.extra[i],
                                  request.extra == nullptr ? 0u : 1u,
                                  userDataOf(state, i)};
    callback(&single);
    putColumn(request.answer, i, result, VM_COMPONENT_COUNT);
  });
}

}  // namespace

const RowRecord* askForVariable(const RowRecord* record, RowState& state) {
  const HostRequest& request = *record->request;
  const ShaderBatch& batch = batchOf(state);
  const VarInfo& info = batch.shader->globals[request.number];
  BatchAnswer answer = VM_BATCH_ONE_BY_ONE;
  if (batch.batchCallbacks.hostVariable != nullptr) {
    const BatchVariableRequest wide = {groupOf(state, request.answer, request.words), &info,
                                       indicesOf(request.index), request.number};
    answer = batch.batchCallbacks.hostVariable(&wide);
  }
  if (answer == VM_BATCH_ONE_BY_ONE) answerOneByOne(state, request, info);
  if (answer == VM_BATCH_SAME_FOR_ALL) spread(state, request.answer, request.words);
  return proceed(record, state);
}

const RowRecord* askForBlock(const RowRecord* record, RowState& state) {
  const HostRequest& request = *record->request;
  const ShaderBatch& batch = batchOf(state);
  const VarInfo& info = batch.shader->globals[request.number];
  BatchAnswer answer = VM_BATCH_ONE_BY_ONE;
  if (batch.batchCallbacks.hostAggregate != nullptr) {
    answer = askForAggregate(state, request, info);
  }
  if (answer == VM_BATCH_ONE_BY_ONE) fillBlocksOneByOne(state, request, info);
  return proceed(record, state);
}

const RowRecord* askForBuiltin(const RowRecord* record, RowState& state) {
  const HostRequest& request = *record->request;
  const ShaderBatch& batch = batchOf(state);
  BatchAnswer answer = VM_BATCH_ONE_BY_ONE;
  if (batch.batchCallbacks.builtin != nullptr) {
    const BatchBuiltinRequest wide = {groupOf(state, request.answer, VM_COMPONENT_COUNT),
                                      indicesOf(request.index), request.number};
    answer = batch.batchCallbacks.builtin(&wide);
  }
  if (answer == VM_BATCH_ONE_BY_ONE) {
    fillOneByOne(state, request, callbackAt(batch.callbacks, request.callbackSlot));
  }
  if (answer == VM_BATCH_SAME_FOR_ALL) spread(state, request.answer, VM_COMPONENT_COUNT);
  return proceed(record, state);
}

const RowRecord* askForUnary(const RowRecord* record, RowState& state) {
  const HostRequest& request = *record->request;
  const ShaderBatch& batch = batchOf(state);
  const VmBatchUnaryCallback wide = batch.batchCallbacks.hostUnary[request.number];
  BatchAnswer answer = VM_BATCH_ONE_BY_ONE;
  if (wide != nullptr) {
    const BatchRequest group = groupOf(state, request.answer, VM_COMPONENT_COUNT);
    answer = wide(&group);
  }
  if (answer == VM_BATCH_ONE_BY_ONE) {
    fillOneByOne(state, request, batch.callbacks.hostUnary[request.number]);
  }
  return proceed(record, state);
}

const RowRecord* askForLookup(const RowRecord* record, RowState& state) {
  const HostRequest& request = *record->request;
  const ShaderBatch& batch = batchOf(state);
  const VmBatchLookupCallback wide = batch.batchCallbacks.lookup[request.number];
  BatchAnswer answer = VM_BATCH_ONE_BY_ONE;
  if (wide != nullptr) {
    // Two rows make one entry each; of those who do not take part too, whose words mean nothing.
    uint64_t samplers[kRowWords];
    for (uint32_t i = 0; i < kRowWords; ++i) samplers[i] = samplerOf(request, i);
    const BatchLookupRequest group = {groupOf(state, request.answer, VM_COMPONENT_COUNT),
                                      samplers,
                                      request.coords,
                                      request.extra,
                                      lookupKind(request.form),
                                      paramOf(request)};
    answer = wide(&group);
  }
  if (answer == VM_BATCH_ONE_BY_ONE) lookUpOneByOne(state, request);
  return proceed(record, state);
}

// As a machine does: output 0 first, and neither when a host that wants it asks for none.
void deliverOutputs(RowState& state) {
  const ShaderBatch& batch = batchOf(state);
  const HostCallbacks& single = batch.callbacks;
  const BatchCallbacks& wide = batch.batchCallbacks;
  uint32_t* const* rows = batch.rowProgram->outputRows;
  const bool takesFirst = wide.output0 != nullptr || single.output0 != nullptr;
  if (takesFirst && rows[0] == nullptr) return;
  if (wide.output0 != nullptr) {
    const BatchRequest group = groupOf(state, rows[0], VM_COMPONENT_COUNT);
    wide.output0(&group);
  } else if (single.output0 != nullptr) {
    forEachInvocation(state, [&](uint32_t i) {
      const Column column = takeColumn(rows[0], i);
      single.output0(column.words, userDataOf(state, i));
    });
  }
  if (rows[1] == nullptr) return;
  if (wide.output1 != nullptr) {
    const BatchRequest group = groupOf(state, rows[1], 1);
    wide.output1(&group);
  } else if (single.output1 != nullptr) {
    forEachInvocation(state, [&](uint32_t i) {
      single.output1(std::bit_cast<float>(rows[1][i]), userDataOf(state, i));
    });
  }
}

}  // namespace shadermachine::batch
