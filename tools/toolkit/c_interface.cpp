#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/shadermachine-tools.h>
#include <shadermachine-tools/validator.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

using shadermachine::tools::AssemblyError;
using shadermachine::tools::AssemblyResult;
using shadermachine::tools::BuiltShader;
using shadermachine::tools::Diagnostic;
using shadermachine::tools::Severity;
using shadermachine::tools::ShaderView;
using shadermachine::tools::SourceMap;

struct VmToolsShader {
  BuiltShader shader;
};

namespace {

constexpr const char* kOutOfMemory = "error: out of memory";

void report(VmToolsMessageCallback callback, void* userData, const std::string& message) {
  if (callback) callback(message.c_str(), userData);
}

void reportErrors(const AssemblyResult& result, std::string_view text, const char* fileName,
                  VmToolsMessageCallback callback, void* userData) {
  for (const AssemblyError& error : result.errors) {
    std::string message = formatError(error, text, fileName ? fileName : "text");
    message.pop_back();  // the newline
    report(callback, userData, message);
  }
}

ShaderView toShaderView(const VmToolsView& view) {
  return {.shader = view.shader,
          .structCount = view.structCount,
          .codeSize = view.codeSize,
          .functionNames = view.functionNames,
          .structNames = view.structNames,
          .sources = static_cast<const SourceMap*>(view.sources)};
}

}  // namespace

VmToolsShader* vmToolsAssemble(const char* text, size_t length, const char* fileName,
                               VmToolsMessageCallback callback, void* userData) {
  try {
    const std::string_view source(text, length);
    AssemblyResult result = shadermachine::tools::assemble(source, fileName ? fileName : "text");
    reportErrors(result, source, fileName, callback, userData);
    return result.shader ? new VmToolsShader{std::move(*result.shader)} : nullptr;
  } catch (const std::exception&) {
    if (callback) callback(kOutOfMemory, userData);
    return nullptr;
  }
}

VmToolsView vmToolsShaderView(const VmToolsShader* shader) {
  const ShaderView view = shader->shader.view();
  return {view.shader,        view.structCount, view.codeSize,
          view.functionNames, view.structNames, view.sources};
}

void vmToolsFreeShader(VmToolsShader* shader) { delete shader; }

size_t vmToolsValidate(const VmToolsView* view, VmToolsMessageCallback callback, void* userData) {
  try {
    size_t errorCount = 0;
    const ShaderView shader = toShaderView(*view);
    const auto result = shadermachine::tools::validate(shader);
    for (const Diagnostic& diagnostic : result.diagnostics) {
      std::string message = formatDiagnostic(diagnostic, shader, "shader");
      message.pop_back();  // the newline
      report(callback, userData, message);
      errorCount += diagnostic.severity == Severity::Error;
    }
    return errorCount;
  } catch (const std::exception&) {
    if (callback) callback(kOutOfMemory, userData);
    return 1;
  }
}

char* vmToolsDisassemble(const VmToolsView* view, int annotate) {
  try {
    const std::string text =
        shadermachine::tools::disassemble(toShaderView(*view), {.annotate = annotate != 0});
    auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
  } catch (const std::exception&) {
    return nullptr;
  }
}

void vmToolsFreeText(char* text) { std::free(text); }
