// Everything a shader record points to, owned in one place.
//
// Invariants: names stay where they are from the start, so entries may point to them while tables
// grow. connect() is called once, when no table changes any more; from then on nothing moves, and
// the record is valid as long as this object is.
#pragma once

#include <shadermachine-tools/shader_view.h>
#include <shadermachine-tools/source_map.h>
#include <shadermachine/shadermachine.h>

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

struct StructTable {
  StructInfo info{};
  std::vector<VarInfo> members;
  const char* name = nullptr;
  bool isNull = false;
};

struct FunctionTable {
  ShaderFunction info{};
  std::vector<VarInfo> locals;
  const char* name = nullptr;
  bool isNull = false;
};

// Records have sizes of 32 bits. Throws std::length_error for a larger one.
uint32_t sizeInRecord(uint64_t size);

struct ShaderTables {
  ShaderTables() = default;
  ShaderTables(const ShaderTables&) = delete;
  ShaderTables& operator=(const ShaderTables&) = delete;

  const char* keepName(std::string_view name);
  uint32_t sizeOf(TypeCode type, uint32_t count) const;
  // Points the record at the tables, and the tables at each other.
  void connect();

  CompiledShader record = VM_COMPILED_SHADER_INIT;
  std::vector<VarInfo> globals;
  std::deque<StructTable> structs;
  std::deque<FunctionTable> functions;
  std::vector<uint8_t> code;
  std::vector<const StructInfo*> structPointers;
  std::vector<const ShaderFunction*> functionPointers;
  std::vector<const char*> structNames;
  std::vector<const char*> functionNames;
  SourceMap sources;

 private:
  std::deque<std::string> names_;
};

}  // namespace shadermachine::tools
