// The functions of the host that CALL_BUILTIN serves.
#pragma once

#include <cstdint>

namespace shadermachine {

struct ServedFunction {
  uint16_t id;
  uint8_t pops;  // slots dropped afterwards, without release
};

inline constexpr ServedFunction kServedFunctions[] = {
    {267, 4}, {275, 1}, {276, 1}, {277, 1}, {278, 2}, {293, 2},
    {294, 3}, {295, 3}, {296, 3}, {297, 4}, {298, 3},
};

// 0 for a function without service.
constexpr uint32_t builtinFunctionPops(uint32_t id) {
  for (const ServedFunction& function : kServedFunctions) {
    if (function.id == id) return function.pops;
  }
  return 0;
}

}  // namespace shadermachine
