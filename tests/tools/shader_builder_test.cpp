#include <gtest/gtest.h>
#include <shadermachine-tools/shader_builder.h>

#include <stdexcept>
#include <utility>

namespace shadermachine::tools {
namespace {

std::vector<uint8_t> codeOf(const BuiltShader& shader) {
  const ShaderView view = shader.view();
  return {view.shader->code, view.shader->code + view.codeSize};
}

TEST(ShaderBuilder, PacksStructuresAndSizesArrays) {
  ShaderBuilder builder;
  const TypeCode inner = builder.addStruct("Inner", {{"m", VM_TYPE_MAT3}, {"b", VM_TYPE_BVEC2}});
  const TypeCode outer = builder.addStruct(
      "Outer", {{"f", VM_TYPE_FLOAT}, {"list", inner, 3}, {"s", VM_TYPE_SAMPLER_7}});
  builder.addGlobal({"g", outer, 2, VM_VAR_HOST_1});
  builder.addFunction("main").emit(VM_OP_RETURN);
  const BuiltShader shader = std::move(builder).build();

  const ShaderView view = shader.view();
  ASSERT_EQ(view.structCount, 2u);
  EXPECT_STREQ(view.structNames[1], "Outer");
  EXPECT_STREQ(view.functionNames[0], "main");
  EXPECT_EQ(view.shader->structTypes[0]->size, 44u);
  const StructInfo& info = *view.shader->structTypes[1];
  EXPECT_EQ(info.size, 4u + 3 * 44 + 8);
  EXPECT_EQ(info.members[1].byteSize, 3u * 44);
  EXPECT_EQ(info.members[2].memberOffset, 4u + 3 * 44);
  EXPECT_EQ(view.shader->globals[0].byteSize, 2 * info.size);
  EXPECT_EQ(view.shader->globals[0].flags, VM_VAR_HOST_1);
}

TEST(ShaderBuilder, EncodesEveryOperandForm) {
  ShaderBuilder builder;
  FunctionBuilder& main = builder.addFunction("main");
  const LocalId v = main.addLocal({"v", VM_TYPE_VEC4});
  main.pushFloat(0.5f);
  main.pushInt(7);
  main.pushInt(200);
  main.pushInt(-1);
  main.construct(VM_OP_CTOR_VEC4_A, {3, 1});
  main.storeElement(v, {swizzleStep("wy"), 0});
  main.swizzle("zyx");
  const uint8_t raw[] = {255};
  main.emitBytes(raw);
  EXPECT_EQ(codeOf(std::move(builder).build()),
            (std::vector<uint8_t>{17,  0,    0,    0, 0x3F, 28,  16, 200, 17,   255, 255,
                                  255, 255,  54,   2, 0,    3,   1,  6,   0,    0,   2,
                                  0,   0xF9, 0xFD, 0, 0,    108, 0,  3,   0x06, 255}));
}

TEST(ShaderBuilder, ResolvesJumpsBothWays) {
  ShaderBuilder builder;
  FunctionBuilder& main = builder.addFunction("main");
  const Label start = main.newLabel();
  const Label end = main.newLabel();
  main.bind(start);
  main.jumpIfFalse(end);
  main.jump(start);
  main.bind(end);
  main.emit(VM_OP_RETURN);
  EXPECT_EQ(codeOf(std::move(builder).build()),
            (std::vector<uint8_t>{38, 5, 0, 0, 0, 39, 0xF6, 255, 255, 255, 40}));
}

TEST(ShaderBuilder, LaysCodeOutInIndexOrderUnlessPlaced) {
  ShaderBuilder builder;
  FunctionBuilder& first = builder.addFunction("first");
  FunctionBuilder& second = builder.addFunction("second");
  builder.addFunction("nobody").setNull();
  FunctionBuilder& alias = builder.addFunction("alias");
  alias.setCodeRange(1, 3);
  first.call(second.id());
  second.emit(VM_OP_RETURN);
  const uint8_t loose[] = {0, 0};
  builder.placeLooseCode(loose);
  builder.placeCode(second.id());
  const BuiltShader shader = std::move(builder).build();

  EXPECT_EQ(codeOf(shader), (std::vector<uint8_t>{0, 0, 40, 36, 1, 0}));
  const auto* functions = shader.record()->functions;
  EXPECT_EQ(functions[0]->codeOffset, 3u);
  EXPECT_EQ(functions[0]->codeLength, 3u);
  EXPECT_EQ(functions[1]->codeOffset, 2u);
  EXPECT_EQ(functions[2], nullptr);
  EXPECT_EQ(functions[3]->codeOffset, 1u);
  EXPECT_EQ(functions[3]->codeLength, 3u);
}

TEST(ShaderBuilder, KeepsAddressesWhenMoved) {
  ShaderBuilder builder;
  builder.addFunction("main").emit(VM_OP_RETURN);
  BuiltShader first = std::move(builder).build();
  const CompiledShader* record = first.record();
  const BuiltShader second = std::move(first);
  EXPECT_EQ(second.record(), record);
  EXPECT_EQ(record->code[0], VM_OP_RETURN);
  EXPECT_EQ(record->outputGlobal0, -1);
  EXPECT_EQ(record->builtinGlobals[25], -1);
}

TEST(ShaderBuilder, RefusesWrongUse) {
  ShaderBuilder builder;
  FunctionBuilder& main = builder.addFunction("main");
  EXPECT_THROW(main.emit(VM_OP_ADD_F), std::logic_error);
  EXPECT_THROW(main.emit(VM_OP_RETURN, {1}), std::logic_error);
  EXPECT_THROW(main.local("missing"), std::logic_error);
  EXPECT_THROW(swizzleMask("xyq!"), std::logic_error);
  main.addLocal({"local"});
  EXPECT_THROW(main.addParam({"late"}), std::logic_error);
  const TypeCode wide = builder.addStruct("Wide", {{"a", VM_TYPE_MAT4, (1u << 26) - 1, 0}});
  EXPECT_EQ(builder.sizeOf(wide), UINT32_MAX - 63);
  EXPECT_THROW(builder.sizeOf(wide, 2), std::length_error);
  EXPECT_THROW(builder.addGlobal({"a", VM_TYPE_FLOAT, 1u << 30, 0}), std::length_error);
  EXPECT_THROW(builder.addStruct("Wider", {{"a", wide, 0, 0}, {"b", VM_TYPE_MAT4, 0, 0}}),
               std::length_error);
  main.jump(main.newLabel());
  EXPECT_THROW(std::move(builder).build(), std::logic_error);
}

}  // namespace
}  // namespace shadermachine::tools
