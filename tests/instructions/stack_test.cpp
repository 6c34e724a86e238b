// Variables, constants and the two stacks.
#include <gtest/gtest.h>

#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

constexpr uint32_t kOne = 0x3F800000;

std::vector<Program> constants() {
  const auto pushing = [](VmOpcode opcode, Words top, std::vector<int64_t> operands = {}) {
    return giving(
        opcode, "constant", [=](Tables&, Code& code) { code.emit(opcode, operands); }, top);
  };
  std::vector<Program> programs = {
      pushing(VM_OP_PUSH_U8, {255}, {255}),
      pushing(VM_OP_PUSH_U32, {0x89ABCDEF}, {0x89ABCDEF}),
      pushing(VM_OP_PUSH_U32_2, {0x89ABCDEF}, {0x89ABCDEF}),
      pushing(VM_OP_PUSH_ZERO4, {0, 0, 0, 0}),
      pushing(VM_OP_PUSH_ONE4_F, {kOne, kOne, kOne, kOne}),
      pushing(VM_OP_PUSH_0_F, {0}),
      pushing(VM_OP_PUSH_1_F, {kOne}),
      pushing(VM_OP_PUSH_EMPTY, {}),
  };
  for (uint32_t value = 0; value <= 9; ++value) {
    programs.push_back(pushing(static_cast<VmOpcode>(VM_OP_PUSH_0 + value), {value}));
  }
  for (VmOpcode nop :
       {VM_OP_NOP, VM_OP_NOP_45, VM_OP_NOP_46, VM_OP_NOP_49, VM_OP_NOP_50, VM_OP_NOP_51}) {
    programs.push_back(giving(nop, "nothing happens",
                              [=](Tables&, Code& code) {
                                code.pushInt(7);
                                code.emit(nop);
                              },
                              {7}));
  }
  return programs;
}

std::vector<Program> shuffles() {
  const auto on12 = [](VmOpcode opcode, std::vector<int64_t> operands, Words top, int32_t height) {
    return giving(
        opcode, "on 1, 2",
        [=](Tables&, Code& code) {
          code.pushInt(1);
          code.pushInt(2);
          code.emit(opcode, operands);
        },
        top, height);
  };
  return {
      on12(VM_OP_POP, {}, {1}, 1),        on12(VM_OP_POP_N, {2}, {}, 0),
      on12(VM_OP_POP_N, {0}, {2}, 2),     on12(VM_OP_POP_RELEASE, {}, {1}, 1),
      on12(VM_OP_DUP, {}, {2}, 3),        on12(VM_OP_SWAP, {}, {1}, 2),
      on12(VM_OP_PUSH_INDEX, {}, {1}, 1), on12(VM_OP_PUSH_INDEX_IMM, {200}, {2}, 2),
  };
}

void addBasicVariables(Tables& shader, Code& code) {
  shader.addGlobal({.name = "global", .type = VM_TYPE_VEC2});
  code.addLocal({.name = "local", .type = VM_TYPE_VEC2});
}

std::vector<Program> basicVariables() {
  const auto storing = [](VmOpcode store, VmOpcode load, int32_t height) {
    return giving(
        store, "vec2",
        [=](Tables& shader, Code& code) {
          addBasicVariables(shader, code);
          code.emit(VM_OP_PUSH_ONE4_F);
          code.emit(store, {0});
          code.emit(load, {0});
        },
        {kOne, kOne}, height);
  };
  const auto component = [](int64_t bound, int64_t number) {
    return [=](Tables&, Code& code) {
      code.addLocal({.name = "v", .type = VM_TYPE_VEC4});
      for (int value : {3, 4, 5, 6}) code.pushInt(value);
      code.construct(VM_OP_CTOR_VEC4_A, {1, 1, 1, 1});
      code.emit(VM_OP_STORE_LOCAL, {0});
      code.emit(VM_OP_LOAD_LOCAL_COMPONENT, {bound, number, 0});
    };
  };
  return {
      storing(VM_OP_STORE_LOCAL, VM_OP_LOAD_LOCAL, 2),
      storing(VM_OP_STORE_LOCAL_KEEP, VM_OP_LOAD_LOCAL, 3),
      storing(VM_OP_STORE_GLOBAL, VM_OP_LOAD_GLOBAL, 2),
      giving(
          VM_OP_LOAD_LOCAL, "zero before it is stored",
          [](Tables&, Code& code) {
            code.load(code.addLocal({.name = "m", .type = VM_TYPE_MAT4}));
          },
          Words(16), 2),
      giving(VM_OP_LOAD_GLOBAL, "zero before it is stored",
             [](Tables& shader, Code& code) {
               code.load(shader.addGlobal({.name = "i", .type = VM_TYPE_INT}));
             },
             {0}),
      giving(VM_OP_LOAD_LOCAL_COMPONENT, "last of four", component(4, 3), {6}, 2),
      failing(VM_OP_LOAD_LOCAL_COMPONENT, "at its bound", component(4, 4),
              VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(VM_OP_LOAD_LOCAL_COMPONENT, "its own code comes first", component(20, 20),
              VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(
          VM_OP_RESERVED_10, "", [](Tables&, Code& code) { code.emit(VM_OP_RESERVED_10, {0}); },
          VM_ERR_NOT_IMPLEMENTED),
  };
}

// Two arrays of two floats as locals 0 and 1; local 0 holds (first, second) on a block of its own.
void addArrays(Code& code, int first = 4, int second = 5) {
  code.addLocal({.name = "a", .type = VM_TYPE_FLOAT, .count = 2});
  code.addLocal({.name = "b", .type = VM_TYPE_FLOAT, .count = 2});
  code.pushInt(first);
  code.pushInt(second);
  code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_FLOAT, 2});
  code.emit(VM_OP_STORE_LOCAL, {0});
}

