#include "shader_tables.h"

#include <shadermachine-tools/shader_builder.h>

#include <stdexcept>

#include "machine/types.h"

namespace shadermachine::tools {
namespace {

template <class T>
const T* dataOrNull(const std::vector<T>& table) {
  return table.empty() ? nullptr : table.data();
}

}  // namespace

uint32_t basicTypeSize(TypeCode type) { return typeByteSize(type); }

const char* ShaderTables::keepName(std::string_view name) {
  return names_.emplace_back(name).c_str();
}

uint32_t ShaderTables::sizeOf(TypeCode type, uint32_t count) const {
  uint64_t size = basicTypeSize(type);
  if (type >= 0 && static_cast<size_t>(type) < structs.size()) {
    size = structs[static_cast<size_t>(type)].info.size;
  }
  return sizeInRecord(count == 0 ? size : size * count);
}

uint32_t sizeInRecord(uint64_t size) {
  if (size > UINT32_MAX) throw std::length_error("a size of 4 GiB or more");
  return static_cast<uint32_t>(size);
}

void ShaderTables::connect() {
  // Takes addresses of elements, so nothing may be added to any table from here on.
  for (StructTable& table : structs) {
    table.info.memberCount = static_cast<uint16_t>(table.members.size());
    table.info.members = dataOrNull(table.members);
    structPointers.push_back(table.isNull ? nullptr : &table.info);
    structNames.push_back(table.name);
  }
  for (FunctionTable& table : functions) {
    table.info.localCount = static_cast<uint16_t>(table.locals.size());
    table.info.locals = dataOrNull(table.locals);
    functionPointers.push_back(table.isNull ? nullptr : &table.info);
    functionNames.push_back(table.name);
  }
  record.functionCount = static_cast<uint16_t>(functions.size());
  record.functions = functionPointers.data();
  record.structTypes = dataOrNull(structPointers);
  record.code = dataOrNull(code);
  record.globalCount = static_cast<uint16_t>(globals.size());
  record.globals = dataOrNull(globals);
}

}  // namespace shadermachine::tools
