#include "debugger/dap.h"

#include <shadermachine-tools/disassembler.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <memory>

#include "debugger/dap_stream.h"
#include "debugger/debugger.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

using nlohmann::json;

constexpr size_t kMaxShownParts = 1000;
constexpr int kThread = 1;

const char* reasonText(Stop::Reason reason) {
  switch (reason) {
    case Stop::Reason::Started:
      return "entry";
    case Stop::Reason::Breakpoint:
      return "breakpoint";
    case Stop::Reason::Watch:
      return "data breakpoint";
    case Stop::Reason::Failure:
    case Stop::Reason::NonFinite:
      return "exception";
    case Stop::Reason::Paused:
      return "pause";
    default:
      return "step";
  }
}

std::string codeFilter(uint32_t code) { return "code-" + std::to_string(code); }

class Server {
 public:
  Server(std::FILE* input, std::FILE* output, uint32_t timeout, const DapLauncher& launch)
      : launch_(launch),
        timeout_(timeout),
        stream_(input, output, [this](const json& message) { hurry(message); }) {}

  bool run() {
    while (const std::optional<json> message = stream_.next()) {
      if (!answer(*message)) return true;
    }
    return !stream_.isBroken();
  }

 private:
  using Handler = json (Server::*)(const json& arguments);
  static const std::map<std::string, Handler> kHandlers;

  // On the reading thread.
  void hurry(const json& message) {
    const json command = message.value("command", json());
    const bool isUrgent = command == "pause" || command == "disconnect" || command == "terminate";
    Debugger* debugger = running_.load();
    if (isUrgent && debugger != nullptr) debugger->pause();
  }

  // False after a goodbye.
  bool answer(const json& request) {
    if (request.value("type", json()) != "request") return true;
    const std::string command = request.value("command", json("")).is_string()
                                    ? request.value("command", json("")).get<std::string>()
                                    : "";
    json response = {{"type", "response"},
                     {"request_seq", request.value("seq", json(0))},
                     {"command", command},
                     {"success", true}};
    try {
      const auto handler = kHandlers.find(command);
      if (handler == kHandlers.end()) throw ExpressionError("'" + command + "' is not supported");
      const bool needsRun = command != "initialize" && command != "launch" &&
                            command != "disconnect" && command != "terminate";
      if (needsRun && debugger_ == nullptr) throw ExpressionError("nothing has been launched");
      response["body"] = (this->*handler->second)(request.value("arguments", json::object()));
    } catch (const std::exception& error) {
      response["success"] = false;
      response["message"] = error.what();
      response["body"] = {{"error", {{"id", 1}, {"format", error.what()}, {"showUser", true}}}};
      then_ = nullptr;
    }
    stream_.send(std::move(response));
    // What a request starts comes after its answer.
    if (const auto then = std::exchange(then_, nullptr)) then();
    return command != "disconnect";
  }

  void event(const char* name, json body = json::object()) {
    stream_.send({{"type", "event"}, {"event", name}, {"body", std::move(body)}});
  }

  void say(const std::string& text) {
    event("output", {{"category", "console"}, {"output", text + "\n"}});
  }

  json initialize(const json&) {
    json filters = json::array(
        {{{"filter", "error"}, {"label", "Failed runs"}, {"default", true}},
         {{"filter", "nan"}, {"label", "A NaN or infinity is stored"}, {"default", false}}});
    for (uint32_t code = 1; code < VM_ERROR_COUNT; ++code) {
      if (!isFailure(static_cast<VmError>(code))) continue;
      filters.push_back({{"filter", codeFilter(code)},
                         {"label", vmGetErrorString(static_cast<VmError>(code))},
                         {"default", false}});
    }
    return {{"supportsConfigurationDoneRequest", true},
            {"supportsFunctionBreakpoints", true},
            {"supportsConditionalBreakpoints", true},
            {"supportsHitConditionalBreakpoints", true},
            {"supportsLogPoints", true},
            {"supportsStepBack", true},
            {"supportsEvaluateForHovers", true},
            {"supportsDataBreakpoints", true},
            {"supportsDisassembleRequest", true},
            {"supportsLoadedSourcesRequest", true},
            {"supportsTerminateRequest", true},
            {"supportsSteppingGranularity", true},
            {"supportsRestartRequest", true},
            {"exceptionBreakpointFilters", filters}};
  }

