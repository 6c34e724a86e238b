// The selector's drafts become records, and its rows memory.
#include <algorithm>
#include <memory>

#include "batch/row_selector.h"

namespace shadermachine::batch {

uint32_t* RowSelector::rowAt(uint32_t row) const {
  return row == kNone ? nullptr : program_.rows + size_t{row} * kRowWords;
}

// Zeroed. calloc() aligns to less.
bool RowSelector::makeRows() {
  const size_t size = size_t{rowCount_} * kRowBytes;
  size_t space = size + kRowBytes;
  void* place = program_.rowMemory = std::calloc(1, space);
  if (place == nullptr) return false;
  program_.rows = static_cast<uint32_t*>(std::align(kRowBytes, size, place, space));
  return true;
}

bool RowSelector::finish() {
  const bool hasFailed =
      rows_.failed() || operands_.failed() || spareRows_.failed() || constants_.failed() ||
      constantRows_.failed() || runWords_.failed() || runWordRows_.failed() || copiesTo_.failed() ||
      copiesFrom_.failed() || drafts_.failed() || requests_.failed() || paths_.failed() ||
      parts_.failed() || aggregates_.failed() || references_.failed() || trackedSlots_.failed();
  if (hasFailed) return false;
  return makeRows() && finishRows() && finishRecords();
}

bool RowSelector::finishRows() {
  form::Arena& arena = program_.arena;
  for (uint32_t i = 0; i < constants_.size(); ++i) {
    if (constantRows_[i] != kNone) std::fill_n(rowAt(constantRows_[i]), kRowWords, constants_[i]);
  }
  // Every group begins with globals that are zero, and only those that something stores into can be
  // anything else. Locals have stores or records that clear them.
  const size_t globalWords = size_t{shader_.globalCount} * form::kPlaceWords;
  size_t clearedRows = globalWords;
  for (uint32_t a = 0; a < aggregates_.size(); ++a) {
    if (isChangedGlobal(aggregates_[a])) clearedRows += aggregates_[a].bytes / kRowWordBytes;
  }
  auto** cleared = arena.allocate<uint32_t*>(clearedRows);
  auto* runWords = arena.allocate<RowProgram::RunWord>(runWords_.size());
  if (arena.failed()) return false;
  for (size_t w = 0; w < globalWords && w / form::kPlaceWords < form_.slotCount; ++w) {
    const PlaceWord& word = placeWords_[w];
    if (word.row != kNone && word.isStored) cleared[program_.clearedCount++] = rowAt(word.row);
  }
  for (uint32_t a = 0; a < aggregates_.size(); ++a) {
    const uint32_t words = aggregates_[a].bytes / kRowWordBytes;
    for (uint32_t w = 0; isChangedGlobal(aggregates_[a]) && w < words; ++w) {
      cleared[program_.clearedCount++] = rowAt(aggregates_[a].row + w);
    }
  }
  for (uint32_t i = 0; i < runWords_.size(); ++i) {
    runWords[i] = {rowAt(runWordRows_[i]), runWords_[i]};
  }
  program_.cleared = cleared;
  program_.runWords = runWords;
  program_.runWordCount = runWords_.size();
  for (uint32_t o = 0; o < 2; ++o) {
    const int32_t global = o == 0 ? shader_.outputGlobal0 : shader_.outputGlobal1;
    if (global < 0 || global >= shader_.globalCount) continue;
    program_.outputRows[o] = rowAt(placeWord(static_cast<Place>(global), 0).row);
  }
  return true;
}

uint32_t RowSelector::largestAnswer() const {
  uint32_t words = 0;
  for (uint32_t i = 0; i < requests_.size(); ++i) {
    words = std::max(words, requests_[i].request.words);
  }
  return words;
}

bool RowSelector::finishRecords() {
  form::Arena& arena = program_.arena;
  auto** operands = arena.allocate<uint32_t*>(operands_.size());
  auto* records = arena.allocate<RowRecord>(drafts_.size());
  auto* requests = arena.allocate<HostRequest>(requests_.size());
  auto** joins = arena.allocate<const RowRecord*>(joinCount_);
  auto* paths = arena.allocate<RowPath>(paths_.size());
  const size_t joinWords = (joinCount_ + 63) / 64 + 1;
  program_.waiting = arena.allocate<uint64_t>(joinCount_);
  program_.joinBits = arena.allocate<uint64_t>(joinWords);
  if (arena.failed()) return false;
  for (uint32_t i = 0; i < operands_.size(); ++i) operands[i] = rowAt(operands_[i]);
  for (uint32_t*& block : program_.blocks) block = arena.allocate<uint32_t>(largestAnswer());
  if (arena.failed()) return false;
  for (uint32_t i = 0; i < requests_.size(); ++i) {
    const RequestRows& rows = requests_[i];
    requests[i] = rows.request;
    requests[i].answer = rowAt(rows.answer);
    requests[i].coords = rowAt(rows.coords);
    requests[i].extra = rowAt(rows.extra);
    requests[i].index = rowAt(rows.index);
  }
  for (uint32_t i = 0; i < paths_.size(); ++i) paths[i] = paths_[i];
  for (uint32_t i = 0; i < drafts_.size(); ++i) {
    const Draft& draft = drafts_[i];
    RowRecord& record = records[i];
    record.run = draft.run;
    if (draft.result != kNone) record.result = &operands[draft.result];
    for (uint32_t k = 0; k < 3; ++k) {
      if (draft.in[k] != kNone) record.in[k] = &operands[draft.in[k]];
    }
    if (draft.target != kNone) record.target = &records[blockJoins_[draft.target]];
    if (draft.request != kNone) record.request = &requests[draft.request];
    if (draft.path != kNone) record.path = &paths[draft.path];
    record.n = draft.n;
    record.join = draft.join;
    if (draft.join != kNone) joins[draft.join] = &record;
  }
  program_.joins = joins;
  program_.joinCount = joinCount_;
  program_.recordCount = drafts_.size();
  program_.first = records;
  return true;
}

}  // namespace shadermachine::batch
