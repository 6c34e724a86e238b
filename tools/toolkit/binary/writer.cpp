#include <shadermachine-tools/binary_file.h>

#include "binary/bytes.h"
#include "binary/source_section.h"
#include "disassembly/record.h"

namespace shadermachine::tools {
namespace {

using binary::ByteWriter;
using disassembly::Record;

void addVariables(ByteWriter& bytes, std::span<const VarInfo> variables) {
  bytes.number(static_cast<uint16_t>(variables.size()));
  for (const VarInfo& info : variables) {
    bytes.number(info.type);
    bytes.number(info.flags);
    bytes.number(info.count);
    bytes.number(info.byteSize);
    bytes.number(info.memberOffset);
    bytes.text(info.name);
  }
}

// In the order of Reader::readRecord().
ByteWriter recordFields(const CompiledShader& shader) {
  ByteWriter bytes;
  bytes.number(shader.version);
  bytes.number(shader.entryIndex);
  bytes.number(shader.hostFunctionCount);
  bytes.number(shader.hostStructMode);
  for (const int32_t global : shader.builtinGlobals) bytes.number(global);
  for (const int32_t field :
       {shader.outputGlobal0, shader.outputGlobal1, shader.hostFunctionA, shader.hostFunctionBase,
        shader.hostFunctionB, shader.hostFunctionAType, shader.builtinGlobal300,
        shader.builtinGlobal303, shader.builtinGlobal304}) {
    bytes.number(field);
  }
  return bytes;
}

ByteWriter structures(const Record& record) {
  ByteWriter bytes;
  bytes.number(static_cast<uint32_t>(record.structCount()));
  for (size_t i = 0; i < record.structCount(); ++i) {
    const StructInfo* info = record.structure(i);
    bytes.text(record.structName(i));
    bytes.number(static_cast<uint8_t>(info != nullptr));
    if (info == nullptr) continue;
    bytes.number(info->size);
    addVariables(bytes, record.members(i));
  }
  return bytes;
}

ByteWriter functions(const Record& record) {
  ByteWriter bytes;
  bytes.number(static_cast<uint16_t>(record.functionCount()));
  for (size_t i = 0; i < record.functionCount(); ++i) {
    const ShaderFunction* function = record.function(i);
    bytes.text(record.functionName(i));
    bytes.number(static_cast<uint8_t>(function != nullptr));
    if (function == nullptr) continue;
    bytes.number(function->paramCount);
    bytes.number(function->codeOffset);
    bytes.number(function->codeLength);
    addVariables(bytes, Record::locals(*function));
  }
  return bytes;
}

ByteWriter namedValues(std::span<const NamedValue> values) {
  ByteWriter bytes;
  bytes.number(static_cast<uint32_t>(values.size()));
  for (const NamedValue& value : values) {
    bytes.text(value.name.c_str());
    bytes.number(static_cast<uint32_t>(value.components.size()));
    for (const double component : value.components) bytes.number(component);
  }
  return bytes;
}

}  // namespace

std::string writeBinary(const ShaderView& view, std::span<const NamedValue> values) {
  const Record record(view);
  ByteWriter globals;
  addVariables(globals, record.globals());
  ByteWriter code;
  code.raw({reinterpret_cast<const char*>(record.code().data()), record.code().size()});

  ByteWriter file;
  file.raw(binary::kMagic);
  file.number(binary::kVersion);
  file.section(binary::kRecordTag, recordFields(record.shader()));
  file.section(binary::kStructsTag, structures(record));
  file.section(binary::kGlobalsTag, globals);
  file.section(binary::kFunctionsTag, functions(record));
  file.section(binary::kCodeTag, code);
  if (!values.empty()) file.section(binary::kValuesTag, namedValues(values));
  if (view.sources != nullptr) {
    ByteWriter sources;
    binary::writeSources(sources, *view.sources);
    file.section(binary::kSourcesTag, sources);
  }
  return std::move(file).take();
}

}  // namespace shadermachine::tools
