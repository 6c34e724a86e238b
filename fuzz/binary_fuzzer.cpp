// Any bytes may be given to the reader of binary files; what it accepts, validator and disassembler
// take, and it is written as bytes that read as the same shader.

#include <shadermachine-tools/binary_file.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/validator.h>

#include <cstdlib>

using namespace shadermachine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const tools::BinaryResult result = tools::readBinary({reinterpret_cast<const char*>(data), size});
  if (result.shader.has_value() != result.error.empty()) std::abort();
  if (!result.shader) return 0;
  const tools::ShaderView view = result.shader->view();
  tools::validate(view);
  const tools::BinaryResult again = tools::readBinary(tools::writeBinary(view, result.values));
  if (!again.shader || again.values.size() != result.values.size()) std::abort();
  if (tools::disassemble(again.shader->view()) != tools::disassemble(view)) std::abort();
  return 0;
}
