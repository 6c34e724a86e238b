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

}  // namespace

Body instruction(VmOpcode opcode, std::vector<int64_t> operands, size_t inputs) {
  return [=](ShaderBuilder& shader, FunctionBuilder& code) {
    for (size_t i = 0; i < inputs; ++i) code.load(addInput(shader));
    code.emit(opcode, operands);
  };
}

Program onInputs(VmOpcode opcode, std::vector<int64_t> operands, std::vector<Words> inputs,
                 Words top) {
  return {.opcode = opcode,
          .title = "",
          .body = instruction(opcode, std::move(operands), inputs.size()),
          .inputs = std::move(inputs),
          .top = std::move(top),
          .keepsRest = true};
}

Program giving(VmOpcode opcode, std::string title, Body body, Words top, int32_t height) {
  return {.opcode = opcode,
          .title = std::move(title),
          .body = std::move(body),
          .top = std::move(top),
          .height = height};
}

Program failing(VmOpcode opcode, std::string title, Body body, VmError error) {
  return {.opcode = opcode, .title = std::move(title), .body = std::move(body), .error = error};
}

BuiltShader buildProgram(const Program& program) {
  return buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
    program.body(shader, code);
    if (program.height == 0) code.emit(VM_OP_PUSH_EMPTY);  // the probe takes a slot
    probe(code);
    code.emit(VM_OP_RETURN);
  });
}

void check(const Program& program) {
  SCOPED_TRACE("opcode " + std::to_string(program.opcode) + ", " + program.title);
  const int64_t liveBefore = liveAllocations();
  {
    Rig rig;
    rig.inputs = program.inputs;
    const BuiltShader shader = buildProgram(program);
    EXPECT_EQ(rig.run(shader), program.error);
    EXPECT_EQ(rig.count(kProbe), program.error == VM_OK ? 1u : 0u);
    if (rig.count(kProbe) == 1) checkTop(program, rig.only(kProbe));
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

}  // namespace shadermachine::tests
