#include "debugger/console.h"

#include <shadermachine-tools/disassembler.h>

#include <algorithm>
#include <charconv>

#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

constexpr uint32_t kListedLines = 10;
constexpr uint32_t kListedInstructions = 12;

std::string trimmed(const std::string& text) {
  const size_t start = text.find_first_not_of(" \t");
  const size_t end = text.find_last_not_of(" \t\r");
  return start == std::string::npos ? "" : text.substr(start, end - start + 1);
}

uint64_t numberIn(const std::string& text, uint64_t otherwise) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty()) return otherwise;
  if (error != std::errc() || end != text.data() + text.size()) {
    throw ExpressionError("'" + text + "' is no number");
  }
  return number;
}

// Cuts the first word off.
std::string takeWord(std::string& text) {
  const size_t end = std::min(text.find_first_of(" \t"), text.size());
  std::string word = text.substr(0, end);
  text = trimmed(text.substr(end));
  return word;
}

}  // namespace

// What the commands do; each gets the rest of its line.
struct ConsoleCommands {
  using Run = std::string (*)(Console&, const std::string&);
  struct Command {
    const char* name;
    const char* shortName;
    Run run;
    bool repeats;  // by an empty line
    const char* help;
  };
  static const std::vector<Command>& all();

  template <StepKind kKind, Direction kDirection>
  static std::string step(Console& console, const std::string& text) {
    const uint64_t count = numberIn(text, 1);
    if (count == 0) return "";
    return console.show(console.debugger_.step(kKind, kDirection, count));
  }

  template <Direction kDirection>
  static std::string proceed(Console& console, const std::string&) {
    return console.show(console.debugger_.proceed(kDirection));
  }

  static std::string start(Console& console, const std::string&) {
    return console.show(console.debugger_.restart());
  }

  static std::string described(const Console& console, const Breakpoint& breakpoint) {
    const bool isWatch = breakpoint.kind == Breakpoint::Kind::Watch;
    std::string text = (isWatch ? "watchpoint " : "breakpoint ") + std::to_string(breakpoint.id);
    text += " at " + breakpoint.what;
    if (!isWatch && breakpoint.position.isKnown()) {
      text += " (" + console.debugger_.fileName(breakpoint.position) + ":" +
              std::to_string(breakpoint.position.line) + ")";
    }
    if (!breakpoint.condition.empty()) text += " if " + breakpoint.condition;
    return text + ", hit " + std::to_string(breakpoint.hits) +
           (breakpoint.hits == 1 ? " time\n" : " times\n");
  }

  // [FILE:]LINE or FUNCTION, then perhaps "if CONDITION".
  static Breakpoint& breakAt(Console& console, const std::string& text) {
    Debugger& debugger = console.debugger_;
    const size_t mark = text.starts_with("if ") ? 0 : text.find(" if ");
    const std::string place = trimmed(text.substr(0, mark));
    const size_t colon = place.rfind(':');
    const std::string line = colon == std::string::npos ? place : place.substr(colon + 1);
    const bool isLine = !line.empty() && line.find_first_not_of("0123456789") == std::string::npos;
    const SourcePosition here = debugger.place(console.frame_).position;
    const std::string file =
        colon != std::string::npos ? place.substr(0, colon) : debugger.fileName(here);
    Breakpoint* breakpoint = nullptr;
    if (place.empty()) {
      breakpoint = &debugger.breakAtLine(file, here.line);
    } else if (isLine) {
      breakpoint = &debugger.breakAtLine(file, static_cast<uint32_t>(numberIn(line, 0)));
    } else {
      breakpoint = &debugger.breakAtFunction(place);
    }
    if (mark != std::string::npos) breakpoint->condition = trimmed(text.substr(mark + 3));
    return *breakpoint;
  }

  static std::string setBreak(Console& console, const std::string& text) {
    return described(console, breakAt(console, text));
  }

  static std::string setTemporary(Console& console, const std::string& text) {
    Breakpoint& breakpoint = breakAt(console, text);
    breakpoint.isTemporary = true;
    return described(console, breakpoint);
  }

  static std::string setWatch(Console& console, const std::string& text) {
    return described(console, console.debugger_.watch(text));
  }

  static Breakpoint& breakpointOf(Console& console, const std::string& word) {
    const auto found = console.debugger_.breakpoints().find(static_cast<int>(numberIn(word, 0)));
    if (found == console.debugger_.breakpoints().end()) {
      throw ExpressionError("there is no breakpoint " + word);
    }
    return found->second;
  }

