// The target of an element store: where an access path leads inside a variable.
//
// A negative index selects components instead of a part. Where an index is computed and nothing
// says that it is a position, the path may therefore lead elsewhere than it was meant to:
// AccessPaths follows what was meant and everything that is possible besides.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "types.h"

namespace shadermachine::tools {

class AccessPath {
 public:
  AccessPath(const Types& types, const VarInfo& variable)
      : types_(types), type_(variable.type), count_(variable.count) {}

  // One index of the path; unknown when it is computed, and a position then. False when the path
  // cannot be followed: problem() says why.
  bool step(std::optional<int32_t> index);
  // A computed index that turns out to be negative.
  void stepBySelection() { pattern_ = kAnyPattern; }

  // The part that is written.
  TypeCode type() const { return type_; }
  uint32_t count() const { return count_; }
  bool isAggregate() const { return !isBasic(type_, count_); }
  // Words that are read of an inline value, at most.
  uint32_t words() const;
  // Nothing is written when the path has no steps into the variable and selects no components.
  bool writesNothing() const { return bytes_ == 0 && pattern_ == 0; }

  // An index lies outside what it picks from.
  bool isDropped() const { return !dropped_.empty(); }
  // Why the store is certain to be dropped; empty when it is not.
  std::string dropReason() const;
  const std::string& problem() const { return problem_; }
  // True when all further indices lead both to the same place.
  bool leadsWhere(const AccessPath& other) const {
    return type_ == other.type_ && count_ == other.count_ && bytes_ == other.bytes_ &&
           pattern_ == other.pattern_;
  }

 private:
  // Stands for every pattern, 0 included.
  static constexpr uint32_t kAnyPattern = UINT32_MAX;

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

class AccessPaths {
 public:
  AccessPaths(const Types& types, const VarInfo& variable) : meant_(types, variable) {}

  // One index of all paths: a position, or one that may be negative. False when what was meant
  // cannot be followed.
  bool step(std::optional<int32_t> index, bool isPosition);

  const AccessPath& meant() const { return meant_; }
  // Words that an inline value must have for the paths that were not meant; a value that is not
  // inline must not get there if there are any.
  uint32_t strayWords() const;
  // Why the paths that were not meant cannot be followed; empty when they can.
  const std::string& strayProblem() const { return strayProblem_; }

 private:
  void addStray(const AccessPath& path);

  AccessPath meant_;
  std::vector<AccessPath> strays_;
  std::string strayProblem_;
};

}  // namespace shadermachine::tools
