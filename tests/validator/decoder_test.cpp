// Instruction boundaries, jump targets and operands.

#include "support.h"

namespace shadermachine::tools {
namespace {

// clang-format off
const std::vector<Case> kCases = {
    {"JumpBeforeTheCode", {{VM_OP_JUMP, {-6}}},
     "JUMP: error: jumps to offset 4294967295, outside the function's 6 bytes"},
    {"JumpToTheEnd", {{VM_OP_JUMP, {1}}},
     "JUMP: error: jumps to offset 6, outside the function's 6 bytes"},
    {"JumpIntoAnInstruction", {{VM_OP_JUMP, {1}}, {VM_OP_PUSH_U8, {0}}},
     "JUMP: error: jumps to offset 6, into the middle of an instruction"},
    {"UnreachableOperandsAreChecked",
     {{VM_OP_HALT}, {VM_OP_JUMP, {-2}}, {VM_OP_CALL, {77}}, {VM_OP_STRUCT_FIELD, {2, 0}},
     {VM_OP_SIN, {17}}},
     "JUMP: error: jumps to offset 4, into the middle of an instruction\n"
     "CALL: error: there is no function 77\n"
     "STRUCT_FIELD: error: there is no structure 2\n"
     "SIN: error: count 17 is above 16"},
    {"LocalsAndGlobals",
     {{VM_OP_LOAD_LOCAL, {8}}, {VM_OP_POP}, {VM_OP_LOAD_GLOBAL, {5}}, {VM_OP_POP},
      {VM_OP_LOAD_LOCAL_COMPONENT, {17, 0, 9}}, {VM_OP_POP}},
     "LOAD_LOCAL: error: there is no local 8\n"
     "LOAD_GLOBAL: error: there is no global 5\n"
     "LOAD_LOCAL_COMPONENT: error: count 17 is above 16\n"
     "LOAD_LOCAL_COMPONENT: error: there is no local 9"},
    {"Limits",
     {{VM_OP_PUSH_0}, {VM_OP_MAT_COLUMN, {5}}, {VM_OP_NOISE2, {5}}, {VM_OP_POP}},
     "MAT_COLUMN: error: count 5 is above 4\nNOISE2: error: count 5 is above 4"},
};
// clang-format on

VALIDATOR_CASES(Decoder, kCases);

TEST(ValidatorDecoder, FindsBytesThatAreNoOpcode) {
  Scene scene;
  const uint8_t bytes[] = {206};
  scene.write({{VM_OP_PUSH_0}, {VM_OP_JUMP_IF_FALSE, {1}}});
  scene.main.emitBytes(bytes);
  EXPECT_EQ(findings(scene),
            "JUMP_IF_FALSE: error: jumps to offset 7, behind code that cannot be decoded\n"
            "function 0, offset 6: error: byte 206 is no opcode");
}

TEST(ValidatorDecoder, KnowsInstructionsBeforeUndecodableBytes) {
  Scene scene;
  const uint8_t bytes[] = {206};
  scene.write({{VM_OP_JUMP, {1}}, {VM_OP_PUSH_U8, {0}}});
  scene.main.emitBytes(bytes);
  EXPECT_EQ(findings(scene),
            "JUMP: error: jumps to offset 6, into the middle of an instruction\n"
            "function 0, offset 7: error: byte 206 is no opcode");
}

TEST(ValidatorDecoder, FindsATruncatedInstruction) {
  Scene scene;
  const uint8_t bytes[] = {VM_OP_CTOR_VEC4_A, 9, 0, 1, 1};
  scene.main.emit(VM_OP_HALT);
  scene.main.emitBytes(bytes);
  EXPECT_EQ(findings(scene), "CTOR_VEC4_A: error: the code ends inside the instruction");
}

}  // namespace
}  // namespace shadermachine::tools
