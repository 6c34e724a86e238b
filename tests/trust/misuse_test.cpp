// What a host or a compiler can get wrong and the library can see.
#include <gtest/gtest.h>

#include <cstring>

#include "support/allocations.h"
#include "support/rig.h"

namespace shadermachine::tests {
namespace {

constexpr uint8_t kReturn[] = {VM_OP_RETURN};

// The smallest record: null tables with counts of zero.
struct SmallShader {
  ShaderFunction function = {};
  const ShaderFunction* functions[1] = {&function};
  CompiledShader record = {};

  explicit SmallShader(std::span<const uint8_t> code = kReturn) {
    function.codeLength = static_cast<uint32_t>(code.size());
    record.version = 1;
    record.functionCount = 1;
    record.functions = functions;
    record.code = code.data();
    record.outputGlobal0 = record.outputGlobal1 = -1;
  }
};

TEST(Misuse, NullTablesWithZeroCounts) {
  Rig rig;
  SmallShader shader;
  EXPECT_EQ(rig.run(&shader.record), VM_OK);
  shader.record.outputGlobal0 = shader.record.outputGlobal1 = 0;
  EXPECT_EQ(rig.run(&shader.record), VM_OK);
  EXPECT_TRUE(rig.calls.empty()) << "there is no global to deliver";
  EXPECT_EQ(vmCompiledShaderGetVarId(&shader.record, "a", -1), -1);
}

TEST(Misuse, MoreVariablesThanSlots) {
  std::vector<VarInfo> variables(65535);
  for (VarInfo& info : variables) info = {VM_TYPE_INT, 0, 4, 16, 0, nullptr, 0};
  const int64_t before = liveAllocations();
  for (uint32_t globals : {0u, 1u, 2000u, 65535u}) {
    for (uint32_t locals : {0u, 2000u, 2001u, 65535u}) {
      SmallShader shader;
      shader.record.globalCount = static_cast<uint16_t>(globals);
      shader.record.globals = variables.data();
      shader.function.localCount = static_cast<uint16_t>(locals);
      shader.function.locals = variables.data();
      Rig rig;
      const bool fits = globals + locals <= VM_STACK_CAPACITY;
      EXPECT_EQ(rig.run(&shader.record), fits ? VM_OK : VM_ERR_STACK_OVERFLOW)
          << globals << " globals, " << locals << " locals";
    }
  }
  EXPECT_EQ(liveAllocations(), before);
}

// The host would write more than there is room for.
TEST(Misuse, HostVariablesOfWrongSizes) {
  VarInfo global = {VM_TYPE_VEC4, VM_VAR_HOST, 0, 68, 0, nullptr, 0};
  constexpr uint8_t kLoad[] = {VM_OP_LOAD_GLOBAL, 0, 0, VM_OP_POP, VM_OP_RETURN};
  constexpr uint8_t kLoad450[] = {VM_OP_LOAD_BUILTIN, 194, 1, VM_OP_POP_RELEASE, VM_OP_RETURN};
  SmallShader wide(kLoad);
  SmallShader longer(kLoad450);
  for (SmallShader* shader : {&wide, &longer}) {
    shader->record.globalCount = 1;
    shader->record.globals = &global;
  }
  Rig rig;
  EXPECT_EQ(rig.run(&wide.record), VM_ERR_INVALID_SHADER);
  global = {VM_TYPE_VEC4, 0, 1000, 64, 0, nullptr, 0};
  EXPECT_EQ(rig.run(&longer.record), VM_ERR_INVALID_SHADER);
  EXPECT_TRUE(rig.calls.empty());
}

TEST(Misuse, NumbersOutsideTheTables) {
  struct Case {
    std::vector<uint8_t> code;
    VmError expected;
  };
  const std::vector<Case> cases = {
      {{206}, VM_ERR_ILLEGAL_INSTRUCTION},
      {{255}, VM_ERR_ILLEGAL_INSTRUCTION},
      {{VM_OP_POP}, VM_ERR_INVALID_SHADER},
      {{VM_OP_POP_N, 255}, VM_ERR_INVALID_SHADER},
      {{VM_OP_SWAP}, VM_ERR_INVALID_SHADER},
      {{VM_OP_MAKE_UNIQUE}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_ADD_F, 4}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_CTOR_ARRAY, 158, 255, 9, 0}, VM_ERR_INVALID_SHADER},  // 9 floats
      {{VM_OP_LOAD_LOCAL, 0, 0}, VM_ERR_INVALID_SHADER},
      {{VM_OP_LOAD_GLOBAL, 255, 255}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_STORE_LOCAL, 1, 0}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_STORE_GLOBAL_ELEM_IMM, 1, 0, 1, 0, 0, 0}, VM_ERR_INVALID_SHADER},
      {{VM_OP_JUMP, 0, 0, 0, 0x80}, VM_ERR_INVALID_SHADER},
      {{VM_OP_CALL, 1, 0}, VM_ERR_INVALID_FUNCTION},
      {{VM_OP_CALL, 255, 255}, VM_ERR_INVALID_FUNCTION},
      {{VM_OP_LOAD_BUILTIN, 255, 255}, VM_ERR_NO_BUILTIN_VARIABLE},
      {{VM_OP_LOAD_BUILTIN, 141, 1}, VM_ERR_NO_BUILTIN_VARIABLE},  // 397, its global out of range
      {{VM_OP_CALL_BUILTIN, 255, 255}, VM_ERR_NOT_IMPLEMENTED},
      {{VM_OP_PUSH_0, VM_OP_NEG_F, 17}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_MUL_MAT_MAT, 5}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_SWIZZLE, 0, 5, 0}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_CTOR_VEC2_A, 3, 0, 1, 1, 1}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_CTOR_STRUCT, 0, 0}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_STRUCT_FIELD, 0, 0, 0, 0, 0, 0}, VM_ERR_INVALID_SHADER},
      {{VM_OP_PUSH_0, VM_OP_PUSH_INDEX_IMM, 4, VM_OP_VEC_ELEMENT, 4}, VM_ERR_INDEX_OUT_OF_BOUNDS},
      {{VM_OP_PUSH_0, VM_OP_VEC_ELEMENT, 4}, VM_ERR_INDEX_OUT_OF_BOUNDS},
  };
  for (const Case& c : cases) {
    SmallShader shader(c.code);
    shader.record.builtinGlobals[0] = 7;
    Rig rig;
    rig.startup.timeout = 10000;
    EXPECT_EQ(rig.run(&shader.record), c.expected) << "opcode " << int{c.code.back()};
    const SmallShader returning;
    EXPECT_EQ(rig.run(&returning.record), VM_OK);
  }
}

}  // namespace
}  // namespace shadermachine::tests
