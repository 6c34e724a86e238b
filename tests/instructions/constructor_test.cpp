// The blocks of structures and arrays made from values on the stack.
#include <gtest/gtest.h>

#include "machine/memory.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

// Structure S: a float, a vec3 and a mat2, 32 bytes.
TypeCode addS(Tables& shader) {
  return shader.addStruct("S", {{.name = "f", .type = VM_TYPE_FLOAT},
                                {.name = "v", .type = VM_TYPE_VEC3},
                                {.name = "m", .type = VM_TYPE_MAT2}});
}

// Pushes the members f = 1, v = (2, 3, 4), m = (5, 6, 7, 8), plus `base`.
void pushMembers(Code& code, int base = 0) {
  code.pushInt(base + 1);
  for (int i = 2; i <= 4; ++i) code.pushInt(base + i);
  code.construct(VM_OP_CTOR_VEC3_A, {1, 1, 1});
  for (int i = 5; i <= 8; ++i) code.pushInt(base + i);
  code.construct(VM_OP_CTOR_MAT2, {1, 1, 1, 1});
}

// Words of the block in the top slot when the program ends well.
struct BlockSeen {
  Words words;
  uint32_t offset = 0, count = 0;
  int32_t height = 0;
  VmError error = VM_OK;
};

BlockSeen blockFrom(const Body& body) {
  BlockSeen seen;
  Rig rig;
  rig.reply = [&](const HostCall& call, void*) {
    const BlockView& view = call.stack.back().view;
    ASSERT_NE(view.data, nullptr);
    const auto* words = objectAt<uint32_t>(view.data);
    seen.words.assign(words, words + view.size / 4);
    seen.offset = view.offset;
    seen.count = *objectAt<uint32_t>(view.data - view.offset - 4);
    seen.height = call.top + 1;
  };
  seen.error = rig.run(buildShader([&](Tables& shader, Code& code) {
    body(shader, code);
    probe(code);
    code.emit(VM_OP_POP_RELEASE);
    code.emit(VM_OP_RETURN);
  }));
  return seen;
}

TEST(Constructors, StructureIsPacked) {
  const BlockSeen seen = blockFrom([](Tables& shader, Code& code) {
    const TypeCode s = addS(shader);
    pushMembers(code);
    code.emit(VM_OP_CTOR_STRUCT, {s});
  });
  EXPECT_EQ(seen.words, (Words{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(seen.height, 1);
  EXPECT_EQ(seen.count, 1u);
  EXPECT_EQ(seen.offset, 0u);
}

TEST(Constructors, StructureInStructureIsCopiedAndReleased) {
  const BlockSeen seen = blockFrom([](Tables& shader, Code& code) {
    const TypeCode s = addS(shader);
    const TypeCode outer =
        shader.addStruct("Outer", {{.name = "i", .type = VM_TYPE_INT},
                                   {.name = "s", .type = s},
                                   {.name = "a", .type = VM_TYPE_INT, .count = 2}});
    shader.info(outer).size += 4;  // padding stays zero
    code.pushInt(9);
    pushMembers(code);
    code.emit(VM_OP_CTOR_STRUCT, {s});
    code.pushInt(7);
    code.pushInt(8);
    code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 2});
    code.emit(VM_OP_CTOR_STRUCT, {outer});
  });
  EXPECT_EQ(seen.words, (Words{9, 1, 2, 3, 4, 5, 6, 7, 8, 7, 8, 0}));
}

TEST(Constructors, ArrayOfStructures) {
  const BlockSeen seen = blockFrom([](Tables& shader, Code& code) {
    const TypeCode s = addS(shader);
    for (int base : {0, 10}) {
      pushMembers(code, base);
      code.emit(VM_OP_CTOR_STRUCT, {s});
    }
    code.emit(VM_OP_CTOR_ARRAY, {s, 2});
  });
  EXPECT_EQ(seen.words, (Words{1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18}));
  EXPECT_EQ(seen.height, 1);
}

TEST(Constructors, ArrayOfVec3HasNoGaps) {
  const BlockSeen seen = blockFrom([](Tables&, Code& code) {
    for (int i = 1; i <= 3; ++i) {
      code.pushInt(i);
      code.construct(VM_OP_CTOR_VEC3_A, {1});
    }
    code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_VEC3, 3});
  });
  EXPECT_EQ(seen.words, (Words{1, 1, 1, 2, 2, 2, 3, 3, 3}));
}

}  // namespace
}  // namespace shadermachine::tests
