// What clients of the Debug Adapter Protocol want to be stopped at. The requests get a message's
// "arguments" and make the "body" of the answer; they throw std::exception with a text for people.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "debugger/debugger.h"

namespace shadermachine::tools::dap {

// The name of the exception filter for a run-time code.
std::string filterOf(VmError error);

nlohmann::json setBreakpoints(Debugger& debugger, const nlohmann::json& arguments);
nlohmann::json setFunctionBreakpoints(Debugger& debugger, const nlohmann::json& arguments);
nlohmann::json setDataBreakpoints(Debugger& debugger, const nlohmann::json& arguments);
nlohmann::json setExceptionBreakpoints(Debugger& debugger, const nlohmann::json& arguments);
nlohmann::json dataBreakpointInfo(Debugger& debugger, const nlohmann::json& arguments);

}  // namespace shadermachine::tools::dap
