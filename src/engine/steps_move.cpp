// Moves: copies between addresses, stores from registers, swizzles and constructors.

#include <array>
#include <utility>

#include "engine/steps.h"
#include "engine/vectors.h"

namespace shadermachine::engine {
namespace {

template <uint32_t n, bool exact>
void copyWords(uint32_t* to, const uint32_t* from) {
  if constexpr (n == 1) {
    *to = *from;
  } else if constexpr (n == 2) {
    uint64_t pair;
    std::memcpy(&pair, from, 8);
    std::memcpy(to, &pair, 8);
  } else if constexpr (exact && n == 3) {
    uint64_t pair;
    const uint32_t last = from[2];
    std::memcpy(&pair, from, 8);
    std::memcpy(to, &pair, 8);
    to[2] = last;
  } else {
    storeVector<4>(to, loadVector<4>(from));
  }
}

template <uint32_t n, bool exact>
Step copyOf(ENGINE_STATE) {
  copyWords<n, exact>(record->d, record->a);
  ENGINE_NEXT;
}

Step storeWordStep(ENGINE_STATE) {
  *record->d = word;
  ENGINE_NEXT;
}

Step storeScalarStep(ENGINE_STATE) {
  std::memcpy(record->d, &scalar, sizeof scalar);
  ENGINE_NEXT;
}

template <uint32_t n, bool exact>
Step storeVectorStep(ENGINE_STATE) {
  if constexpr (exact && n == 3) {
    storeVector<2>(record->d, vector);
    record->d[2] = std::bit_cast<uint32_t>(vector[2]);
  } else {
    storeVector<n>(record->d, vector);
  }
  ENGINE_NEXT;
}

template <uint32_t n, uint32_t mask, bool stores>
Step shuffleStep(ENGINE_STATE) {
  vector = __builtin_shufflevector(vector, vector, mask & 3, (mask >> 2) & 3, (mask >> 4) & 3,
                                   (mask >> 6) & 3);
  if constexpr (stores) storeVector<n>(record->d, vector);
  ENGINE_NEXT;
}

template <uint32_t n, size_t... masks>
consteval std::array<StepPair, sizeof...(masks)> shufflePairs(std::index_sequence<masks...>) {
  return {StepPair{&shuffleStep<n, masks, false>, &shuffleStep<n, masks, true>}...};
}
constexpr auto kPairShuffles = shufflePairs<2>(std::make_index_sequence<16>());
constexpr auto kShuffles = shufflePairs<4>(std::make_index_sequence<256>());

float floatAt(const uint32_t* address) { return std::bit_cast<float>(*address); }

template <uint32_t n, bool inScalar, bool stores>
Step splatStep(ENGINE_STATE) {
  vector = splat(inScalar ? scalar : floatAt(record->a));
  if constexpr (stores) storeVector<n>(record->d, vector);
  ENGINE_NEXT;
}

template <uint32_t n, uint32_t inScalar, bool stores>
Step gatherStep(ENGINE_STATE) {
  const float x = inScalar == 0 ? scalar : floatAt(record->a);
  const float y = inScalar == 1 ? scalar : floatAt(record->b);
  if constexpr (n == 2) {
    vector = FloatVector{x, y, 0.0f, 0.0f};
  } else {
    const float z = inScalar == 2 ? scalar : floatAt(record->c);
    if constexpr (n == 3) {
      vector = FloatVector{x, y, z, 0.0f};
    } else {
      vector = FloatVector{x, y, z, inScalar == 3 ? scalar : floatAt(record->e)};
    }
  }
  if constexpr (stores) storeVector<n>(record->d, vector);
  ENGINE_NEXT;
}

template <uint32_t n, uint32_t inScalar>
consteval StepPair gatherPair() {
  return {&gatherStep<n, inScalar, false>, &gatherStep<n, inScalar, true>};
}

template <uint32_t lane, bool inScalar, bool stores>
Step appendStep(ENGINE_STATE) {
  vector[lane] = inScalar ? scalar : floatAt(record->a);
  if constexpr (stores) storeVector<lane == 1 ? 2 : 4>(record->d, vector);
  ENGINE_NEXT;
}

template <uint32_t lane, bool inScalar>
consteval StepPair appendPair() {
  return {&appendStep<lane, inScalar, false>, &appendStep<lane, inScalar, true>};
}

}  // namespace

RecordHandler copyStep(uint32_t n, bool exact) {
  constexpr RecordHandler kSteps[] = {&copyOf<1, false>, &copyOf<2, false>, &copyOf<3, false>,
                                      &copyOf<4, false>};
  return n == 3 && exact ? &copyOf<3, true> : kSteps[n - 1];
}

Step copyWordsStep(ENGINE_STATE) {
  std::memmove(record->d, record->a, record->x * sizeof(uint32_t));
  ENGINE_NEXT;
}

Step copyIndexedStep(ENGINE_STATE) {
  const auto* from = reinterpret_cast<const uint8_t*>(record->a) + size_t{*record->b} * record->y;
  std::memmove(record->d, from, record->x * sizeof(uint32_t));
  ENGINE_NEXT;
}

RecordHandler storeStep(bool fromWord, bool fromScalar, uint32_t n, bool exact) {
  if (fromWord) return &storeWordStep;
  if (fromScalar) return &storeScalarStep;
  if (n == 2) return &storeVectorStep<2, false>;
  return n == 3 && exact ? &storeVectorStep<3, true> : &storeVectorStep<4, false>;
}

StepPair shuffleSteps(uint32_t n, uint32_t mask) {
  return n == 2 ? kPairShuffles[mask & 15] : kShuffles[mask & 255];
}

StepPair splatSteps(uint32_t n, bool inScalar) {
  constexpr StepPair kPairs[] = {{&splatStep<2, false, false>, &splatStep<2, false, true>},
                                 {&splatStep<2, true, false>, &splatStep<2, true, true>}};
  constexpr StepPair kQuads[] = {{&splatStep<4, false, false>, &splatStep<4, false, true>},
                                 {&splatStep<4, true, false>, &splatStep<4, true, true>}};
  return n == 2 ? kPairs[inScalar] : kQuads[inScalar];
}

StepPair gatherSteps(uint32_t n, uint32_t inScalar) {
  constexpr StepPair kPairs[] = {gatherPair<2, 0>(), gatherPair<2, 1>(), gatherPair<2, 2>()};
  constexpr StepPair kTriples[] = {gatherPair<3, 0>(), gatherPair<3, 1>(), gatherPair<3, 2>(),
                                   gatherPair<3, 3>()};
  constexpr StepPair kQuads[] = {gatherPair<4, 0>(), gatherPair<4, 1>(), gatherPair<4, 2>(),
                                 gatherPair<4, 3>(), gatherPair<4, 4>()};
  return n == 2 ? kPairs[inScalar] : n == 3 ? kTriples[inScalar] : kQuads[inScalar];
}

StepPair appendSteps(uint32_t lane, bool inScalar) {
  constexpr StepPair kMemory[] = {appendPair<1, false>(), appendPair<2, false>(),
                                  appendPair<3, false>()};
  constexpr StepPair kScalar[] = {appendPair<1, true>(), appendPair<2, true>(),
                                  appendPair<3, true>()};
  return inScalar ? kScalar[lane - 1] : kMemory[lane - 1];
}

}  // namespace shadermachine::engine
