// What clients of the Debug Adapter Protocol ask of a run that stands: its stack, values and code.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "debugger/debugger.h"

namespace shadermachine::tools {

// Requests get a message's "arguments" and make the "body" of the answer; they throw std::exception
// with a text for people.
class DapInspection {
 public:
  explicit DapInspection(Debugger& debugger) : debugger_(debugger) {}

  // References to values end where the run goes on.
  void forget() { references_.clear(); }

  nlohmann::json stackTrace(const nlohmann::json& arguments);
  nlohmann::json scopes(const nlohmann::json& arguments);
  nlohmann::json variables(const nlohmann::json& arguments);
  nlohmann::json evaluate(const nlohmann::json& arguments);
  nlohmann::json loadedSources(const nlohmann::json& arguments);
  nlohmann::json disassemble(const nlohmann::json& arguments);

 private:
  struct Reference {
    enum class Kind : uint8_t { Locals, Globals, Constants, Registers, Value };
    Kind kind;
    size_t frame;
    DebugValue value;
  };

  int refer(Reference reference);
  size_t frameOf(const nlohmann::json& arguments) const;
  nlohmann::json source(const SourcePosition& position) const;
  nlohmann::json described(const std::string& name, const DebugValue& value, size_t frame);
  nlohmann::json shown(const DebugVariable& variable, size_t frame);
  nlohmann::json registers() const;
  nlohmann::json instruction(uint32_t function, uint32_t offset) const;
  static Reference::Kind kindOf(const DebugVariable& variable);

  Debugger& debugger_;
  std::vector<Reference> references_;  // of the current stop
};

}  // namespace shadermachine::tools
