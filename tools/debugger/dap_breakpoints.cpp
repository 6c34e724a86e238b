#include "debugger/dap_breakpoints.h"

#include <algorithm>
#include <cstdlib>

namespace shadermachine::tools::dap {
namespace {

using nlohmann::json;

// "3" or ">= 3": the hits before that one do not stop.
uint64_t ignoredHits(const std::string& condition) {
  const size_t digits = condition.find_first_of("0123456789");
  if (condition.empty()) return 0;
  if (digits == std::string::npos) throw ExpressionError("a hit condition is a number");
  const uint64_t count = std::strtoull(condition.c_str() + digits, nullptr, 10);
  const bool isBeyond = condition.starts_with(">") && !condition.starts_with(">=");
  return isBeyond ? count : count - std::min<uint64_t>(count, 1);
}

template <class Set>
json setAll(const json& wanted, const Set& set) {
  json list = json::array();
  for (const json& one : wanted) {
    try {
      Breakpoint& breakpoint = set(one);
      breakpoint.condition = one.value("condition", "");
      breakpoint.message = one.value("logMessage", "");
      breakpoint.ignored = ignoredHits(one.value("hitCondition", ""));
      json entry = {{"id", breakpoint.id}, {"verified", true}};
      if (breakpoint.position.isKnown()) entry["line"] = breakpoint.position.line;
      list.push_back(std::move(entry));
    } catch (const std::exception& error) {
      list.push_back({{"verified", false}, {"message", error.what()}});
    }
  }
  return {{"breakpoints", list}};
}

}  // namespace

std::string filterOf(VmError error) { return "code-" + std::to_string(error); }

json setBreakpoints(Debugger& debugger, const json& arguments) {
  const json file = arguments.value("source", json::object());
  const std::string path = file.value("path", file.value("name", ""));
  std::vector<int> old;
  for (const auto& [id, breakpoint] : debugger.breakpoints()) {
    const bool isLine = breakpoint.kind == Breakpoint::Kind::Line;
    if (isLine && breakpoint.what.starts_with(path + ":")) old.push_back(id);
  }
  for (const int id : old) debugger.remove(id);
  return setAll(arguments.value("breakpoints", json::array()), [&](const json& one) -> Breakpoint& {
    return debugger.breakAtLine(path, one.value("line", 0u));
  });
}

json setFunctionBreakpoints(Debugger& debugger, const json& arguments) {
  debugger.removeAll(Breakpoint::Kind::Function);
  return setAll(arguments.value("breakpoints", json::array()), [&](const json& one) -> Breakpoint& {
    return debugger.breakAtFunction(one.value("name", ""));
  });
}

json setDataBreakpoints(Debugger& debugger, const json& arguments) {
  debugger.removeAll(Breakpoint::Kind::Watch);
  return setAll(arguments.value("breakpoints", json::array()), [&](const json& one) -> Breakpoint& {
    return debugger.watch(one.value("dataId", ""));
  });
}

json dataBreakpointInfo(Debugger& debugger, const json& arguments) {
  const std::string name = arguments.value("name", "");
  debugger.evaluate(name);
  return {{"dataId", name}, {"description", name}, {"accessTypes", {"write"}}};
}

json setExceptionBreakpoints(Debugger& debugger, const json& arguments) {
  debugger.catchFailures(false);
  debugger.catchNonFinite(false);
  for (const std::string& filter : arguments.value("filters", std::vector<std::string>())) {
    if (filter == "error") debugger.catchFailures(true);
    if (filter == "nan") debugger.catchNonFinite(true);
    for (uint32_t code = 1; code < VM_ERROR_COUNT; ++code) {
      if (filter == filterOf(static_cast<VmError>(code)))
        debugger.catchFailure(static_cast<VmError>(code));
    }
  }
  return json::object();
}

}  // namespace shadermachine::tools::dap
