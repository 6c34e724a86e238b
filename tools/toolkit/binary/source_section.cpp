#include "binary/source_section.h"

namespace shadermachine::tools::binary {
namespace {

void writeVariables(ByteWriter& bytes, const std::vector<SourceVariable>& variables) {
  bytes.number(static_cast<uint32_t>(variables.size()));
  for (const SourceVariable& variable : variables) {
    bytes.text(variable.name.c_str());
    bytes.text(variable.type.c_str());
    bytes.number(static_cast<uint8_t>(variable.home));
    bytes.number(variable.index);
    bytes.number(static_cast<uint32_t>(variable.words.size()));
    for (const uint32_t word : variable.words) bytes.number(word);
    bytes.number(variable.begin);
    bytes.number(variable.end);
  }
}

void readVariables(ByteReader& bytes, std::vector<SourceVariable>& variables) {
  const auto count = bytes.number<uint32_t>();
  for (uint32_t i = 0; i < count && bytes.isGood(); ++i) {
    SourceVariable& variable = variables.emplace_back();
    variable.name = bytes.string();
    variable.type = bytes.string();
    const auto home = bytes.number<uint8_t>();
    if (home > static_cast<uint8_t>(SourceVariable::Home::Gone)) bytes.spoil();
    variable.home = static_cast<SourceVariable::Home>(home);
    variable.index = bytes.number<uint16_t>();
    const auto words = bytes.number<uint32_t>();
    for (uint32_t w = 0; w < words && bytes.isGood(); ++w) {
      variable.words.push_back(bytes.number<uint32_t>());
    }
    variable.begin = bytes.number<uint32_t>();
    variable.end = bytes.number<uint32_t>();
    if (variable.begin > variable.end) bytes.spoil();
  }
}

void readRows(ByteReader& bytes, size_t fileCount, std::vector<SourceRow>& rows) {
  const auto count = bytes.number<uint32_t>();
  for (uint32_t i = 0; i < count && bytes.isGood(); ++i) {
    SourceRow row;
    row.offset = bytes.number<uint32_t>();
    row.position.file = bytes.number<uint32_t>();
    row.position.line = bytes.number<uint32_t>();
    row.position.column = bytes.number<uint32_t>();
    row.isStatement = bytes.flag();
    const bool isAscending = rows.empty() || rows.back().offset < row.offset;
    if (!isAscending || row.position.file >= fileCount) bytes.spoil();
    rows.push_back(row);
  }
}

}  // namespace

void writeSources(ByteWriter& bytes, const SourceMap& sources) {
  bytes.number(static_cast<uint32_t>(sources.files.size()));
  for (const SourceFile& file : sources.files) {
    bytes.text(file.name.c_str());
    bytes.number(static_cast<uint8_t>(file.isListing));
  }
  writeVariables(bytes, sources.globals);
  bytes.number(static_cast<uint32_t>(sources.functions.size()));
  for (const SourceFunction& function : sources.functions) {
    bytes.text(function.signature.c_str());
    bytes.number(static_cast<uint32_t>(function.rows.size()));
    for (const SourceRow& row : function.rows) {
      bytes.number(row.offset);
      bytes.number(row.position.file);
      bytes.number(row.position.line);
      bytes.number(row.position.column);
      bytes.number(static_cast<uint8_t>(row.isStatement));
    }
    writeVariables(bytes, function.variables);
  }
}

void readSources(ByteReader& bytes, SourceMap& sources) {
  const auto files = bytes.number<uint32_t>();
  for (uint32_t i = 0; i < files && bytes.isGood(); ++i) {
    SourceFile& file = sources.files.emplace_back();
    file.name = bytes.string();
    file.isListing = bytes.flag();
  }
  readVariables(bytes, sources.globals);
  const auto functions = bytes.number<uint32_t>();
  for (uint32_t i = 0; i < functions && bytes.isGood(); ++i) {
    SourceFunction& function = sources.functions.emplace_back();
    function.signature = bytes.string();
    readRows(bytes, sources.files.size(), function.rows);
    readVariables(bytes, function.variables);
  }
}

}  // namespace shadermachine::tools::binary
