#include "c_interface.h"

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/binary_file.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/renderer.h>
#include <shadermachine-tools/validator.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

using namespace shadermachine::tools;

namespace {

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

// For vmToolsFreeText(); null when memory is short.
char* copyOf(const std::string& text) {
  auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

}  // namespace

VmToolsShader* vmToolsAssemble(const char* text, size_t length, const char* fileName,
                               VmToolsMessageCallback callback, void* userData) {
  try {
    const std::string_view source(text, length);
    AssemblyResult result = shadermachine::tools::assemble(source, fileName ? fileName : "text");
    reportErrors(result, source, fileName, callback, userData);
    return result.shader ? new VmToolsShader{std::move(*result.shader), {}} : nullptr;
  } catch (const std::exception&) {
    if (callback) callback(kOutOfMemory, userData);
    return nullptr;
  }
}

const char* vmToolsVersion(void) { return SHADERMACHINE_VERSION_STRING; }

VmToolsShader* vmToolsReadBinary(const void* bytes, size_t length, VmToolsMessageCallback callback,
                                 void* userData) {
  try {
    BinaryResult result =
        shadermachine::tools::readBinary({static_cast<const char*>(bytes), length});
    if (result.shader) {
      return new VmToolsShader{std::move(*result.shader), std::move(result.values)};
    }
    report(callback, userData, "error: the file " + result.error);
  } catch (const std::exception&) {
    if (callback) callback(kOutOfMemory, userData);
  }
  return nullptr;
}

char* vmToolsWriteBinary(const VmToolsView* view, size_t* length) {
  try {
    const std::string bytes = shadermachine::tools::writeBinary(toShaderView(*view));
    *length = bytes.size();
    return copyOf(bytes);
  } catch (const std::exception&) {
    return nullptr;
  }
}

VmToolsValue vmToolsShaderValue(const VmToolsShader* shader, size_t index) {
  if (index >= shader->values.size()) return {nullptr, nullptr, 0};
  const NamedValue& value = shader->values[index];
  return {value.name.c_str(), value.components.data(), value.components.size()};
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
    return copyOf(text);
  } catch (const std::exception&) {
    return nullptr;
  }
}

void vmToolsFreeText(char* text) { std::free(text); }

size_t vmToolsDescribeFailure(const ShaderMachine* machine, const VmToolsView* view, VmError error,
                              char* text, size_t capacity) {
  try {
    RunFailure failure = {.error = error};
    const auto shaderView = toShaderView(*view);
    shadermachine::tools::locateFailure(*machine, shaderView, failure);
    const std::string description = describeFailure(failure, shaderView);
    if (capacity > 0) text[description.copy(text, capacity - 1)] = '\0';
    return description.size();
  } catch (const std::exception&) {
    if (capacity > 0) text[0] = '\0';
    return 0;
  }
}
