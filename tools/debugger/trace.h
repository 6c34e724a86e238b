// A run as lines of its source, with the values that they change.
#pragma once

#include <functional>
#include <string>

#include "debugger/debugger.h"

namespace shadermachine::tools {

// From where the debugger stands to the end of the run; gets lines that end with a newline,
// indented by the depth of calls.
void traceSource(Debugger& debugger, const std::function<void(const std::string&)>& write);

}  // namespace shadermachine::tools
