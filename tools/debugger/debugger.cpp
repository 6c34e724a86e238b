// Movement: stepping, stops, both ways.
#include "debugger/debugger.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

uint64_t now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

std::string inLine(const SourcePosition& position) {
  return position.isKnown() ? ", in line " + std::to_string(position.line) : "";
}

}  // namespace

Debugger::Debugger(FragmentRun& run, uint32_t timeoutMilliseconds)
    : run_(run), view_(run.view()), timeout_(timeoutMilliseconds) {
  const CompiledShader& shader = *view_.shader;
  for (uint32_t i = 0; i < shader.functionCount; ++i) functions_.emplace(shader.functions[i], i);
}

Stop Debugger::restart() {
  run_.restart();
  for (auto& [id, breakpoint] : breakpoints_) {
    breakpoint.hits = 0;
    breakpoint.last.reset();
  }
  return {Stop::Reason::Started, "", 0};
}

std::optional<Stop> Debugger::afterEnd() const {
  if (!run_.isOver()) return std::nullopt;
  const VmError error = run_.error();
  if (isFailure(error) && caught_.test(error)) {
    return Stop{Stop::Reason::Failure, vmGetErrorString(error), 0};
  }
  return Stop{Stop::Reason::Ended,
              "the run ended with code " + std::to_string(error) + ": " + vmGetErrorString(error),
              0};
}

void Debugger::begin() { deadline_ = now() + timeout_; }

// The clock and the requests are looked at now and then: counted over all steps of a command, each
// of which may be a single instruction.
bool Debugger::hasTime() {
  constexpr uint64_t kInterval = 4096;
  if (++looks_ % kInterval != 0) return true;
  if (pauses_ != nullptr && *pauses_ != 0) return false;
  return timeout_ == 0 || now() < deadline_;
}

Stop Debugger::forward(const Wanted& wanted) {
  while (true) {
    if (auto stop = afterEnd()) return *stop;
    if (auto stop = stepChecked()) return *stop;
    if (auto stop = afterEnd()) return *stop;
    if (!marks_.empty() || hasWatches_) {
      if (auto stop = hit(true)) {
        forgetTemporary(*stop);
        return *stop;
      }
    }
    // Before a step is found, lest a command of many short ones never looks.
    if (!hasTime()) return {Stop::Reason::Paused, "still running; continue goes on", 0};
    if (wanted && wanted()) return {Stop::Reason::Step, "", 0};
  }
}

// Goes to the last place before this one that would have stopped, looked for in stretches of the
// run that are longer the further back they lie.
Stop Debugger::backward(const Wanted& wanted) {
  constexpr uint64_t kFirstStretch = 4096;
  const uint64_t end = run_.steps();
  Found found;
  uint64_t start = end;
  for (uint64_t length = kFirstStretch; !found.stop && start > 0; length *= 4) {
    // What a watchpoint saw last is not known at the beginning of a stretch.
    const uint64_t until = hasWatches_ ? end : start;
    start = end - std::min(end, length);
    if (!search(start, until, wanted, found)) {
      run_.seek(end);
      return {Stop::Reason::Paused, "going back takes too long", 0};
    }
  }
  run_.seek(found.place);
  lookAtWatched();
  if (!found.stop) return {Stop::Reason::Started, "the beginning of the run", 0};
  forgetTemporary(*found.stop);
  return *found.stop;
}

// The last place of a stretch where the run would have stopped. False when the time is up.
bool Debugger::search(uint64_t start, uint64_t end, const Wanted& wanted, Found& found) {
  run_.approach(start);
  while (run_.steps() < start) {
    run_.step();
    if (!hasTime()) return false;
  }
  for (auto& [id, breakpoint] : breakpoints_) breakpoint.last.reset();
  while (run_.steps() < end) {
    // Another stretch finds what this one cannot be sure of.
    const bool isSure = start == 0 || knowsWatched();
    auto stop = !marks_.empty() || hasWatches_ ? hit(false) : std::nullopt;
    if (!stop && wanted && wanted()) stop = Stop{Stop::Reason::Step, "", 0};
    if (stop && isSure) found = {stop, run_.steps()};
    stop = stepChecked();
    if (stop && run_.steps() < end) found = {stop, run_.steps()};
    if (!hasTime()) return false;
  }
  return true;
}

