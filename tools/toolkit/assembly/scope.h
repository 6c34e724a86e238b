// The names of a shader and the builder they are numbers of.
#pragma once

#include <shadermachine-tools/shader_builder.h>

#include <optional>
#include <vector>

#include "assembly/diagnostics.h"
#include "assembly/symbols.h"
#include "assembly/syntax.h"

namespace shadermachine::tools::assembly {

struct Scope {
  Diagnostics& diagnostics;
  ShaderBuilder builder;
  SymbolTable structs{"structure"};
  SymbolTable globals{"global"};
  SymbolTable functions{"function"};
  std::vector<SymbolTable> members;          // of each structure
  std::vector<FunctionId> functionIds = {};  // of each FunctionSyntax

  void error(const Token& place, std::string message) {
    diagnostics.error(place.text, std::move(message));
  }
};

// A type by name or number; reports an error when there is none.
std::optional<TypeCode> resolveType(Scope& scope, const Token& token);

// Fills the tables and fields of the record, all but the code. False when the tables are too large
// to go on.
bool declareAll(Scope& scope, const ShaderSyntax& syntax);

// Writes the code of one function.
void assembleFunction(Scope& scope, const FunctionSyntax& syntax, FunctionBuilder& function);

}  // namespace shadermachine::tools::assembly
