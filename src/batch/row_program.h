// A shader as records on rows, and the rows themselves.
#pragma once

#include <shadermachine/batch.h>

#include "batch/rows.h"
#include "engine/snapshot.h"
#include "form/arena.h"

namespace shadermachine::batch {

// What a record asks the host for. Rows are a slot's or a value's, one after another.
struct HostRequest {
  uint32_t number;        // of the global, the built-in variable, or the one of several callbacks
  uint32_t callbackSlot;  // of a built-in variable
  uint32_t form;          // of a look-up: the instruction's operand
  uint32_t words;         // of the answer
  uint32_t isFirst;       // of a block: it is still zero, whatever its rows hold
  uint32_t* answer;       // the rows
  uint32_t* coords;       // of a look-up
  const uint32_t* extra;  // row of a look-up's third argument, or null
  const uint32_t* index;  // row of the current index, or null
};

struct RowProgram {
  explicit RowProgram(size_t limit) : arena(limit) {}
  RowProgram(const RowProgram&) = delete;
  RowProgram& operator=(const RowProgram&) = delete;
  ~RowProgram() { std::free(rowMemory); }
  static constexpr size_t kMaxBytes = size_t{64} << 20;
  // Of a structure or array in rows, which take 64 times as much: 1 MiB, what a processor keeps
  // close by. One by one a block stays there whatever its size.
  static constexpr uint32_t kMaxBlockBytes = VM_BATCH_AGGREGATE_LIMIT;

  struct RunWord {
    uint32_t* row;
    uint32_t offset;  // of the word in the machine's record
  };

  RowProgram* older = nullptr;
  engine::Snapshot snapshot;
  int32_t outputs[2] = {-1, -1};
  form::Arena arena;
  // The first record; null for a shader whose invocations run on the machine.
  const RowRecord* first = nullptr;
  uint32_t recordCount = 0;
  void* rowMemory = nullptr;  // that was allocated
  uint32_t* rows = nullptr;   // the first one
  // Rows of globals that invocations change: zero when a group begins.
  uint32_t* const* cleared = nullptr;
  uint32_t clearedCount = 0;
  const RunWord* runWords = nullptr;
  uint32_t runWordCount = 0;
  uint32_t* blocks[3] = {};  // for the host's answers: the words of the largest block
  uint32_t* outputRows[2] = {nullptr, nullptr};  // null for an output that does not exist
  uint32_t joinCount = 0;
  uint64_t* waiting = nullptr;
  uint64_t* joinBits = nullptr;
  const RowRecord* const* joins = nullptr;
};

}  // namespace shadermachine::batch
