// An assembly text after parsing, before names have a meaning. All views point into the text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "assembly/lexer.h"

namespace shadermachine::tools::assembly {

struct VariableSyntax {
  Token type;
  Token name;
  uint32_t count = 0;
  uint16_t flags = 0;
  // What the record shall say instead of the handle, the computed size and the computed offset.
  std::optional<std::string> recordName;
  bool hasNoRecordName = false;
  std::optional<uint32_t> size;
  std::optional<uint32_t> offset;
};

struct StructSyntax {
  Token name;
  std::vector<VariableSyntax> members;
  std::optional<uint32_t> size;
  bool isNull = false;
};

// One line of a function body: a label, bytes, an instruction, or where it comes from.
struct StatementSyntax {
  enum class Kind : uint8_t { Label, Bytes, Instruction, Source };
  Kind kind = Kind::Instruction;
  Token head;                   // label name, directive or mnemonic
  std::vector<Token> operands;  // of an instruction or source directive
  std::vector<uint8_t> bytes;
};

struct CodeRange {
  uint32_t offset = 0;
  uint32_t length = 0;
};

struct FunctionSyntax {
  Token name;
  std::vector<VariableSyntax> params;
  std::vector<VariableSyntax> locals;
  std::vector<StatementSyntax> body;
  std::optional<uint32_t> paramCount;  // when the record shall disagree with the list
  std::optional<CodeRange> codeRange;
  bool isNull = false;
};

// A directive that sets a field of the record.
struct SettingSyntax {
  Token directive;
  std::vector<Token> arguments;
};

// What takes part in the order of the code: a function of the list, or loose bytes.
struct CodeSyntax {
  std::optional<size_t> function;
  std::vector<uint8_t> bytes;
};

struct ShaderSyntax {
  std::vector<Token> declarations;  // names given by .declare
  std::vector<StructSyntax> structs;
  std::vector<VariableSyntax> globals;
  std::vector<FunctionSyntax> functions;
  std::vector<SettingSyntax> settings;
  std::vector<CodeSyntax> code;
};

}  // namespace shadermachine::tools::assembly
