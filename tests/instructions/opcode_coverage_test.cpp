// Every row of the opcode table has a program that executes it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "instructions/opcode_info.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

std::vector<Program> allPrograms() {
  std::vector<Program> all;
  for (auto family :
       {textPrograms, builtinVariablePrograms, componentPrograms, hostPrograms, noisePrograms}) {
    for (Program& program : family()) all.push_back(std::move(program));
  }
  return all;
}

// A copy of the shader in which an illegal byte stands wherever the entry function has the opcode.
struct Sabotaged {
  Sabotaged(const BuiltShader& shader, VmOpcode opcode) : record(*shader.record()) {
    code.assign(record.code, record.code + shader.view().codeSize);
    for (uint32_t pc = 0; pc < code.size();) {
      const uint32_t size = instructionLength(&code[pc], static_cast<uint32_t>(code.size()) - pc);
      if (size == 0) break;
      if (code[pc] == opcode) code[pc] = 0xFF;
      pc += size;
    }
    record.code = code.data();
  }

  CompiledShader record;
  std::vector<uint8_t> code;
};

TEST(OpcodeCoverage, EveryOpcodeIsExecuted) {
  std::array<bool, kOpcodeCount> covered = {};
  for (const Program& program : allPrograms()) {
    if (covered[program.opcode]) continue;
    const Sabotaged sabotaged(*program.shader, program.opcode);
    Rig rig;
    rig.inputs = program.inputs;
    covered[program.opcode] = rig.run(&sabotaged.record) == VM_ERR_ILLEGAL_INSTRUCTION;
  }
  for (unsigned opcode = 0; opcode < kOpcodeCount; ++opcode) {
    EXPECT_TRUE(covered[opcode]) << kOpcodeTable[opcode].mnemonic;
  }
}

TEST(OpcodeCoverage, EveryProgramHolds) {
  for (const Program& program : allPrograms()) check(program);
}

bool isLimited(OperandKind kind) { return operandLimit(kind) != 0; }

// Operands of the instruction with one past the limit in place of its count.
std::vector<int64_t> operandsBeyondLimit(const OpcodeInfo& info) {
  std::vector<int64_t> operands;
  for (OperandKind kind : info.operands) {
    if (kind != OperandKind::None) operands.push_back(isLimited(kind) ? operandLimit(kind) + 1 : 0);
  }
  return operands;
}

TEST(OpcodeCoverage, CountsBeyondTheirLimitStopTheRunAndWriteNothing) {
  for (unsigned number = 0; number < kOpcodeCount; ++number) {
    const OpcodeInfo& info = kOpcodeTable[number];
    if (std::ranges::none_of(info.operands, isLimited)) continue;
    SCOPED_TRACE(info.mnemonic);
    Rig rig;
    rig.inputs.resize(3);
    const BuiltShader shader = buildShader([&](ShaderBuilder& tables, FunctionBuilder& code) {
      code.addLocal({.name = "local", .type = VM_TYPE_VEC4});
      for (int i = 0; i < 3; ++i) code.load(addInput(tables));
      code.emit(VM_OP_PUSH_INDEX_IMM, {0});
      code.emit(static_cast<VmOpcode>(number), operandsBeyondLimit(info));
      code.emit(VM_OP_RETURN);
    });
    EXPECT_EQ(rig.run(shader), VM_ERR_INVALID_SHADER);
    for (size_t slot = 0; slot < 3; ++slot) {
      for (size_t i = 0; i < VM_COMPONENT_COUNT; ++i) {
        EXPECT_EQ(rig.machine->stack[4 + slot].value.words[i], fillerWord(slot, i));
      }
    }
  }
}

TEST(OpcodeCoverage, BytesPastTheTableAreIllegal) {
  for (unsigned byte = kOpcodeCount; byte < 256; ++byte) {
    Rig rig;
    const uint8_t code = static_cast<uint8_t>(byte);
    const BuiltShader shader = buildShader([&](ShaderBuilder&, FunctionBuilder& function) {
      function.emitBytes({&code, 1});
    });
    EXPECT_EQ(rig.run(shader), VM_ERR_ILLEGAL_INSTRUCTION) << byte;
  }
}

}  // namespace
}  // namespace shadermachine::tests
