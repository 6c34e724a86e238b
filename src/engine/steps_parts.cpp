// Reads of parts of aggregates, vectors and matrices by run-time indices.

#include "engine/steps.h"
#include "engine/vectors.h"

namespace shadermachine::engine {
namespace {

const BlockView& viewOf(const uint32_t* words) {
  const char* start = reinterpret_cast<const char*>(words) - offsetof(InlineValue, words);
  return reinterpret_cast<const ValueSlot*>(start)->view;
}

float floatAt(const uint8_t* data) {
  float x;
  std::memcpy(&x, data, sizeof x);
  return x;
}

// Exactly n components: the block may end right behind them.
template <uint32_t n>
FloatVector loadPart(const uint8_t* data) {
  FloatVector v = {};
  if constexpr (n == 2) {
    v = loadVector<2>(reinterpret_cast<const uint32_t*>(data));
  } else if constexpr (n == 3) {
    v = loadVector<2>(reinterpret_cast<const uint32_t*>(data));
    v[2] = floatAt(data + 8);
  } else {
    std::memcpy(&v, data, sizeof v);
  }
  return v;
}

// A part of unknown kind goes to both registers that hold one component.
template <uint32_t n, bool stores>
void takePart(const Record* record, const uint8_t* data, uint32_t& word, FloatVector& vector,
              float& scalar) {
  if constexpr (n == 1) {
    scalar = floatAt(data);
    std::memcpy(&word, data, sizeof word);
    if constexpr (stores) *record->d = word;
  } else if constexpr (n <= 4) {
    vector = loadPart<n>(data);
    if constexpr (stores) storeVector<n>(record->d, vector);
  } else {
    std::memcpy(record->d, data, record->size * sizeof(uint32_t));
  }
}

constexpr uint8_t kZeros[64] = {};

template <uint32_t n, bool stores>
Step memberStep(ENGINE_STATE) {
  const BlockView& view = viewOf(record->a);
  const bool fits = view.data != nullptr && view.size >= record->y;
  takePart<n, stores>(record, fits ? view.data + record->x : kZeros, word, vector, scalar);
  ENGINE_NEXT;
}

template <bool inWord>
uint32_t indexOf(const Record* record, uint32_t word) {
  return inWord ? word : *record->b;
}

template <uint32_t n, bool inWord, bool stores>
Step elementStep(ENGINE_STATE) {
  const BlockView& view = viewOf(record->a);
  const uint32_t index = indexOf<inWord>(record, word);
  const uint64_t stride = record->y;
  const bool inside = record->c == nullptr ? (index + uint64_t{1}) * stride <= view.size
                                           : index < record->c[0] && view.size >= record->c[1];
  if (!inside || view.data == nullptr) ENGINE_STAY(stopStep);
  takePart<n, stores>(record, view.data + index * stride + record->z, word, vector, scalar);
  ENGINE_NEXT;
}

template <bool inWord, bool stores>
Step componentStep(ENGINE_STATE) {
  const uint32_t index = indexOf<inWord>(record, word);
  if (index >= record->y) ENGINE_STAY(stopStep);
  takePart<1, stores>(record, reinterpret_cast<const uint8_t*>(record->a + index), word, vector,
                      scalar);
  ENGINE_NEXT;
}

template <uint32_t n, bool inWord, bool stores>
Step columnStep(ENGINE_STATE) {
  const uint32_t index = indexOf<inWord>(record, word);
  if (index >= n) ENGINE_STAY(stopStep);
  takePart<n, stores>(record, reinterpret_cast<const uint8_t*>(record->a + index * n), word, vector,
                      scalar);
  ENGINE_NEXT;
}

template <uint32_t n>
consteval StepPair memberPair() {
  return {&memberStep<n, false>, &memberStep<n, true>};
}

template <uint32_t n, bool inWord>
consteval StepPair elementPair() {
  return {&elementStep<n, inWord, false>, &elementStep<n, inWord, true>};
}

template <uint32_t n, bool inWord>
consteval StepPair columnPair() {
  return {&columnStep<n, inWord, false>, &columnStep<n, inWord, true>};
}

}  // namespace

StepPair memberSteps(uint32_t n) {
  constexpr StepPair kSteps[] = {memberPair<1>(), memberPair<2>(), memberPair<3>(), memberPair<4>(),
                                 memberPair<5>()};
  return kSteps[(n > 4 ? 5 : n) - 1];
}

StepPair elementSteps(uint32_t n, bool indexInWord) {
  constexpr StepPair kMemory[] = {elementPair<1, false>(), elementPair<2, false>(),
                                  elementPair<3, false>(), elementPair<4, false>(),
                                  elementPair<5, false>()};
  constexpr StepPair kWord[] = {elementPair<1, true>(), elementPair<2, true>(),
                                elementPair<3, true>(), elementPair<4, true>(),
                                elementPair<5, true>()};
  const uint32_t i = (n > 4 ? 5 : n) - 1;
  return indexInWord ? kWord[i] : kMemory[i];
}

StepPair componentSteps(bool indexInWord) {
  if (indexInWord) return {&componentStep<true, false>, &componentStep<true, true>};
  return {&componentStep<false, false>, &componentStep<false, true>};
}

StepPair columnSteps(uint32_t n, bool indexInWord) {
  constexpr StepPair kMemory[] = {columnPair<2, false>(), columnPair<3, false>(),
                                  columnPair<4, false>()};
  constexpr StepPair kWord[] = {columnPair<2, true>(), columnPair<3, true>(),
                                columnPair<4, true>()};
  return indexInWord ? kWord[n - 2] : kMemory[n - 2];
}

}  // namespace shadermachine::engine
