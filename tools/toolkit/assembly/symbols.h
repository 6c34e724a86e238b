// Names of one kind and their numbers. Ordered, not hashed: no choice of names makes finding them
// slow.
//
// Invariant: numbers count the calls of add(), whatever the names were, and so agree with those
// that the builder gives to entries added alongside.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "assembly/diagnostics.h"
#include "assembly/lexer.h"

namespace shadermachine::tools::assembly {

class SymbolTable {
 public:
  // `what` as in "no local is named x".
  explicit SymbolTable(const char* what) : what_(what) {}

  // Gives the name the next number. A name that is taken is an error; the number is used up.
  void add(const Token& name, Diagnostics& diagnostics);
  std::optional<uint32_t> find(std::string_view name) const;
  // A missing name is an error.
  std::optional<uint32_t> require(const Token& name, Diagnostics& diagnostics) const;
  size_t size() const { return names_.size(); }
  const std::vector<std::string_view>& names() const { return names_; }

 private:
  const char* what_;
  std::map<std::string_view, uint32_t> numbers_;
  std::vector<std::string_view> names_;
};

// ", did you mean 'x'?" for the candidate that is at most a few typing errors away, else nothing.
std::string suggestion(std::string_view name, const std::vector<std::string_view>& candidates);

}  // namespace shadermachine::tools::assembly
