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
    // In the order of the text, which is the order of the bytes. Functions are numbered otherwise
    // where .declare says so.
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
  // Diagnostics keeps offsets, lines and columns in 32 bits.
  if (text.size() >= UINT32_MAX) {
    result.errors.push_back({1, 1, 1, "the text is too long"});
    return result;
  }
  assembly::Diagnostics diagnostics(text);
  const assembly::ShaderSyntax syntax =
      assembly::parse(assembly::tokenize(text, diagnostics), diagnostics);
  assembly::Scope scope{.diagnostics = diagnostics, .builder = {}, .members = {}};
  // The text itself is file 0, which is what Diagnostics::positionOf() says; .file therefore counts
  // from 1.
  scope.builder.addSourceFile(
      {.name = std::string(fileName), .text = std::string(text), .isListing = true});
  // Every name before any code: bodies use functions and globals that are declared behind them.
  if (assembly::declareAll(scope, syntax)) assembly::assembleCode(scope, syntax);
  // build() throws on what errors leave behind, such as labels of a body that was given up.
  if (diagnostics.isEmpty()) result.shader = std::move(scope.builder).build();
  result.errors = diagnostics.take();
  return result;
}

}  // namespace shadermachine::tools