  static std::vector<std::string> assignments(const json& object, const char* key) {
    std::vector<std::string> texts;
    const json values = object.value(key, json::object());
    for (const auto& [name, value] : values.items()) {
      std::string text = value.is_string() ? value.get<std::string>() : value.dump();
      std::erase_if(text, [](char c) { return c == '[' || c == ']' || c == ' '; });
      text.insert(0, "=").insert(0, name);
      texts.push_back(text);
    }
    return texts;
  }

  json launch(const json& arguments) {
    DapLaunch wanted;
    wanted.program = arguments.value("program", "");
    wanted.pixel = arguments.value("pixel", std::vector<uint32_t>());
    wanted.size = arguments.value("size", "");
    if (arguments.contains("time")) wanted.time = arguments["time"].get<float>();
    wanted.textures = assignments(arguments, "textures");
    wanted.values = assignments(arguments, "set");
    stopsOnEntry_ = arguments.value("stopOnEntry", false);
    if (debugger_ != nullptr) throw ExpressionError("a run is being debugged already");
    debugger_ = std::make_unique<Debugger>(launch_(wanted), timeout_);
    debugger_->onMessage([this](const std::string& text) { say(text); });
    running_ = debugger_.get();
    then_ = [this] { event("initialized"); };
    return json::object();
  }

  json configurationDone(const json&) {
    then_ = [this] { begin(); };
    return json::object();
  }

  void begin() {
    if (!debugger_->place().position.isKnown()) {
      debugger_->step(StepKind::Into, Direction::Forward);
    }
    if (stopsOnEntry_) return tell({Stop::Reason::Started, "", 0});
    go([this] { return debugger_->proceedFromHere(); });
  }

  json restart(const json&) {
    then_ = [this] {
      debugger_->restart();
      begin();
    };
    return json::object();
  }

  void go(const std::function<Stop()>& move) { tell(move()); }

  void tell(const Stop& stop) {
    references_.clear();
    if (stop.reason == Stop::Reason::Ended) {
      say(stop.text);
      for (const DebugVariable& variable : debugger_->variables(0)) {
        if (variable.scope != DebugVariable::Scope::Global || !isOutput(variable.name)) continue;
        say(variable.name + " = " + debugger_->format(variable.value));
      }
      const int code = isFailure(debugger_->run().error()) ? 3 : 0;
      event("exited", {{"exitCode", code}});
      return event("terminated");
    }
    json body = {
        {"reason", reasonText(stop.reason)}, {"threadId", kThread}, {"allThreadsStopped", true}};
    if (!stop.text.empty()) {
      body["text"] = stop.text;
      body["description"] = stop.text;
    }
    if (stop.breakpoint != 0) body["hitBreakpointIds"] = {stop.breakpoint};
    event("stopped", std::move(body));
  }

  bool isOutput(const std::string& name) const {
    const ShaderView& view = debugger_->view();
    const int32_t output = view.shader->outputGlobal0;
    const char* known = output >= 0 ? view.shader->globals[output].name : nullptr;
    return known != nullptr && name == known;
  }

  template <StepKind kKind, Direction kDirection>
  json step(const json& arguments) {
    const bool isInstruction = arguments.value("granularity", "") == "instruction";
    const StepKind kind = !isInstruction            ? kKind
                          : kKind == StepKind::Over ? StepKind::OverInstruction
                                                    : StepKind::Instruction;
    then_ = [this, kind] { go([this, kind] { return debugger_->step(kind, kDirection); }); };
    return json::object();
  }

  template <Direction kDirection>
  json proceed(const json&) {
    then_ = [this] { go([this] { return debugger_->proceed(kDirection); }); };
    return {{"allThreadsContinued", true}};
  }

