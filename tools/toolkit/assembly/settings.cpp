#include "assembly/settings.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "assembly/scope.h"
#include "assembly/source_directives.h"
#include "instructions/builtin_variables.h"

namespace shadermachine::tools::assembly {
namespace {

// A name of the table, or any number from -1 up to what the field holds.
int32_t resolveReference(Scope& scope, const SymbolTable& names, const Token& token) {
  if (token.is(TokenKind::Word)) {
    return static_cast<int32_t>(names.require(token, scope.diagnostics).value_or(0));
  }
  if (!token.is(TokenKind::Integer) || token.number > INT32_MAX) {
    scope.error(token, "expected a name or number, found " + quoted(token.text));
    return -1;
  }
  return static_cast<int32_t>(token.number);
}

uint32_t resolveNumber(Scope& scope, const Token& token, uint32_t limit) {
  if (!token.is(TokenKind::Integer) || token.number < 0 || token.number > limit) {
    scope.error(token, "expected a number from 0 to " + std::to_string(limit));
    return 0;
  }
  return static_cast<uint32_t>(token.number);
}

uint16_t resolveNumber16(Scope& scope, const Token& token) {
  return static_cast<uint16_t>(resolveNumber(scope, token, UINT16_MAX));
}

void setBuiltinGlobal(Scope& scope, const std::vector<Token>& arguments) {
  const uint32_t id = resolveNumber(scope, arguments[0], UINT16_MAX);
  const BuiltinVariable variable = builtinVariable(id);
  if (variable.family != BuiltinFamily::GlobalElement &&
      variable.family != BuiltinFamily::GlobalArray) {
    scope.error(arguments[0], "no global stands behind built-in variable " + std::to_string(id));
    return;
  }
  // The table of built-in variables knows the field by its offset: the machine reads it the same
  // way.
  char* const record = reinterpret_cast<char*>(&scope.builder.record());
  const int32_t global = resolveReference(scope, scope.globals, arguments[1]);
  std::copy_n(reinterpret_cast<const char*>(&global), sizeof(global),
              record + variable.recordOffset);
}

using Arguments = std::vector<Token>;

constexpr size_t kAnyCount = SIZE_MAX;  // at least one; the function checks them

struct Setting {
  std::string_view name;
  size_t argumentCount;
  void (*apply)(Scope&, const Arguments&);
};

constexpr Setting kSettings[] = {
    {".builtin", 2, setBuiltinGlobal},
    {".entry", 1,
     [](Scope& scope, const Arguments& arguments) {
       const int32_t function = resolveReference(scope, scope.functions, arguments[0]);
       if (function < 0 || function > UINT16_MAX) {
         scope.error(arguments[0], "the entry function is a name or a number from 0 to 65535");
       }
       // After an error the value is of no use to anyone; the cast only has to be defined.
       scope.builder.record().entryIndex = static_cast<uint16_t>(function);
     }},
    {".file", kAnyCount, addSourceFile},
    {".host_function_a", 1,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().hostFunctionA =
           resolveReference(scope, scope.functions, arguments[0]);
     }},
    {".host_function_a_type", 1,
     [](Scope& scope, const Arguments& arguments) {
       // The record has room for more than a type code.
       const Token& type = arguments[0];
       scope.builder.record().hostFunctionAType =
           type.is(TokenKind::Integer) ? resolveReference(scope, scope.structs, type)
                                       : resolveType(scope, type).value_or(TypeCode{-1});
     }},
    {".host_function_b", 1,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().hostFunctionB =
           resolveReference(scope, scope.functions, arguments[0]);
     }},
    {".host_functions", 2,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().hostFunctionBase =
           resolveReference(scope, scope.functions, arguments[0]);
       scope.builder.record().hostFunctionCount = resolveNumber16(scope, arguments[1]);
     }},
    {".host_struct_mode", 1,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().hostStructMode = resolveNumber(scope, arguments[0], UINT32_MAX);
     }},
    {".output0", 1,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().outputGlobal0 = resolveReference(scope, scope.globals, arguments[0]);
     }},
    {".output1", 1,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().outputGlobal1 = resolveReference(scope, scope.globals, arguments[0]);
     }},
    {".variable", kAnyCount, addSourceGlobal},
    {".version", 1,
     [](Scope& scope, const Arguments& arguments) {
       scope.builder.record().version = resolveNumber16(scope, arguments[0]);
     }},
};

}  // namespace

bool isSetting(std::string_view directive) {
  return std::any_of(std::begin(kSettings), std::end(kSettings),
                     [directive](const Setting& setting) { return setting.name == directive; });
}

std::string unknownDirective(std::string_view name) {
  std::vector<std::string_view> known = {".byte",   ".declare", ".end",    ".function",
                                         ".global", ".local",   ".member", ".struct"};
  for (const Setting& setting : kSettings) known.push_back(setting.name);
  for (const std::string_view inner : sourceDirectives()) known.push_back(inner);
  return "unknown directive " + quoted(name) + suggestion(name, known);
}

void applySetting(Scope& scope, const SettingSyntax& syntax) {
  for (const Setting& setting : kSettings) {
    if (syntax.directive.text != setting.name) continue;
    const size_t count = syntax.arguments.size();
    if (count == setting.argumentCount || (setting.argumentCount == kAnyCount && count > 0)) {
      setting.apply(scope, syntax.arguments);
    } else {
      scope.error(syntax.directive, std::string(setting.name) + " takes " +
                                        (setting.argumentCount == 1   ? "1 value"
                                         : setting.argumentCount == 2 ? "2 values"
                                                                      : "values"));
    }
    return;
  }
}

}  // namespace shadermachine::tools::assembly
