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

class Diagnostics {
 public:
  void error(std::string message, int32_t function = -1, uint32_t offset = 0,
             const char* mnemonic = nullptr) {
    ++errorCount_;
    list_.push_back({Severity::Error, function, offset, mnemonic, std::move(message)});
  }
  void warning(std::string message, int32_t function, uint32_t offset = 0,
               const char* mnemonic = nullptr) {
    list_.push_back({Severity::Warning, function, offset, mnemonic, std::move(message)});
  }

  size_t errorCount() const { return errorCount_; }
  std::vector<Diagnostic>& list() { return list_; }

 private:
  std::vector<Diagnostic> list_;
  size_t errorCount_ = 0;
};

}  // namespace shadermachine::tools
