// Compares compiled shaders field by field.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <string>

namespace shadermachine::testing {

// Names the first difference in anything that the machine reads, or in a structure type or a name;
// empty when there is none.
std::string recordDifference(const tools::ShaderView& a, const tools::ShaderView& b);

}  // namespace shadermachine::testing
