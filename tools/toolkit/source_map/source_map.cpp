#include <shadermachine-tools/shader_view.h>
#include <shadermachine-tools/source_map.h>

#include <algorithm>

namespace shadermachine::tools {

const SourceRow* SourceMap::row(uint32_t function, uint32_t offset) const {
  if (function >= functions.size()) return nullptr;
  const std::vector<SourceRow>& rows = functions[function].rows;
  const auto next =
      std::upper_bound(rows.begin(), rows.end(), offset,
                       [](uint32_t wanted, const SourceRow& row) { return wanted < row.offset; });
  return next == rows.begin() ? nullptr : &*std::prev(next);
}

SourcePosition SourceMap::position(uint32_t function, uint32_t offset) const {
  const SourceRow* found = row(function, offset);
  // Builders take any position; only the reader of files checks them.
  return found != nullptr && found->position.file < files.size() ? found->position
                                                                 : SourcePosition();
}

MessagePlace messagePlace(const ShaderView& view, int32_t function, uint32_t offset,
                          std::string_view fileName) {
  if (view.sources == nullptr || function < 0) return {.file = fileName};
  const SourcePosition position = view.sources->position(static_cast<uint32_t>(function), offset);
  if (!position.isKnown()) return {.file = fileName};
  const SourceFile& file = view.sources->files[position.file];
  return {.file = file.name.empty() ? fileName : std::string_view(file.name),
          .line = position.line,
          .column = position.column,
          .lineText = lineOfText(file.text, position.line)};
}

std::string functionText(const ShaderView& view, uint32_t function) {
  if (view.sources != nullptr && function < view.sources->functions.size()) {
    const std::string& signature = view.sources->functions[function].signature;
    if (!signature.empty()) return signature;
  }
  const char* name = view.functionNames != nullptr ? view.functionNames[function] : nullptr;
  return "function " + (name != nullptr ? std::string(name) : std::to_string(function));
}

}  // namespace shadermachine::tools
