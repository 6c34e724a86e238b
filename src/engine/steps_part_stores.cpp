// Stores into parts of variables, by run-time indices and into blocks.

#include "engine/steps.h"
#include "engine/vectors.h"

namespace shadermachine::engine {
namespace {

const PartLimits& limitsOf(const Record* record) { return *objectAt<PartLimits>(record->c); }

// Null when the part is not there: the store is dropped.
template <bool inBlock, IndexSource source>
uint8_t* partOf(const Record* record, uint32_t word) {
  uint32_t index = 0;
  if constexpr (source != IndexSource::None) {
    index = source == IndexSource::Word ? word : *record->b;
    if constexpr (!inBlock) {
      const form::IndexStep& step = limitsOf(record).steps[0];
      index = (index + step.add) & step.mask;
    }
    if (index >= record->z) return nullptr;
  }
  const size_t offset = record->x + size_t{index} * record->y;
  if constexpr (!inBlock) {
    return reinterpret_cast<uint8_t*>(record->d) + offset;
  } else {
    const BlockView& view = slotOf(record->d).view;
    const PartLimits& limits = limitsOf(record);
    const uint64_t needed = limits.bytes + uint64_t{index} * limits.bytesStride;
    return view.data == nullptr || view.size < needed ? nullptr : view.data + offset;
  }
}

// Exactly the part's words: others lie behind it.
template <uint32_t n, bool inRegister>
void writePart(uint8_t* part, const Record* record, FloatVector vector, float scalar) {
  if constexpr (n > 4) {
    // From a part of the same variable, maybe.
    std::memmove(part, record->a, record->size * sizeof(uint32_t));
  } else if constexpr (!inRegister) {
    std::memcpy(part, record->a, n * sizeof(uint32_t));
  } else if constexpr (n == 1) {
    std::memcpy(part, &scalar, sizeof scalar);
  } else {
    auto* words = objectAt<uint32_t>(part);
    storeVector<n == 3 ? 2 : n>(words, vector);
    if constexpr (n == 3) words[2] = std::bit_cast<uint32_t>(vector[2]);
  }
}

template <bool inBlock, IndexSource source, uint32_t n, bool inRegister>
Step partStep(ENGINE_STATE) {
  uint8_t* part = partOf<inBlock, source>(record, word);
  if (part != nullptr) writePart<n, inRegister>(part, record, vector, scalar);
  ENGINE_NEXT;
}

template <bool inBlock, IndexSource source>
RecordHandler chooseWords(uint32_t n, bool inRegister) {
  constexpr RecordHandler kMemory[] = {
      &partStep<inBlock, source, 1, false>, &partStep<inBlock, source, 2, false>,
      &partStep<inBlock, source, 3, false>, &partStep<inBlock, source, 4, false>,
      &partStep<inBlock, source, 5, false>};
  constexpr RecordHandler kRegister[] = {
      &partStep<inBlock, source, 1, true>, &partStep<inBlock, source, 2, true>,
      &partStep<inBlock, source, 3, true>, &partStep<inBlock, source, 4, true>};
  return inRegister ? kRegister[n - 1] : kMemory[(n > 4 ? 5 : n) - 1];
}

template <bool inBlock>
RecordHandler chooseIndex(IndexSource source, uint32_t n, bool inRegister) {
  switch (source) {
    case IndexSource::None:
      return chooseWords<inBlock, IndexSource::None>(n, inRegister);
    case IndexSource::Word:
      return chooseWords<inBlock, IndexSource::Word>(n, inRegister);
    default:
      return chooseWords<inBlock, IndexSource::Memory>(n, inRegister);
  }
}

}  // namespace

RecordHandler storePartStep(bool inBlock, IndexSource index, uint32_t n, bool inRegister) {
  return inBlock ? chooseIndex<true>(index, n, inRegister)
                 : chooseIndex<false>(index, n, inRegister);
}

Step storeDeepWordsStep(ENGINE_STATE) {
  const PartLimits& limits = limitsOf(record);
  bool inside = true;
  size_t offset = record->x;
  for (uint32_t k = 0; k < limits.count; ++k) {
    const form::IndexStep& step = limits.steps[k];
    const uint32_t index = (*limits.index[k] + step.add) & step.mask;
    inside = inside && index < step.bound;
    offset += size_t{index} * step.stride;
  }
  auto* words = reinterpret_cast<uint8_t*>(record->d);
  if (inside) std::memmove(words + offset, record->a, record->size * sizeof(uint32_t));
  ENGINE_NEXT;
}

Step storeDeepPartStep(ENGINE_STATE) {
  const PartLimits& limits = limitsOf(record);
  const BlockView& view = slotOf(record->d).view;
  const uint64_t needed = limits.bytes + uint64_t{*limits.index[0]} * limits.bytesStride;
  bool inside = view.data != nullptr && view.size >= needed;
  size_t offset = record->x;
  for (uint32_t k = 0; k < limits.count; ++k) {
    inside = inside && *limits.index[k] < limits.steps[k].bound;
    offset += size_t{*limits.index[k]} * limits.steps[k].stride;
  }
  if (inside) std::memcpy(view.data + offset, record->a, record->size * sizeof(uint32_t));
  ENGINE_NEXT;
}

}  // namespace shadermachine::engine
