#include "debugger/dap.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <memory>

#include "debugger/dap_breakpoints.h"
#include "debugger/dap_inspection.h"
#include "debugger/dap_stream.h"

namespace shadermachine::tools {
namespace {

using nlohmann::json;

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

// Without the library's number for it.
std::string plainText(const std::exception& error) {
  const std::string text = error.what();
  const size_t end = text.starts_with('[') ? text.find("] ") : std::string::npos;
  return end == std::string::npos ? text : text.substr(end + 2);
}

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

  static bool isPause(const json& message) {
    const json command = message.value("command", json());
    return message.value("type", json()) == "request" &&
           (command == "pause" || command == "disconnect" || command == "terminate");
  }
  // On the reading thread. Ends the commands that came before this one, those too that have not
  // begun: what comes later goes on once answer() has had its turn with it.
  void hurry(const json& message) {
    if (isPause(message)) ++pauses_;
  }

  // False after a goodbye.
  bool answer(const json& request) {
    if (request.value("type", json()) != "request") return true;
    if (isPause(request)) --pauses_;
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
      json arguments = request.value("arguments", json());
      if (arguments.is_null()) arguments = json::object();
      if (!arguments.is_object()) throw ExpressionError("\"arguments\" are no object");
      response["body"] = (this->*handler->second)(arguments);
    } catch (const std::exception& error) {
      const std::string text = plainText(error);
      response["success"] = false;
      response["message"] = text;
      response["body"] = {{"error", {{"id", 1}, {"format", text}, {"showUser", true}}}};
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
      filters.push_back({{"filter", dap::filterOf(static_cast<VmError>(code))},
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
    json values = json::object();
    read(object, key, values);
    if (!values.is_object()) {
      throw ExpressionError("\"" + std::string(key) + "\": names and values are needed");
    }
    for (const auto& [name, value] : values.items()) {
      std::string text = value.is_string() ? value.get<std::string>() : value.dump();
      std::erase_if(text, [](char c) { return c == '[' || c == ']' || c == ' '; });
      text.insert(0, "=").insert(0, name);
      texts.push_back(text);
    }
    return texts;
  }

  // People write these: what is wrong with them is said with the name.
  template <class T>
  static void read(const json& arguments, const char* name, T& value) {
    const auto found = arguments.find(name);
    if (found == arguments.end()) return;
    try {
      value = found->get<T>();
    } catch (const json::exception& error) {
      throw ExpressionError("\"" + std::string(name) + "\": " + plainText(error));
    }
  }

  json launch(const json& arguments) {
    DapLaunch wanted;
    float time = 0;
    read(arguments, "program", wanted.program);
    read(arguments, "pixel", wanted.pixel);
    read(arguments, "size", wanted.size);
    read(arguments, "time", time);
    if (!std::isfinite(time)) throw ExpressionError("\"time\": seconds are needed");
    if (arguments.contains("time")) wanted.time = time;
    wanted.textures = assignments(arguments, "textures");
    wanted.values = assignments(arguments, "set");
    stopsOnEntry_ = false;
    read(arguments, "stopOnEntry", stopsOnEntry_);
    if (debugger_ != nullptr) throw ExpressionError("a run is being debugged already");
    debugger_ = std::make_unique<Debugger>(launch_(wanted), timeout_);
    debugger_->onMessage([this](const std::string& text) { say(text); });
    inspection_ = std::make_unique<DapInspection>(*debugger_);
    debugger_->pauseWhile(pauses_);
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
    inspection_->forget();
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

  template <json (DapInspection::*kRequest)(const json&)>
  json look(const json& arguments) {
    return (inspection_.get()->*kRequest)(arguments);
  }

  template <json (*kRequest)(Debugger&, const json&)>
  json stopAt(const json& arguments) {
    return kRequest(*debugger_, arguments);
  }

  json nothing(const json&) { return json::object(); }

  json terminate(const json&) {
    then_ = [this] { event("terminated"); };
    return json::object();
  }

  json threads(const json&) {
    return {{"threads", json::array({{{"id", kThread}, {"name", "fragment"}}})}};
  }

  const DapLauncher& launch_;
  uint32_t timeout_;
  bool stopsOnEntry_ = false;
  std::unique_ptr<Debugger> debugger_;
  std::unique_ptr<DapInspection> inspection_;  // of it
  std::atomic<int> pauses_ = 0;                // read, and not answered
  std::function<void()> then_;
  // Last: its thread calls hurry() from when it is made, which uses what stands above.
  DapStream stream_;
};

const std::map<std::string, Server::Handler> Server::kHandlers = {
    {"configurationDone", &Server::configurationDone},
    {"continue", &Server::proceed<Direction::Forward>},
    {"dataBreakpointInfo", &Server::stopAt<dap::dataBreakpointInfo>},
    {"disassemble", &Server::look<&DapInspection::disassemble>},
    {"disconnect", &Server::nothing},
    {"evaluate", &Server::look<&DapInspection::evaluate>},
    {"initialize", &Server::initialize},
    {"launch", &Server::launch},
    {"loadedSources", &Server::look<&DapInspection::loadedSources>},
    {"next", &Server::step<StepKind::Over, Direction::Forward>},
    {"pause", &Server::nothing},
    {"restart", &Server::restart},
    {"reverseContinue", &Server::proceed<Direction::Backward>},
    {"scopes", &Server::look<&DapInspection::scopes>},
    {"setBreakpoints", &Server::stopAt<dap::setBreakpoints>},
    {"setDataBreakpoints", &Server::stopAt<dap::setDataBreakpoints>},
    {"setExceptionBreakpoints", &Server::stopAt<dap::setExceptionBreakpoints>},
    {"setFunctionBreakpoints", &Server::stopAt<dap::setFunctionBreakpoints>},
    {"stackTrace", &Server::look<&DapInspection::stackTrace>},
    {"stepBack", &Server::step<StepKind::Over, Direction::Backward>},
    {"stepIn", &Server::step<StepKind::Into, Direction::Forward>},
    {"stepOut", &Server::step<StepKind::Out, Direction::Forward>},
    {"terminate", &Server::terminate},
    {"threads", &Server::threads},
    {"variables", &Server::look<&DapInspection::variables>},
};

}  // namespace

bool serveDap(std::FILE* input, std::FILE* output, uint32_t timeoutMilliseconds,
              const DapLauncher& launch) {
  return Server(input, output, timeoutMilliseconds, launch).run();
}

}  // namespace shadermachine::tools