  json nothing(const json&) { return json::object(); }

  json terminate(const json&) {
    then_ = [this] { event("terminated"); };
    return json::object();
  }

  json threads(const json&) {
    return {{"threads", json::array({{{"id", kThread}, {"name", "fragment"}}})}};
  }

  // Files are looked for from here, as the compiler did.
  json source(const SourcePosition& position) const {
    const std::string name = debugger_->fileName(position);
    std::error_code ignored;
    const std::filesystem::path path = std::filesystem::absolute(name, ignored);
    return {{"name", path.filename().string()}, {"path", path.lexically_normal().string()}};
  }

  json stackTrace(const json& arguments) {
    const size_t count = debugger_->frameCount();
    const size_t first = arguments.value("startFrame", size_t{0});
    const size_t levels = arguments.value("levels", size_t{0});
    const size_t end = levels == 0 ? count : std::min(count, first + std::min(levels, count));
    json frames = json::array();
    for (size_t i = first; i < end; ++i) {
      const DebugPlace place = debugger_->place(i);
      json frame = {{"id", i + 1},
                    {"name", functionText(debugger_->view(), place.function)},
                    {"line", place.position.line},
                    {"column", place.position.column},
                    {"instructionPointerReference",
                     std::to_string(place.function) + "+" + std::to_string(place.offset)}};
      if (place.position.isKnown()) frame["source"] = source(place.position);
      frames.push_back(std::move(frame));
    }
    return {{"stackFrames", frames}, {"totalFrames", count}};
  }

  struct Reference {
    enum class Kind : uint8_t { Locals, Globals, Constants, Registers, Value };
    Kind kind;
    size_t frame;
    DebugValue value;
  };

  int refer(Reference reference) {
    references_.push_back(std::move(reference));
    return static_cast<int>(references_.size());
  }

  size_t frameOf(const json& arguments) const {
    const size_t id = arguments.value("frameId", size_t{1});
    if (id == 0 || id > debugger_->frameCount()) throw ExpressionError("there is no such frame");
    return id - 1;
  }

  json scopes(const json& arguments) {
    const size_t frame = frameOf(arguments);
    json scopes = json::array();
    const auto add = [&](const char* name, Reference::Kind kind) {
      scopes.push_back({{"name", name},
                        {"variablesReference", refer({kind, frame, {}})},
                        {"expensive", kind == Reference::Kind::Registers}});
    };
    add("Locals", Reference::Kind::Locals);
    add("Globals and inputs", Reference::Kind::Globals);
    add("Constants", Reference::Kind::Constants);
    add("Registers", Reference::Kind::Registers);
    return {{"scopes", scopes}};
  }

  json described(const std::string& name, const DebugValue& value, size_t frame) {
    const bool hasParts = !partsOf(debugger_->view(), value, 1).empty();
    const int reference = hasParts ? refer({Reference::Kind::Value, frame, value}) : 0;
    return {{"name", name},
            {"value", debugger_->format(value)},
            {"type", value.type.name},
            {"evaluateName", name},
            {"variablesReference", reference}};
  }

  json variables(const json& arguments) {
    const size_t number = arguments.value("variablesReference", size_t{0});
    if (number == 0 || number > references_.size()) throw ExpressionError("no such reference");
    const Reference reference = references_[number - 1];
    json list = json::array();
    if (reference.kind == Reference::Kind::Value) {
      for (const DebugPart& part : partsOf(debugger_->view(), reference.value, kMaxShownParts)) {
        list.push_back(described(part.name, part.value, reference.frame));
      }
    } else if (reference.kind == Reference::Kind::Registers) {
      list = registers();
    } else {
      for (const DebugVariable& variable : debugger_->variables(reference.frame)) {
        if (kindOf(variable) == reference.kind) list.push_back(shown(variable, reference.frame));
      }
    }
    return {{"variables", list}};
  }

  static Reference::Kind kindOf(const DebugVariable& variable) {
    if (variable.isConstant) return Reference::Kind::Constants;
    return variable.scope == DebugVariable::Scope::Local ? Reference::Kind::Locals
                                                         : Reference::Kind::Globals;
  }

