#include "disassembly/names.h"

#include "assembly/literals.h"

namespace shadermachine::tools::disassembly {

void Handles::add(const char* recordedName) {
  std::string handle = recordedName ? recordedName : "";
  if (!assembly::isName(handle) || taken_.contains(handle)) {
    handle = prefix_ + std::to_string(handles_.size());
    // A recorded name may look like prefix and number of another entry.
    while (taken_.contains(handle)) handle += '_';
  }
  taken_.insert(handle);
  handles_.push_back(std::move(handle));
}

std::string Handles::text(int64_t index) const {
  const bool exists = index >= 0 && index < static_cast<int64_t>(handles_.size());
  return exists ? handles_[static_cast<size_t>(index)] : std::to_string(index);
}

Handles variableHandles(const char* prefix, std::span<const VarInfo> variables) {
  Handles handles(prefix);
  for (const VarInfo& variable : variables) handles.add(variable.name);
  return handles;
}

RecordHandles::RecordHandles(const Record& record)
    : globals(variableHandles("global", record.globals())) {
  // A structure of such a name would be taken for the basic type.
  for (const char* name : assembly::basicTypeNames()) structs.reserve(name);
  for (size_t i = 0; i < record.structCount(); ++i) {
    structs.add(record.structName(i));
    members.push_back(variableHandles("member", record.members(i)));
  }
  for (size_t i = 0; i < record.functionCount(); ++i) functions.add(record.functionName(i));
}

std::string typeText(const RecordHandles& handles, int32_t type, size_t structLimit) {
  if (type >= 0 && static_cast<size_t>(type) < structLimit) return handles.structs.text(type);
  const bool isCode = type >= INT16_MIN && type < 0;
  const char* basic = isCode ? assembly::basicTypeName(static_cast<TypeCode>(type)) : nullptr;
  return basic ? basic : std::to_string(type);
}

}  // namespace shadermachine::tools::disassembly
