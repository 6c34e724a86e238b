#include <shadermachine-tools/assembler.h>

#include "assembly/diagnostics.h"
#include "assembly/lexer.h"
#include "assembly/parser.h"
#include "assembly/scope.h"

namespace shadermachine::tools {
namespace assembly {
namespace {

void assembleCode(Scope& scope, const ShaderSyntax& syntax) {
  for (const CodeSyntax& code : syntax.code) {
    if (!code.function) {
      scope.builder.placeLooseCode(code.bytes);
      continue;
    }
    const FunctionSyntax& function = syntax.functions[*code.function];
    FunctionBuilder& builder = scope.builder.function(scope.functionIds[*code.function]);
    if (function.isNull) {
      builder.setNull();
    } else if (function.codeRange) {
      builder.setCodeRange(function.codeRange->offset, function.codeRange->length);
    } else {
      scope.builder.placeCode(builder.id());
    }
    assembleFunction(scope, function, builder);
  }
}

}  // namespace
}  // namespace assembly

AssemblyResult assemble(std::string_view text, std::string_view fileName) {
  AssemblyResult result;
  if (text.size() >= UINT32_MAX) {
    result.errors.push_back({1, 1, 1, "the text is too long"});
    return result;
  }
  assembly::Diagnostics diagnostics(text);
  const assembly::ShaderSyntax syntax =
      assembly::parse(assembly::tokenize(text, diagnostics), diagnostics);
  assembly::Scope scope{.diagnostics = diagnostics, .builder = {}, .members = {}};
  scope.builder.addSourceFile(
      {.name = std::string(fileName), .text = std::string(text), .isListing = true});
  if (assembly::declareAll(scope, syntax)) assembly::assembleCode(scope, syntax);
  if (diagnostics.isEmpty()) result.shader = std::move(scope.builder).build();
  result.errors = diagnostics.take();
  return result;
}

}  // namespace shadermachine::tools