bool Debugger::knowsWatched() const {
  return !hasWatches_ || std::ranges::all_of(breakpoints_, [](const auto& entry) {
    return entry.second.kind != Breakpoint::Kind::Watch || entry.second.last;
  });
}

// Changes count from here on.
void Debugger::lookAtWatched() {
  before_ = place();
  for (auto& [id, breakpoint] : breakpoints_) {
    if (breakpoint.kind == Breakpoint::Kind::Watch) breakpoint.last = tryEvaluate(breakpoint.what);
  }
}

void Debugger::forgetTemporary(const Stop& stop) {
  const auto found = breakpoints_.find(stop.breakpoint);
  if (found != breakpoints_.end() && found->second.isTemporary) remove(stop.breakpoint);
}

Stop Debugger::move(const Wanted& wanted, Direction direction) {
  return direction == Direction::Forward ? forward(wanted) : backward(wanted);
}

Stop Debugger::proceed(Direction direction) {
  begin();
  return move(nullptr, direction);
}

Stop Debugger::proceedFromHere() {
  if (const auto stop = hit(true)) {
    forgetTemporary(*stop);
    return *stop;
  }
  return proceed(Direction::Forward);
}

Stop Debugger::step(StepKind kind, Direction direction, uint64_t count) {
  begin();
  if (kind == StepKind::Instruction && direction == Direction::Backward) {
    // All at once: each place is known without going through those in between.
    const uint64_t steps = run_.steps();
    run_.seek(steps - std::min(count, steps));
    lookAtWatched();
    if (count <= steps) return {Stop::Reason::Step, "", 0};
    return {Stop::Reason::Started, "the beginning of the run", 0};
  }
  Stop stop = {Stop::Reason::Step, "", 0};
  for (; count > 0 && stop.reason == Stop::Reason::Step; --count) {
    stop = move(wanted(kind), direction);
  }
  return stop;
}

// Whether the run stands where the step ends; asked before every instruction.
Debugger::Wanted Debugger::wanted(StepKind kind) const {
  const auto depth = [this] { return run_.machine().frameIndex; };
  // What a step is measured from, noted before the run moves.
  const int32_t startDepth = depth();
  const SourcePosition start = place().position;
  if (kind == StepKind::Instruction) return [] { return true; };
  if (kind == StepKind::OverInstruction) return [=] { return depth() <= startDepth; };
  if (kind == StepKind::Out) {
    return [=] { return depth() < startDepth; };
  }
  const bool isOver = kind == StepKind::Over;
  return [=, this] {
    if (isOver && depth() > startDepth) return false;
    const SourceRow* row = statementHere();
    if (row == nullptr) return false;
    const bool isSameLine = row->position.line == start.line && row->position.file == start.file;
    return !isSameLine || depth() != startDepth;
  };
}

std::optional<Stop> Debugger::hit(bool isForward) {
  if (run_.isOver()) return std::nullopt;
  if (hasWatches_) {
    if (auto stop = watched()) return stop;
  }
  const uint32_t code = codeHere();
  if (code >= marks_.size() || marks_[code] == 0) return std::nullopt;
  for (auto& [id, breakpoint] : breakpoints_) {
    if (std::ranges::find(breakpoint.codes, code) == breakpoint.codes.end()) continue;
    if (!counts(breakpoint, isForward)) continue;
    return Stop{Stop::Reason::Breakpoint, "breakpoint " + std::to_string(id), id};
  }
  return std::nullopt;
}

// Whether a breakpoint that the run has come to stops it.
bool Debugger::counts(Breakpoint& breakpoint, bool isForward) {
  if (!breakpoint.condition.empty()) {
    try {
      if (!isTrue(evaluate(breakpoint.condition))) return false;
    } catch (const ExpressionError& error) {
      if (say_)
        say_("condition of breakpoint " + std::to_string(breakpoint.id) + ": " + error.what());
    }
  }
  if (isForward) ++breakpoint.hits;
  if (isForward && breakpoint.hits <= breakpoint.ignored) return false;
  if (breakpoint.message.empty()) return true;
  if (isForward && say_) say_(interpolated(breakpoint.message));
  return false;
}

