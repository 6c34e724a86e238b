#include "instructions/opcode_table.h"

#include "instructions/component_handlers.h"
#include "instructions/handlers.h"
#include "instructions/opcode_info.h"

namespace shadermachine {
namespace {

constexpr Handler kOpcodeHandlers[] = {
#define HANDLER(...) &__VA_ARGS__
#define KERNEL(shape, kernel) &shape<kernel>
#define OPCODE(number, mnemonic, handler, ...) handler,
#include "instructions/opcodes.def"
#undef OPCODE
#undef KERNEL
#undef HANDLER
};
static_assert(std::size(kOpcodeHandlers) == kOpcodeCount);

consteval std::array<Handler, 256> makeHandlers() {
  std::array<Handler, 256> handlers = {};
  handlers.fill(&illegalInstruction);
  for (unsigned opcode = 0; opcode < kOpcodeCount; ++opcode) {
    handlers[opcode] = kOpcodeHandlers[opcode];
  }
  return handlers;
}

}  // namespace

constexpr std::array<Handler, 256> kHandlers = makeHandlers();

}  // namespace shadermachine
