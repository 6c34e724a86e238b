// Tests that are written as text, many to a file:
//
//   # a comment
//   === Name
//   what is the case's own besides what all cases share, and a line "---"; or nothing
//   body
//   => what is expected, a line each
//
// or in one line, of which any part may go on to the next:
//
//   === Name: own --- body => expected
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace shadermachine::tests {

struct TextCase {
  std::string name;  // that of the file in front
  std::string own;
  std::string body;
  std::string expected;
};

std::string readFile(const std::string& path);

// Instructions that share a line, between semicolons, on lines of their own.
std::string linesOf(std::string code);

// Of all files "*.txt" of a folder.
std::vector<TextCase> readCases(const std::string& folder);

inline void PrintTo(const TextCase& value, std::ostream* stream) { *stream << value.name; }

constexpr auto kCaseName = [](const auto& instance) { return instance.param.name; };

}  // namespace shadermachine::tests
