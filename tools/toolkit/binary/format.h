// The sections of a binary file; docs/binary.md has the prose form.
#pragma once

#include <cstdint>
#include <string_view>

namespace shadermachine::tools::binary {

inline constexpr std::string_view kMagic = "SMO\x1a";
inline constexpr uint32_t kVersion = 1;

// Sections come in this order, those in capitals exactly once. Readers pass over others that begin
// with a small letter.
inline constexpr std::string_view kRecordTag = "RECD";
inline constexpr std::string_view kStructsTag = "STRU";
inline constexpr std::string_view kGlobalsTag = "GLOB";
inline constexpr std::string_view kFunctionsTag = "FUNC";
inline constexpr std::string_view kCodeTag = "CODE";
inline constexpr std::string_view kValuesTag = "vals";
inline constexpr std::string_view kSourcesTag = "srcs";

inline constexpr size_t kTagSize = 4;
// Type codes name no more structures.
inline constexpr uint32_t kMaxStructs = 32768;
// In place of a string's length: no string.
inline constexpr uint32_t kNull = 0xffffffff;

}  // namespace shadermachine::tools::binary
