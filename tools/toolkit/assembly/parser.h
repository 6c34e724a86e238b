// From tokens to syntax.
#pragma once

#include <vector>

#include "assembly/diagnostics.h"
#include "assembly/lexer.h"
#include "assembly/syntax.h"

namespace shadermachine::tools::assembly {

// Lines with errors are reported and left out.
ShaderSyntax parse(const std::vector<Token>& tokens, Diagnostics& diagnostics);

}  // namespace shadermachine::tools::assembly
