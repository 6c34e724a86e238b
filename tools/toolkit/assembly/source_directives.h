// Directives that say where the code comes from (source_map.h).
#pragma once

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

// Of a statement of this kind, at the current end of the function's code.
void applySourceDirective(Scope& scope, const StatementSyntax& syntax, const SymbolTable& locals,
                          FunctionBuilder& function);

// ".file NUMBER, "name"" and ".variable" outside of functions.
void addSourceFile(Scope& scope, const std::vector<Token>& arguments);
void addSourceGlobal(Scope& scope, const std::vector<Token>& arguments);

}  // namespace shadermachine::tools::assembly
