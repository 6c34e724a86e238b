// Every function of rows, in every instruction set that this processor has, against the plain
// handlers.

#include "batch/rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "instructions/opcode_info.h"
#include "instructions/opcode_table.h"
#include "machine/machine.h"
#include "noise/tables.h"
#include "support/rig.h"
#include "support/row_call.h"

namespace shadermachine::tests {
namespace {

using batch::InstructionSet;
using batch::kRowWords;

struct alignas(batch::kRowBytes) Rows {
  uint32_t words[VM_COMPONENT_COUNT][kRowWords];
};

// Words that arithmetic treats specially beside random ones of all sizes.
uint32_t anyWord(std::mt19937& random) {
  constexpr uint32_t kSpecial[] = {0,          0x80000000, 1,          0xFFFFFFFF, 0x7FFFFFFF,
                                   0x3F800000, 0xBF800000, 0x7F800000, 0xFF800000, 0x7FC00000,
                                   0x00000001, 0x00800000, 0x4B000000, 0xCB000001, 0x3F000000};
  const uint32_t word = static_cast<uint32_t>(random());
  switch (random() % 4) {
    case 0:
      return kSpecial[word % std::size(kSpecial)];
    case 1:
      return word;
    case 2:  // a float between -4 and 4
      return std::bit_cast<uint32_t>(
          std::ldexp(static_cast<float>(static_cast<int32_t>(word)), -29));
    default:
      return word % 8;
  }
}

const OpcodeInfo& infoOf(unsigned opcode) { return opcodeInfo(static_cast<Opcode>(opcode)); }

bool isNan(uint32_t word) { return (word & 0x7FFFFFFF) > 0x7F800000; }

class RowsTest : public testing::TestWithParam<InstructionSet> {
 protected:
  RowsTest() { noiseTablesFill(noiseTables()); }

  void fill(uint32_t n) {
    for (Rows& operand : operands_) {
      for (auto& row : operand.words) {
        for (uint32_t& word : row) word = anyWord(random_);
      }
    }
    // So that dot products and lengths of usual numbers are among them too.
    for (uint32_t i = 0; i < n; ++i) operands_[1].words[i][0] = operands_[0].words[i][0];
    result_ = operands_[0];
  }

  // The slot that the plain handler leaves on top for one invocation.
  const uint32_t* plainResult(unsigned opcode, uint32_t operands, uint32_t n, uint32_t at) {
    const uint8_t code[8] = {static_cast<uint8_t>(n)};
    machine_->frames[0] = {nullptr, code, machine_->stack, 0, static_cast<int32_t>(operands) - 1};
    machine_->frameIndex = 0;
    machine_->runState = VM_RUN_RUNNING;
    for (uint32_t k = 0; k < operands; ++k) {
      for (uint32_t w = 0; w < VM_COMPONENT_COUNT; ++w) {
        machine_->stack[k].value.words[w] = operands_[k].words[w][at];
      }
    }
    kHandlers[opcode](*machine_);
    machine_->frameIndex = -1;
    machine_->runState = VM_RUN_IDLE;
    return machine_->stack[0].value.words;
  }

  // Where a handler clears words, the function of rows leaves them alone.
  void expectSame(unsigned opcode, uint32_t operands, uint32_t n) {
    const std::string_view name = infoOf(opcode).mnemonic;
    const bool isBits = name.ends_with("_I") || name.ends_with("_B") || name.starts_with("BIT");
    for (uint32_t at = 0; at < kRowWords; ++at) {
      const uint32_t* plain = plainResult(opcode, operands, n, at);
      for (uint32_t w = 0; w < VM_COMPONENT_COUNT; ++w) {
        const uint32_t word = result_.words[w][at];
        const bool isSame = word == plain[w] || (!isBits && isNan(word) && isNan(plain[w])) ||
                            (plain[w] == 0 && word == operands_[0].words[w][at]);
        ASSERT_TRUE(isSame) << name << " " << n << ": word " << w << " " << std::hex << plain[w]
                            << " " << word;
      }
    }
  }

  std::mt19937 random_{1};
  Rows operands_[3];
  Rows result_;
  MachinePtr owner_ = makeMachine();
  Machine* machine_ = static_cast<Machine*>(owner_.get());
};

TEST_P(RowsTest, FunctionsComputeWhatHandlersDo) {
  const batch::RowFunctions* functions = batch::rowFunctions(GetParam());
  if (functions == nullptr) GTEST_SKIP() << "not on this processor";
  uint32_t tested = 0;
  for (unsigned opcode = 0; opcode < kOpcodeCount; ++opcode) {
    const batch::StepForms forms = functions->byOpcode[opcode];
    if (forms.plain == nullptr) continue;
    const uint32_t operands = static_cast<uint32_t>(infoOf(opcode).pops);
    for (uint32_t round = 0; round < 40; ++round) {
      const bool isCounted = infoOf(opcode).operands[0] != OperandKind::None;
      const uint32_t n = isCounted ? round % 4 + 1 : 1;
      fill(n);
      callRows(*functions, round % 2 == 0 ? forms.plain : forms.masked, result_.words[0],
               {operands_[0].words[0], operands_[1].words[0], operands_[2].words[0]}, n);
      expectSame(opcode, operands, n);
      if (HasFatalFailure()) return;
    }
    ++tested;
  }
  EXPECT_GT(tested, 100u);
}

// Quotients next to whole numbers are where a reciprocal could round the wrong way.
TEST_P(RowsTest, DivisionsByConstantsAreExact) {
  const batch::RowFunctions* functions = batch::rowFunctions(GetParam());
  if (functions == nullptr) GTEST_SKIP() << "not on this processor";
  const batch::StepForms forms = functions->byOpcode[static_cast<unsigned>(Opcode::DIV_I)];
  for (uint32_t round = 0; round < 3000; ++round) {
    fill(1);
    const uint32_t divisor = anyWord(random_) >> random_() % 31;
    for (uint32_t at = 0; at < kRowWords; ++at) {
      operands_[1].words[0][at] = divisor;
      const uint32_t multiple = divisor * (anyWord(random_) >> random_() % 31);
      if (at % 4 != 0) operands_[0].words[0][at] = multiple + at % 4 - 2;
    }
    Rows expected;
    callRows(*functions, forms.plain, expected.words[0],
             {operands_[0].words[0], operands_[1].words[0], operands_[1].words[0]}, 1);
    callRows(*functions, functions->divideByConstant.plain, result_.words[0],
             {operands_[0].words[0], operands_[1].words[0], operands_[1].words[0]}, 1);
    ASSERT_TRUE(std::ranges::equal(expected.words[0], result_.words[0])) << divisor;
  }
}

INSTANTIATE_TEST_SUITE_P(Sets, RowsTest,
                         testing::Values(InstructionSet::Baseline, InstructionSet::Avx2,
                                         InstructionSet::Avx512));

}  // namespace
}  // namespace shadermachine::tests
