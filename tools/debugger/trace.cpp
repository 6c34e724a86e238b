#include "debugger/trace.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace shadermachine::tools {
namespace {

class Tracer {
 public:
  Tracer(Debugger& debugger, const std::function<void(const std::string&)>& write)
      : debugger_(debugger), write_(write) {}

  void run() {
    // A failure ends the trace like any other end.
    debugger_.catchFailures(false);
    Stop stop;
    if (!debugger_.place().position.isKnown()) {
      stop = debugger_.step(StepKind::Into, Direction::Forward);
    }
    while (stop.reason != Stop::Reason::Ended && stop.reason != Stop::Reason::Paused) {
      enterFrame();
      writeLine();
      stop = debugger_.step(StepKind::Into, Direction::Forward);
      writeChanges();
    }
    if (stop.reason == Stop::Reason::Paused) write_("the time is up\n");
  }

 private:
  std::string indent() const { return std::string(2 * (debugger_.frameCount() - 1), ' '); }

  // A frame that is new starts with what its function was given.
  void enterFrame() {
    const size_t depth = debugger_.frameCount();
    const DebugPlace place = debugger_.place();
    const bool isNew = depth > known_.size();
    known_.resize(depth);
    if (!isNew) return;
    const std::string file = debugger_.fileName(place.position);
    write_(indent() + functionText(debugger_.view(), place.function) + " in " + file + "\n");
    for (const DebugVariable& variable : debugger_.variables(0)) {
      const bool isLocal = variable.scope == DebugVariable::Scope::Local && variable.isHere;
      if (isLocal && depth > 1) writeValue(variable);
    }
    known_.back() = debugger_.variables(0);
  }

  void writeLine() {
    const SourcePosition position = debugger_.place().position;
    const std::string line = debugger_.sourceLine(position);
    const std::string number = std::to_string(position.line);
    write_(indent() + std::string(number.size() < 5 ? 5 - number.size() : 0, ' ') + number + "  " +
           line + "\n");
  }

  void writeValue(const DebugVariable& variable) {
    write_(indent() + std::string(7, ' ') + "| " + variable.value.type.name + " " + variable.name +
           " = " + debugger_.format(variable.value) + "\n");
  }

  // What the line changed, in the frame that the run is in now.
  void writeChanges() {
    const size_t depth = debugger_.frameCount();
    if (depth == 0 || depth > known_.size()) return;
    known_.resize(depth);
    std::vector<DebugVariable> now = debugger_.variables(0);
    // By name, since what is in scope changes from line to line. The first of a name is the one
    // that the name stands for, so later ones are left out.
    std::map<std::string_view, const DebugValue*> known;
    for (const DebugVariable& variable : known_.back()) {
      known.emplace(variable.name, &variable.value);
    }
    for (const DebugVariable& variable : now) {
      const auto before = known.find(variable.name);
      const bool isSame = before != known.end() && *before->second == variable.value;
      const bool isWritten = before != known.end() || !isZero(variable.value);
      if (variable.isHere && !isSame && isWritten) writeValue(variable);
    }
    known_.back() = std::move(now);
  }

  static bool isZero(const DebugValue& value) {
    return std::ranges::all_of(value.bytes, [](uint8_t byte) { return byte == 0; });
  }

  Debugger& debugger_;
  const std::function<void(const std::string&)>& write_;
  std::vector<std::vector<DebugVariable>> known_;  // variables of each frame when it last stood
};

}  // namespace

void traceSource(Debugger& debugger, const std::function<void(const std::string&)>& write) {
  Tracer(debugger, write).run();
}

}  // namespace shadermachine::tools
