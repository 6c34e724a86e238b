// Rows in the vectors of one instruction set, and the steps of control flow: who runs, who waits
// where, who has ended. Included by row_functions.h only.
//
// What holds between two records: no invocation waits before the record that is next; those that
// wait and those that run are different ones; `lowest` is the first join where somebody waits.
#pragma once

#include <bit>
#include <cstring>

#include "batch/c_library.h"
#include "batch/rows.h"

namespace shadermachine::batch {
inline namespace SHADERMACHINE_TARGET {

inline constexpr uint32_t kRowLanes = SHADERMACHINE_VECTOR_BYTES / sizeof(uint32_t);
using RowWords = VectorOf<uint32_t, kRowLanes>::Type;
using RowFloats = VectorOf<float, kRowLanes>::Type;

template <class V = RowWords>
V loadRow(const uint32_t* row, uint32_t at) {
  V value;
  std::memcpy(&value, row + at, sizeof value);
  return value;
}

template <class V>
void storeRow(uint32_t* row, uint32_t at, V value) {
  std::memcpy(row + at, &value, sizeof value);
}

// Stores results; when masked, those of invocations that run only.
template <bool masked>
struct RowStore {
  explicit RowStore(const RowState& state) : mask(state.isWhole != 0 ? nullptr : state.mask) {}
  void operator()(uint32_t* row, uint32_t at, RowWords value) const {
    if (mask != nullptr) {
      const RowWords taken = loadRow(mask, at);
      value = (value & taken) | (loadRow(row, at) & ~taken);
    }
    storeRow(row, at, value);
  }
  const uint32_t* mask;
};
template <>
struct RowStore<false> {
  explicit RowStore(const RowState&) {}
  void operator()(uint32_t* row, uint32_t at, RowWords value) const { storeRow(row, at, value); }
};

// The positions of the vectors that hold invocations that run.
struct RowRange {
  explicit RowRange(const RowState& state) : begin(state.begin), end(state.end) {}
  template <class Function>
  [[gnu::always_inline]] void forEach(Function function) const {
    for (uint32_t at = begin; at < end; at += kRowLanes) function(at);
  }
  uint32_t begin, end;
};

// Who runs ----------------------------------------------------------------------------------------

inline void fillMask(RowState& state) {
  RowWords lanes;
  for (uint32_t i = 0; i < kRowLanes; ++i) lanes[i] = 1u << i;
  for (uint32_t at = 0; at < kRowWords; at += kRowLanes) {
    const RowWords bits = splat<RowWords>(static_cast<uint32_t>(state.active >> at));
    storeRow(state.mask, at, std::bit_cast<RowWords>((bits & lanes) != 0u));
  }
}

// `invocations`, at least one, run from here.
inline void setActive(RowState& state, uint64_t invocations) {
  state.active = invocations;
  const auto first = static_cast<uint32_t>(std::countr_zero(invocations));
  const auto last = static_cast<uint32_t>(63 - std::countl_zero(invocations));
  state.begin = first & ~(kRowLanes - 1);
  state.end = (last & ~(kRowLanes - 1)) + kRowLanes;
  // Nobody reads the mask while all that have not ended run: what invocations that have ended would
  // keep is nothing to anybody.
  if (state.isWhole == 0) fillMask(state);
}

inline void start(RowState& state, uint64_t invocations) {
  state.isWhole = 1;
  state.isOver = 0;
  state.lowest = kNoJoin;
  setActive(state, invocations);
}

inline void clearRows(uint32_t* const* rows, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    for (uint32_t at = 0; at < kRowWords; at += kRowLanes) storeRow(rows[i], at, RowWords{});
  }
}

inline void wait(RowState& state, uint32_t join, uint64_t invocations) {
  state.waiting[join] |= invocations;
  state.joinBits[join / 64] |= uint64_t{1} << join % 64;
  state.lowest = join < state.lowest ? join : state.lowest;
  state.isWhole = 0;
}

// Those who wait at the lowest join join those who run.
[[gnu::noinline]] inline void takeWaiting(RowState& state, uint64_t running) {
  const uint32_t join = state.lowest;
  running |= state.waiting[join];
  state.waiting[join] = 0;
  // The next that anybody waits at lies further on: of the bits below this one none is set.
  uint32_t word = join / 64;
  state.joinBits[word] &= ~(uint64_t{1} << join % 64);
  const uint32_t words = (state.joinCount + 63) / 64;
  while (word < words && state.joinBits[word] == 0) ++word;
  state.lowest = word == words
                     ? kNoJoin
                     : word * 64 + static_cast<uint32_t>(std::countr_zero(state.joinBits[word]));
  // Before setActive(), which fills the mask where it is needed from now on.
  state.isWhole = state.lowest == kNoJoin ? 1 : 0;
  setActive(state, running);
}

// Those who wait lowest go on, if anybody does; nobody runs.
inline const RowRecord* resume(RowState& state) {
  if (state.lowest == kNoJoin) return nullptr;
  const RowRecord* const join = state.joins[state.lowest];
  takeWaiting(state, 0);
  return join + 1;
}

// To a join further on.
inline const RowRecord* goOn(const RowRecord* join, RowState& state) {
  // Nobody waits up to there, so nobody is overtaken; else whoever waits lowest goes first.
  if (state.lowest > join->join) [[likely]]
    return join + 1;
  if (state.lowest == join->join) return join;
  wait(state, join->join, state.active);
  return resume(state);
}

// Steps -------------------------------------------------------------------------------------------

inline const RowRecord* joinHere(const RowRecord* record, RowState& state) {
  if (state.lowest == record->join) [[unlikely]]
    takeWaiting(state, state.active);
  return record + 1;
}

inline const RowRecord* jumpOn(const RowRecord* record, RowState& state) {
  return goOn(record->target, state);
}

inline const RowRecord* giveUp(RowState& state) {
  state.isOver = 1;
  return nullptr;
}

inline const RowRecord* jumpBack(const RowRecord* record, RowState& state) {
  if (tickTimeLimit(*state.timeLimit)) [[unlikely]]
    return giveUp(state);
  // Over the join there: nobody waits at one further back.
  return record->target + 1;
}

inline const RowRecord* lookAtClock(const RowRecord* record, RowState& state) {
  return readTimeLimit(*state.timeLimit) ? giveUp(state) : record + 1;
}

// `leaving`, of those who run, go to the target further on.
inline const RowRecord* divide(const RowRecord* record, RowState& state, uint64_t leaving) {
  if (leaving == 0) return record + 1;
  if (leaving == state.active) return goOn(record->target, state);
  // The target lies further on: the others are lower, and run first.
  wait(state, record->target->join, leaving);
  setActive(state, state.active & ~leaving);
  return record + 1;
}

// The invocations among those who run for which the function gives ones.
template <class Function>
[[gnu::always_inline]] inline uint64_t findInvocations(const RowState& state, Function function) {
  uint64_t found = 0;
  RowRange(state).forEach([&](uint32_t at) { found |= lanesOf(function(at)) << at; });
  return found & state.active;
}

inline uint64_t findZeros(const RowState& state, const uint32_t* row) {
  return findInvocations(state, [row](uint32_t at) { return loadRow(row, at) == 0u; });
}

inline const RowRecord* branchOnRow(const RowRecord* record, RowState& state) {
  return divide(record, state, findZeros(state, record->in[0][0]));
}

template <class K>
const RowRecord* branchRows(const RowRecord* record, RowState& state) {
  const uint32_t* const a = record->in[0][0];
  const uint32_t* const b = K::kOperands == 2 ? record->in[1][0] : a;
  return divide(record, state, findInvocations(state, [&](uint32_t at) {
                  if constexpr (K::kOperands == 1) {
                    return applyKernel<K>(loadRow(a, at)) == 0u;
                  } else {
                    return applyKernel<K>(loadRow(a, at), loadRow(b, at)) == 0u;
                  }
                }));
}

inline const RowRecord* loopBranch(const RowRecord* record, RowState& state) {
  const uint64_t returning = findZeros(state, record->in[0][0]);
  if (returning == 0) return record + 1;
  if (returning != state.active) {
    // Those who return are lower than those who leave the loop.
    wait(state, (record + 1)->join, state.active & ~returning);
    setActive(state, returning);
  }
  return jumpBack(record, state);
}

inline void endInvocations(RowState& state, uint64_t invocations, uint32_t error) {
  for (; invocations != 0; invocations &= invocations - 1) {
    state.errors[std::countr_zero(invocations)] = error;
  }
}

inline const RowRecord* stopHere(const RowRecord* record, RowState& state) {
  endInvocations(state, state.active, record->n);
  return resume(state);
}

inline const RowRecord* finishHere(const RowRecord* record, RowState& state) {
  state.deliver(state);
  return stopHere(record, state);
}

template <bool masked>
const RowRecord* copyRows(const RowRecord* record, RowState& state) {
  const RowStore<masked> store(state);
  for (uint32_t i = 0; i < record->n; ++i) {
    uint32_t* const result = record->result[i];
    const uint32_t* const source = record->in[0][i];
    RowRange(state).forEach([&](uint32_t at) { store(result, at, loadRow(source, at)); });
  }
  return record + 1;
}

// Those of `outside` end; the others go on.
inline const RowRecord* endOutside(const RowRecord* record, RowState& state, uint64_t outside) {
  if (outside == 0) [[likely]]
    return record + 1;
  endInvocations(state, outside, VM_ERR_INDEX_OUT_OF_BOUNDS);
  // Those who have ended wait nowhere, so that the group may stay whole without them.
  if (outside == state.active) return resume(state);
  setActive(state, state.active & ~outside);
  return record + 1;
}

// `count` rows, from those that begin at in[0][index * count].
template <bool masked>
[[gnu::always_inline]] inline const RowRecord* chooseRows(const RowRecord* record, RowState& state,
                                                          uint32_t count) {
  const RowStore<masked> store(state);
  const uint32_t* const indices = record->in[1][0];
  // Before the results are stored, which may be where the index was.
  const uint64_t outside =
      findInvocations(state, [&](uint32_t at) { return loadRow(indices, at) >= record->n; });
  RowRange(state).forEach([&](uint32_t at) __attribute__((always_inline)) {
    const RowWords index = loadRow(indices, at);
    RowWords chosen[VM_COMPONENT_COUNT] = {};
    for (uint32_t k = 0; k < record->n; ++k) {
      for (uint32_t i = 0; i < count; ++i) {
        chosen[i] = index == k ? loadRow(record->in[0][k * count + i], at) : chosen[i];
      }
    }
    for (uint32_t i = 0; i < count; ++i) store(record->result[i], at, chosen[i]);
  });
  return endOutside(record, state, outside);
}

template <bool masked>
const RowRecord* elementRows(const RowRecord* record, RowState& state) {
  return chooseRows<masked>(record, state, 1);
}

template <bool masked>
const RowRecord* columnRows(const RowRecord* record, RowState& state) {
  return chooseRows<masked>(record, state, record->n);
}

// Words that lie so far from a row's first.
inline RowWords gatherWords(const uint32_t* row, RowWords offsets) {
#if defined(__AVX512F__)
  return std::bit_cast<RowWords>(_mm512_mask_i32gather_epi32(
      __m512i{}, 0xFFFF, std::bit_cast<__m512i>(offsets), row, sizeof(uint32_t)));
#elif defined(__AVX2__)
  return std::bit_cast<RowWords>(_mm256_i32gather_epi32(
      reinterpret_cast<const int*>(row), std::bit_cast<__m256i>(offsets), sizeof(uint32_t)));
#else
  RowWords result;
  for (uint32_t i = 0; i < kRowLanes; ++i) result[i] = row[offsets[i]];
  return result;
#endif
}

// Where the indices of a record's path lead.
struct PartRows {
  PartRows(const RowRecord* record, const RowState& state)
      : indices(record->in[1]), path(*record->path) {
    const auto someone = static_cast<uint32_t>(std::countr_zero(state.active));
    for (uint32_t k = 0; k < path.count; ++k) {
      const uint32_t* const row = indices[k];
      const uint32_t bound = path.steps[k].bound;
      const uint32_t first = row[someone];
      const uint64_t beyond =
          findInvocations(state, [&](uint32_t at) { return loadRow(row, at) >= bound; });
      outside |= beyond;
      if (k < path.checked) ended |= beyond;
      others |= findInvocations(state, [&](uint32_t at) { return loadRow(row, at) != first; });
      offset += size_t{first} * path.steps[k].stride;
    }
  }
  // They lead all that run to the same rows.
  bool isSame() const { return (others | outside) == 0; }
  size_t sameWord() const { return offset * kRowWords; }
  size_t wordOf(uint32_t i) const {
    size_t rows = 0;
    for (uint32_t k = 0; k < path.count; ++k) rows += size_t{indices[k][i]} * path.steps[k].stride;
    return rows * kRowWords + i;
  }
  // Those outside, and those that do not run, get some word of the part.
  RowWords wordsOf(uint32_t at) const {
    RowWords words;
    for (uint32_t i = 0; i < kRowLanes; ++i) words[i] = at + i;
    for (uint32_t k = 0; k < path.count; ++k) {
      const RowWords index = loadRow(indices[k], at);
      const RowWords inside = index < path.steps[k].bound ? index : RowWords{};
      // Gathers read for every lane: index 0 is inside whatever the part is.
      words += inside * (path.steps[k].stride * kRowWords);
    }
    return words;
  }
  const uint32_t* const* indices;
  const RowPath& path;
  uint64_t outside = 0;
  uint64_t ended = 0;
  uint64_t others = 0;
  size_t offset = 0;
};

template <bool masked>
const RowRecord* readPart(const RowRecord* record, RowState& state) {
  const PartRows part(record, state);
  const uint32_t* const base = record->in[0][0];
  const RowStore<masked> store(state);
  RowRange(state).forEach([&](uint32_t at) {
    // All words before any is stored: the result may be rows of the part.
    RowWords words[VM_COMPONENT_COUNT];
    if (part.isSame()) {
      const uint32_t* const rows = base + part.sameWord();
      for (uint32_t w = 0; w < record->n; ++w) words[w] = loadRow(rows + size_t{w} * kRowWords, at);
    } else {
      const RowWords offsets = part.wordsOf(at);
      for (uint32_t w = 0; w < record->n; ++w) {
        words[w] = gatherWords(base + size_t{w} * kRowWords, offsets);
      }
    }
    for (uint32_t w = 0; w < record->n; ++w) store(record->result[w], at, words[w]);
  });
  return endOutside(record, state, part.ended);
}

// What is stored can be rows of the part itself: all of them are read first.
inline const RowRecord* storePart(const RowRecord* record, RowState& state) {
  const PartRows part(record, state);
  uint32_t* const base = record->result[0];
  if (part.isSame()) {
    const RowStore<true> store(state);
    uint32_t* const rows = base + part.sameWord();
    RowRange(state).forEach([&](uint32_t at) {
      RowWords words[VM_COMPONENT_COUNT];
      for (uint32_t w = 0; w < record->n; ++w) words[w] = loadRow(record->in[0][w], at);
      for (uint32_t w = 0; w < record->n; ++w) store(rows + size_t{w} * kRowWords, at, words[w]);
    });
    return record + 1;
  }
  // One after another: baseline and AVX2 cannot scatter. Each has its own column, so that nobody
  // reads what another has stored.
  for (uint64_t left = state.active & ~part.outside; left != 0; left &= left - 1) {
    const auto i = static_cast<uint32_t>(std::countr_zero(left));
    uint32_t* const rows = base + part.wordOf(i);
    uint32_t words[VM_COMPONENT_COUNT];
    for (uint32_t w = 0; w < record->n; ++w) words[w] = record->in[0][w][i];
    for (uint32_t w = 0; w < record->n; ++w) rows[size_t{w} * kRowWords] = words[w];
  }
  return record + 1;
}

inline const RowRecord* checkIndex(const RowRecord* record, RowState& state) {
  const uint32_t* const index = record->in[0][0];
  return endOutside(record, state, findInvocations(state, [&](uint32_t at) {
                      return loadRow(index, at) >= record->n;
                    }));
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine::batch
