#include "debugger/dap_inspection.h"

#include <shadermachine-tools/disassembler.h>

#include <algorithm>
#include <filesystem>

#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

constexpr size_t kMaxShownParts = 1000;

}  // namespace

using nlohmann::json;

// Files are looked for from here, as the compiler did.
json DapInspection::source(const SourcePosition& position) const {
  const std::string name = debugger_.fileName(position);
  std::error_code ignored;
  const std::filesystem::path path = std::filesystem::absolute(name, ignored);
  return {{"name", path.filename().string()}, {"path", path.lexically_normal().string()}};
}

json DapInspection::stackTrace(const json& arguments) {
  const size_t count = debugger_.frameCount();
  const size_t first = arguments.value("startFrame", size_t{0});
  const size_t levels = arguments.value("levels", size_t{0});
  const size_t end = levels == 0 ? count : std::min(count, first + std::min(levels, count));
  json frames = json::array();
  for (size_t i = first; i < end; ++i) {
    const DebugPlace place = debugger_.place(i);
    json frame = {{"id", i + 1},
                  {"name", functionText(debugger_.view(), place.function)},
                  {"line", place.position.line},
                  {"column", place.position.column},
                  {"instructionPointerReference",
                   std::to_string(place.function) + "+" + std::to_string(place.offset)}};
    if (place.position.isKnown()) frame["source"] = source(place.position);
    frames.push_back(std::move(frame));
  }
  return {{"stackFrames", frames}, {"totalFrames", count}};
}

int DapInspection::refer(Reference reference) {
  references_.push_back(std::move(reference));
  return static_cast<int>(references_.size());
}

size_t DapInspection::frameOf(const json& arguments) const {
  const size_t id = arguments.value("frameId", size_t{1});
  if (id == 0 || id > debugger_.frameCount()) throw ExpressionError("there is no such frame");
  return id - 1;
}

json DapInspection::scopes(const json& arguments) {
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

json DapInspection::described(const std::string& name, const DebugValue& value, size_t frame) {
  const bool hasParts = !partsOf(debugger_.view(), value, 1).empty();
  const int reference = hasParts ? refer({Reference::Kind::Value, frame, value}) : 0;
  return {{"name", name},
          {"value", debugger_.format(value)},
          {"type", value.type.name},
          {"evaluateName", name},
          {"variablesReference", reference}};
}

json DapInspection::variables(const json& arguments) {
  const size_t number = arguments.value("variablesReference", size_t{0});
  if (number == 0 || number > references_.size()) throw ExpressionError("no such reference");
  const Reference reference = references_[number - 1];
  json list = json::array();
  if (reference.kind == Reference::Kind::Value) {
    for (const DebugPart& part : partsOf(debugger_.view(), reference.value, kMaxShownParts)) {
      list.push_back(described(part.name, part.value, reference.frame));
    }
  } else if (reference.kind == Reference::Kind::Registers) {
    list = registers();
  } else {
    for (const DebugVariable& variable : debugger_.variables(reference.frame)) {
      if (kindOf(variable) == reference.kind) list.push_back(shown(variable, reference.frame));
    }
  }
  return {{"variables", list}};
}

DapInspection::Reference::Kind DapInspection::kindOf(const DebugVariable& variable) {
  if (variable.isConstant) return Reference::Kind::Constants;
  return variable.scope == DebugVariable::Scope::Local ? Reference::Kind::Locals
                                                       : Reference::Kind::Globals;
}

json DapInspection::shown(const DebugVariable& variable, size_t frame) {
  if (variable.isHere) return described(variable.name, variable.value, frame);
  return {{"name", variable.name},
          {"value", "<optimised away>"},
          {"type", variable.value.type.name},
          {"variablesReference", 0}};
}

json DapInspection::registers() const {
  const Machine& machine = debugger_.run().machine();
  const DebugPlace place = debugger_.place();
  json list = json::array();
  const auto add = [&list](const char* name, int64_t value) {
    list.push_back({{"name", name}, {"value", std::to_string(value)}, {"variablesReference", 0}});
  };
  add("instructions", static_cast<int64_t>(debugger_.run().steps()));
  add("function", place.function);
  add("offset", place.offset);
  add("frame", machine.frameIndex);
  add("index stack", machine.indexTop + 1);
  add("top", machine.frames[machine.frameIndex].top);
  return list;
}

json DapInspection::evaluate(const json& arguments) {
  const size_t frame = frameOf(arguments);
  const std::string expression = arguments.value("expression", "");
  json result = described(expression, debugger_.evaluate(expression, frame), frame);
  result["result"] = result["value"];
  return result;
}

json DapInspection::loadedSources(const json&) {
  json sources = json::array();
  const SourceMap* map = debugger_.view().sources;
  for (uint32_t i = 0; map != nullptr && i < map->files.size(); ++i) {
    sources.push_back(source({.file = i, .line = 1, .column = 1}));
  }
  return {{"sources", sources}};
}

// References are "FUNCTION+OFFSET".
json DapInspection::disassemble(const json& arguments) {
  constexpr int64_t kMaxCount = 10000;
  const std::string reference = arguments.value("memoryReference", "");
  const size_t plus = reference.find('+');
  const uint64_t function = std::strtoull(reference.c_str(), nullptr, 10);
  const ShaderView& view = debugger_.view();
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

json DapInspection::instruction(uint32_t function, uint32_t offset) const {
  const ShaderView& view = debugger_.view();
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

}  // namespace shadermachine::tools
