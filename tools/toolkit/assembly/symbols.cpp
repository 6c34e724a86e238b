#include "assembly/symbols.h"

#include <algorithm>
#include <numeric>

namespace shadermachine::tools::assembly {
namespace {

// What a hint may cost: candidates are compared in time of their length times the name's, for each
// of up to kMaxErrors errors.
constexpr size_t kMaxComparedLength = 40;
constexpr size_t kMaxCandidates = 2000;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

// Insertions, deletions and replacements that lead from one to the other, case aside.
size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    // One row of the table of distances, overwritten by the next; `diagonal` is the entry of the
    // row before that was overwritten last.
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row[b.size()];
}

}  // namespace

void SymbolTable::add(const Token& name, Diagnostics& diagnostics) {
  const auto [place, isNew] = numbers_.emplace(name.text, static_cast<uint32_t>(names_.size()));
  if (!isNew) {
    diagnostics.error(name.text, std::string("a ") + what_ + " named " + quoted(name.text) +
                                     " exists already, on line " +
                                     std::to_string(diagnostics.positionOf(place->first).line));
  }
  names_.push_back(name.text);
}

std::optional<uint32_t> SymbolTable::find(std::string_view name) const {
  const auto place = numbers_.find(name);
  return place == numbers_.end() ? std::nullopt : std::optional(place->second);
}

std::optional<uint32_t> SymbolTable::require(const Token& name, Diagnostics& diagnostics) const {
  const auto number = find(name.text);
  if (!number && diagnostics.keepsErrorAt(name.text)) {
    diagnostics.error(name.text, std::string("no ") + what_ + " is named " + quoted(name.text) +
                                     suggestion(name.text, names_));
  }
  return number;
}

std::string suggestion(std::string_view name, const std::vector<std::string_view>& candidates) {
  if (name.size() > kMaxComparedLength) return "";
  size_t best = name.size() < 4 ? 1 + name.size() / 3 : 3;  // worse matches would only confuse
  std::string_view closest;
  for (size_t i = 0; i < std::min(candidates.size(), kMaxCandidates); ++i) {
    const std::string_view candidate = candidates[i];
    const auto [shorter, longer] = std::minmax({name.size(), candidate.size()});
    // The lengths alone are too far apart. Also keeps candidates of any length cheap.
    if (longer - shorter >= best) continue;
    const size_t distance = editDistance(name, candidate);
    if (distance < best) {
      best = distance;
      closest = candidate;
    }
  }
  return closest.empty() ? "" : ", did you mean " + quoted(closest) + "?";
}

}  // namespace shadermachine::tools::assembly