std::string Debugger::interpolated(const std::string& message) const {
  std::string text;
  for (size_t i = 0; i < message.size(); ++i) {
    const size_t end = message[i] == '{' ? message.find('}', i) : std::string::npos;
    if (end == std::string::npos) {
      text += message[i];
      continue;
    }
    try {
      text += format(evaluate(message.substr(i + 1, end - i - 1)));
    } catch (const ExpressionError& error) {
      text += std::string("<") + error.what() + ">";
    }
    i = end;
  }
  return text;
}

std::optional<DebugValue> Debugger::tryEvaluate(const std::string& expression) const {
  try {
    return evaluate(expression);
  } catch (const ExpressionError&) {
    return std::nullopt;
  }
}

// Looks where statements begin. What is out of scope there has not changed.
std::optional<Stop> Debugger::watched() {
  if (statementHere() == nullptr) return std::nullopt;
  // The change was made by the statement before this one.
  const DebugPlace changedAt = before_;
  before_ = place();
  for (auto& [id, breakpoint] : breakpoints_) {
    if (breakpoint.kind != Breakpoint::Kind::Watch) continue;
    const std::optional<DebugValue> value = tryEvaluate(breakpoint.what);
    if (!value) continue;
    const std::optional<DebugValue> last = std::exchange(breakpoint.last, value);
    if (!last || *last == *value) continue;
    const std::string text = breakpoint.what + ": " + format(*last) + " -> " + format(*value) +
                             inLine(changedAt.position);
    return Stop{Stop::Reason::Watch, text, id};
  }
  return std::nullopt;
}

// The variable that the next instruction stores into.
std::optional<DebugVariable> Debugger::storeTarget() const {
  const CallFrame& current = frame(0);
  const uint8_t* code = current.code + current.pc;
  const uint32_t left = view_.codeSize - codeHere();
  if (instructionLength(code, left) < 3) return std::nullopt;
  const OpcodeInfo& info = kOpcodeTable[code[0]];
  if (!std::string_view(info.mnemonic).starts_with("STORE_")) return std::nullopt;
  const auto index = static_cast<uint16_t>(code[1] | code[2] << 8);
  DebugVariable target;
  if (info.operands[0] == OperandKind::Local && index < current.function->localCount) {
    const VarInfo& local = current.function->locals[index];
    target.name = local.name != nullptr ? local.name : "a local";
    target.value = slotValue(local, current.locals[index], "");
  } else if (info.operands[0] == OperandKind::Global && index < view_.shader->globalCount) {
    const char* name = view_.shader->globals[index].name;
    target.name = name != nullptr ? name : "a global";
    target.value = globalValue(index, "");
  } else {
    return std::nullopt;
  }
  return target;
}

// Executes an instruction and looks at what it stored, if that is asked for.
std::optional<Stop> Debugger::stepChecked() {
  if (!catchesNonFinite_) {
    run_.step();
    return std::nullopt;
  }
  const std::optional<DebugVariable> before = storeTarget();
  const DebugPlace where = place();
  if (!before) {
    run_.step();
    return std::nullopt;
  }
  // A copy: the frame's counter moves on with the step. A store stays in its frame, so `locals`
  // holds.
  const CallFrame current = frame(0);
  run_.step();
  if (run_.isOver()) return std::nullopt;
  const uint8_t* code = current.code + where.offset;
  const auto index = static_cast<uint16_t>(code[1] | code[2] << 8);
  const bool isLocal = kOpcodeTable[code[0]].operands[0] == OperandKind::Local;
  const DebugValue after =
      isLocal ? slotValue(current.function->locals[index], current.locals[index], "")
              : globalValue(index, "");
  if (after == before->value || !isNonFinite(view_, after)) return std::nullopt;
  return Stop{Stop::Reason::NonFinite,
              "a NaN or infinity was stored: " + before->name + " = " + format(after) +
                  inLine(where.position),
              0};
}

}  // namespace shadermachine::tools
