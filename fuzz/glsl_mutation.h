// Sources of the gallery and of the compiler's tests, changed here and there.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace shadermachine::fuzz {

std::vector<std::string> readGlslSources();

// The source, or one of the others in place of it, after some changes of its bytes and tokens.
std::string mutateGlsl(const std::string& source, const std::vector<std::string>& others,
                       std::minstd_rand& random);

}  // namespace shadermachine::fuzz
