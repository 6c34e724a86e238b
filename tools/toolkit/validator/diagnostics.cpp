#include "diagnostics.h"

#include <algorithm>

namespace shadermachine::tools {

std::vector<Diagnostic> Diagnostics::take() {
  std::stable_sort(list_.begin(), list_.end(), [](const Diagnostic& a, const Diagnostic& b) {
    if (a.function != b.function) return a.function < b.function;
    return a.offset < b.offset;
  });
  const uint64_t errors = errors_.omitted();
  const uint64_t warnings = warnings_.omitted();
  if (errors != 0) {
    list_.push_back({Severity::Error, -1, 0, nullptr, text("and ", counted(errors, "more error"))});
  }
  if (warnings != 0) {
    list_.push_back(
        {Severity::Warning, -1, 0, nullptr, text("and ", counted(warnings, "more warning"))});
  }
  return std::move(list_);
}

}  // namespace shadermachine::tools
