// How deep the stack is before each instruction, for annotated listings. The validator proves what
// this only follows.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "disassembly/record.h"

namespace shadermachine::tools::disassembly {

// Slots above the locals, by offset of the instruction; without the places that no known path
// reaches. Joins take the depth of the path that comes first in the code.
std::map<uint32_t, int64_t> stackDepths(const Record& record, const ShaderFunction& function,
                                        std::span<const uint8_t> code);

}  // namespace shadermachine::tools::disassembly
