// Handles: the names by which a text refers to the entries of a record's tables.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "disassembly/record.h"

namespace shadermachine::tools::disassembly {

// Handles of one table: the recorded name where it can serve, else prefix and number.
class Handles {
 public:
  explicit Handles(const char* prefix) : prefix_(prefix) {}

  void add(const char* recordedName);
  const std::string& operator[](size_t index) const { return handles_[index]; }
  size_t size() const { return handles_.size(); }
  // The handle, or the number where there is none.
  std::string text(int64_t index) const;

  // Keeps a name from becoming a handle.
  void reserve(std::string_view name) { taken_.emplace(name); }

 private:
  const char* prefix_;
  std::vector<std::string> handles_;
  std::unordered_set<std::string> taken_;
};

Handles variableHandles(const char* prefix, std::span<const VarInfo> variables);

struct RecordHandles {
  explicit RecordHandles(const Record& record);

  Handles structs{"struct"};
  std::vector<Handles> members;
  Handles globals;
  Handles functions{"function"};
};

// A type by name: basic, or a structure below the limit; else its number.
std::string typeText(const RecordHandles& handles, int32_t type, size_t structLimit);

}  // namespace shadermachine::tools::disassembly
