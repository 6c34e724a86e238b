#include "c_interface.h"

#include <shadermachine-tools/glsl.h>

#include <exception>
#include <utility>

using namespace shadermachine::tools;

VmToolsShader* vmToolsCompileGlsl(const char* text, size_t length, const char* fileName,
                                  VmToolsMessageCallback callback, void* userData) {
  try {
    GlslOptions options;
    if (fileName) options.fileName = fileName;
    GlslResult result = compileGlsl({text, length}, options);
    for (const GlslMessage& message : result.messages) {
      report(callback, userData, toString(message));
    }
    if (!result.shader) return nullptr;
    return new VmToolsShader{std::move(*result.shader), std::move(result.uniformValues)};
  } catch (const std::exception&) {
    if (callback) callback(kOutOfMemory, userData);
    return nullptr;
  }
}
