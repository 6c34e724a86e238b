// Expressions over variables, as GLSL and C write them: members, components, elements, operators.
#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "debugger/value.h"

namespace shadermachine::tools {

// Says what is wrong with the expression.
class ExpressionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using FindVariable = std::function<std::optional<DebugValue>(const std::string& name)>;

// Throws ExpressionError.
DebugValue evaluate(const ShaderView& view, std::string_view text, const FindVariable& find);

// Whether a condition holds: the value is a scalar other than zero.
bool isTrue(const DebugValue& value);

}  // namespace shadermachine::tools
