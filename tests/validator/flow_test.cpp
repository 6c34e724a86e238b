// Joins of paths, returns over the call graph, and the facts.

#include "support.h"

namespace shadermachine::tools {
namespace {

// if (scalar) first; else second; then both meet.
template <class First, class Second>
void branch(FunctionBuilder& code, First first, Second second) {
  const Label otherwise = code.newLabel();
  const Label end = code.newLabel();
  code.emit(VM_OP_PUSH_1);
  code.jumpIfFalse(otherwise);
  first(code);
  code.jump(end);
  code.bind(otherwise);
  second(code);
  code.bind(end);
}

template <VmOpcode opcode>
void emit(FunctionBuilder& code) {
  code.emit(opcode);
}
void nothing(FunctionBuilder&) {}
template <int64_t local>
void load(FunctionBuilder& code) {
  code.emit(VM_OP_LOAD_LOCAL, {local});
}
template <int64_t local>
void loadTwice(FunctionBuilder& code) {
  load<local>(code);
  load<local>(code);
}
template <int64_t local>
void loadTwins(FunctionBuilder& code) {
  load<local>(code);
  code.emit(VM_OP_DUP);
}

TEST(ValidatorFlow, KeepsWhatBothPathsDefine) {
  Scene scene;
  branch(scene.main, load<kVector>, load<kScalar>);
  scene.write({{VM_OP_SIN, {2}}, {VM_OP_POP}});
  EXPECT_EQ(findings(scene), "SIN: error: S0 has 1 defined word, 2 needed");
}

TEST(ValidatorFlow, RejectsDifferentDepths) {
  Scene scene;
  branch(scene.main, emit<VM_OP_PUSH_0>, nothing);
  EXPECT_EQ(findings(scene),
            "JUMP: error: reaches offset 12 with 1 value above the locals, another path with 0");
}

TEST(ValidatorFlow, RejectsViewAgainstInlineOnce) {
  Scene scene;
  branch(scene.main, load<kPair>, load<kScalar>);
  branch(scene.main, nothing, nothing);
  scene.write({{VM_OP_POP_RELEASE}});
  EXPECT_EQ(findings(scene),
            "JUMP: error: reaches offset 17 with S0 as a view of structure 0, another path with "
            "something else");
}

TEST(ValidatorFlow, ComesToAnEndAfterAConflict) {
  Scene scene;
  const Label top = scene.main.newLabel();
  branch(scene.main, load<kPair>, load<kScalar>);
  scene.write({{VM_OP_NOP}});
  scene.main.bind(top);
  scene.write({{VM_OP_PUSH_1}});
  scene.main.jumpIfFalse(top);
  scene.write({{VM_OP_POP_RELEASE}});
  EXPECT_EQ(findings(scene),
            "JUMP: error: reaches offset 17 with S0 as a view of structure 0, another path with "
            "something else");
}

TEST(ValidatorFlow, RejectsDifferentOwnership) {
  Scene scene;
  branch(scene.main, loadTwins<kPair>, loadTwice<kPair>);
  scene.write({{VM_OP_POP}, {VM_OP_POP_RELEASE}});
  EXPECT_EQ(findings(scene),
            "JUMP: error: reaches offset 21 with S0 as a view of structure 0, another path with "
            "something else");
}

TEST(ValidatorFlow, ForgetsConstantsThatDiffer) {
  Scene scene;
  scene.write({{VM_OP_LOAD_LOCAL, {kScalar}}});
  branch(scene.main, emit<VM_OP_PUSH_0>, emit<VM_OP_PUSH_1>);
  scene.write({{VM_OP_STORE_LOCAL_ELEM, {kPair, 1}}});
  EXPECT_EQ(findings(scene),
            "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant");
}

TEST(ValidatorFlow, RejectsViewsOfDifferentTypes) {
  Scene scene;
  branch(scene.main, load<kPair>, load<kLight>);
  scene.write({{VM_OP_POP_RELEASE}});
  branch(scene.main, load<kPairs>, [](FunctionBuilder& code) {
    load<kPair>(code);
    code.emit(VM_OP_CTOR_ARRAY, {0, 1});
  });
  scene.write({{VM_OP_POP_RELEASE}});
  EXPECT_EQ(
      findings(scene),
      "JUMP: error: reaches offset 17 with S0 as a view of structure 0, another path with "
      "something else\n"
      "JUMP: error: reaches offset 40 with S0 as a view of array of 2 of structure 0, another "
      "path with something else");
}

TEST(ValidatorFlow, RejectsALoopThatGrowsTheStack) {
  Scene scene;
  const Label top = scene.main.newLabel();
  scene.main.bind(top);
  scene.write({{VM_OP_PUSH_0}, {VM_OP_PUSH_1}});
  scene.main.jumpIfFalse(top);
  EXPECT_EQ(findings(scene),
            "JUMP_IF_FALSE: error: reaches offset 0 with 1 value above the locals, another path "
            "with 0");
}

TEST(ValidatorFlow, FindsWordsLostInALaterRound) {
  Scene scene;
  const Label top = scene.main.newLabel();
  scene.write({{VM_OP_LOAD_LOCAL, {kVector}}});
  scene.main.bind(top);
  scene.write({{VM_OP_LENGTH, {4}}, {VM_OP_SWIZZLE, {0, 1, 0}}, {VM_OP_PUSH_1}});
  scene.main.jumpIfFalse(top);
  scene.write({{VM_OP_POP}});
  EXPECT_EQ(findings(scene), "LENGTH: error: S0 has 1 defined word, 4 needed");
}

TEST(ValidatorFlow, CarriesLostWordsFromBlockToBlock) {
  Scene scene;
  const Label top = scene.main.newLabel();
  scene.write({{VM_OP_LOAD_LOCAL, {kVector}}});
  scene.main.bind(top);
  branch(scene.main, nothing, nothing);
  scene.write({{VM_OP_LENGTH, {4}}, {VM_OP_SWIZZLE, {0, 1, 0}}, {VM_OP_PUSH_1}});
  scene.main.jumpIfFalse(top);
  scene.write({{VM_OP_POP}});
  EXPECT_EQ(findings(scene), "LENGTH: error: S0 has 1 defined word, 4 needed");
}

TEST(ValidatorFlow, RejectsRunningOffTheEnd) {
  Scene scene;
  scene.shader.addFunction("open").emit(VM_OP_NOP);
  EXPECT_EQ(findings(scene),
            "function 6, offset 0, NOP: error: control runs off the end of the code");
}

TEST(ValidatorFlow, DoesNotTypeUnreachableCode) {
  Scene scene;
  scene.write({{VM_OP_DISCARD}, {VM_OP_POP}, {VM_OP_ADD_F, {4}}});
  EXPECT_EQ(findings(scene), "");
}

TEST(ValidatorFlow, RejectsMixedReturns) {
  Scene scene;
  FunctionBuilder& mixed = scene.shader.addFunction("mixed");
  branch(mixed, emit<VM_OP_RETURN>, nothing);
  mixed.emit(VM_OP_PUSH_0);
  mixed.emit(VM_OP_RETURN_VALUE);
  EXPECT_EQ(findings(scene),
            "function 6, offset 13, RETURN_VALUE: error: returns an inline value, another return "
            "of the function nothing");
}

TEST(ValidatorFlow, RejectsReturnsOfDifferentTypes) {
  Scene scene;
  FunctionBuilder& mixed = scene.shader.addFunction("mixed");
  mixed.addLocal({"pair", 0});
  mixed.addLocal({"light", 1});
  load<1>(mixed);
  branch(mixed, emit<VM_OP_RETURN_VALUE>, emit<VM_OP_POP_RELEASE>);
  load<0>(mixed);
  mixed.emit(VM_OP_RETURN_VALUE);
  EXPECT_EQ(findings(scene),
            "function 6, offset 19, RETURN_VALUE: error: returns a view of structure 0, another "
            "return of the function a view of structure 1");
}

TEST(ValidatorFlow, InfersReturnsThroughRecursion) {
  Scene scene;
  FunctionBuilder& even = scene.shader.addFunction("even");
  FunctionBuilder& odd = scene.shader.addFunction("odd");
  even.emit(VM_OP_PUSH_EMPTY);
  even.call(odd.id());
  even.emit(VM_OP_RETURN_VALUE);
  branch(odd, emit<VM_OP_PUSH_ZERO4>, [&](FunctionBuilder& code) {
    code.emit(VM_OP_PUSH_EMPTY);
    code.call(even.id());
    code.emit(VM_OP_SWIZZLE, {0, 3, 0});
  });
  odd.emit(VM_OP_RETURN_VALUE);
  const ValidationResult result = scene.validate();
  EXPECT_EQ(findings(result),
            "function 6, offset 0: warning: the function can call itself\n"
            "function 7, offset 0: warning: the function can call itself");
  EXPECT_TRUE(result.valid());
  for (const uint32_t function : {6u, 7u}) {
    EXPECT_EQ(result.functions[function].returnKind, ReturnKind::Inline);
    EXPECT_EQ(result.functions[function].returnWords, 3u);
    EXPECT_TRUE(result.functions[function].recursive);
  }
}

TEST(ValidatorFlow, FindsLongCycles) {
  Scene scene;
  for (int64_t next : {7, 8, 6}) {
    FunctionBuilder& link = scene.shader.addFunction("link");
    link.emit(VM_OP_CALL, {next});
    link.emit(VM_OP_RETURN);
  }
  const ValidationResult result = scene.validate();
  for (const uint32_t function : {6u, 7u, 8u})
    EXPECT_TRUE(result.functions[function].recursive) << function;
  EXPECT_FALSE(result.functions[kNothing].recursive);
}

TEST(ValidatorFlow, GivesFacts) {
  Scene scene;
  scene.write({{VM_OP_PUSH_0}, {VM_OP_PUSH_1}, {VM_OP_POP_N, {2}}, {VM_OP_HALT}, {VM_OP_NOP}});
  const ValidationResult result = scene.validate();
  const FunctionFacts& entry = result.functions[0];
  EXPECT_EQ(entry.returnKind, ReturnKind::Never);
  EXPECT_EQ(entry.maximumDepth, 10u);
  EXPECT_FALSE(entry.recursive);
  std::vector<std::pair<uint32_t, int32_t>> depths;
  for (const InstructionFacts& at : entry.instructions) depths.emplace_back(at.offset, at.depth);
  EXPECT_EQ(depths, (std::vector<std::pair<uint32_t, int32_t>>{
                        {0, 8}, {1, 9}, {2, 10}, {4, 8}, {5, -1}, {6, -1}}));
  EXPECT_EQ(result.functions[kNothing].returnKind, ReturnKind::Nothing);
  EXPECT_EQ(result.functions[kGivesVec3].returnWords, 3u);
  EXPECT_EQ(result.functions[kGivesPair].returnKind, ReturnKind::Aggregate);
  EXPECT_EQ(result.functions[kGivesPair].returnType, 0);
  EXPECT_EQ(result.functions[kEndless].returnKind, ReturnKind::Never);
}

}  // namespace
}  // namespace shadermachine::tools
