// Structures, globals, and functions with their locals.
#include <algorithm>
#include <string>
#include <utility>

#include "assembly/literals.h"
#include "assembly/scope.h"
#include "assembly/settings.h"

namespace shadermachine::tools::assembly {
namespace {

constexpr size_t kMaxNumbered = 65535;
constexpr size_t kMaxStructs = 32768;

// Reports the first entry that does not fit.
template <class Entry>
bool fits(Scope& scope, const std::vector<Entry>& entries, size_t limit, const char* what) {
  if (entries.size() <= limit) return true;
  scope.error(entries[limit].name, std::string("too many ") + what + ", at most " +
                                       std::to_string(limit) + " are possible");
  return false;
}

// Before anything is declared: the builder throws where a table is full, and numbers have 16 bits.
bool tablesFit(Scope& scope, const ShaderSyntax& syntax) {
  bool good = fits(scope, syntax.structs, kMaxStructs, "structures") &&
              fits(scope, syntax.globals, kMaxNumbered, "globals") &&
              fits(scope, syntax.functions, kMaxNumbered, "functions");
  if (syntax.declarations.size() > kMaxNumbered) {
    scope.error(syntax.declarations[kMaxNumbered], "too many functions");
    good = false;
  }
  for (const StructSyntax& structure : syntax.structs) {
    good = good && fits(scope, structure.members, kMaxNumbered, "members");
  }
  for (const FunctionSyntax& function : syntax.functions) {
    // The room for locals is what parameters leave; it is computed only where these fit.
    good = good && fits(scope, function.params, kMaxNumbered, "parameters") &&
           fits(scope, function.locals, kMaxNumbered - function.params.size(), "locals");
  }
  return good;
}

struct Layout {
  TypeCode type;
  uint32_t byteSize;
};

// A variable of unknown type is taken for a float, so that what follows keeps its number.
Layout layOut(Scope& scope, const VariableSyntax& syntax) {
  const TypeCode type = resolveType(scope, syntax.type).value_or(TypeCode{VM_TYPE_FLOAT});
  if (syntax.size) return {type, *syntax.size};
  // Of one element, which the builder knows without throwing: a record has room for its size.
  const uint64_t size = uint64_t{scope.builder.sizeOf(type)} * std::max(syntax.count, 1u);
  if (size <= UINT32_MAX) return {type, static_cast<uint32_t>(size)};
  scope.error(syntax.name, quoted(syntax.name.text) + " is larger than 4 GiB");
  return {type, 0};
}

// What the builder is told before the layout: the text may give sizes that it would refuse.
Variable placeholder(const VariableSyntax& syntax) {
  return {.name = syntax.recordName.value_or(std::string(syntax.name.text)),
          .type = VM_TYPE_FLOAT,
          .flags = syntax.flags};
}

void complete(const VariableSyntax& syntax, const Layout& layout, VarInfo& info) {
  if (syntax.hasNoRecordName) info.name = nullptr;
  info.type = layout.type;
  info.count = syntax.count;
  info.byteSize = layout.byteSize;
  if (syntax.offset) info.memberOffset = *syntax.offset;
}

void refuseOffset(Scope& scope, const VariableSyntax& syntax) {
  if (syntax.offset) scope.error(syntax.name, "only members of structures have an offset");
}

void declareStruct(Scope& scope, const StructSyntax& syntax) {
  if (parseBasicType(syntax.name.text)) {
    scope.error(syntax.name, quoted(syntax.name.text) + " is a basic type");
  }
  SymbolTable& names = scope.members.emplace_back("member");
  std::vector<Variable> members;
  std::vector<Layout> layouts;
  for (const VariableSyntax& member : syntax.members) {
    names.add(member.name, scope.diagnostics);
    members.push_back(placeholder(member));
    layouts.push_back(layOut(scope, member));
  }
  // The name becomes known only now: a structure cannot contain itself.
  scope.structs.add(syntax.name, scope.diagnostics);
  if (syntax.isNull) {
    scope.builder.addNullStruct(syntax.name.text);
    return;
  }
  const TypeCode type = scope.builder.addStruct(syntax.name.text, members);
  uint64_t offset = 0;
  for (uint32_t i = 0; i < members.size(); ++i) {
    VarInfo& info = scope.builder.member(type, i);
    info.memberOffset = static_cast<uint32_t>(offset);
    complete(syntax.members[i], layouts[i], info);
    offset += info.byteSize;
  }
  if (offset > UINT32_MAX && !syntax.size) {
    scope.error(syntax.name, "structure " + quoted(syntax.name.text) + " is larger than 4 GiB");
  }
  scope.builder.info(type).size = syntax.size.value_or(static_cast<uint32_t>(offset));
}

void declareGlobal(Scope& scope, const VariableSyntax& syntax) {
  scope.globals.add(syntax.name, scope.diagnostics);
  refuseOffset(scope, syntax);
  complete(syntax, layOut(scope, syntax),
           scope.builder.info(scope.builder.addGlobal(placeholder(syntax))));
}

void declareLocals(Scope& scope, const FunctionSyntax& syntax, FunctionBuilder& function) {
  const auto declare = [&](const VariableSyntax& variable, LocalId id) {
    refuseOffset(scope, variable);
    complete(variable, layOut(scope, variable), function.info(id));
  };
  for (const VariableSyntax& param : syntax.params) {
    declare(param, function.addParam(placeholder(param)));
  }
  for (const VariableSyntax& local : syntax.locals) {
    declare(local, function.addLocal(placeholder(local)));
  }
  if (syntax.paramCount) function.setParamCount(static_cast<uint16_t>(*syntax.paramCount));
}

// Declared names come first, in their order; then the other functions in theirs.
bool declareFunctions(Scope& scope, const ShaderSyntax& syntax) {
  for (const Token& name : syntax.declarations) {
    scope.functions.add(name, scope.diagnostics);
    scope.builder.addFunction(name.text);
  }
  std::vector<bool> isDefined(syntax.declarations.size());
  for (const FunctionSyntax& function : syntax.functions) {
    // A second body of a declared name goes on below, where add() reports it: every FunctionSyntax
    // needs an id.
    const auto number = scope.functions.find(function.name.text);
    if (number && *number < isDefined.size() && !isDefined[*number]) {
      isDefined[*number] = true;
      scope.functionIds.push_back({static_cast<uint16_t>(*number)});
      continue;
    }
    if (scope.functions.size() >= kMaxNumbered) {
      scope.error(function.name, "too many functions");
      return false;
    }
    scope.functions.add(function.name, scope.diagnostics);
    scope.functionIds.push_back(scope.builder.addFunction(function.name.text).id());
  }
  for (size_t i = 0; i < isDefined.size(); ++i) {
    const Token& name = syntax.declarations[i];
    if (!isDefined[i]) scope.error(name, quoted(name.text) + " is declared but has no .function");
  }
  return true;
}

}  // namespace

std::optional<TypeCode> resolveType(Scope& scope, const Token& token) {
  if (token.is(TokenKind::Integer)) {
    if (token.number >= INT16_MIN && token.number <= INT16_MAX) {
      return static_cast<TypeCode>(token.number);
    }
    scope.error(token, "type codes go from -32768 to 32767");
    return std::nullopt;
  }
  if (!token.is(TokenKind::Word)) {
    scope.error(token, "expected a type, found " + quoted(token.text));
    return std::nullopt;
  }
  if (const auto basic = parseBasicType(token.text)) return basic;
  if (const auto structure = scope.structs.find(token.text)) {
    return static_cast<TypeCode>(*structure);
  }
  // One line may have any number of wrong types; the hint takes time for each name there is.
  if (!scope.diagnostics.keepsErrorAt(token.text)) return std::nullopt;
  std::vector<std::string_view> names = scope.structs.names();
  names.insert(names.end(), basicTypeNames().begin(), basicTypeNames().end());
  const std::string closest = suggestion(token.text, names);
  scope.error(token, "no type is named " + quoted(token.text) + closest);
  return std::nullopt;
}

bool declareAll(Scope& scope, const ShaderSyntax& syntax) {
  if (!tablesFit(scope, syntax)) return false;
  // In the order in which they name each other. Settings name all the rest, and .file is one:
  // bodies, which come after, refer to its numbers.
  for (const StructSyntax& structure : syntax.structs) declareStruct(scope, structure);
  for (const VariableSyntax& global : syntax.globals) declareGlobal(scope, global);
  if (!declareFunctions(scope, syntax)) return false;
  for (size_t i = 0; i < syntax.functions.size(); ++i) {
    declareLocals(scope, syntax.functions[i], scope.builder.function(scope.functionIds[i]));
  }
  for (const SettingSyntax& setting : syntax.settings) applySetting(scope, setting);
  return true;
}

}  // namespace shadermachine::tools::assembly
