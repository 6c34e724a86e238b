#include "cli/shader_file.h"

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/validator.h>
#ifdef SHADERMACHINE_HAVE_GLSL
#include <shadermachine-tools/glsl.h>
#endif

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>

namespace shadermachine::tools {
namespace {

// Of files that the text was made from, as far as they are still there. Only their lines in
// messages depend on it.
void readSourceTexts(SourceMap& sources) {
  for (SourceFile& file : sources.files) {
    std::error_code ignored;
    if (!file.text.empty() || !std::filesystem::is_regular_file(file.name, ignored)) continue;
    try {
      file.text = readText(file.name);
    } catch (const InputError&) {
      continue;
    }
  }
}

LoadedShader compileAssembly(const std::string& text, const std::string& path,
                             const SourceOptions&) {
  AssemblyResult result = assemble(text, path);
  if (result.shader) {
    readSourceTexts(result.shader->sources());
    return {std::move(*result.shader), {}};
  }
  std::string messages;
  for (const AssemblyError& error : result.errors) messages += formatError(error, text, path);
  while (messages.ends_with('\n')) messages.pop_back();
  throw InputError(messages);
}

struct Language {
  const char* extension;
  LoadedShader (*compile)(const std::string& text, const std::string& path,
                          const SourceOptions& options);
};

constexpr Language kLanguages[] = {
    {".frag", compileShadingLanguage},
    {".glsl", compileShadingLanguage},
    {".sasm", compileAssembly},
};

}  // namespace

#ifdef SHADERMACHINE_HAVE_GLSL
namespace {

// Beside the file that asks, then in the folders in their order.
std::optional<GlslInclude> findInclude(const std::string& name, const std::string& includer,
                                       const std::vector<std::string>& folders) {
  std::vector<std::filesystem::path> places = {std::filesystem::path(includer).parent_path()};
  places.insert(places.end(), folders.begin(), folders.end());
  for (const std::filesystem::path& folder : places) {
    const std::filesystem::path path = folder / name;
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) continue;
    return GlslInclude{path.string(), readText(path.string())};
  }
  return std::nullopt;
}

}  // namespace

LoadedShader compileShadingLanguage(const std::string& text, const std::string& path,
                                    const SourceOptions& options) {
  const auto include = [&options](const std::string& name, const std::string& includer) {
    return findInclude(name, includer, options.includes);
  };
  GlslResult result = compileGlsl(text, {.fileName = path,
                                         .defines = options.defines,
                                         .include = include,
                                         .isForDebugging = options.isForDebugging});
  if (result.shader) {
    return {std::move(*result.shader), std::move(result.uniformValues),
            std::move(result.unusedUniforms)};
  }
  std::string messages;
  for (const GlslMessage& message : result.messages) messages += toString(message) + "\n";
  while (messages.ends_with('\n')) messages.pop_back();
  throw InputError(messages);
}
#else
LoadedShader compileShadingLanguage(const std::string&, const std::string& path,
                                    const SourceOptions&) {
  throw InputError(path + ": this program was built without the GLSL compiler");
}
#endif

std::string readText(const std::string& path) {
  const auto fail = [&path] { return InputError(path + ": " + std::strerror(errno)); };
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                &std::fclose);
  if (file == nullptr) throw fail();
  std::string text;
  char buffer[65536];
  while (const size_t count = std::fread(buffer, 1, sizeof buffer, file.get())) {
    text.append(buffer, count);
  }
  if (std::ferror(file.get()) != 0) throw fail();
  return text;
}

LoadedShader loadShader(const std::string& path, const SourceOptions& options) {
  const std::string text = readText(path);
  for (const Language& language : kLanguages) {
    if (path.ends_with(language.extension)) return language.compile(text, path, options);
  }
  return compileAssembly(text, path, options);
}

bool reportValidation(const ShaderView& view, const std::string& path) {
  const ValidationResult result = validate(view);
  for (const Diagnostic& diagnostic : result.diagnostics) {
    std::fputs(formatDiagnostic(diagnostic, view, path).c_str(), stderr);
  }
  return result.valid();
}

}  // namespace shadermachine::tools