// Sets element 0 of a local to 9.
void poke(Code& code, int64_t local) {
  code.pushInt(9);
  code.emit(VM_OP_STORE_LOCAL_ELEM_IMM, {local, 0});
}

// Pushes element 0 of a local and checks its size along the way.
void peek(Code& code, int64_t local) {
  code.emit(VM_OP_LOAD_LOCAL, {local});
  code.emit(VM_OP_PUSH_INDEX_IMM, {0});
  code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
}

// Values of arrays do not share what is stored into them.
std::vector<Program> arrayVariables() {
  return {
      giving(
          VM_OP_STORE_LOCAL, "copies a block that its source still holds",
          [](Tables&, Code& code) {
            addArrays(code);
            code.emit(VM_OP_LOAD_LOCAL, {0});
            code.emit(VM_OP_STORE_LOCAL, {1});
            poke(code, 0);
            peek(code, 1);
          },
          {4}, 3),
      giving(
          VM_OP_STORE_LOCAL, "onto itself",
          [](Tables&, Code& code) {
            addArrays(code);
            code.emit(VM_OP_LOAD_LOCAL, {0});
            code.emit(VM_OP_STORE_LOCAL, {0});
            poke(code, 0);
            peek(code, 0);
          },
          {9}, 3),
      giving(
          VM_OP_STORE_LOCAL_KEEP, "shares with the value that stays",
          [](Tables&, Code& code) {
            addArrays(code);
            code.emit(VM_OP_LOAD_LOCAL, {0});
            code.emit(VM_OP_MAKE_UNIQUE);
            code.emit(VM_OP_STORE_LOCAL_KEEP, {1});
            poke(code, 1);
            code.emit(VM_OP_PUSH_INDEX_IMM, {0});
            code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
          },
          {9}, 3),
      giving(
          VM_OP_MAKE_UNIQUE, "parts from the variable",
          [](Tables&, Code& code) {
            addArrays(code);
            code.emit(VM_OP_LOAD_LOCAL, {0});
            code.emit(VM_OP_MAKE_UNIQUE);
            poke(code, 0);
            code.emit(VM_OP_PUSH_INDEX_IMM, {0});
            code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
          },
          {4}, 3),
      giving(
          VM_OP_LOAD_LOCAL, "sees later stores, being shared",
          [](Tables&, Code& code) {
            addArrays(code);
            code.emit(VM_OP_LOAD_LOCAL, {0});
            poke(code, 0);
            code.emit(VM_OP_PUSH_INDEX_IMM, {0});
            code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
          },
          {9}, 3),
  };
}

TEST(Stack, ReferencesFollowTheValues) {
  std::vector<uint32_t> counts;
  Rig rig;
  rig.reply = [&](const HostCall& call, void*) {
    const BlockView& view = call.stack[0].view;  // local 0
    counts.push_back(*reinterpret_cast<const uint32_t*>(view.data - view.offset - 4));
  };
  const BuiltShader shader = buildShader([](Tables&, Code& code) {
    const auto then = [&code](VmOpcode opcode, std::initializer_list<int64_t> operands = {}) {
      code.emit(opcode, operands);
      probe(code);
    };
    addArrays(code);
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
  EXPECT_EQ(*reinterpret_cast<const uint32_t*>(stack[0].view.data), 0xABCDu);

  Rig mute({kHostVariable});
  EXPECT_EQ(mute.run(shader), VM_OK);
  EXPECT_EQ(mute.only(kProbe).stack[3].value.words[0], 0u) << "the global, not what the stack held";
}

}  // namespace

std::vector<Program> stackPrograms() {
  std::vector<Program> all;
  for (auto family : {constants, shuffles, basicVariables, arrayVariables}) {
    for (Program& program : family()) all.push_back(std::move(program));
  }
  return all;
}

}  // namespace shadermachine::tests