  static std::string setCondition(Console& console, const std::string& text) {
    std::string rest = text;
    Breakpoint& breakpoint = breakpointOf(console, takeWord(rest));
    breakpoint.condition = rest;
    return described(console, breakpoint);
  }

  static std::string setIgnored(Console& console, const std::string& text) {
    std::string rest = text;
    Breakpoint& breakpoint = breakpointOf(console, takeWord(rest));
    breakpoint.ignored = breakpoint.hits + numberIn(rest, 0);
    return described(console, breakpoint);
  }

  static std::string setLog(Console& console, const std::string& text) {
    std::string rest = text;
    const std::string place = takeWord(rest);
    Breakpoint& breakpoint = breakAt(console, place);
    breakpoint.message = rest;
    return described(console, breakpoint);
  }

  static std::string remove(Console& console, const std::string& text) {
    if (text.empty()) {
      console.debugger_.removeAll(Breakpoint::Kind::Line);
      console.debugger_.removeAll(Breakpoint::Kind::Function);
      console.debugger_.removeAll(Breakpoint::Kind::Watch);
      return "";
    }
    const int id = breakpointOf(console, text).id;
    console.debugger_.remove(id);
    return "";
  }

  static std::string setCatch(Console& console, const std::string& text) {
    if (text != "error" && text != "nan" && text != "none") {
      throw ExpressionError("catch error, catch nan or catch none");
    }
    if (text == "nan") console.debugger_.catchNonFinite(true);
    if (text == "error") console.debugger_.catchFailures(true);
    if (text == "none") {
      console.debugger_.catchFailures(false);
      console.debugger_.catchNonFinite(false);
    }
    return "";
  }

  static std::string print(Console& console, const std::string& text) {
    const DebugValue value = console.debugger_.evaluate(text, console.frame_);
    return text + " = " + console.debugger_.format(value) + "\n";
  }

  static std::string whatIs(Console& console, const std::string& text) {
    return "type = " + console.debugger_.evaluate(text, console.frame_).type.name + "\n";
  }

  static std::string display(Console& console, const std::string& text) {
    console.displays_.push_back(text);
    return print(console, text);
  }

  static std::string undisplay(Console& console, const std::string&) {
    console.displays_.clear();
    return "";
  }

  static std::string variables(Console& console, DebugVariable::Scope scope) {
    std::string text;
    for (const DebugVariable& variable : console.debugger_.variables(console.frame_)) {
      if (variable.scope != scope) continue;
      text += variable.value.type.name + " " + variable.name + " = " +
              (variable.isHere ? console.debugger_.format(variable.value) : "<optimised away>") +
              "\n";
    }
    return text.empty() ? "none\n" : text;
  }

  static std::string registers(const Console& console) {
    const FragmentRun& run = console.debugger_.run();
    const Machine& machine = run.machine();
    const DebugPlace place = console.debugger_.place();
    return "instructions executed: " + std::to_string(run.steps()) + "\nfunction " +
           std::to_string(place.function) + ", offset " + std::to_string(place.offset) +
           "\nframes: " + std::to_string(machine.frameIndex + 1) +
           "\nindex stack: " + std::to_string(machine.indexTop + 1) + "\nstack above the locals: " +
           std::to_string(machine.frames[machine.frameIndex].top + 1 -
                          machine.frames[machine.frameIndex].function->localCount) +
           "\n";
  }

  static std::string info(Console& console, const std::string& text) {
    const auto is = [&](std::string_view name) { return !text.empty() && name.starts_with(text); };
    if (is("locals") || is("args")) return variables(console, DebugVariable::Scope::Local);
    if (is("globals") || is("variables")) return variables(console, DebugVariable::Scope::Global);
    if (is("registers")) return registers(console);
    if (is("frame")) return console.frameLine(console.frame_);
    if (is("breakpoints") || is("watchpoints")) {
      std::string answer;
      for (const auto& [id, breakpoint] : console.debugger_.breakpoints()) {
        answer += described(console, breakpoint);
      }
      return answer.empty() ? "none\n" : answer;
    }
    throw ExpressionError("info breakpoints, locals, globals, frame or registers");
  }

  static std::string backtrace(Console& console, const std::string&) {
    constexpr size_t kShown = 100;
    const size_t count = console.debugger_.frameCount();
    std::string text;
    for (size_t i = 0; i < std::min(count, kShown); ++i) text += console.frameLine(i);
    if (count > kShown) text += "and " + std::to_string(count - kShown) + " more\n";
    return text;
  }

  static std::string select(Console& console, size_t frame) {
    if (frame >= console.debugger_.frameCount()) throw ExpressionError("there is no such frame");
    console.frame_ = frame;
    console.nextListed_ = 0;
    return console.frameLine(frame);
  }

