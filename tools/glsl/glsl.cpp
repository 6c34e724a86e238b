#include <shadermachine-tools/glsl.h>

#include "module.h"
#include "program.h"

namespace shadermachine::tools {

GlslResult compileGlsl(std::string_view source, const GlslOptions& options) {
  GlslResult result;
  glsl::Diagnostics diagnostics(options.fileName);
  if (const auto program = glsl::Program::parse(source, options, diagnostics)) {
    glsl::Module module(*program, diagnostics);
    result.shader = module.build();
    result.uniformValues = module.takeUniformValues();
    result.unusedUniforms = module.unusedUniforms();
    for (const NamedValue& value : program->suggestedValues()) {
      result.uniformValues.push_back(value);
    }
    const glsl::FunctionInfo* main = program->findFunction(glsl::kMainFunction);
    result.usesDerivatives = main != nullptr && main->usesDerivatives;
  }
  result.messages = diagnostics.take();
  return result;
}

}  // namespace shadermachine::tools
