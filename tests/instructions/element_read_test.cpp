// Parts of values: swizzles, components, columns, elements and members.
#include <gtest/gtest.h>

#include <array>

#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

// Reads by the index stack from the first input.
Program indexed(VmOpcode opcode, int64_t n, int64_t index, Words input, Words top) {
  return {.opcode = opcode,
          .title = "index " + std::to_string(index),
          .body =
              [=](Tables& shader, Code& code) {
                code.load(addInput(shader));
                code.emit(VM_OP_PUSH_U32, {index});
                code.emit(VM_OP_PUSH_INDEX);
                code.emit(opcode, {n});
              },
          .inputs = {std::move(input)},
          .top = std::move(top),
          .keepsRest = true};
}

Program outOfBounds(VmOpcode opcode, int64_t n, int64_t index) {
  Program program = indexed(opcode, n, index, {}, {});
  program.error = VM_ERR_INDEX_OUT_OF_BOUNDS;
  return program;
}

std::vector<Program> inlineParts() {
  std::vector<Program> programs;
  const Words v = {10, 20, 30, 40};
  for (VmOpcode opcode : {VM_OP_SWIZZLE, VM_OP_SWIZZLE_2, VM_OP_SWIZZLE_3}) {
    programs.push_back(onInputs(opcode, {0, 3, 0x1B}, {v}, {40, 30, 20, 0}));
    programs.push_back(onInputs(opcode, {255, 4, 0}, {v}, {10, 10, 10, 10}));
    for (Program& program : programs) program.keepsRest = false;
  }
  for (VmOpcode opcode : {VM_OP_VEC_ELEMENT, VM_OP_VEC_ELEMENT_2, VM_OP_VEC_ELEMENT_3}) {
    programs.push_back(indexed(opcode, 4, 3, v, {40, 20, 30, 40}));
    programs.push_back(indexed(opcode, 4, 0, v, v));
    for (int64_t index : {int64_t{4}, int64_t{-1}, int64_t{kIntMin}}) {
      programs.push_back(outOfBounds(opcode, 4, index));
    }
    programs.push_back(outOfBounds(opcode, 20, 20));
  }
  programs.push_back(indexed(VM_OP_MAT_COLUMN, 2, 1, {1, 2, 3, 4}, {3, 4, 3, 4}));
  programs.push_back(indexed(VM_OP_MAT_COLUMN, 2, 0, {1, 2, 3, 4}, {1, 2, 3, 4}));
  programs.push_back(indexed(VM_OP_MAT_COLUMN, 3, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {7, 8, 9}));
  programs.push_back(outOfBounds(VM_OP_MAT_COLUMN, 3, 3));
  programs.push_back(outOfBounds(VM_OP_MAT_COLUMN, 0, 0));
  return programs;
}

// Array of three vec2: (1, 2), (3, 4), (5, 6).
void pushPairs(Code& code) {
  for (int i = 0; i < 3; ++i) {
    code.pushInt(2 * i + 1);
    code.pushInt(2 * i + 2);
    code.construct(VM_OP_CTOR_VEC2_A, {1, 1});
  }
  code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_VEC2, 3});
}

Body element(int64_t type, int64_t index) {
  return [=](Tables& shader, Code& code) {
    shader.addStruct("Empty", {});
    shader.addNullStruct("null");
    pushPairs(code);
    code.emit(VM_OP_PUSH_U32, {index});
    code.emit(VM_OP_PUSH_INDEX);
    code.emit(VM_OP_ARRAY_ELEMENT, {type});
  };
}

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

// outer.inner[index].a[1]
void deepRead(Tables& shader, Code& code) {
  const Nested types = addNested(shader);
  pushNested(code, types);
  code.emit(VM_OP_PUSH_INDEX_IMM, {1});
  code.emit(VM_OP_PUSH_INDEX_IMM, {2});
  code.emit(VM_OP_STRUCT_FIELD, {types.outer, 1});
  code.emit(VM_OP_ARRAY_ELEMENT, {types.inner});
  code.emit(VM_OP_STRUCT_FIELD, {types.inner, 1});
  code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_INT});
}

Body member(int64_t number, const std::function<void(VarInfo&)>& change = {}) {
  return [=](Tables& shader, Code& code) {
    const Nested types = addNested(shader);
    pushNested(code, types);
    if (change) change(shader.member(types.outer, static_cast<uint32_t>(number)));
    code.emit(VM_OP_STRUCT_FIELD, {types.outer, number});
  };
}

std::vector<Program> aggregateParts() {
  constexpr VmOpcode element_ = VM_OP_ARRAY_ELEMENT, field = VM_OP_STRUCT_FIELD;
  const Words cleared = {0, 0};
  const auto pastTheEnd = [](VarInfo& m) { m.memberOffset = 37; };
  const auto tooLong = [](Tables& shader, Code& code) {
    const TypeCode wide = shader.addStruct(
        "Wide", {{.name = "m", .type = VM_TYPE_MAT4}, {.name = "i", .type = VM_TYPE_INT}});
    const LocalId local = code.addLocal({.name = "local", .type = wide});
    code.pushInt(5);
    code.storeElement(local, {0, 0, 0});
    code.load(local);
    shader.member(wide, 0).byteSize = 68;
    code.emit(VM_OP_STRUCT_FIELD, {wide, 0});
  };
  return {
      giving(element_, "last", element(VM_TYPE_VEC2, 2), {5, 6}),
      failing(element_, "at the end", element(VM_TYPE_VEC2, 3), VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(element_, "negative", element(VM_TYPE_VEC2, -1), VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(element_, "element without size", element(-50, 0), VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(element_, "structure without size", element(0, 0), VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(element_, "null structure", element(1, 0), VM_ERR_INVALID_SHADER),
      failing(
          element_, "no block",
          [](Tables&, Code& code) {
            code.emit(VM_OP_PUSH_ZERO4);
            code.emit(VM_OP_PUSH_INDEX_IMM, {0});
            code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_INT});
          },
          VM_ERR_INDEX_OUT_OF_BOUNDS),
      failing(
          element_, "no index",
          [](Tables&, Code& code) {
            pushPairs(code);
            code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_VEC2});
          },
          VM_ERR_INDEX_OUT_OF_BOUNDS),
      giving(element_, "of a member of an element", deepRead, {10}),
      giving(field, "basic", member(0), {1}),
      giving(field, "basic, past the view", member(0, pastTheEnd), cleared),
      giving(field, "basic, longer than a slot", tooLong, cleared, 2),
      giving(field, "aggregate, past the view", member(1, pastTheEnd), cleared),
      failing(field, "number of members", member(2), VM_ERR_INVALID_SHADER),
      failing(field, "far member", member(0xFFFFFFFF), VM_ERR_INVALID_SHADER),
  };
}

TEST(ElementReads, SubViewsShareTheirBlock) {
  Rig rig;
  std::vector<std::array<uint32_t, 3>> seen;  // size, offset, count
  rig.reply = [&](const HostCall& call, void*) {
    const BlockView& view = call.stack.back().view;
    seen.push_back(
        {view.size, view.offset, *reinterpret_cast<const uint32_t*>(view.data - view.offset - 4)});
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

std::vector<Program> elementReadPrograms() {
  std::vector<Program> all = inlineParts();
  for (Program& program : aggregateParts()) all.push_back(std::move(program));
  return all;
}

}  // namespace shadermachine::tests
