#include "assembly/parser.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "assembly/literals.h"
#include "assembly/settings.h"
#include "assembly/source_directives.h"

namespace shadermachine::tools::assembly {
namespace {

// Every statement is one line. Parsing functions return false after reporting an error; the rest of
// the line is then skipped.
class Parser {
 public:
  Parser(const std::vector<Token>& tokens, Diagnostics& diagnostics)
      : next_(tokens.data()), diagnostics_(diagnostics) {}

  ShaderSyntax run() {
    while (!next_->is(TokenKind::EndOfFile) && !diagnostics_.isFull()) {
      // Each turn passes at least a line end, whatever the rules made of the line.
      if (!next_->endsLine()) finishLine(parseTopLevel());
      skipEndOfLine();
    }
    return std::move(shader_);
  }

 private:
  using Rule = bool (Parser::*)();
  struct Directive {
    std::string_view name;
    Rule rule;
  };

  static const Directive kDirectives[5];
  static constexpr std::string_view kInnerDirectives[] = {".local", ".member", ".end"};

  bool fail(const Token& at, std::string message) {
    diagnostics_.error(at.text, std::move(message));
    return false;
  }

  bool expected(const char* what) {
    const bool isMissing = next_->endsLine();
    return fail(*next_,
                std::string("expected ") + what +
                    (isMissing ? " before the end of the line" : ", found " + quoted(next_->text)));
  }

  bool finishLine(bool isGood) {
    if (isGood && !next_->endsLine()) {
      isGood =
          fail(*next_, "unexpected " + quoted(next_->text) + " after the end of the statement");
    }
    while (!next_->endsLine()) ++next_;
    return isGood;
  }

  void skipEndOfLine() {
    if (next_->is(TokenKind::EndOfLine)) ++next_;
  }

  bool accept(char punctuation) {
    if (!next_->is(punctuation)) return false;
    ++next_;
    return true;
  }

  bool acceptWord(std::string_view word) {
    if (!next_->is(TokenKind::Word) || next_->text != word) return false;
    ++next_;
    return true;
  }

  bool parseName(const char* what, Token& name) {
    if (!next_->is(TokenKind::Word)) return expected(what);
    name = *next_++;
    return true;
  }

  bool parseUnsigned(const char* what, uint32_t limit, uint32_t& value) {
    if (!next_->is(TokenKind::Integer)) return expected(what);
    if (next_->number < 0 || next_->number > limit) {
      return fail(*next_, std::string(what) + " must be from 0 to " + std::to_string(limit));
    }
    value = static_cast<uint32_t>(next_++->number);
    return true;
  }

  bool parseOptional(const char* what, std::optional<uint32_t>& value) {
    return parseUnsigned(what, UINT32_MAX, value.emplace());
  }

  bool parseTopLevel() {
    if (!next_->is(TokenKind::DotWord)) {
      return fail(*next_, "expected a directive; instructions stand between .function and .end");
    }
    for (const Directive& directive : kDirectives) {
      if (next_->text == directive.name) return (this->*directive.rule)();
    }
    for (std::string_view inner : kInnerDirectives) {
      if (next_->text == inner) {
        return fail(*next_, std::string(inner) + " outside of .function and .struct");
      }
    }
    if (!isSetting(next_->text)) return fail(*next_, unknownDirective(next_->text));
    return parseSetting();
  }

  bool parseSetting() {
    SettingSyntax setting;
    setting.directive = *next_++;
    while (!next_->endsLine()) {
      setting.arguments.push_back(*next_++);
      if (!next_->endsLine() && !accept(',')) return expected("','");
    }
    shader_.settings.push_back(std::move(setting));
    return true;
  }

  bool parseLooseBytes() {
    CodeSyntax code;
    if (!parseBytes(code.bytes)) return false;
    shader_.code.push_back(std::move(code));
    return true;
  }

