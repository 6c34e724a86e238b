// Input made to break the validator itself.

#include <random>

#include "support.h"

namespace shadermachine::tools {
namespace {

TEST(ValidatorHostile, SurvivesAnyBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 500; ++round) {
    Scene scene;
    std::vector<uint8_t> bytes(1 + random() % 60);
    // Mostly opcodes and small numbers: pure noise never gets past the first byte.
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % (random() % 2 ? 206 : 4));
    scene.main.emitBytes(bytes);
    const ValidationResult result = scene.validate();
    ASSERT_EQ(result.functions.size(), 6u);
    for (const Diagnostic& diagnostic : result.diagnostics) {
      ASSERT_FALSE(diagnostic.message.empty());
      ASSERT_LE(diagnostic.offset, bytes.size());
    }
  }
}

TEST(ValidatorHostile, RefusesMoreWorkThanItsBudget) {
  Scene scene;
  scene.write(Code(1900, Op{VM_OP_PUSH_0}));
  for (int i = 0; i < 10000; ++i) {  // each a block with a stack of its own
    const Label next = scene.main.newLabel();
    scene.main.emit(VM_OP_PUSH_1);
    scene.main.jumpIfFalse(next);
    scene.main.bind(next);
  }
  EXPECT_EQ(findings(scene), "error: the program is too complex to be checked");
}

TEST(ValidatorHostile, RefusesMoreCodeThanItHolds) {
  Scene scene;
  const std::vector<uint8_t> bytes(600000);
  scene.main.emitBytes(bytes);
  scene.shader.addFunction("again").setCodeRange(0, 600000);
  EXPECT_EQ(findings(scene),
            "error: the functions have 1200017 bytes of code, more than 1048576 are not checked");
}

TEST(ValidatorHostile, FollowsLongChainsOfCalls) {
  Scene scene;
  for (int i = 6; i < 20000; ++i) {
    FunctionBuilder& link = scene.shader.addFunction("link");
    link.emit(VM_OP_CALL, {i + 1});
    link.emit(VM_OP_RETURN);
  }
  scene.shader.addFunction("last").emit(VM_OP_DISCARD);
  const ValidationResult result = scene.validate();
  EXPECT_EQ(findings(result), "");
  EXPECT_EQ(result.functions[6].returnKind, ReturnKind::Never);
}

}  // namespace
}  // namespace shadermachine::tools
