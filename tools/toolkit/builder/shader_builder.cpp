#include <shadermachine-tools/shader_builder.h>

#include <bit>
#include <stdexcept>
#include <utility>

#include "shader_tables.h"

namespace shadermachine::tools {
namespace {

constexpr size_t kMaxEntries = 65535;  // tables are counted in 16 bits
constexpr size_t kMaxStructs = 32768;  // and type codes are signed

void requireRoom(size_t entries, size_t limit, const char* table) {
  if (entries >= limit) throw std::length_error(std::string("too many ") + table);
}

VarInfo makeVarInfo(ShaderTables& tables, const Variable& variable) {
  VarInfo info{};
  info.type = variable.type;
  info.flags = variable.flags;
  info.count = variable.count;
  info.byteSize = tables.sizeOf(variable.type, variable.count);
  info.name = tables.keepName(variable.name);
  return info;
}

size_t findByName(const std::vector<VarInfo>& variables, std::string_view name, const char* what) {
  for (size_t i = 0; i < variables.size(); ++i) {
    if (variables[i].name && variables[i].name == name) return i;
  }
  throw std::out_of_range(std::string("no ") + what + " named " + std::string(name));
}

}  // namespace

BuiltShader::BuiltShader(std::unique_ptr<ShaderTables> tables) : tables_(std::move(tables)) {}
BuiltShader::BuiltShader(BuiltShader&&) noexcept = default;
BuiltShader& BuiltShader::operator=(BuiltShader&&) noexcept = default;
BuiltShader::~BuiltShader() = default;

const CompiledShader* BuiltShader::record() const { return &tables_->record; }

SourceMap& BuiltShader::sources() { return tables_->sources; }

ShaderView BuiltShader::view() const {
  return {.shader = &tables_->record,
          .structCount = static_cast<uint32_t>(tables_->structs.size()),
          .codeSize = static_cast<uint32_t>(tables_->code.size()),
          .functionNames = tables_->functionNames.data(),
          .structNames = tables_->structNames.data(),
          .sources = tables_->sources.files.empty() ? nullptr : &tables_->sources};
}

ShaderBuilder::ShaderBuilder() : tables_(std::make_unique<ShaderTables>()) {}
ShaderBuilder::ShaderBuilder(ShaderBuilder&&) noexcept = default;
ShaderBuilder& ShaderBuilder::operator=(ShaderBuilder&&) noexcept = default;
ShaderBuilder::~ShaderBuilder() = default;

TypeCode ShaderBuilder::addStruct(std::string_view name, const std::vector<Variable>& members) {
  requireRoom(tables_->structs.size(), kMaxStructs, "structures");
  if (members.size() > kMaxEntries) throw std::length_error("too many members");
  StructTable table;
  table.name = tables_->keepName(name);
  for (const Variable& member : members) {
    VarInfo info = makeVarInfo(*tables_, member);
    info.memberOffset = table.info.size;
    table.info.size = sizeInRecord(uint64_t{table.info.size} + info.byteSize);
    table.members.push_back(info);
  }
  tables_->structs.push_back(std::move(table));
  return static_cast<TypeCode>(tables_->structs.size() - 1);
}

TypeCode ShaderBuilder::addNullStruct(std::string_view name) {
  const TypeCode type = addStruct(name, {});
  tables_->structs.back().isNull = true;
  return type;
}

GlobalId ShaderBuilder::addGlobal(const Variable& variable) {
  requireRoom(tables_->globals.size(), kMaxEntries, "globals");
  tables_->globals.push_back(makeVarInfo(*tables_, variable));
  return {static_cast<uint16_t>(tables_->globals.size() - 1)};
}

GlobalId ShaderBuilder::global(std::string_view name) const {
  return {static_cast<uint16_t>(findByName(tables_->globals, name, "global"))};
}

FunctionBuilder& ShaderBuilder::addFunction(std::string_view name) {
  requireRoom(functions_.size(), kMaxEntries, "functions");
  const FunctionId id{static_cast<uint16_t>(functions_.size())};
  functions_.push_back(FunctionBuilder(*tables_, id, name));
  return functions_.back();
}

void ShaderBuilder::placeCode(FunctionId function) {
  functions_.at(function.index).isPlaced_ = true;
  chunks_.push_back({function.index, {}});
}

void ShaderBuilder::placeLooseCode(std::span<const uint8_t> bytes) {
  chunks_.push_back({-1, {bytes.begin(), bytes.end()}});
}

uint32_t ShaderBuilder::addSourceFile(SourceFile file) {
  std::vector<SourceFile>& files = tables_->sources.files;
  requireRoom(files.size(), kMaxEntries, "source files");
  files.push_back(std::move(file));
  return static_cast<uint32_t>(files.size() - 1);
}

SourceMap& ShaderBuilder::sources() { return tables_->sources; }

CompiledShader& ShaderBuilder::record() { return tables_->record; }

VarInfo& ShaderBuilder::info(GlobalId variable) { return tables_->globals.at(variable.index); }

StructInfo& ShaderBuilder::info(TypeCode structure) {
  return tables_->structs.at(static_cast<size_t>(structure)).info;
}

VarInfo& ShaderBuilder::member(TypeCode structure, uint32_t index) {
  return tables_->structs.at(static_cast<size_t>(structure)).members.at(index);
}

uint32_t ShaderBuilder::sizeOf(TypeCode type, uint32_t count) const {
  return tables_->sizeOf(type, count);
}

void ShaderBuilder::layOutCode() {
  // Behind what was placed by request, which is in chunks_ already.
  for (FunctionBuilder& function : functions_) {
    if (!function.isPlaced_) placeCode(function.id_);
  }
  std::vector<uint8_t>& code = tables_->code;
  for (const Chunk& chunk : chunks_) {
    if (chunk.functionIndex < 0) {
      code.insert(code.end(), chunk.looseBytes.begin(), chunk.looseBytes.end());
      continue;
    }
    FunctionBuilder& function = functions_[static_cast<size_t>(chunk.functionIndex)];
    function.resolveJumps();
    if (!function.hasCodeRange_) {
      function.codeOffset_ = sizeInRecord(code.size());
      function.codeLength_ = function.size();
    }
    code.insert(code.end(), function.code_.begin(), function.code_.end());
  }
  sizeInRecord(code.size());
}

void ShaderBuilder::finishFunctions() {
  for (FunctionBuilder& function : functions_) {
    FunctionTable table;
    table.info.paramCount = function.paramCount_;
    table.info.codeOffset = function.codeOffset_;
    table.info.codeLength = function.codeLength_;
    table.locals = std::move(function.locals_);
    table.name = tables_->keepName(function.name_);
    table.isNull = function.isNull_;
    tables_->functions.push_back(std::move(table));
    tables_->sources.functions.push_back(std::move(function.source_));
  }
}

BuiltShader ShaderBuilder::build() && {
  layOutCode();
  finishFunctions();
  tables_->connect();
  return BuiltShader(std::move(tables_));
}

LocalId FunctionBuilder::addParam(const Variable& variable) {
  if (paramCount_ != locals_.size()) throw std::logic_error("parameter after a local");
  const LocalId id = appendVariable(variable);
  ++paramCount_;
  return id;
}

LocalId FunctionBuilder::addLocal(const Variable& variable) { return appendVariable(variable); }

LocalId FunctionBuilder::appendVariable(const Variable& variable) {
  requireRoom(locals_.size(), kMaxEntries, "locals");
  locals_.push_back(makeVarInfo(*tables_, variable));
  return {static_cast<uint16_t>(locals_.size() - 1)};
}

LocalId FunctionBuilder::local(std::string_view name) const {
  return {static_cast<uint16_t>(findByName(locals_, name, "local"))};
}

void FunctionBuilder::setCodeRange(uint32_t offset, uint32_t length) {
  codeOffset_ = offset;
  codeLength_ = length;
  hasCodeRange_ = true;
}

}  // namespace shadermachine::tools