  bool parseBytes(std::vector<uint8_t>& bytes) {
    ++next_;
    do {
      uint32_t byte = 0;
      if (!parseUnsigned("a byte", 255, byte)) return false;
      bytes.push_back(static_cast<uint8_t>(byte));
    } while (accept(','));
    return true;
  }

  bool parseDeclare() {
    ++next_;
    do {
      if (!parseName("the name of a function", shader_.declarations.emplace_back())) {
        shader_.declarations.pop_back();
        return false;
      }
    } while (accept(','));
    return true;
  }

  bool parseGlobal() {
    ++next_;
    return parseVariableInto(shader_.globals);
  }

  // A variable with a name is kept even when its end is wrong, so that its uses are no errors too.
  bool parseVariableInto(std::vector<VariableSyntax>& variables) {
    VariableSyntax variable;
    const bool isGood = parseVariable(variable);
    if (!variable.name.text.empty()) variables.push_back(std::move(variable));
    return isGood;
  }

  bool parseVariable(VariableSyntax& variable) {
    if (!next_->is(TokenKind::Word) && !next_->is(TokenKind::Integer)) return expected("a type");
    variable.type = *next_++;
    if (!parseName("the name of the variable", variable.name)) return false;
    if (accept('[')) {
      if (!parseUnsigned("an array length", UINT32_MAX, variable.count)) return false;
      if (variable.count == 0) return fail(next_[-1], "an array has at least one element");
      if (!accept(']')) return expected("']'");
    }
    while (next_->is(TokenKind::Word)) {
      if (!parseAttribute(variable)) return false;
    }
    return true;
  }

  bool parseAttribute(VariableSyntax& variable) {
    if (acceptWord("host")) {
      variable.flags |= VM_VAR_HOST_0;
      return true;
    }
    if (acceptWord("flags")) {
      uint32_t flags = 0;
      if (!parseUnsigned("flags", UINT16_MAX, flags)) return false;
      variable.flags |= static_cast<uint16_t>(flags);
      return true;
    }
    if (acceptWord("size")) return parseOptional("a size", variable.size);
    if (acceptWord("offset")) return parseOptional("an offset", variable.offset);
    if (acceptWord("unnamed")) return variable.hasNoRecordName = true;
    if (acceptWord("named")) return parseRecordName(variable);
    return expected("host, flags, size, offset, named or unnamed");
  }

  bool parseRecordName(VariableSyntax& variable) {
    if (!next_->is(TokenKind::String)) return expected("a quoted name");
    variable.recordName = parseString(next_->text);
    if (!variable.recordName) {
      return fail(*next_, R"(only \", \\ and \x01 to \xFF are escapes of a quoted name)");
    }
    ++next_;
    return true;
  }

  bool parseStruct() {
    const Token directive = *next_++;
    StructSyntax structure;
    if (!parseName("the name of the structure", structure.name)) return false;
    if (acceptWord("null")) {
      structure.isNull = true;
    } else {
      if (acceptWord("size") && !parseOptional("a size", structure.size)) return false;
      // The members' lines follow, so the head's own line must be over.
      finishLine(true);
      parseMembers(directive, structure);
    }
    shader_.structs.push_back(std::move(structure));
    return true;
  }

  void parseMembers(const Token& directive, StructSyntax& structure) {
    while (enterLine(directive)) {
      if (next_->text == ".end") {
        ++next_;
        return;
      }
      finishLine(parseMember(structure));
    }
  }

  bool parseMember(StructSyntax& structure) {
    if (next_->text != ".member") return expected(".member or .end");
    ++next_;
    return parseVariableInto(structure.members);
  }

  // Goes to the next line with something on it; false when the block that `directive` opened is not
  // closed by then.
  bool enterLine(const Token& directive) {
    while (next_->is(TokenKind::EndOfLine)) ++next_;
    if (diagnostics_.isFull()) return false;
    // Blocks do not nest, so one that begins says where .end is missing. Only .byte stands both
    // inside and outside.
    const bool isNewBlock =
        next_->is(TokenKind::DotWord) && next_->text != ".byte" &&
        std::any_of(std::begin(kDirectives), std::end(kDirectives),
                    [this](const Directive& other) { return other.name == next_->text; });
    if (!isNewBlock && !next_->is(TokenKind::EndOfFile)) return true;
    fail(directive, quoted(directive.text) + " without .end");
    // Back to the end of the line before, where the statement of the caller ends.
    if (isNewBlock) --next_;
    return false;
  }

