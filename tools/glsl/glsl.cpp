#include <shadermachine-tools/glsl.h>

#include <algorithm>

#include "module.h"
#include "program.h"

namespace shadermachine::tools {

GlslResult compileGlsl(std::string_view source, const GlslOptions& options) {
  GlslResult result;
  std::vector<SourceFile> files = {{options.fileName, std::string(source), false}};
  GlslOptions noting = options;
  if (options.include) {
    noting.include = [&](const std::string& name, const std::string& includer) {
      std::optional<GlslInclude> found = options.include(name, includer);
      if (found && std::ranges::find(files, found->path, &SourceFile::name) == files.end()) {
        files.push_back({found->path, found->text, false});
      }
      return found;
    };
  }
  glsl::Diagnostics diagnostics(files);
  if (const auto program = glsl::Program::parse(source, noting, diagnostics)) {
    glsl::Module module(*program, diagnostics, {files, options.isForDebugging, options.output});
    result.shader = module.build();
    result.isUnsound = module.isUnsound();
    result.uniformValues = module.takeUniformValues();
    result.varyings = module.varyings();
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
