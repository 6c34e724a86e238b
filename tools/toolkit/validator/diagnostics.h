// Where the validator's concerns put what they find.
#pragma once

#include <shadermachine-tools/validator.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace shadermachine::tools {

// The parts written one after another.
template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream stream;
  (stream << ... << parts);
  return stream.str();
}

// "1 word", "2 words"
inline std::string counted(uint64_t count, const char* noun) {
  return text(count, ' ', noun, count == 1 ? "" : "s");
}

// Where a remark belongs; nowhere in the code if it is about the tables.
struct Place {
  int32_t function = -1;
  uint32_t offset = 0;
  const char* mnemonic = nullptr;
};

// Keeps the first remarks of either severity and counts the others, whose texts are never made.
class Diagnostics {
 public:
  template <class... Parts>
  void error(const Place& place, const Parts&... parts) {
    add(errors_, Severity::Error, place, parts...);
  }
  template <class... Parts>
  void warning(const Place& place, const Parts&... parts) {
    add(warnings_, Severity::Warning, place, parts...);
  }

  uint64_t errorCount() const { return errors_.found; }

  // What was found, by function and place, and how many remarks are not among it.
  std::vector<Diagnostic> take();

 private:
  static constexpr uint64_t kMost = 100;

  struct Severities {
    uint64_t found = 0;
    uint64_t omitted() const { return found > kMost ? found - kMost : 0; }
  };

  template <class... Parts>
  void add(Severities& count, Severity severity, const Place& place, const Parts&... parts) {
    if (++count.found > kMost) return;
    list_.push_back({severity, place.function, place.offset, place.mnemonic, text(parts...)});
  }

  std::vector<Diagnostic> list_;
  Severities errors_;
  Severities warnings_;
};

}  // namespace shadermachine::tools
