// Runs by the plain handlers and translated, compared by what a host sees of them.
#pragma once

#include <shadermachine/shadermachine.h>

#include <string>

namespace shadermachine::fuzz {

// Empty when there is no difference. Programs without end are not compared.
std::string engineDifference(const CompiledShader& shader, uint32_t hostSeed);

}  // namespace shadermachine::fuzz
