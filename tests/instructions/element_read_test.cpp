// Parts of values: swizzles, components, columns, elements and members.
#include <gtest/gtest.h>

#include <array>

#include "machine/memory.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

// Inner: an int and an int array of 2; Outer: an int and an array of 3 Inner; Outer holds 1 to 10.
struct Nested {
  TypeCode inner, outer;
};

Nested addNested(Tables& shader) {
  const TypeCode inner = shader.addStruct(
      "Inner",
      {{.name = "i", .type = VM_TYPE_INT}, {.name = "a", .type = VM_TYPE_INT, .count = 2}});
  const TypeCode outer = shader.addStruct(
      "Outer", {{.name = "i", .type = VM_TYPE_INT}, {.name = "inner", .type = inner, .count = 3}});
  return {inner, outer};
}

void pushNested(Code& code, Nested types) {
  code.pushInt(1);
  for (int i = 2; i <= 8; i += 3) {
    for (int k = 0; k < 3; ++k) code.pushInt(i + k);
    code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 2});
    code.emit(VM_OP_CTOR_STRUCT, {types.inner});
  }
  code.emit(VM_OP_CTOR_ARRAY, {types.inner, 3});
  code.emit(VM_OP_CTOR_STRUCT, {types.outer});
}

TEST(ElementReads, SubViewsShareTheirBlock) {
  Rig rig;
  std::vector<std::array<uint32_t, 3>> seen;  // size, offset, count
  rig.reply = [&](const HostCall& call, void*) {
    const BlockView& view = call.stack.back().view;
    seen.push_back({view.size, view.offset, *objectAt<uint32_t>(view.data - view.offset - 4)});
  };
  const BuiltShader shader = buildShader([](Tables& tables, Code& code) {
    const Nested types = addNested(tables);
    pushNested(code, types);
    code.store(tables.addGlobal({.name = "g", .type = types.outer}));
    code.emit(VM_OP_LOAD_GLOBAL, {0});
    probe(code);
    code.emit(VM_OP_STRUCT_FIELD, {types.outer, 1});
    probe(code);
    code.emit(VM_OP_PUSH_INDEX_IMM, {2});
    code.emit(VM_OP_ARRAY_ELEMENT, {types.inner});
    probe(code);
    code.emit(VM_OP_POP_RELEASE);
    code.emit(VM_OP_RETURN);
  });
  EXPECT_EQ(rig.run(shader), VM_OK);
  EXPECT_EQ(seen, (std::vector<std::array<uint32_t, 3>>{{40, 0, 2}, {36, 4, 2}, {12, 28, 2}}));
}

TEST(ElementReads, FailureLeavesTheIndexStack) {
  for (VmOpcode opcode : {VM_OP_VEC_ELEMENT, VM_OP_MAT_COLUMN, VM_OP_ARRAY_ELEMENT}) {
    Rig rig;
    EXPECT_EQ(rig.run(buildShader([&](Tables&, Code& code) {
      code.emit(VM_OP_PUSH_ZERO4);
      code.emit(VM_OP_PUSH_INDEX_IMM, {4});
      code.emit(opcode, {opcode == VM_OP_ARRAY_ELEMENT ? VM_TYPE_INT : 4});
    })),
              VM_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(rig.machine->indexTop, 0);
  }
}

}  // namespace
}  // namespace shadermachine::tests
