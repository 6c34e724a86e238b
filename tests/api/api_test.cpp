// The exported functions: argument checks and what needs no run.
#include <gtest/gtest.h>

#include <cstring>

#include "support/allocations.h"
#include "support/rig.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

BuiltShader returning() {
  return buildShader([](Tables&, Code& code) { code.emit(VM_OP_RETURN); });
}

TEST(Arguments, AreCheckedInOrder) {
  const BuiltShader shader = returning();
  CompiledShader bad = *shader.record();
  Rig rig;
  const StartupInfo startup = {};
  ShaderMachine* machine = rig.machine.get();
  EXPECT_EQ(vmShaderMachineExecuteShader(nullptr, nullptr, nullptr), VM_ERR_INVALID_HANDLE);
  EXPECT_EQ(vmShaderMachineExecuteShader(machine, nullptr, nullptr), VM_ERR_NO_STARTUP_INFO);
  EXPECT_EQ(vmShaderMachineExecuteShader(machine, nullptr, &startup), VM_ERR_INVALID_SHADER);
  bad.functions = nullptr;
  bad.version = 2;
  bad.entryIndex = bad.functionCount;
  for (VmError expected : {VM_ERR_INVALID_SHADER, VM_ERR_NEWER_COMPILER, VM_ERR_INVALID_ENTRY}) {
    EXPECT_EQ(vmCompiledShaderVerify(&bad), expected);
    EXPECT_EQ(rig.run(&bad), expected);
    if (expected == VM_ERR_NEWER_COMPILER) bad.version = 1;
    bad.functions = shader.record()->functions;
  }
  bad.version = 0;
  EXPECT_EQ(vmCompiledShaderVerify(&bad), VM_ERR_NEWER_COMPILER);
  EXPECT_EQ(vmCompiledShaderVerify(nullptr), VM_ERR_INVALID_SHADER);
  EXPECT_EQ(vmCompiledShaderVerify(shader.record()), VM_OK);
  EXPECT_EQ(machine->shader, nullptr) << "refused calls change nothing";
}

TEST(Arguments, NullEntryFunction) {
  const int64_t liveBefore = liveAllocations();
  {
    BuiltShader shader = buildShader([](Tables& tables, Code& code) {
      tables.addGlobal({.name = "block", .type = VM_TYPE_INT, .count = 4});
      code.emit(VM_OP_RETURN);
    });
    const ShaderFunction* functions[] = {shader.record()->functions[0]};
    CompiledShader record = *shader.record();
    record.functions = functions;
    Rig rig;
    EXPECT_EQ(rig.run(&record), VM_OK);
    functions[0] = nullptr;
    EXPECT_EQ(vmCompiledShaderVerify(&record), VM_OK);
    EXPECT_EQ(rig.run(&record), VM_ERR_INVALID_ENTRY);
    EXPECT_EQ(rig.machine->shader, nullptr);
    EXPECT_EQ(rig.machine->runState, uint32_t{VM_RUN_IDLE});
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

TEST(Api, ErrorStrings) {
  EXPECT_STREQ(vmGetErrorString(VM_OK), "No error.");
  EXPECT_STREQ(vmGetErrorString(7), "Built-in function do not exists.");
  EXPECT_STREQ(vmGetErrorString(17), "Not implemented");
  EXPECT_STREQ(vmGetErrorString(19), "Missing startup info.");
  EXPECT_STREQ(vmGetErrorString(20), "Unknown error.");
  EXPECT_STREQ(vmGetErrorString(UINT32_MAX), "Unknown error.");
}

TEST(Api, VariableIds) {
  ShaderBuilder builder;
  builder.addGlobal({.name = "a", .type = VM_TYPE_INT, .flags = 4});
  builder.addGlobal({.name = "b", .type = VM_TYPE_INT, .flags = 1});
  builder.addGlobal({.name = "a", .type = VM_TYPE_INT, .flags = 6});
  builder.addGlobal({.name = "signed", .type = VM_TYPE_INT, .flags = 0x8000});
  builder.addFunction("main").addLocal({.name = "local", .type = VM_TYPE_INT, .flags = 1});
  const BuiltShader shader = std::move(builder).build();
  const auto find = [&](const char* name, int32_t mask) {
    return vmCompiledShaderGetVarId(shader.record(), name, mask);
  };
  EXPECT_EQ(find("a", 4), 0);
  EXPECT_EQ(find("a", 2), 2);
  EXPECT_EQ(find("a", 6), 0);
  EXPECT_EQ(find("a", 0), -1);
  EXPECT_EQ(find("A", 4), -1);
  EXPECT_EQ(find("", 7), -1);
  EXPECT_EQ(find("local", 1), -1);
  EXPECT_EQ(find("signed", 0x40000000), 3);
  EXPECT_EQ(find("signed", 0x4000), -1);
  EXPECT_EQ(find(nullptr, 1), -1);
  EXPECT_EQ(vmCompiledShaderGetVarId(nullptr, "a", 1), -1);
  EXPECT_EQ(vmCompiledShaderGetVarId(returning().record(), "a", 1), -1);
}

TEST(Api, NewMachine) {
  const MachinePtr machine(vmShaderMachineCreate(nullptr));
  EXPECT_EQ(machine->frameIndex, -1);
  EXPECT_EQ(machine->indexTop, -1);
  EXPECT_EQ(machine->stackCapacity, 2000);
  EXPECT_EQ(machine->frameCapacity, 256);
  EXPECT_EQ(machine->shader, nullptr);
  const HostCallbacks none = {};
  EXPECT_EQ(std::memcmp(&machine->callbacks, &none, sizeof none), 0);
  EXPECT_EQ(vmShaderMachineDestroy(nullptr), VM_OK);
  EXPECT_EQ(vmFinalize(), VM_OK);
}

TEST(Api, CreationWithoutMemory) {
  const int64_t liveBefore = liveAllocations();
  for (int64_t allowed = 0; allowed < 3; ++allowed) {
    const AllocationFailure failure(allowed);
    EXPECT_EQ(vmShaderMachineCreate(nullptr), nullptr);
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

}  // namespace
}  // namespace shadermachine::tests