  json shown(const DebugVariable& variable, size_t frame) {
    if (variable.isHere) return described(variable.name, variable.value, frame);
    return {{"name", variable.name},
            {"value", "<optimised away>"},
            {"type", variable.value.type.name},
            {"variablesReference", 0}};
  }

  json registers() const {
    const Machine& machine = debugger_->run().machine();
    const DebugPlace place = debugger_->place();
    json list = json::array();
    const auto add = [&list](const char* name, int64_t value) {
      list.push_back({{"name", name}, {"value", std::to_string(value)}, {"variablesReference", 0}});
    };
    add("instructions", static_cast<int64_t>(debugger_->run().steps()));
    add("function", place.function);
    add("offset", place.offset);
    add("frame", machine.frameIndex);
    add("index stack", machine.indexTop + 1);
    add("top", machine.frames[machine.frameIndex].top);
    return list;
  }

  json evaluate(const json& arguments) {
    const size_t frame = frameOf(arguments);
    const std::string expression = arguments.value("expression", "");
    json result = described(expression, debugger_->evaluate(expression, frame), frame);
    result["result"] = result["value"];
    return result;
  }

  // "3" or ">= 3": the hits before that one do not stop.
  static uint64_t ignoredHits(const std::string& condition) {
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

  json setBreakpoints(const json& arguments) {
    const json file = arguments.value("source", json::object());
    const std::string path = file.value("path", file.value("name", ""));
    std::vector<int> old;
    for (const auto& [id, breakpoint] : debugger_->breakpoints()) {
      const bool isLine = breakpoint.kind == Breakpoint::Kind::Line;
      if (isLine && breakpoint.what.starts_with(path + ":")) old.push_back(id);
    }
    for (const int id : old) debugger_->remove(id);
    return setAll(arguments.value("breakpoints", json::array()),
                  [&](const json& one) -> Breakpoint& {
                    return debugger_->breakAtLine(path, one.value("line", 0u));
                  });
  }

  json setFunctionBreakpoints(const json& arguments) {
    debugger_->removeAll(Breakpoint::Kind::Function);
    return setAll(arguments.value("breakpoints", json::array()),
                  [&](const json& one) -> Breakpoint& {
                    return debugger_->breakAtFunction(one.value("name", ""));
                  });
  }

  json setDataBreakpoints(const json& arguments) {
    debugger_->removeAll(Breakpoint::Kind::Watch);
    return setAll(
        arguments.value("breakpoints", json::array()),
        [&](const json& one) -> Breakpoint& { return debugger_->watch(one.value("dataId", "")); });
  }

  json dataBreakpointInfo(const json& arguments) {
    const std::string name = arguments.value("name", "");
    debugger_->evaluate(name);
    return {{"dataId", name}, {"description", name}, {"accessTypes", {"write"}}};
  }

  json setExceptionBreakpoints(const json& arguments) {
    debugger_->catchFailures(false);
    debugger_->catchNonFinite(false);
    for (const std::string& filter : arguments.value("filters", std::vector<std::string>())) {
      if (filter == "error") debugger_->catchFailures(true);
      if (filter == "nan") debugger_->catchNonFinite(true);
      for (uint32_t code = 1; code < VM_ERROR_COUNT; ++code) {
        if (filter == codeFilter(code)) debugger_->catchFailure(static_cast<VmError>(code));
      }
    }
    return json::object();
  }

  json loadedSources(const json&) {
    json sources = json::array();
    const SourceMap* map = debugger_->view().sources;
    for (uint32_t i = 0; map != nullptr && i < map->files.size(); ++i) {
      sources.push_back(source({.file = i, .line = 1, .column = 1}));
    }
    return {{"sources", sources}};
  }

  // References are "FUNCTION+OFFSET".
  json disassemble(const json& arguments) {
    constexpr int64_t kMaxCount = 10000;
    const std::string reference = arguments.value("memoryReference", "");
    const size_t plus = reference.find('+');
    const uint64_t function = std::strtoull(reference.c_str(), nullptr, 10);
    const ShaderView& view = debugger_->view();
    const bool exists = plus != std::string::npos && function < view.shader->functionCount &&
                        view.shader->functions[function] != nullptr;
    if (!exists) throw ExpressionError("no code is at " + reference);
    const uint64_t offset = std::strtoull(reference.c_str() + plus + 1, nullptr, 10);
    const ShaderFunction& info = *view.shader->functions[function];
    const uint8_t* code = view.shader->code + info.codeOffset;
    std::vector<uint32_t> starts;
    for (uint32_t at = 0; at < info.codeLength;) {
      starts.push_back(at);
      at += std::max(instructionLength(code + at, info.codeLength - at), 1u);
    }
    const int64_t here = std::ranges::lower_bound(starts, offset) - starts.begin();
    const int64_t first = here + arguments.value("instructionOffset", int64_t{0});
    const int64_t count =
        std::clamp<int64_t>(arguments.value("instructionCount", int64_t{0}), 0, kMaxCount);
    json list = json::array();
    for (int64_t i = first; i < first + count; ++i) {
      const bool isCode = i >= 0 && i < static_cast<int64_t>(starts.size());
      list.push_back(
          isCode ? instruction(static_cast<uint32_t>(function), starts[static_cast<size_t>(i)])
                 : json{{"address", "0"}, {"instruction", "?"}});
    }
    return {{"instructions", list}};
  }

  json instruction(uint32_t function, uint32_t offset) const {
    const ShaderView& view = debugger_->view();
    json entry = {{"address", std::to_string(function) + "+" + std::to_string(offset)},
                  {"instruction", disassembleInstruction(view, function, offset)}};
    if (view.sources == nullptr) return entry;
    const SourcePosition position = view.sources->position(function, offset);
    if (position.isKnown()) {
      entry["line"] = position.line;
      entry["location"] = source(position);
    }
    return entry;
  }

  const DapLauncher& launch_;
  uint32_t timeout_;
  bool stopsOnEntry_ = false;
  std::unique_ptr<Debugger> debugger_;
  std::atomic<Debugger*> running_ = nullptr;
  std::vector<Reference> references_;  // of the current stop
  std::function<void()> then_;
  DapStream stream_;
};

const std::map<std::string, Server::Handler> Server::kHandlers = {
    {"configurationDone", &Server::configurationDone},
    {"continue", &Server::proceed<Direction::Forward>},
    {"dataBreakpointInfo", &Server::dataBreakpointInfo},
    {"disassemble", &Server::disassemble},
    {"disconnect", &Server::nothing},
    {"evaluate", &Server::evaluate},
    {"initialize", &Server::initialize},
    {"launch", &Server::launch},
    {"loadedSources", &Server::loadedSources},
    {"next", &Server::step<StepKind::Over, Direction::Forward>},
    {"pause", &Server::nothing},
    {"restart", &Server::restart},
    {"reverseContinue", &Server::proceed<Direction::Backward>},
    {"scopes", &Server::scopes},
    {"setBreakpoints", &Server::setBreakpoints},
    {"setDataBreakpoints", &Server::setDataBreakpoints},
    {"setExceptionBreakpoints", &Server::setExceptionBreakpoints},
    {"setFunctionBreakpoints", &Server::setFunctionBreakpoints},
    {"stackTrace", &Server::stackTrace},
    {"stepBack", &Server::step<StepKind::Over, Direction::Backward>},
    {"stepIn", &Server::step<StepKind::Into, Direction::Forward>},
    {"stepOut", &Server::step<StepKind::Out, Direction::Forward>},
    {"terminate", &Server::terminate},
    {"threads", &Server::threads},
    {"variables", &Server::variables},
};

}  // namespace

bool serveDap(std::FILE* input, std::FILE* output, uint32_t timeoutMilliseconds,
              const DapLauncher& launch) {
  return Server(input, output, timeoutMilliseconds, launch).run();
}

}  // namespace shadermachine::tools
