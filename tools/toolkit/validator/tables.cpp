#include "tables.h"

#include <shadermachine-tools/host_contract.h>

#include "instructions/builtin_variables.h"
#include "machine/types.h"
#include "types.h"

namespace shadermachine::tools {
namespace {

constexpr uint64_t kMaxAllEntries = uint64_t{1} << 20;

class TableChecks {
 public:
  TableChecks(const ShaderView& view, Diagnostics& diagnostics)
      : view_(view), shader_(*view.shader), types_(view), diagnostics_(diagnostics) {}

  void run() {
    if (!hasTables()) return;
    if (shader_.version != 1) error("version is ", shader_.version, ", not 1");
    // Before anything goes through the tables.
    if (!isBounded()) return;
    for (uint32_t i = 0; i < view_.structCount; ++i) checkStructure(i);
    checkRecursion();
    for (uint32_t i = 0; i < shader_.globalCount; ++i) {
      checkVariable(shader_.globals[i], [&] { return text("global ", i); });
    }
    for (uint32_t i = 0; i < shader_.functionCount; ++i) checkFunction(i);
    // Follows indices into tables, so these must be sound.
    if (diagnostics_.errorCount() == 0) checkBindings();
  }

 private:
  template <class... Parts>
  void error(const Parts&... parts) {
    diagnostics_.error({}, parts...);
  }

  bool hasTables() {
    // The machine takes no record without functions.
    requireTable(shader_.functions, true, "functions");
    requireTable(shader_.structTypes, view_.structCount != 0, "structTypes");
    requireTable(shader_.globals, shader_.globalCount != 0, "globals");
    requireTable(shader_.code, view_.codeSize != 0, "code");
    return diagnostics_.errorCount() == 0;
  }

  // Tables may be shared by many structures and functions, each of which goes through them.
  bool isBounded() {
    uint64_t entries = shader_.globalCount;
    for (uint32_t i = 0; i < view_.structCount; ++i) {
      const StructInfo* info = shader_.structTypes[i];
      if (info != nullptr) entries += info->memberCount;
    }
    for (uint32_t i = 0; i < shader_.functionCount; ++i) {
      const ShaderFunction* function = shader_.functions[i];
      if (function != nullptr) entries += function->localCount;
    }
    if (entries <= kMaxAllEntries) return true;
    error("there are ", entries, " globals, members and locals, more than ", kMaxAllEntries,
          " are not checked");
    return false;
  }

  void requireTable(const void* table, bool needed, const char* name) {
    if (table == nullptr && needed) error(name, " is null");
  }

  void checkStructure(uint32_t index) {
    const StructInfo* info = shader_.structTypes[index];
    const std::string name = types_.structureName(index);
    if (info == nullptr) return error(name, " is null");
    if (info->size == 0 || info->size % kWordBytes != 0) {
      error(name, ": its size is ", info->size, ", not a number of words");
    }
    if (info->memberCount != 0 && info->members == nullptr) {
      return error(name, ": members is null");
    }
    uint64_t offset = 0;
    for (uint32_t i = 0; i < info->memberCount; ++i) {
      const VarInfo& member = info->members[i];
      const auto memberName = [&] { return text(name, ", member ", i); };
      checkVariable(member, memberName);
      if (member.memberOffset != offset) {
        error(memberName(), ": memberOffset is ", member.memberOffset,
              ", the members before it end at ", offset);
      }
      offset += member.byteSize;
    }
    if (info->size < offset) {
      error(name, ": its size is ", info->size, ", its members take ", offset);
    }
  }

  // A structure is finite once all structures among its members are.
  void checkRecursion() {
    std::vector<bool> finite(view_.structCount, false);
    std::vector<uint32_t> open(view_.structCount, 0);
    std::vector<std::vector<uint32_t>> holders(view_.structCount);
    std::vector<uint32_t> ready;
    for (uint32_t i = 0; i < view_.structCount; ++i) {
      forEachMemberStructure(i, [&](uint32_t member) {
        ++open[i];
        holders[member].push_back(i);
      });
      if (open[i] == 0) ready.push_back(i);
    }
    while (!ready.empty()) {
      const uint32_t index = ready.back();
      ready.pop_back();
      finite[index] = true;
      for (uint32_t holder : holders[index]) {
        if (--open[holder] == 0) ready.push_back(holder);
      }
    }
    for (uint32_t i = 0; i < view_.structCount; ++i) {
      if (!finite[i]) error(types_.structureName(i), " contains itself or a structure that does");
    }
  }

