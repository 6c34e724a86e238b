// Variables, constants and the two stacks.
#include <gtest/gtest.h>

#include <algorithm>

#include "machine/memory.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

TEST(Stack, ReferencesFollowTheValues) {
  std::vector<uint32_t> counts;
  Rig rig;
  rig.reply = [&](const HostCall& call, void*) {
    const BlockView& view = call.stack[0].view;  // local 0
    counts.push_back(*objectAt<uint32_t>(view.data - view.offset - 4));
  };
  const BuiltShader shader = buildShader([](Tables&, Code& code) {
    const auto then = [&code](VmOpcode opcode, std::initializer_list<int64_t> operands = {}) {
      code.emit(opcode, operands);
      probe(code);
    };
    code.addLocal({.name = "a", .type = VM_TYPE_FLOAT, .count = 2});
    code.addLocal({.name = "b", .type = VM_TYPE_FLOAT, .count = 2});
    for (int element : {4, 5}) code.pushInt(element);
    code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_FLOAT, 2});
    code.emit(VM_OP_STORE_LOCAL, {0});
    probe(code);                        // 1: taken over, not copied
    then(VM_OP_LOAD_LOCAL, {0});        // 2
    then(VM_OP_DUP);                    // 2: a raw copy
    then(VM_OP_POP);                    // 2
    then(VM_OP_STORE_LOCAL_KEEP, {1});  // 2: shared, so the local got a copy
    then(VM_OP_POP_RELEASE);            // 1
    then(VM_OP_LOAD_LOCAL, {0});        // 2
    then(VM_OP_MAKE_UNIQUE);            // 1
    then(VM_OP_MAKE_UNIQUE);            // 1: unique already
    then(VM_OP_STORE_LOCAL_KEEP, {0});  // 2: the value that stays and the local
    then(VM_OP_POP_RELEASE);            // 1
    code.emit(VM_OP_RETURN);
  });
  EXPECT_EQ(rig.run(shader), VM_OK);
  EXPECT_EQ(counts, (std::vector<uint32_t>{1, 2, 2, 2, 2, 1, 2, 1, 1, 2, 1}));
}

TEST(Stack, IndexStackTakes256Entries) {
  for (VmOpcode opcode : {VM_OP_PUSH_INDEX, VM_OP_PUSH_INDEX_IMM}) {
    for (int entries : {256, 257}) {
      Rig rig;
      const BuiltShader shader = buildShader([&](Tables&, Code& code) {
        for (int i = 0; i < entries; ++i) {
          if (opcode == VM_OP_PUSH_INDEX) {
            code.pushInt(i);
            code.emit(VM_OP_PUSH_INDEX);
          } else {
            code.emit(VM_OP_PUSH_INDEX_IMM, {i});
          }
        }
        code.emit(VM_OP_RETURN);
      });
      EXPECT_EQ(rig.run(shader), entries == 256 ? VM_OK : VM_ERR_INDEX_STACK_OVERFLOW);
      EXPECT_EQ(rig.machine->indexTop, entries - 1);
      EXPECT_EQ(rig.machine->indexStack[255], 255u);
    }
  }
}

// A shader that fills the value stack up to slot `last` and then executes the instruction.
BuiltShader pushingFrom(int last, VmOpcode opcode) {
  return buildShader([&](Tables&, Code& code) {
    code.addLocal({.name = "slot 0", .type = VM_TYPE_FLOAT});
    for (int slot = 1; slot <= last; ++slot) code.emit(VM_OP_PUSH_1);
    switch (opcode) {
      case VM_OP_LOAD_LOCAL_COMPONENT:
        code.emit(opcode, {1, 0, 0});
        break;
      case VM_OP_LOAD_BUILTIN:
        code.emit(opcode, {258});
        break;
      case VM_OP_LOAD_LOCAL:
      case VM_OP_PUSH_U8:
      case VM_OP_PUSH_U32:
        code.emit(opcode, {0});
        break;
      default:
        code.emit(opcode);
    }
    code.emit(VM_OP_RETURN);
  });
}

TEST(Stack, Slot1999IsTheLast) {
  for (VmOpcode opcode : {VM_OP_LOAD_LOCAL, VM_OP_LOAD_BUILTIN, VM_OP_LOAD_LOCAL_COMPONENT,
                          VM_OP_PUSH_EMPTY, VM_OP_PUSH_U8, VM_OP_PUSH_U32, VM_OP_PUSH_ZERO4,
                          VM_OP_PUSH_ONE4_F, VM_OP_PUSH_9, VM_OP_PUSH_1_F, VM_OP_DUP}) {
    Rig rig;
    EXPECT_EQ(rig.run(pushingFrom(1998, opcode)), VM_OK) << opcode;
    EXPECT_EQ(rig.run(pushingFrom(1999, opcode)), VM_ERR_STACK_OVERFLOW) << opcode;
  }
}

TEST(Stack, HostVariableRequest) {
  const auto build = [](GlobalId& array, GlobalId& vector) {
    return buildShader([&](Tables& shader, Code& code) {
      array = shader.addGlobal(
          {.name = "a", .type = VM_TYPE_FLOAT, .count = 3, .flags = VM_VAR_HOST_1});
      vector = shader.addGlobal({.name = "v", .type = VM_TYPE_VEC2, .flags = VM_VAR_HOST_0});
      code.load(array);
      code.emit(VM_OP_PUSH_INDEX_IMM, {2});
      code.load(vector);
      probe(code);
      code.emit(VM_OP_POP);
      code.emit(VM_OP_POP_RELEASE);
      code.emit(VM_OP_RETURN);
    });
  };
  GlobalId array, vector;
  const BuiltShader shader = build(array, vector);
  const VarInfo* globals = shader.record()->globals;
  Rig rig;
  rig.reply = [](const HostCall& call, void* data) {
    if (call.slot == kHostVariable) std::fill_n(static_cast<uint32_t*>(data), 2, 0xABCD);
  };
  EXPECT_EQ(rig.run(shader), VM_OK);
  ASSERT_EQ(rig.count(kHostVariable), 2u);
  const ValueSlot* stack = rig.machine->stack;
  EXPECT_EQ(rig.calls[0].fields,
            (std::vector<uint64_t>{address(stack[0].view.data), address(&globals[0]), 0, 3,
                                   UINT64_MAX, rig.startup.userData}));
  EXPECT_EQ(rig.calls[1].fields,
            (std::vector<uint64_t>{address(stack[3].value.words), address(&globals[1]), 1, 0, 2,
                                   rig.startup.userData}));
  EXPECT_EQ(rig.only(kProbe).stack[3].value.words[1], 0xABCDu);
  EXPECT_EQ(stack[1].value.words[0], 0u) << "a basic value is for this load only";
  EXPECT_EQ(*objectAt<uint32_t>(stack[0].view.data), 0xABCDu);

  Rig mute({kHostVariable});
  EXPECT_EQ(mute.run(shader), VM_OK);
  EXPECT_EQ(mute.only(kProbe).stack[3].value.words[0], 0u) << "the global, not what the stack held";
}

}  // namespace
}  // namespace shadermachine::tests
