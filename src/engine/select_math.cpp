// Record selection: arithmetic, functions and products.

#include "engine/translator.h"

namespace shadermachine::engine {
namespace {

StepPair geometrySteps(Opcode opcode, uint32_t n, unsigned form) {
  switch (opcode) {
    case Opcode::LENGTH:
      return lengthSteps(n, form);
    case Opcode::NORMALIZE:
      return normalizeSteps(n, form);
    case Opcode::DISTANCE:
      return distanceSteps(n, form);
    case Opcode::DOT:
      return dotSteps(n, form);
    case Opcode::CROSS:
      return crossSteps(form);
    case Opcode::REFLECT:
      return reflectSteps(n, form);
    case Opcode::REFRACT:
      return refractSteps(n);
    default:
      return faceforwardSteps(n);
  }
}

}  // namespace

bool Translator::isReadable(const Entry& entry, uint32_t n) {
  if (entry.block || entry.lazyView) return false;
  if (entry.width >= n) return true;
  out_.demandAll(entry);  // words that an instruction was to leave behind are read after all
  return false;
}

bool Translator::beginResult(const Instruction& item, uint32_t operands, uint32_t n) {
  const int32_t s = out_.top - static_cast<int32_t>(operands) + 1;
  // A three-component result is stored as four words.
  if (item.keepsWords && n == 3) return false;
  out_.prepareHome(s, s);
  if (item.keepsWords) out_.flushSlot(s);
  return true;
}

void Translator::endResult(Instruction& item, const Entry& first, uint32_t n) {
  Entry& result = out_.topEntry();
  if (item.keepsWords && first.width > n) {
    out_.memory(result, n);
    result.width = first.width;
    result.narrowedBy = nullptr;
  } else {
    result.narrowedBy = first.width > n ? &item : first.narrowedBy;
  }
}

bool Translator::selectKernel(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  const KernelForms& forms = kernelForms(static_cast<unsigned>(item.opcode));
  if (forms.operands == 0) return false;
  const bool counted = opcodeInfo(item.opcode).operands[0] != OperandKind::None;
  const uint32_t n = counted ? operandU8(code, item.pc + 1) : 1;
  if (n == 0 || n > 4) return false;
  const uint32_t m = forms.operands;
  for (uint32_t i = 0; i < m; ++i) {
    const bool scalar = n == 1 || ((forms.scalarOperands >> i) & 1) != 0;
    if (!isReadable(out_.topEntry(static_cast<int32_t>(m - 1 - i)), scalar ? 1 : n)) return false;
  }
  const uint32_t written = forms.singleWord ? 1 : n;
  if (!beginResult(item, m, written)) return false;
  const Entry first = out_.topEntry(static_cast<int32_t>(m - 1));
  if (!item.keepsWords && selectJoined(item, n)) {
    endResult(item, first, written);
    return true;
  }

  Record record = {};
  const uint32_t** addresses[3] = {&record.a, &record.b, &record.c};
  unsigned form = 0;
  for (uint32_t i = 0; i < m; ++i) {
    const Entry& entry = out_.topEntry(static_cast<int32_t>(m - 1 - i));
    const bool scalar = n == 1 || ((forms.scalarOperands >> i) & 1) != 0;
    const Register where = scalar ? forms.argument : Register::Vector;
    const uint32_t words = scalar ? 1 : n;
    if (forms.hasAllForms && (m < 3 || form == 0) && out_.inRegister(entry, where, words)) {
      form = m < 3 ? form | 1u << i : i + 1;
    } else {
      *addresses[i] = out_.memory(entry, words);
    }
  }
  const int32_t s = out_.top - static_cast<int32_t>(m) + 1;
  const Register result = forms.singleWord ? Register::Word
                          : n == 1         ? forms.result
                                           : Register::Vector;
  if (n == 1) {
    out_.nextBranch = forms.branches[form];
    loopForm_ = forms.loops[form];
  }
  const RecordHandler* steps = forms.steps[n - 1][form];
  out_.produce(record, {steps[0], steps[1]}, result, written, s);
  lastOperation_ = {out_.recordCount() - 1, static_cast<unsigned>(item.opcode), form, n};
  endResult(item, first, written);
  return true;
}

bool Translator::selectJoined(const Instruction& item, uint32_t n) {
  using enum Opcode;
  if (lastOperation_.record + 1 != out_.recordCount()) return false;
  if (lastOperation_.opcode == kSplat) {
    return n > 1 && (item.opcode == MUL_F || item.opcode == COMP_MUL_F) && selectScale(n);
  }
  if (lastOperation_.opcode == static_cast<unsigned>(DOT)) {
    return n == 1 && item.opcode == MAX && selectDotMax();
  }
  const bool pairs = lastOperation_.n == n &&
                     isPairable(lastOperation_.opcode, static_cast<unsigned>(item.opcode));
  return pairs && selectPair(item, n);
}

bool Translator::selectScale(uint32_t n) {
  const Entry left = out_.topEntry(1);
  const Entry right = out_.topEntry();
  const bool splatFirst = out_.inRegister(left, Register::Vector, n);
  if (splatFirst == out_.inRegister(right, Register::Vector, n)) return false;
  const Entry& other = splatFirst ? right : left;
  const int32_t s = out_.top - 1;
  const uint32_t* address = out_.memory(other, n);
  Record splat = {};
  if (!out_.takeBack(splatFirst ? left : right, Register::Vector, s, splat)) return false;
  Record record = {};
  record.a = address;
  record.b = splat.a;
  const unsigned form = (lastOperation_.form != 0 ? 2u : 0u) |
                        (out_.inRegister(other, Register::Vector, n) ? 1u : 0u);
  const RecordHandler* steps = scaleForms().steps[n - 1][form];
  out_.produce(record, {steps[0], steps[1]}, Register::Vector, n, s);
  lastOperation_ = {out_.recordCount() - 1, kScaleOperation, form, n};
  return true;
}

bool Translator::selectDotMax() {
  const int32_t s = out_.top - 1;
  const Entry product = out_.topEntry(1);
  if (!out_.inRegister(product, Register::Scalar, 1) ||
      out_.inRegister(out_.topEntry(), Register::Scalar, 1)) {
    return false;
  }
  const uint32_t* bound = out_.memory(out_.topEntry(), 1);
  Record record = {};
  if (!out_.takeBack(product, Register::Scalar, s, record)) return false;
  record.c = bound;
  out_.produce(record, dotMaxSteps(lastOperation_.n, lastOperation_.form), Register::Scalar, 1, s);
  return true;
}

bool Translator::selectPair(const Instruction& item, uint32_t n) {
  const Register where = n == 1 ? Register::Scalar : Register::Vector;
  const Entry left = out_.topEntry(1);
  const Entry right = out_.topEntry();
  const bool swapped = out_.inRegister(right, where, n);
  if (swapped == out_.inRegister(left, where, n)) return false;
  const Entry& inner = swapped ? right : left;
  const Entry& other = swapped ? left : right;
  const int32_t s = out_.top - 1;
  Record record = {};
  const uint32_t* address = out_.memory(other, n);
  if (!out_.takeBack(inner, where, s, record)) return false;
  record.c = address;
  const auto opcode = static_cast<unsigned>(item.opcode);
  out_.produce(record, pairSteps(lastOperation_.opcode, opcode, swapped, n, lastOperation_.form),
               where, n, s);
  lastOperation_.record = UINT32_MAX - 1;
  return true;
}

bool Translator::selectGeometry(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  using enum Opcode;
  const uint32_t n = item.opcode == CROSS ? 3 : operandU8(code, item.pc + 1);
  if (n < 2 || n > 4) return false;
  const uint32_t m = static_cast<uint8_t>(opcodeInfo(item.opcode).pops);
  for (uint32_t i = 0; i < m; ++i) {
    const bool eta = item.opcode == REFRACT && i == 0;
    if (!isReadable(out_.topEntry(static_cast<int32_t>(i)), eta ? 1 : n)) return false;
  }
  const bool replaces = item.opcode == CROSS || item.opcode == REFLECT || item.opcode == REFRACT;
  const bool single = item.opcode == LENGTH || item.opcode == DISTANCE || item.opcode == DOT;
  const uint32_t written = single ? 1 : n;
  if (!beginResult(item, m, written)) return false;

  Record record = {};
  const uint32_t** addresses[3] = {&record.a, &record.b, &record.c};
  const Entry first = out_.topEntry(static_cast<int32_t>(m - 1));
  unsigned form = 0;
  for (uint32_t i = 0; i < m; ++i) {
    const Entry& entry = out_.topEntry(static_cast<int32_t>(m - 1 - i));
    if (m < 3 && out_.inRegister(entry, Register::Vector, n)) {
      form |= 1u << i;
    } else {
      *addresses[i] = out_.memory(entry, m == 3 && item.opcode == REFRACT && i == 2 ? 1 : n);
    }
  }
  if (m == 1) record.b = record.a;
  const int32_t s = out_.top - static_cast<int32_t>(m) + 1;
  out_.produce(record, geometrySteps(item.opcode, n, form),
               single ? Register::Scalar : Register::Vector, written, s);
  if (item.opcode == DOT) {
    lastOperation_ = {out_.recordCount() - 1, static_cast<unsigned>(DOT), form, n};
  }
  if (!replaces) endResult(item, first, written);
  return true;
}

bool Translator::selectProduct(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  using enum Opcode;
  const uint32_t n = operandU8(code, item.pc + 1);
  if (n < 2 || n > 4) return false;
  const bool matrixFirst = item.opcode != MUL_VEC_MAT;
  const bool matrixSecond = item.opcode != MUL_MAT_VEC;
  const Entry a = out_.topEntry(1);
  const Entry b = out_.topEntry();
  if (!isReadable(a, matrixFirst ? n * n : n) || !isReadable(b, matrixSecond ? n * n : n)) {
    return false;
  }
  const int32_t s = out_.top - 1;
  out_.prepareHome(s, s);
  Record record = {};
  record.x = n;
  if (matrixFirst && matrixSecond) {
    record.a = out_.memory(a, n * n);
    record.b = out_.memory(b, n * n);
    record.run = &matrixMatrixStep;
    out_.produceInMemory(record, n * n, s);
    return true;
  }
  const unsigned form = matrixFirst ? (out_.inRegister(b, Register::Vector, n) ? 2u : 0u)
                                    : (out_.inRegister(a, Register::Vector, n) ? 1u : 0u);
  if (form != 1) record.a = out_.memory(a, matrixFirst ? n * n : n);
  if (form != 2) record.b = out_.memory(b, matrixSecond ? n * n : n);
  out_.produce(record, matrixFirst ? matrixVectorSteps(n, form) : vectorMatrixSteps(n, form),
               Register::Vector, n, s);
  return true;
}

bool Translator::selectNoise(Instance& instance, Instruction& item) {
  const uint8_t* code = instance.function->code;
  const uint32_t n = operandU8(code, item.pc + 1);
  const uint32_t results =
      static_cast<uint32_t>(item.opcode) - static_cast<uint32_t>(Opcode::NOISE1) + 1;
  const Entry first = out_.topEntry();
  if (n > 4 || !isReadable(first, n) || !beginResult(item, 1, results)) return false;
  Record record = {};
  record.a = out_.memory(out_.topEntry(), n);
  record.x = n;
  out_.produce(record, noiseSteps(results), results == 1 ? Register::Scalar : Register::Vector,
               results, out_.top);
  endResult(item, first, results);
  return true;
}

}  // namespace shadermachine::engine
