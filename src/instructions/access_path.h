// One step of an access path: what an index picks out of an array, a structure, a vector or a
// matrix. Stores into parts walk by it, when they run and when they are translated.
#pragma once

#include "machine/machine.h"
#include "machine/types.h"

namespace shadermachine {

// `count` values of the type, or one when that is 0.
struct PartType {
  TypeCode type;
  uint32_t count;
};

struct PathStep {
  uint64_t offset;  // bytes before the part
  uint32_t size;
  uint32_t stride;  // bytes from one index's part to the next one's; 0 for members
  uint32_t bound;   // indices from here on pick nothing
  PartType part;
};

// What a vector or matrix of the type consists of.
inline PathStep componentStep(TypeCode type, uint32_t index) {
  const uint32_t stride = typeStride(type);
  const TypeCode part = isVectorType(type) ? vectorScalarType(type) : matrixColumnType(type);
  return {uint64_t{index} * stride, stride, stride, typeByteSize(type) / stride, {part, 0}};
}

// False when the index picks nothing. A scalar has no parts: see hasParts(). `structOf` gives the
// structure type of a code, or null: what is translated notes whose tables it asked for.
template <class StructOf>
bool pickPart(StructOf structOf, PartType whole, uint32_t index, PathStep& step) {
  if (whole.count == 0 && whole.type >= 0) {
    const StructInfo* info = structOf(whole.type);
    if (info == nullptr || info->members == nullptr || index >= info->memberCount) return false;
    const VarInfo& member = info->members[index];
    step = {
        member.memberOffset, member.byteSize, 0, info->memberCount, {member.type, member.count}};
    return true;
  }
  if (whole.count == 0) {
    step = componentStep(whole.type, index);
    return index < step.bound;
  }
  const StructInfo* info = whole.type < 0 ? nullptr : structOf(whole.type);
  if (whole.type >= 0 && info == nullptr) return false;
  const uint32_t size = info == nullptr ? typeByteSize(whole.type) : info->size;
  step = {uint64_t{index} * size, size, size, whole.count, {whole.type, 0}};
  return index < whole.count;
}

inline bool hasParts(PartType whole) {
  return whole.count > 0 || whole.type >= 0 || isVectorType(whole.type) || isMatrixType(whole.type);
}

// A component selection, carried by a negative index as its negation.
class SwizzlePattern {
 public:
  SwizzlePattern() = default;
  explicit SwizzlePattern(int32_t index)
      : bits_(static_cast<uint16_t>(-static_cast<int32_t>(static_cast<int16_t>(index)))) {}

  bool isPending() const { return bits_ != 0; }
  uint32_t count() const { return (bits_ >> 8) & 7; }
  uint32_t selector(uint32_t i) const { return (bits_ >> (2 * i)) & 3; }

  // All selected components begin before byte `end` and end there.
  bool staysBefore(uint32_t end) const {
    for (uint32_t i = 0; i < count(); ++i) {
      if ((selector(i) + 1) * sizeof(uint32_t) > end) return false;
    }
    return true;
  }

 private:
  uint16_t bits_ = 0;
};

inline constexpr uint32_t kMaxSelectors = 4;

}  // namespace shadermachine
