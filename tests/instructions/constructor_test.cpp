// Vectors, matrices, structures and arrays made from values on the stack.
#include <gtest/gtest.h>

#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

Program constructing(VmOpcode opcode, std::vector<int64_t> counts, std::vector<Words> inputs,
                     Words top) {
  return onInputs(opcode, std::move(counts), std::move(inputs), std::move(top));
}

// Words first to first + 15.
Words numbered(uint32_t first) {
  Words words(VM_COMPONENT_COUNT);
  for (uint32_t i = 0; i < words.size(); ++i) words[i] = first + i;
  return words;
}

std::vector<Program> vectors() {
  std::vector<Program> programs;
  constexpr VmOpcode kVec2[] = {VM_OP_CTOR_VEC2_A, VM_OP_CTOR_VEC2_B, VM_OP_CTOR_VEC2_C};
  constexpr VmOpcode kVec3[] = {VM_OP_CTOR_VEC3_A, VM_OP_CTOR_VEC3_B, VM_OP_CTOR_VEC3_C};
  constexpr VmOpcode kVec4[] = {VM_OP_CTOR_VEC4_A, VM_OP_CTOR_VEC4_B, VM_OP_CTOR_VEC4_C};
  const auto add = [&](Program program) { programs.push_back(std::move(program)); };
  for (size_t set = 0; set < 3; ++set) {
    add(constructing(kVec3[set], {1}, {{5}}, {5, 5, 5}));
    add(constructing(kVec4[set], {2, 1, 1}, {{1, 2}, {3}, {4}}, {1, 2, 3, 4}));
    add(constructing(kVec3[set], {2, 2}, {{1, 2}, {3, 4}}, {1, 2, 3}));
    add(constructing(kVec2[set], {4}, {{1, 2, 3, 4}}, {1, 2, 3, 4}));
    add(constructing(kVec2[set], {0, 1}, {{7, 8}, {9}}, {9, 8}));
    add(constructing(kVec4[set], {}, {{7, 8}}, {7, 8}));
    add(constructing(kVec3[set], {1, 1}, {{7, 8, 9}, {4}}, {7, 4, 9}));
  }
  return programs;
}

std::vector<Program> matrices() {
  const Words m = numbered(1);
  Words threeOfFour = {1, 2, 3, 5, 6, 7, 9, 10, 11};
  Words diagonal4(16);
  for (size_t i = 0; i < 16; i += 5) diagonal4[i] = 6;
  return {
      constructing(VM_OP_CTOR_MAT2, {1}, {{5}}, {5, 0, 0, 5}),
      constructing(VM_OP_CTOR_MAT3, {1}, {{5}}, {5, 0, 0, 0, 5, 0, 0, 0, 5}),
      constructing(VM_OP_CTOR_MAT4, {1}, {{6}}, diagonal4),
      constructing(VM_OP_CTOR_MAT3, {16}, {m}, threeOfFour),
      constructing(VM_OP_CTOR_MAT2, {16}, {m}, {1, 2, 5, 6}),
      constructing(VM_OP_CTOR_MAT2, {9}, {m}, {1, 2, 4, 5}),
      constructing(VM_OP_CTOR_MAT2, {4}, {{1, 2, 3, 4}}, {1, 2, 3, 4}),
      constructing(VM_OP_CTOR_MAT2, {24}, {m}, {1, 2, 5, 6}),
      constructing(VM_OP_CTOR_MAT4, {9}, {{1, 2, 3, 4, 5, 6, 7, 8, 9}},
                   {1, 2, 3, 4, 5, 6, 7, 8, 9}),
      constructing(VM_OP_CTOR_MAT2, {2, 2}, {{1, 2}, {3, 4}}, {1, 2, 3, 4}),
      constructing(VM_OP_CTOR_MAT3, {3, 4, 4}, {{1, 2, 3}, {4, 5, 6, 7}, {8, 9, 10}},
                   {1, 2, 3, 4, 5, 6, 7, 8, 9}),
      constructing(VM_OP_CTOR_MAT3, {}, {{7}}, {7}),
  };
}