  bool parseFunction() {
    const Token directive = *next_++;
    FunctionSyntax function;
    if (!parseName("the name of the function", function.name)) return false;
    if (acceptWord("null")) {
      function.isNull = true;
    } else {
      // A body is read behind a wrong head, too: reported once, at the head, and not at every line.
      finishLine(parseFunctionHead(function));
      parseFunctionBody(directive, function);
    }
    shader_.code.push_back({shader_.functions.size(), {}});
    shader_.functions.push_back(std::move(function));
    return true;
  }

  bool parseFunctionHead(FunctionSyntax& function) {
    if (accept('(') && !accept(')')) {
      do {
        if (!parseVariableInto(function.params)) return false;
      } while (accept(','));
      if (!accept(')')) return expected("',' or ')'");
    }
    if (acceptWord("params") &&
        !parseUnsigned("a number of parameters", UINT16_MAX, function.paramCount.emplace())) {
      return false;
    }
    if (!acceptWord("code")) return true;
    CodeRange& range = function.codeRange.emplace();
    return parseUnsigned("a code offset", UINT32_MAX, range.offset) &&
           parseUnsigned("a code length", UINT32_MAX, range.length);
  }

  void parseFunctionBody(const Token& directive, FunctionSyntax& function) {
    while (enterLine(directive)) {
      if (next_->text == ".end") {
        ++next_;
        return;
      }
      // A label may share its line with an instruction.
      // A word is never the last token, so there is one behind it.
      while (next_->is(TokenKind::Word) && next_[1].is(':')) {
        function.body.push_back({StatementSyntax::Kind::Label, *next_, {}, {}});
        next_ += 2;
      }
      if (!next_->endsLine()) finishLine(parseStatement(function));
    }
  }

  bool parseStatement(FunctionSyntax& function) {
    if (next_->text == ".local") {
      ++next_;
      return parseVariableInto(function.locals);
    }
    StatementSyntax statement;
    statement.head = *next_;
    if (next_->text == ".byte") {
      statement.kind = StatementSyntax::Kind::Bytes;
      if (!parseBytes(statement.bytes)) return false;
    } else if (isSourceDirective(next_->text)) {
      statement.kind = StatementSyntax::Kind::Source;
      if (!parseOperands(statement)) return false;
    } else if (next_->is(TokenKind::Word)) {
      if (!parseOperands(statement)) return false;
    } else {
      return expected("an instruction, a label, .local, .byte or .end");
    }
    function.body.push_back(std::move(statement));
    return true;
  }

  bool parseOperands(StatementSyntax& statement) {
    ++next_;
    while (!next_->endsLine()) {
      if (next_->is(TokenKind::Punctuation)) return expected("an operand");
      statement.operands.push_back(*next_++);
      if (next_->endsLine()) break;
      if (!accept(',')) return expected("','");
      if (next_->endsLine()) return expected("an operand");
    }
    return true;
  }

  const Token* next_;
  Diagnostics& diagnostics_;
  ShaderSyntax shader_;
};

const Parser::Directive Parser::kDirectives[5] = {
    {".byte", &Parser::parseLooseBytes},   {".declare", &Parser::parseDeclare},
    {".function", &Parser::parseFunction}, {".global", &Parser::parseGlobal},
    {".struct", &Parser::parseStruct},
};

}  // namespace

ShaderSyntax parse(const std::vector<Token>& tokens, Diagnostics& diagnostics) {
  return Parser(tokens, diagnostics).run();
}

}  // namespace shadermachine::tools::assembly
