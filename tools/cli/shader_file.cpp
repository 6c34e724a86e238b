#include "cli/shader_file.h"

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/binary_file.h>
#include <shadermachine-tools/validator.h>
#ifdef SHADERMACHINE_HAVE_GLSL
#include <shadermachine-tools/glsl.h>
#endif

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <regex>

#include "cli/files.h"

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

const std::regex& channelPattern() {
  static const std::regex pattern(
      "^[ \\t]*#(iChannel[0-3])(?:::(\\w+))?[ \\t]+\"([^\"\\n]*)\"[^\\n]*", std::regex::multiline);
  return pattern;
}

LoadedShader compileAssembly(const std::string& text, const std::string& path) {
  AssemblyResult result = assemble(text, path);
  if (result.shader) {
    readSourceTexts(result.shader->sources());
    return {std::move(*result.shader)};
  }
  std::string messages;
  for (const AssemblyError& error : result.errors) messages += formatError(error, text, path);
  while (messages.ends_with('\n')) messages.pop_back();
  throw InputError(messages);
}

#ifdef SHADERMACHINE_HAVE_GLSL
// Lines stay where they are.
std::string withChannelsDeclared(const std::string& text) {
  std::string result;
  auto from = text.begin();
  for (std::sregex_iterator line(text.begin(), text.end(), channelPattern()), end; line != end;
       ++line) {
    result.append(from, (*line)[0].first);
    if ((*line)[2] == "Type" && (*line)[3] == "CubeMap") {
      result += "uniform samplerCube " + (*line)[1].str() + ";";
    }
    from = (*line)[0].second;
  }
  return result.append(from, text.end());
}

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

LoadedShader compileShadingLanguage(const std::string& source, const std::string& path,
                                    const SourceOptions& options, std::vector<std::string>* files) {
  const auto include = [&](const std::string& name, const std::string& includer) {
    std::optional<GlslInclude> found = findInclude(name, includer, options.includes);
    if (found && files != nullptr) files->push_back(found->path);
    return found;
  };
  const std::string text = withChannelsDeclared(source);
  GlslOptions compiler = {.fileName = path,
                          .defines = options.defines,
                          .include = include,
                          .isForDebugging = options.isForDebugging,
                          .isBuffer = options.isBuffer};
  if (options.target >= 0) compiler.output = static_cast<unsigned>(options.target);
  GlslResult result = compileGlsl(text, compiler);
  if (result.shader) {
    return {std::move(*result.shader), std::move(result.uniformValues), std::move(result.varyings),
            std::move(result.unusedUniforms)};
  }
  std::string messages;
  for (const GlslMessage& message : result.messages) messages += toString(message) + "\n";
  while (messages.ends_with('\n')) messages.pop_back();
  throw InputError(messages);
}
#else
LoadedShader compileShadingLanguage(const std::string&, const std::string& path,
                                    const SourceOptions&, std::vector<std::string>*) {
  throw InputError(path + ": this program was built without the GLSL compiler");
}
#endif

LoadedShader readBinaryShader(const std::string& bytes, const std::string& path) {
  BinaryResult result = readBinary(bytes);
  if (!result.shader) throw InputError(path + ": error: the file " + result.error);
  readSourceTexts(result.shader->sources());
  return {std::move(*result.shader), std::move(result.values)};
}

bool looksLikeGlsl(const std::string& text) {
  constexpr const char* kSigns[] = {"#version", "void main", "mainImage", "gl_Frag", "precision "};
  return std::ranges::any_of(
      kSigns, [&](const char* sign) { return text.find(sign) != std::string::npos; });
}

bool isGlsl(const std::string& text, const std::string& path) {
  return hasGlslExtension(path) || (!path.ends_with(".sasm") && looksLikeGlsl(text));
}

}  // namespace

bool hasGlslExtension(const std::string& path) {
  constexpr const char* kExtensions[] = {".frag", ".fragment", ".fs", ".fsh", ".glsl"};
  return std::ranges::any_of(kExtensions,
                             [&](const char* extension) { return path.ends_with(extension); });
}

std::vector<ChannelLine> channelLines(const std::string& text) {
  std::vector<ChannelLine> lines;
  for (std::sregex_iterator line(text.begin(), text.end(), channelPattern()), end; line != end;
       ++line) {
    lines.push_back({(*line)[1], (*line)[2], (*line)[3]});
  }
  return lines;
}

LoadedShader loadShader(const std::string& path, const SourceOptions& options,
                        std::vector<std::string>* files) {
  if (files != nullptr) files->push_back(path);
  const std::string text = readText(path);
  if (isBinary(text) || path.ends_with(".smo")) return readBinaryShader(text, path);
  const bool glsl = options.language.empty() ? isGlsl(text, path) : options.language == kGlsl;
  return glsl ? compileShadingLanguage(text, path, options, files) : compileAssembly(text, path);
}

bool reportValidation(const ShaderView& view, const std::string& path) {
  const ValidationResult result = validate(view);
  for (const Diagnostic& diagnostic : result.diagnostics) {
    std::fputs(formatDiagnostic(diagnostic, view, path).c_str(), stderr);
  }
  return result.valid();
}

}  // namespace shadermachine::tools
