#include "support/program.h"

#include <gtest/gtest.h>

#include "support/allocations.h"

namespace shadermachine::tests {
namespace {

void checkTop(const Program& program, const HostCall& seen) {
  EXPECT_EQ(seen.top + 1, program.height == 0 ? 1 : program.height);
  if (program.top.empty() || seen.stack.empty()) return;
  const InlineValue& top = seen.stack.back().value;
  EXPECT_EQ(top.block, nullptr);
  const size_t checked = program.keepsRest ? size_t{VM_COMPONENT_COUNT} : program.top.size();
  for (size_t i = 0; i < checked; ++i) {
    const Words& input = program.inputs.empty() ? Words{} : program.inputs[0];
    const uint32_t expected = i < program.top.size() ? program.top[i]
                              : i < input.size()     ? input[i]
                                                     : fillerWord(0, i);
    EXPECT_TRUE(matches(top.words[i], expected))
        << "component " << i << " is " << std::hex << top.words[i] << ", not " << expected;
  }
}

std::shared_ptr<const BuiltShader> build(const Body& body, int32_t height) {
  return std::make_shared<BuiltShader>(
      buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
        body(shader, code);
        if (height == 0) code.emit(VM_OP_PUSH_EMPTY);  // the probe takes a slot
        probe(code);
        code.emit(VM_OP_RETURN);
      }));
}

}  // namespace

Program onInputs(VmOpcode opcode, std::vector<int64_t> operands, std::vector<Words> inputs,
                 Words top) {
  const auto body = [&](ShaderBuilder& shader, FunctionBuilder& code) {
    for (size_t i = 0; i < inputs.size(); ++i) code.load(addInput(shader));
    code.emit(opcode, operands);
  };
  return {.opcode = opcode,
          .title = "",
          .shader = build(body, 1),
          .inputs = std::move(inputs),
          .top = std::move(top),
          .keepsRest = true};
}

Program giving(VmOpcode opcode, std::string title, const Body& body, Words top, int32_t height) {
  return {.opcode = opcode,
          .title = std::move(title),
          .shader = build(body, height),
          .top = std::move(top),
          .height = height};
}

void check(const Program& program) {
  SCOPED_TRACE("opcode " + std::to_string(program.opcode) + ", " + program.title);
  const int64_t liveBefore = liveAllocations();
  {
    Rig rig;
    rig.inputs = program.inputs;
    EXPECT_EQ(rig.run(*program.shader), program.error);
    EXPECT_EQ(rig.count(kProbe), program.error == VM_OK ? 1u : 0u);
    if (rig.count(kProbe) == 1) checkTop(program, rig.only(kProbe));
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

}  // namespace shadermachine::tests
