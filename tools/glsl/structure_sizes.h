// What the structures of a source would cost.
//
// glslang looks at every member of a structure, down to the innermost, wherever one is declared,
// passed or compared, and writes out all their types in the names of functions. So structures are
// measured before it parses them: a few lines may double a structure forty times.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools::glsl {

inline constexpr unsigned kMaxStructDepth = 200;
// Of one structure or block: each name is compared with those of all before it.
inline constexpr unsigned kMaxMembers = 4096;
// Of the largest structure's characters, with those of all inner ones, times the words of the
// source.
inline constexpr uint64_t kMaxStructWork = uint64_t{1} << 28;

// Why the structures are too much, or nothing. The tokens are those of the preprocessed source. A
// name that is used again counts as the largest structure of that name.
std::string structureProblem(const std::vector<std::string_view>& tokens);

}  // namespace shadermachine::tools::glsl