  static std::string list(Console& console, const std::string& text) {
    const SourcePosition here = console.debugger_.place(console.frame_).position;
    if (!here.isKnown()) throw ExpressionError("the source of this place is not known");
    const uint32_t middle = static_cast<uint32_t>(numberIn(text, here.line));
    uint32_t first = middle > kListedLines / 2 ? middle - kListedLines / 2 : 1;
    if (text.empty() && console.nextListed_ != 0) first = console.nextListed_;
    console.nextListed_ = first + kListedLines;
    return console.listing(here.file, first, first + kListedLines - 1);
  }

  static std::string disassemble(Console& console, const std::string&) {
    const ShaderView& view = console.debugger_.view();
    const DebugPlace here = console.debugger_.place(console.frame_);
    const ShaderFunction& function = *view.shader->functions[here.function];
    const uint8_t* code = view.shader->code + function.codeOffset;
    std::vector<uint32_t> starts;
    for (uint32_t offset = 0; offset < function.codeLength;) {
      starts.push_back(offset);
      offset += std::max(instructionLength(code + offset, function.codeLength - offset), 1u);
    }
    const auto next = std::ranges::upper_bound(starts, here.offset);
    const size_t at = static_cast<size_t>(next - starts.begin());
    const size_t first = at > kListedInstructions / 2 ? at - kListedInstructions / 2 : 0;
    std::string text;
    for (size_t i = first; i < std::min(first + kListedInstructions, starts.size()); ++i) {
      const bool isHere = i + 1 == at;
      text += (isHere ? "=> +" : "   +") + std::to_string(starts[i]) + "\t" +
              disassembleInstruction(view, here.function, starts[i]) + "\n";
    }
    return text;
  }

  static std::string quit(Console& console, const std::string&) {
    console.isDone_ = true;
    return "";
  }

  static std::string help(Console&, const std::string&) {
    std::string text;
    for (const Command& command : all()) {
      std::string names = command.name;
      if (*command.shortName != '\0') names += std::string(", ") + command.shortName;
      names.resize(std::max<size_t>(names.size() + 2, 28), ' ');
      text += names + command.help + "\n";
    }
    return text;
  }
};

const std::vector<ConsoleCommands::Command>& ConsoleCommands::all() {
  using enum StepKind;
  constexpr Direction kOn = Direction::Forward;
  constexpr Direction kBack = Direction::Backward;
  static const std::vector<Command> kCommands = {
      {"backtrace", "bt", backtrace, false, "the calls that led here"},
      {"break", "b", setBreak, false, "[FILE:]LINE or FUNCTION, [if CONDITION]: stop there"},
      {"catch", "", setCatch, false, "error, nan, none: what else stops the run"},
      {"condition", "", setCondition, false, "N EXPR: breakpoint N stops only if it holds"},
      {"continue", "c", proceed<kOn>, true, "run on"},
      {"delete", "d", remove, false, "[N]: breakpoint N, or all"},
      {"disassemble", "disas", disassemble, false, "the instructions around this place"},
      {"display", "", display, false, "EXPR: print it at every stop"},
      {"down", "", [](Console& c, const std::string&) { return select(c, c.frame_ - 1); }, false,
       "the frame that this one called"},
      {"finish", "fin", step<Out, kOn>, false, "run until this function returns"},
      {"frame", "f",
       [](Console& c, const std::string& text) { return select(c, numberIn(text, c.frame_)); },
       false, "N: look at frame N"},
      {"help", "h", help, false, "this list"},
      {"ignore", "", setIgnored, false, "N COUNT: breakpoint N lets so many hits pass"},
      {"info", "i", info, false, "breakpoints, locals, globals, frame, registers"},
      {"list", "l", list, true, "[LINE]: the source around it"},
      {"logpoint", "", setLog, false, "[FILE:]LINE TEXT: say it there, with {expressions}"},
      {"next", "n", step<Over, kOn>, true, "[N]: to the next line, over calls"},
      {"nexti", "ni", step<OverInstruction, kOn>, true, "[N]: to the next instruction, over calls"},
      {"print", "p", print, false, "EXPR: its value"},
      {"ptype", "whatis", whatIs, false, "EXPR: its type"},
      {"quit", "q", quit, false, "end the debugger"},
      {"reverse-continue", "rc", proceed<kBack>, true, "run backwards"},
      {"reverse-finish", "rf", step<Out, kBack>, false, "back to where this function was called"},
      {"reverse-next", "rn", step<Over, kBack>, true, "[N]: back a line, over calls"},
      {"reverse-step", "rs", step<Into, kBack>, true, "[N]: back a line"},
      {"reverse-stepi", "rsi", step<Instruction, kBack>, true, "[N]: back an instruction"},
      {"run", "start", start, false, "from the beginning"},
      {"step", "s", step<Into, kOn>, true, "[N]: to the next line, into calls"},
      {"stepi", "si", step<Instruction, kOn>, true, "[N]: to the next instruction"},
      {"tbreak", "tb", setTemporary, false, "like break, but stops only once"},
      {"undisplay", "", undisplay, false, "print nothing at stops"},
      {"up", "", [](Console& c, const std::string&) { return select(c, c.frame_ + 1); }, false,
       "the frame that called this one"},
      {"watch", "w", setWatch, false, "EXPR: stop when its value changes"},
  };
  return kCommands;
}

