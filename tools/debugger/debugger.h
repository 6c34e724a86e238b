// What every front end of the debugger shares: stops, breakpoints, frames, variables, both ways.
//
// Between two commands the run stands before an instruction, or is over. Everything that moves is
// told by counts of executed instructions, so that a step back is FragmentRun::seek().
#pragma once

#include <shadermachine-tools/source_map.h>

#include <atomic>
#include <bitset>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "debugger/expression.h"
#include "debugger/fragment_run.h"

namespace shadermachine::tools {

// Where the run stands, or a frame below the current one will go on.
struct DebugPlace {
  uint32_t function = 0;
  uint32_t offset = 0;  // of the instruction; of a call that has not returned yet
  SourcePosition position;
};

struct DebugVariable {
  enum class Scope : uint8_t { Local, Global };
  std::string name;
  DebugValue value;
  Scope scope = Scope::Local;
  bool isHere = true;  // false: in scope, but optimised away
  bool isConstant = false;
};

struct Breakpoint {
  enum class Kind : uint8_t { Line, Function, Watch };
  int id = 0;
  Kind kind = Kind::Line;
  std::string what;       // as the user gave it; of a watchpoint: the expression
  std::string condition;  // empty: always
  uint64_t ignored = 0;   // hits that do not stop
  std::string message;    // of a logpoint, with {expressions}; empty: it stops
  bool isTemporary = false;
  std::vector<uint32_t> codes;  // places as offsets into the record's code
  SourcePosition position;      // of the first place
  uint64_t hits = 0;
  std::optional<DebugValue> last;  // of a watchpoint
};

struct Stop {
  enum class Reason : uint8_t {
    Started,
    Step,
    Breakpoint,
    Watch,
    Failure,
    NonFinite,
    Ended,
    Paused
  };
  Reason reason = Reason::Started;
  std::string text;  // for people; may be empty
  int breakpoint = 0;
};

enum class Direction : uint8_t { Forward, Backward };
enum class StepKind : uint8_t { Into, Over, Out, Instruction, OverInstruction };

class Debugger {
 public:
  // A command that takes longer is ended; 0: none is.
  Debugger(FragmentRun& run, uint32_t timeoutMilliseconds);

  Stop restart();
  Stop proceed(Direction direction);
  // The same, but a breakpoint at the very place counts, too.
  Stop proceedFromHere();
  // So many steps, but no further than to a stop for another reason. All are one command.
  Stop step(StepKind kind, Direction direction, uint64_t count = 1);
  // Commands end while the number, which another thread or a signal handler may change, is not 0.
  // Only who counts knows which commands a request is about, so none is forgotten here.
  void pauseWhile(const std::atomic<int>& requests) { pauses_ = &requests; }

  // All throw ExpressionError: there is no such place, no such value, or there are too many.
  Breakpoint& breakAtLine(const std::string& file, uint32_t line);
  Breakpoint& breakAtFunction(const std::string& name);
  Breakpoint& watch(const std::string& expression);
  bool remove(int id);
  void removeAll(Breakpoint::Kind kind);
  std::map<int, Breakpoint>& breakpoints() { return breakpoints_; }
  // Run-time codes that stop; to begin with all failures.
  void catchFailures(bool isOn) { isOn ? caught_.set() : caught_.reset(); }
  void catchFailure(VmError error) { caught_.set(error); }
  void catchNonFinite(bool isOn) { catchesNonFinite_ = isOn; }
  // Gets what logpoints say.
  void onMessage(std::function<void(const std::string&)> callback) { say_ = std::move(callback); }

  // Frame 0 is the current one.
  size_t frameCount() const;
  DebugPlace place(size_t frame = 0) const;
  std::vector<DebugVariable> variables(size_t frame) const;
  // Throws ExpressionError.
  DebugValue evaluate(const std::string& expression, size_t frame = 0) const;
  std::string format(const DebugValue& value) const { return formatValue(view_, value); }
  std::string sourceLine(const SourcePosition& position) const;
  std::string fileName(const SourcePosition& position) const;

  FragmentRun& run() { return run_; }
  const FragmentRun& run() const { return run_; }
  const ShaderView& view() const { return view_; }

 private:
  using Wanted = std::function<bool()>;
  struct Found {
    std::optional<Stop> stop;
    uint64_t place = 0;  // steps
  };

  const CallFrame& frame(size_t index) const;
  uint32_t functionOf(const CallFrame& frame) const;
  const SourceRow* statementHere() const;
  uint32_t codeHere() const;
  DebugVariable variable(const SourceVariable& known, const CallFrame* frame) const;
  DebugValue slotValue(const VarInfo& info, const ValueSlot& slot, std::string type) const;
  DebugValue globalValue(uint16_t index, std::string type) const;
  std::optional<DebugVariable> find(const std::string& name, size_t frame) const;

  Wanted wanted(StepKind kind) const;
  void begin();
  Stop move(const Wanted& wanted, Direction direction);
  Stop forward(const Wanted& wanted);
  Stop backward(const Wanted& wanted);
  bool search(uint64_t start, uint64_t end, const Wanted& wanted, Found& found);
  bool knowsWatched() const;
  void lookAtWatched();
  void forgetTemporary(const Stop& stop);
  std::optional<Stop> afterEnd() const;
  bool hasTime();
  std::optional<Stop> hit(bool isForward);
  bool counts(Breakpoint& breakpoint, bool isForward);
  std::optional<Stop> watched();
  std::optional<DebugValue> tryEvaluate(const std::string& expression) const;
  std::string interpolated(const std::string& message) const;
  std::optional<Stop> stepChecked();
  std::optional<DebugVariable> storeTarget() const;
  void needRoomForBreakpoint() const;
  Breakpoint& add(Breakpoint breakpoint);
  void markPlaces();

  FragmentRun& run_;
  ShaderView view_;
  std::map<const ShaderFunction*, uint32_t> functions_;
  std::map<int, Breakpoint> breakpoints_;
  std::vector<uint8_t> marks_;  // of every code byte: whether a breakpoint is there
  bool hasWatches_ = false;
  int nextId_ = 1;
  std::bitset<VM_ERROR_COUNT> caught_ = std::bitset<VM_ERROR_COUNT>().set();
  bool catchesNonFinite_ = false;
  std::function<void(const std::string&)> say_;
  const std::atomic<int>* pauses_ = nullptr;
  uint32_t timeout_;
  uint64_t deadline_ = 0;  // of the command; steady clock, milliseconds
  uint64_t looks_ = 0;     // calls of hasTime()
  DebugPlace before_;      // the statement under way, for watchpoints
};

}  // namespace shadermachine::tools
