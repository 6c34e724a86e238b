// The target of an element store: where an access path leads inside a variable.
#pragma once

#include <optional>
#include <string>

#include "types.h"

namespace shadermachine::tools {

class AccessPath {
 public:
  AccessPath(const Types& types, const VarInfo& variable)
      : types_(types), type_(variable.type), count_(variable.count) {}

  // One index of the path; unknown when it is computed. False when the path cannot be followed:
  // problem() says why.
  bool step(std::optional<int32_t> index);

  // The part that is written.
  TypeCode type() const { return type_; }
  uint32_t count() const { return count_; }
  bool isAggregate() const { return !isBasic(type_, count_); }
  // Words that are read of an inline value.
  uint32_t words() const;
  // Nothing is written when the path has no steps into the variable and selects no components.
  bool writesNothing() const { return bytes_ == 0 && pattern_ == 0; }

  // Why the store is certain to be dropped; empty when it is not.
  std::string dropReason() const;
  const std::string& problem() const { return problem_; }

 private:
  bool stepIntoStructure(std::optional<int32_t> index);
  void stepIntoArray(std::optional<int32_t> index);
  void stepIntoVector(std::optional<int32_t> index);
  void stepIntoMatrix(std::optional<int32_t> index);
  void checkBound(std::optional<int32_t> index, uint32_t bound, const char* noun);
  uint32_t selectedCount() const { return (pattern_ >> 8) & 7; }
  uint32_t selector(uint32_t i) const { return (pattern_ >> (2 * i)) & 3; }

  const Types& types_;
  TypeCode type_;
  uint32_t count_;
  uint64_t bytes_ = 0;    // of the part; 0 before the first step into the variable
  uint32_t pattern_ = 0;  // pending component selection
  std::string problem_;
  std::string dropped_;
};

}  // namespace shadermachine::tools