  template <class Visit>
  void forEachMemberStructure(uint32_t index, Visit visit) {
    const StructInfo* info = shader_.structTypes[index];
    if (info == nullptr || info->members == nullptr) return;
    for (uint32_t i = 0; i < info->memberCount; ++i) {
      const int32_t type = info->members[i].type;
      if (types_.structure(type) != nullptr) visit(static_cast<uint32_t>(type));
    }
  }

  // `name` gives the variable's name for a remark: most have none.
  template <class Name>
  void checkVariable(const VarInfo& variable, const Name& name) {
    const uint64_t bytes = types_.variableBytes(variable.type, variable.count);
    if (bytes == 0) return error(name(), ": there is no type ", variable.type);
    if (variable.byteSize != bytes) {
      error(name(), ": byteSize is ", variable.byteSize, ", its type takes ", bytes);
    }
  }

  void checkFunction(uint32_t index) {
    const ShaderFunction* function = shader_.functions[index];
    const std::string name = text("function ", index);
    if (function == nullptr) return;  // a CALL of it stops with 3
    if (function->localCount != 0 && function->locals == nullptr) {
      return error(name, ": locals is null");
    }
    if (function->paramCount > function->localCount) {
      error(name, ": paramCount is ", function->paramCount, ", localCount only ",
            function->localCount);
    }
    for (uint32_t i = 0; i < function->localCount; ++i) {
      checkVariable(function->locals[i], [&] { return text("function ", index, ", local ", i); });
    }
    const uint64_t end = uint64_t{function->codeOffset} + function->codeLength;
    if (end > view_.codeSize) {
      error(name, ": its code ends at ", end, ", the code has ", view_.codeSize, " bytes");
    }
  }

  void checkBindings() {
    checkEntry();
    checkOutput(shader_.outputGlobal0, "outputGlobal0");
    checkOutput(shader_.outputGlobal1, "outputGlobal1");
    for (uint32_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) {
      checkBackingGlobal(id);
    }
    checkFunctionIndex(shader_.hostFunctionA, "hostFunctionA");
    checkFunctionIndex(shader_.hostFunctionB, "hostFunctionB");
    checkFunctionIndex(shader_.hostFunctionBase, "hostFunctionBase");
    if (shader_.hostFunctionAType != -1 && types_.structure(shader_.hostFunctionAType) == nullptr) {
      error("hostFunctionAType: there is no structure ", shader_.hostFunctionAType);
    }
  }

  void checkEntry() {
    if (shader_.entryIndex >= shader_.functionCount) {
      return error("entryIndex is ", shader_.entryIndex, ", functionCount ", shader_.functionCount);
    }
    const ShaderFunction* entry = shader_.functions[shader_.entryIndex];
    if (entry == nullptr || entry->codeLength == 0) error("the entry function has no code");
  }

  // True for an index of globals; -1 stands for none, anything else is an error.
  bool isGlobal(int32_t index, const std::string& field) {
    if (index == -1) return false;
    if (index >= 0 && index < shader_.globalCount) return true;
    error(field, ": there is no global ", index);
    return false;
  }

  void checkOutput(int32_t index, const char* field) {
    if (isGlobal(index, field) && !isBasic(shader_.globals[index])) {
      error(field, ": global ", index, " is an aggregate, the host reads an inline value");
    }
  }

  void checkBackingGlobal(uint32_t id) {
    const std::string name = text("built-in variable ", id);
    const int32_t index = backingGlobal(shader_, id);
    if (!isGlobal(index, name)) return;
    const VarInfo& global = shader_.globals[index];
    if (isBasic(global)) {
      return error(name, ": global ", index, " is inline, the host fills a block");
    }
    const bool wholeArray = builtinVariable(id).family == BuiltinFamily::GlobalArray;
    const uint64_t elements = wholeArray ? global.count : 1;
    const uint64_t bytes = elements * typeByteSize(builtinValue(id).type);
    if (global.byteSize < bytes) {
      error(name, ": global ", index, " has ", counted(global.byteSize, "byte"),
            ", the host may write ", bytes);
    }
  }

  void checkFunctionIndex(int32_t index, const char* field) {
    if (index != -1 && (index < 0 || index >= shader_.functionCount)) {
      error(field, ": there is no function ", index);
    }
  }

  const ShaderView& view_;
  const CompiledShader& shader_;
  Types types_;
  Diagnostics& diagnostics_;
};

}  // namespace

void checkTables(const ShaderView& view, Diagnostics& diagnostics) {
  TableChecks(view, diagnostics).run();
}

}  // namespace shadermachine::tools
