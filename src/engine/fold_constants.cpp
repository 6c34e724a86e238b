// Constants folded by the handlers that would have computed them: the same bits.

#include "engine/improve.h"
#include "engine/kernel_table.h"
#include "instructions/operand_shapes.h"

namespace shadermachine::engine {
namespace {

using form::Form;
using form::Kind;
using form::Operation;

Step endStep(ENGINE_STATE) { ENGINE_END; }

// Handlers read vectors of three components as four words.
constexpr uint32_t kWordsRead = 4;

struct ConstantWords {
  alignas(16) uint32_t words[kWordsRead] = {};
};

bool readOperands(const Form& form, const Operation& operation, ConstantWords* values) {
  const uint32_t operands = operandCount(operation);
  for (uint32_t i = 0; i < operands; ++i) {
    const Operation& made = form.operations[operation.in[i].value];
    if (made.kind != Kind::Constant) return false;
    for (uint32_t w = 0; w < operandWords(operation, i); ++w) {
      values[i].words[w] = *form.constantWords(made, operation.in[i].first + w);
    }
  }
  return true;
}

void becomeConstant(Form& form, Operation& operation, const uint32_t* words) {
  const uint32_t first = form.constants.size();
  for (uint32_t w = 0; w < operation.words; ++w) form.constants.append(words[w]);
  if (form.constants.failed()) return;
  const uint8_t count = operation.words;
  operation = {};
  operation.kind = Kind::Constant;
  operation.words = count;
  operation.first = first;
}

void foldOperate(Form& form, Operation& operation, const ConstantWords* values, Machine& machine) {
  const KernelForms& forms = kernelForms(static_cast<unsigned>(operation.opcode));
  ConstantWords result;
  Record records[2] = {};
  records[0].run = forms.steps[operation.n - 1][0][1];
  records[0].a = values[0].words;
  records[0].b = values[1].words;
  records[0].c = values[2].words;
  records[0].d = result.words;
  records[1].run = &endStep;
  runRecords(records, machine);
  becomeConstant(form, operation, result.words);
}

}  // namespace

void foldConstants(Form& form, Machine& machine) {
  for (uint32_t i = 0; i < form.operations.size(); ++i) {
    Operation& operation = form.operations[i];
    ConstantWords values[4];
    if (operation.kind == Kind::Operate && operandShape(operation.opcode).isComponentWise) {
      if (readOperands(form, operation, values)) foldOperate(form, operation, values, machine);
    } else if (operation.kind == Kind::Compose && readOperands(form, operation, values)) {
      const uint32_t words[4] = {values[0].words[0], values[1].words[0], values[2].words[0],
                                 values[3].words[0]};
      becomeConstant(form, operation, words);
    }
  }
}

}  // namespace shadermachine::engine
