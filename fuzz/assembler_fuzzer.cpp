// Any text may be given to the assembler; what it accepts, the disassembler and the validator take.

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/validator.h>

#include <cstdlib>

using namespace shadermachine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const tools::AssemblyResult result = tools::assemble(text);
  if (result.shader.has_value() == !result.errors.empty()) std::abort();
  for (const tools::AssemblyError& error : result.errors) {
    tools::formatError(error, text, "input");
  }
  if (!result.shader) return 0;
  tools::validate(result.shader->view());
  const std::string listing = tools::disassemble(result.shader->view());
  if (!tools::assemble(listing).shader) std::abort();
  return 0;
}
