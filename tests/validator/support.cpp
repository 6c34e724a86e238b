#include "support.h"

namespace shadermachine::tools {

Scene::Scene() : main(shader.addFunction("main")) {
  const TypeCode pair = shader.addStruct("Pair", {{"a", VM_TYPE_FLOAT}, {"b", VM_TYPE_VEC2}});
  const TypeCode light = shader.addStruct("Light", {{"pair", pair}, {"w", VM_TYPE_FLOAT, 4}});
  shader.addGlobal({"color", VM_TYPE_VEC4});
  shader.addGlobal({"numbers", VM_TYPE_FLOAT, 4});
  shader.addGlobal({"lights", light, 2});
  shader.addGlobal({"host", VM_TYPE_VEC2, 0, VM_VAR_HOST_0});
  shader.addGlobal({"states", VM_TYPE_VEC4, 8});
  main.addLocal({"scalar", VM_TYPE_FLOAT});
  main.addLocal({"vector", VM_TYPE_VEC4});
  main.addLocal({"matrix", VM_TYPE_MAT3});
  main.addLocal({"image", VM_TYPE_SAMPLER_0});
  main.addLocal({"points", VM_TYPE_VEC2, 3});
  main.addLocal({"pairs", pair, 2});
  main.addLocal({"pair", pair});
  main.addLocal({"light", light});

  FunctionBuilder& nothing = shader.addFunction("nothing");
  nothing.addParam({"x", VM_TYPE_FLOAT});
  nothing.addParam({"p", pair});
  nothing.emit(VM_OP_RETURN);
  FunctionBuilder& bodiless = shader.addFunction("bodiless");
  bodiless.addParam({"x", VM_TYPE_FLOAT});
  bodiless.addParam({"y", VM_TYPE_FLOAT});
  FunctionBuilder& givesVec3 = shader.addFunction("givesVec3");
  givesVec3.addParam({"p", pair});
  givesVec3.emit(VM_OP_PUSH_0);
  givesVec3.construct(VM_OP_CTOR_VEC3_A, {1});
  givesVec3.emit(VM_OP_RETURN_VALUE);
  FunctionBuilder& givesPair = shader.addFunction("givesPair");
  givesPair.load(givesPair.addLocal({"p", pair}));
  givesPair.emit(VM_OP_RETURN_VALUE_2);
  shader.addFunction("endless").emit(VM_OP_JUMP, {-5});
}

ValidationResult Scene::validate() {
  main.emit(VM_OP_RETURN);
  const BuiltShader built = std::move(shader).build();
  return tools::validate(built.view());
}

std::string findings(const ValidationResult& result) {
  std::string all;
  for (Diagnostic shown : result.diagnostics) {
    if (!all.empty()) all += '\n';
    if (shown.function == 0 && shown.mnemonic != nullptr) {
      all += std::string(shown.mnemonic) + ": ";
      shown.function = -1;
    }
    all += toString(shown);
  }
  return all;
}

TEST_P(ValidatorCase, Finds) {
  const Case& test = GetParam();
  Scene scene;
  if (test.prepare != nullptr) test.prepare(scene);
  scene.write(test.code);
  EXPECT_EQ(findings(scene), test.expected);
}

}  // namespace shadermachine::tools