Console::Console(Debugger& debugger) : debugger_(debugger) {
  debugger_.onMessage([this](const std::string& text) { said_.push_back(text + "\n"); });
}

// To the first statement: what is before it, a compiler made.
std::string Console::greeting() {
  if (!debugger_.place().position.isKnown()) debugger_.step(StepKind::Into, Direction::Forward);
  return show({Stop::Reason::Started, "", 0});
}

std::string Console::execute(const std::string& line) {
  std::string rest = trimmed(line);
  if (rest.empty()) rest = last_;
  if (rest.empty() || rest[0] == '#') return "";
  const std::string whole = rest;
  const std::string word = takeWord(rest);
  const ConsoleCommands::Command* chosen = nullptr;
  for (const ConsoleCommands::Command& command : ConsoleCommands::all()) {
    if (word == command.name || word == command.shortName) chosen = &command;
    // A whole name or short name wins; of beginnings, the first in the list.
    const bool begins = std::string_view(command.name).starts_with(word);
    if (begins && chosen == nullptr) chosen = &command;
  }
  if (chosen == nullptr) return "'" + word + "' is no command; help lists them\n";
  last_ = chosen->repeats ? whole : "";
  try {
    return chosen->run(*this, rest);
  } catch (const ExpressionError& error) {
    return std::string(error.what()) + "\n";
  }
}

std::vector<std::string> Console::completions(const std::string& begin) {
  std::vector<std::string> names;
  for (const ConsoleCommands::Command& command : ConsoleCommands::all()) {
    if (std::string_view(command.name).starts_with(begin)) names.emplace_back(command.name);
  }
  return names;
}

std::string Console::frameLine(size_t frame) const {
  const DebugPlace place = debugger_.place(frame);
  std::string text =
      "#" + std::to_string(frame) + "  " + functionText(debugger_.view(), place.function);
  if (place.position.isKnown()) {
    return text + " at " + debugger_.fileName(place.position) + ":" +
           std::to_string(place.position.line) + "\n";
  }
  return text + " at offset " + std::to_string(place.offset) + "\n";
}

std::string Console::listing(uint32_t file, uint32_t first, uint32_t last) const {
  const uint32_t here = debugger_.place(frame_).position.line;
  const std::string& source = debugger_.view().sources->files[file].text;
  const auto lines = static_cast<uint32_t>(std::ranges::count(source, '\n'));
  std::string text;
  for (uint32_t line = first; line <= std::min(last, lines); ++line) {
    const std::string number = std::to_string(line);
    text += (line == here ? "=> " : "   ") +
            std::string(number.size() < 4 ? 4 - number.size() : 0, ' ') + number + "  " +
            printable(lineOfText(source, line)) + "\n";
  }
  return text.empty() ? "the source ends before\n" : text;
}

std::string Console::where() {
  const DebugPlace place = debugger_.place();
  if (!place.position.isKnown()) {
    return "+" + std::to_string(place.offset) + "\t" +
           disassembleInstruction(debugger_.view(), place.function, place.offset) + "\n";
  }
  return std::to_string(place.position.line) + "\t" + debugger_.sourceLine(place.position) + "\n";
}

std::string Console::show(const Stop& stop) {
  frame_ = 0;
  nextListed_ = 0;
  std::string text;
  for (const std::string& message : said_) text += message;
  said_.clear();
  if (!stop.text.empty()) text += stop.text + "\n";
  if (stop.reason == Stop::Reason::Ended) return text;
  const bool isStep = stop.reason == Stop::Reason::Step;
  if (!isStep) text += frameLine(0);
  text += where();
  for (const std::string& expression : displays_) {
    try {
      text += expression + " = " + debugger_.format(debugger_.evaluate(expression)) + "\n";
    } catch (const ExpressionError&) {
      text += expression + ": not here\n";
    }
  }
  return text;
}

}  // namespace shadermachine::tools
