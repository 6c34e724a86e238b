#include "disassembly/source_text.h"

#include <algorithm>

#include "assembly/literals.h"

namespace shadermachine::tools::disassembly {
namespace {

using Home = SourceVariable::Home;
using assembly::formatString;

}  // namespace

SourceText::SourceText(const SourceMap* map, const RecordHandles& handles)
    : map_(map), handles_(handles) {
  if (map_ == nullptr) return;
  // 0 is the new text itself.
  uint32_t next = 1;
  for (const SourceFile& file : map_->files) numbers_.push_back(file.isListing ? 0 : next++);
}

std::string SourceText::outside() const {
  std::string text;
  if (map_ == nullptr) return text;
  for (size_t i = 0; i < numbers_.size(); ++i) {
    if (numbers_[i] == 0) continue;
    text +=
        ".file " + std::to_string(numbers_[i]) + ", " + formatString(map_->files[i].name) + "\n";
  }
  for (const SourceVariable& global : map_->globals) text += variable(global, nullptr) + "\n";
  return text;
}

const SourceFunction* SourceText::function(size_t index) const {
  const bool exists = map_ != nullptr && index < map_->functions.size();
  return exists ? &map_->functions[index] : nullptr;
}

std::string SourceText::signature(size_t index) const {
  const SourceFunction* source = function(index);
  if (source == nullptr || source->signature.empty()) return "";
  return "  .signature " + formatString(source->signature) + "\n";
}

std::string SourceText::position(const SourceRow& row) const {
  const std::string directive = row.isStatement ? "  .statement " : "  .line ";
  if (!row.position.isKnown()) return directive + "0\n";
  return directive + std::to_string(numbers_[row.position.file]) + ", " +
         std::to_string(row.position.line) + ", " + std::to_string(row.position.column) + "\n";
}

std::string SourceText::variable(const SourceVariable& variable, const Handles* locals) const {
  std::string text =
      ".variable " + formatString(variable.name) + ", " + formatString(variable.type) + ", ";
  const bool isMissing =
      (variable.home == Home::Local && (!locals || variable.index >= locals->size())) ||
      (variable.home == Home::Global && variable.index >= handles_.globals.size());
  if (isMissing || variable.home == Home::Gone) return text + "gone";
  if (variable.home == Home::Local) return text + "local, " + (*locals)[variable.index];
  if (variable.home == Home::Global) return text + "global, " + handles_.globals[variable.index];
  text += "constant";
  for (const uint32_t word : variable.words) text += ", " + assembly::formatWord(word);
  return text;
}

std::map<uint32_t, std::string> SourceText::lines(size_t index, const Handles& locals) const {
  std::map<uint32_t, std::string> lines;
  const SourceFunction* source = function(index);
  if (source == nullptr) return lines;
  // Ends first: where one of a name ends, the next may begin. What ends where it begins, such as a
  // parameter of a body without code, is in scope nowhere and would be ended too early.
  const auto isSomewhere = [](const SourceVariable& known) { return known.begin < known.end; };
  for (const SourceVariable& known : source->variables) {
    if (known.end == UINT32_MAX || !isSomewhere(known)) continue;
    lines[known.end] += "  .end_variable " + formatString(known.name) + "\n";
  }
  for (const SourceVariable& known : source->variables) {
    if (!isSomewhere(known)) continue;
    lines[known.begin] += "  " + variable(known, &locals) + "\n";
  }
  for (const SourceRow& row : source->rows) {
    const bool isListed = row.position.isKnown() && (row.position.file >= numbers_.size() ||
                                                     numbers_[row.position.file] == 0);
    if (!isListed) lines[row.offset] += position(row);
  }
  return lines;
}

}  // namespace shadermachine::tools::disassembly
