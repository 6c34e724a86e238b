#include "assembly/source_directives.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "assembly/literals.h"
#include "assembly/scope.h"

namespace shadermachine::tools::assembly {
namespace {

using Home = SourceVariable::Home;

constexpr size_t kMaxConstantWords = 16;  // what an inline value has

class ArgumentReader {
 public:
  ArgumentReader(Scope& scope, const Token& directive, const std::vector<Token>& tokens)
      : scope_(scope), directive_(directive), tokens_(tokens) {}

  uint32_t number(const char* what, uint32_t limit = UINT32_MAX) {
    const Token* token = take(what);
    if (token == nullptr) return 0;
    const bool isNumber = token->is(TokenKind::Integer) || token->is(TokenKind::Float);
    // Negative numbers are words of constants; a float's number is its bits.
    if (isNumber && token->number >= INT32_MIN && token->number <= limit) {
      return static_cast<uint32_t>(token->number);
    }
    fail(*token, "expected " + std::string(what) + ", found " + quoted(token->text));
    return 0;
  }

  std::string text(const char* what) {
    const Token* token = take(what);
    if (token == nullptr) return "";
    const auto characters = token->is(TokenKind::String) ? parseString(token->text) : std::nullopt;
    if (!characters) fail(*token, "expected " + std::string(what) + " in quotes");
    return characters.value_or("");
  }

  uint16_t name(const SymbolTable& names) {
    const Token* token = take("a name");
    if (token == nullptr) return 0;
    if (!token->is(TokenKind::Word)) {
      fail(*token, "expected a name, found " + quoted(token->text));
      return 0;
    }
    const auto number = names.require(*token, scope_.diagnostics);
    isGood_ = isGood_ && number.has_value();
    return static_cast<uint16_t>(number.value_or(0));
  }

  std::string_view word(const char* what) {
    const Token* token = take(what);
    return token != nullptr ? token->text : std::string_view();
  }

  bool atEnd() const { return next_ == tokens_.size(); }
  void fail(std::string message) { fail(directive_, std::move(message)); }
  // Whether all was well; what is left over is an error.
  bool finish() {
    if (isGood_ && !atEnd()) fail(tokens_[next_], "unexpected " + quoted(tokens_[next_].text));
    return isGood_;
  }

 private:
  const Token* take(const char* what) {
    if (!atEnd()) return &tokens_[next_++];
    // Of several missing arguments the first is reported.
    if (isGood_) fail(std::string("expected ") + what + " before the end of the line");
    return nullptr;
  }
  void fail(const Token& place, std::string message) {
    isGood_ = false;
    scope_.error(place, std::move(message));
  }

  Scope& scope_;
  const Token& directive_;
  const std::vector<Token>& tokens_;
  size_t next_ = 0;
  bool isGood_ = true;
};

std::optional<Home> homeNamed(std::string_view word, bool isInFunction) {
  if (word == "global") return Home::Global;
  if (word == "constant") return Home::Constant;
  if (word == "gone") return Home::Gone;
  if (word == "local" && isInFunction) return Home::Local;
  return std::nullopt;
}

// NAME, TYPE, and where the value is.
std::optional<SourceVariable> readVariable(Scope& scope, ArgumentReader& arguments,
                                           const SymbolTable* locals) {
  SourceVariable variable;
  variable.name = arguments.text("the variable's name");
  variable.type = arguments.text("the variable's type");
  const auto home = homeNamed(arguments.word("where the value is"), locals != nullptr);
  if (!home) {
    arguments.fail("a value is in a local or global, a constant, or gone");
    return std::nullopt;
  }
  variable.home = *home;
  if (*home == Home::Local) variable.index = arguments.name(*locals);
  if (*home == Home::Global) variable.index = arguments.name(scope.globals);
  while (*home == Home::Constant && !arguments.atEnd() &&
         variable.words.size() < kMaxConstantWords) {
    variable.words.push_back(arguments.number("a word"));
  }
  return arguments.finish() ? std::optional(std::move(variable)) : std::nullopt;
}

void setPosition(SourceContext& context, ArgumentReader& arguments) {
  SourcePosition position;
  position.file = arguments.number("the number of a file", UINT16_MAX);
  if (!arguments.atEnd()) {
    position.line = arguments.number("a line");
    position.column = arguments.number("a column");
  }
  if (position.isKnown() && position.file >= context.scope.builder.sources().files.size()) {
    arguments.fail("no .file has this number");
  }
  if (arguments.finish()) context.function.setPosition(position);
}

void beginStatement(SourceContext& context, ArgumentReader& arguments) {
  setPosition(context, arguments);
  context.function.beginStatement();
}

void setSignature(SourceContext& context, ArgumentReader& arguments) {
  std::string text = arguments.text("the function as its language writes it");
  if (arguments.finish()) context.function.source().signature = std::move(text);
}

void beginVariable(SourceContext& context, ArgumentReader& arguments) {
  auto variable = readVariable(context.scope, arguments, &context.locals);
  if (!variable) return;
  std::vector<SourceVariable>& variables = context.function.source().variables;
  variable->begin = context.function.size();
  context.open[variable->name].push_back(variables.size());
  variables.push_back(std::move(*variable));
}

void endVariable(SourceContext& context, ArgumentReader& arguments) {
  const std::string name = arguments.text("the variable's name");
  if (!arguments.finish()) return;
  std::vector<size_t>& open = context.open[name];
  if (open.empty()) return arguments.fail("there is no such variable here");
  // The last one: of nested scopes the inner one's variable ends first.
  context.function.source().variables[open.back()].end = context.function.size();
  open.pop_back();
}

struct Directive {
  std::string_view name;
  void (*apply)(SourceContext&, ArgumentReader&);
};

constexpr Directive kDirectives[] = {
    {".end_variable", endVariable}, {".line", setPosition},       {".signature", setSignature},
    {".statement", beginStatement}, {".variable", beginVariable},
};

}  // namespace

bool isSourceDirective(std::string_view directive) {
  return std::any_of(std::begin(kDirectives), std::end(kDirectives),
                     [directive](const Directive& known) { return known.name == directive; });
}

std::vector<std::string_view> sourceDirectives() {
  std::vector<std::string_view> names;
  for (const Directive& directive : kDirectives) names.push_back(directive.name);
  return names;
}

void applySourceDirective(SourceContext& context, const StatementSyntax& syntax) {
  ArgumentReader arguments(context.scope, syntax.head, syntax.operands);
  for (const Directive& directive : kDirectives) {
    if (directive.name == syntax.head.text) directive.apply(context, arguments);
  }
}

void addSourceFile(Scope& scope, const std::vector<Token>& arguments) {
  ArgumentReader reader(scope, arguments[0], arguments);
  const uint32_t number = reader.number("a number");
  std::string name = reader.text("the name of the file");
  if (!reader.finish()) return;
  const size_t next = scope.builder.sources().files.size();
  if (number != next || next > UINT16_MAX) {
    return reader.fail("files are numbered in order; this is " + std::to_string(next));
  }
  scope.builder.addSourceFile({.name = std::move(name), .text = "", .isListing = false});
}

void addSourceGlobal(Scope& scope, const std::vector<Token>& arguments) {
  ArgumentReader reader(scope, arguments[0], arguments);
  auto variable = readVariable(scope, reader, nullptr);
  if (variable) scope.builder.sources().globals.push_back(std::move(*variable));
}

}  // namespace shadermachine::tools::assembly