std::vector<Program> beyondLimits() {
  const auto refused = [](VmOpcode opcode, std::vector<int64_t> counts) {
    return failing(opcode, "refused", instruction(opcode, counts, 5), VM_ERR_INVALID_SHADER);
  };
  std::vector<Program> programs = {
      refused(VM_OP_CTOR_VEC2_A, {1, 1, 1}),
      refused(VM_OP_CTOR_MAT2, {1, 1, 1, 1, 1}),
      refused(VM_OP_CTOR_MAT4, {25}),
  };
  for (Program& program : programs) program.inputs.resize(5);
  return programs;
}

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
    const auto* words = reinterpret_cast<const uint32_t*>(view.data);
    seen.words.assign(words, words + view.size / 4);
    seen.offset = view.offset;
    seen.count = *reinterpret_cast<const uint32_t*>(view.data - view.offset - 4);
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

Body arrayOf(int64_t type, int64_t count) {
  return [=](Tables& shader, Code& code) {
    addS(shader);
    shader.addNullStruct("null");
    code.emit(VM_OP_PUSH_EMPTY);
    code.emit(VM_OP_CTOR_ARRAY, {type, count});
  };
}

Body structOf(int64_t type, const std::function<void(StructInfo&)>& change = {}) {
  return [=](Tables& shader, Code& code) {
    const TypeCode s = addS(shader);
    shader.addNullStruct("null");
    if (change) change(shader.info(s));
    pushMembers(code);
    code.emit(VM_OP_CTOR_STRUCT, {type});
  };
}

std::vector<Program> refusals() {
  constexpr VmOpcode array = VM_OP_CTOR_ARRAY, structure = VM_OP_CTOR_STRUCT;
  const auto withoutTable = [](Tables&, Code& code) { code.emit(VM_OP_CTOR_STRUCT, {0}); };
  const auto withoutMembers = [](Tables& shader, Code& code) {
    const TypeCode empty = shader.addStruct("Empty", {});
    shader.info(empty).size = 4;
    code.emit(VM_OP_PUSH_EMPTY);
    code.emit(VM_OP_CTOR_STRUCT, {empty});
  };
  return {
      failing(array, "no elements", arrayOf(VM_TYPE_FLOAT, 0), VM_ERR_OUT_OF_MEMORY),
      failing(array, "element without size", arrayOf(-50, 1), VM_ERR_OUT_OF_MEMORY),
      failing(array, "null structure", arrayOf(1, 1), VM_ERR_INVALID_SHADER),
      failing(structure, "null structure", structOf(1), VM_ERR_INVALID_SHADER),
      failing(structure, "negative code", structOf(VM_TYPE_FLOAT), VM_ERR_INVALID_SHADER),
      failing(structure, "no table", withoutTable, VM_ERR_INVALID_SHADER),
      failing(structure, "no members", withoutMembers, VM_ERR_INVALID_SHADER),
      failing(structure, "members exceed size", structOf(0, [](StructInfo& s) { s.size = 31; }),
              VM_ERR_INVALID_SHADER),
      failing(structure, "size 0", structOf(0, [](StructInfo& s) { s.size = 0; }),
              VM_ERR_OUT_OF_MEMORY),
  };
}

TEST(Constructors, ArrayBeyond32BitsIsRefused) {
  Rig rig;
  EXPECT_EQ(rig.run(buildShader([](Tables& shader, Code& code) {
    const TypeCode s = addS(shader);
    shader.info(s).size = 0x80000001;  // twice this is 2 modulo 2^32
    code.emit(VM_OP_PUSH_EMPTY);
    code.emit(VM_OP_PUSH_EMPTY);
    code.emit(VM_OP_CTOR_ARRAY, {s, 2});
  })),
            VM_ERR_OUT_OF_MEMORY);
}

// A structure or array made, then read back.
std::vector<Program> aggregates() {
  return {
      giving(VM_OP_CTOR_STRUCT, "member read back",
             [](Tables& shader, Code& code) {
               const TypeCode s = addS(shader);
               pushMembers(code);
               code.emit(VM_OP_CTOR_STRUCT, {s});
               code.emit(VM_OP_STRUCT_FIELD, {s, 1});
             },
             {2, 3, 4}),
      giving(VM_OP_CTOR_ARRAY, "element read back",
             [](Tables&, Code& code) {
               for (int i = 0; i < 3; ++i) code.pushInt(40 + i);
               code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 3});
               code.emit(VM_OP_PUSH_INDEX_IMM, {2});
               code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_INT});
             },
             {42}),
  };
}

}  // namespace

std::vector<Program> constructorPrograms() {
  std::vector<Program> all;
  for (auto family : {vectors, matrices, beyondLimits, refusals, aggregates}) {
    for (Program& program : family()) all.push_back(std::move(program));
  }
  return all;
}

}  // namespace shadermachine::tests
