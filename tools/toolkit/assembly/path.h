// Follows an access path through the types it passes, to give its steps names. Assembler and
// disassembler walk alike, so that a name that one writes is the member that the other finds.
#pragma once

#include <shadermachine/shadermachine.h>

#include <functional>
#include <optional>
#include <utility>

#include "machine/types.h"

namespace shadermachine::tools::assembly {

class PathWalk {
 public:
  // Null when the structure or the member does not exist.
  using MemberLookup = std::function<const VarInfo*(size_t structure, size_t member)>;

  // A null variable is one that nothing is known about.
  PathWalk(const VarInfo* variable, MemberLookup findMember) : findMember_(std::move(findMember)) {
    enter(variable);
  }

  // The structure whose members the next step names.
  std::optional<size_t> structure() const {
    if (!isKnown_ || count_ > 0 || type_ < 0) return std::nullopt;
    return static_cast<size_t>(type_);
  }

  void step(int64_t index) {
    // A negative step selects components: the part stays the same.
    if (!isKnown_ || index < 0) return;
    if (count_ > 0) {
      count_ = 0;
    } else if (type_ >= 0) {
      enter(findMember_(static_cast<size_t>(type_), static_cast<size_t>(index)));
    } else if (isVectorType(type_)) {
      type_ = vectorScalarType(type_);
    } else if (isMatrixType(type_)) {
      type_ = matrixColumnType(type_);
    }
  }

 private:
  void enter(const VarInfo* variable) {
    isKnown_ = variable != nullptr;
    if (!isKnown_) return;
    type_ = variable->type;
    count_ = variable->count;
  }

  MemberLookup findMember_;
  bool isKnown_ = false;
  TypeCode type_ = 0;
  uint32_t count_ = 0;
};

}  // namespace shadermachine::tools::assembly
