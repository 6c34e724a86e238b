// Directives that say where the code comes from (source_map.h).
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "assembly/syntax.h"

namespace shadermachine::tools {
class FunctionBuilder;
}

namespace shadermachine::tools::assembly {

struct Scope;
class SymbolTable;

// Those that stand among instructions.
bool isSourceDirective(std::string_view directive);
std::vector<std::string_view> sourceDirectives();

// The variables of a function that have not ended, by name: numbers of SourceFunction::variables,
// in the order in which they began.
using OpenVariables = std::map<std::string, std::vector<size_t>>;

// What the directives of one function refer to.
struct SourceContext {
  Scope& scope;
  const SymbolTable& locals;
  FunctionBuilder& function;
  OpenVariables open = {};
};

// Of a statement of this kind, at the current end of the function's code.
void applySourceDirective(SourceContext& context, const StatementSyntax& syntax);

// ".file NUMBER, "name"" and ".variable" outside of functions.
void addSourceFile(Scope& scope, const std::vector<Token>& arguments);
void addSourceGlobal(Scope& scope, const std::vector<Token>& arguments);

}  // namespace shadermachine::tools::assembly
