// Reads of parts of aggregates, vectors and matrices by run-time indices.

#include "engine/steps.h"
#include "engine/vectors.h"

namespace shadermachine::engine {
namespace {

const BlockView& viewOf(const uint32_t* words) {
  const char* start = reinterpret_cast<const char*>(words) - offsetof(InlineValue, words);
  return objectAt<ValueSlot>(start)->view;
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
    v = loadVector<2>(objectAt<uint32_t>(data));
  } else if constexpr (n == 3) {
    v = loadVector<2>(objectAt<uint32_t>(data));
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

template <uint32_t n, bool based, bool stores>
Step memberStep(ENGINE_STATE) {
  const BlockView& view = viewOf(record->a);
  const bool fits = view.data != nullptr && view.size >= record->y;
  const size_t base = based ? size_t{*record->b} * record->z : 0;
  takePart<n, stores>(record, fits ? view.data + base + record->x : kZeros, word, vector, scalar);
  ENGINE_NEXT;
}

template <bool inWord>
uint32_t indexOf(const Record* record, uint32_t word) {
  return inWord ? word : *record->b;
}

// Where element `index` begins; null when the array has no such element.
inline const uint8_t* elementAt(const Record* record, const BlockView& view, uint32_t index) {
  const uint64_t stride = record->y;
  const auto* limits = objectAt<ElementLimits>(record->c);
  const uint64_t offset = index * stride;
  if (view.data == nullptr) return nullptr;
  if (limits == nullptr) return offset + stride <= view.size ? view.data + offset : nullptr;
  if (index >= limits->count || view.size < limits->bytes) return nullptr;
  const uint64_t base = limits->base == nullptr ? 0 : *limits->base * uint64_t{limits->baseStride};
  return view.data + base + offset;
}

template <uint32_t n, bool inWord, bool stores>
Step elementStep(ENGINE_STATE) {
  const uint8_t* element = elementAt(record, viewOf(record->a), indexOf<inWord>(record, word));
  if (element == nullptr) ENGINE_STAY(stopStep);
  takePart<n, stores>(record, element + record->z, word, vector, scalar);
  ENGINE_NEXT;
}

template <bool inWord>
Step checkElementStep(ENGINE_STATE) {
  const uint8_t* element = elementAt(record, viewOf(record->a), indexOf<inWord>(record, word));
  if (element == nullptr) ENGINE_STAY(stopStep);
  ENGINE_NEXT;
}

template <uint32_t n, bool inWord, bool planned, bool stores>
Step indexedStep(ENGINE_STATE) {
  uint32_t index = indexOf<inWord>(record, word);
  const auto* data = reinterpret_cast<const uint8_t*>(record->a);
  if constexpr (planned) {
    const auto& plan = *objectAt<IndexPlan>(record->c);
    index = (index + plan.add) & plan.mask;
    data += size_t{*plan.base} * plan.baseStride;
  }
  if (index >= record->z) ENGINE_STAY(stopStep);
  takePart<n, stores>(record, data + size_t{index} * record->y, word, vector, scalar);
  ENGINE_NEXT;
}

template <bool inWord>
Step boundStep(ENGINE_STATE) {
  if (indexOf<inWord>(record, word) >= record->z) ENGINE_STAY(stopStep);
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

template <uint32_t n, bool based>
consteval StepPair memberPair() {
  return {&memberStep<n, based, false>, &memberStep<n, based, true>};
}

template <uint32_t n, bool inWord>
consteval StepPair elementPair() {
  return {&elementStep<n, inWord, false>, &elementStep<n, inWord, true>};
}

template <uint32_t n>
StepPair indexedPair(bool inWord, bool planned) {
  constexpr StepPair kPairs[] = {
      {&indexedStep<n, false, false, false>, &indexedStep<n, false, false, true>},
      {&indexedStep<n, true, false, false>, &indexedStep<n, true, false, true>},
      {&indexedStep<n, false, true, false>, &indexedStep<n, false, true, true>},
      {&indexedStep<n, true, true, false>, &indexedStep<n, true, true, true>}};
  return kPairs[(planned ? 2 : 0) + (inWord ? 1 : 0)];
}

template <uint32_t n, bool inWord>
consteval StepPair columnPair() {
  return {&columnStep<n, inWord, false>, &columnStep<n, inWord, true>};
}

}  // namespace

StepPair memberSteps(uint32_t n, bool based) {
  constexpr StepPair kWhole[] = {memberPair<1, false>(), memberPair<2, false>(),
                                 memberPair<3, false>(), memberPair<4, false>(),
                                 memberPair<5, false>()};
  constexpr StepPair kBased[] = {memberPair<1, true>(), memberPair<2, true>(),
                                 memberPair<3, true>(), memberPair<4, true>(),
                                 memberPair<5, true>()};
  const uint32_t i = (n > 4 ? 5 : n) - 1;
  return based ? kBased[i] : kWhole[i];
}

RecordHandler checkIndexStep(bool indexInWord) {
  return indexInWord ? &checkElementStep<true> : &checkElementStep<false>;
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

StepPair indexedSteps(uint32_t n, bool indexInWord, bool planned) {
  switch (n) {
    case 1:
      return indexedPair<1>(indexInWord, planned);
    case 2:
      return indexedPair<2>(indexInWord, planned);
    case 3:
      return indexedPair<3>(indexInWord, planned);
    case 4:
      return indexedPair<4>(indexInWord, planned);
    default:
      return indexedPair<5>(indexInWord, planned);
  }
}

RecordHandler checkBoundStep(bool indexInWord) {
  return indexInWord ? &boundStep<true> : &boundStep<false>;
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
