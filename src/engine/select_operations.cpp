// Records of operations on values: arithmetic, functions, products, constructors, parts.

#include <algorithm>
#include <bit>

#include "engine/selector.h"
#include "instructions/operand_shapes.h"

namespace shadermachine::engine {
namespace {

bool isIntegerPower(uint32_t word) {
  return std::has_single_bit(word) && static_cast<int32_t>(word) > 1;
}

// A power of 2 whose reciprocal is a normal number too: a quotient is then a product, to the bit.
bool isFloatPower(uint32_t word) {
  const uint32_t exponent = (word >> 23) & 255;
  return (word & 0x007FFFFF) == 0 && exponent != 0 && exponent < 254;
}

uint32_t reciprocal(uint32_t word) {
  return std::bit_cast<uint32_t>(1.0f / std::bit_cast<float>(word));
}

bool isProduct(const Operation& operation) {
  return operation.kind == Kind::Operate &&
         (operation.opcode == Opcode::MUL_F || operation.opcode == Opcode::COMP_MUL_F);
}

bool isSplat(const Operation& operation) {
  if (operation.kind != Kind::Compose) return false;
  for (uint32_t i = 1; i < operation.words; ++i) {
    if (!(operation.in[i] == operation.in[0])) return false;
  }
  return true;
}

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

// Joined records ----------------------------------------------------------------------------------

// True when the operation that makes operand i can be part of this operation's record.
bool Selector::joins(const Operation& user, uint32_t i, Value value) const {
  const Operation& inner = operation(value);
  if (user.kind != Kind::Operate || user.in[i].first != 0) return false;
  if (isSplat(inner)) return user.n > 1 && inner.words == user.n && isProduct(user);
  if (inner.kind != Kind::Operate) return false;
  if (inner.opcode == Opcode::DOT) return user.opcode == Opcode::MAX && user.n == 1 && i == 0;
  // A splat that the inner operation has taken along makes it a scaling; there is no record for
  // four operations.
  unsigned first = numberOf(inner);
  const uint32_t operands = operandCount(inner);
  for (uint32_t k = 0; k < operands; ++k) {
    if (!values_[inner.in[k].value].joined) continue;
    if (!isSplat(operation(inner.in[k].value))) return false;
    first = kScaleOperation;
  }
  return inner.n == user.n && isPairable(first, numberOf(user), user.n);
}

// The operation's number among those that records have. Divisions by constants are something
// cheaper where that gives the same bits.
unsigned Selector::numberOf(const Operation& operation) const {
  const auto number = static_cast<unsigned>(operation.opcode);
  const bool divides = operation.opcode == Opcode::DIV_I || operation.opcode == Opcode::DIV_F ||
                       operation.opcode == Opcode::DIV_VS_F;
  if (!divides) return number;
  const Operation& divisor = this->operation(operation.in[1].value);
  if (divisor.kind != Kind::Constant) return number;
  const uint32_t* words = form_.constantWords(divisor, operation.in[1].first);
  if (operation.opcode == Opcode::DIV_VS_F) return operation.n > 1 ? kScaleOperation : number;
  if (operation.opcode == Opcode::DIV_I) {
    return operation.n == 1 && isIntegerPower(*words) ? kShiftOperation : number;
  }
  const bool arePowers = std::all_of(words, words + operation.n, isFloatPower);
  return arePowers ? static_cast<unsigned>(Opcode::MUL_F) : number;
}

// An operand of a kernel, in memory: what the constant divisor has become, if it has.
const uint32_t* Selector::kernelOperand(const Operation& operation, uint32_t i) {
  const unsigned number = numberOf(operation);
  const Operand given = operation.in[i];
  if (i != 1 || number == static_cast<unsigned>(operation.opcode)) return memory(given);
  const uint32_t n = number == static_cast<unsigned>(Opcode::MUL_F) ? operation.n : 1;
  // Three components are read as four words.
  auto* words = arena_.allocate<uint32_t>(4);
  if (words == nullptr) return memory(given);  // the selection has failed
  const uint32_t* divisor = form_.constantWords(this->operation(given.value), given.first);
  for (uint32_t w = 0; w < n; ++w) {
    words[w] = number == kShiftOperation ? static_cast<uint32_t>(std::countr_zero(divisor[w]))
                                         : reciprocal(divisor[w]);
  }
  return words;
}

bool Selector::selectJoined(const Operation& operation) {
  const uint32_t operands = operandCount(operation);
  for (uint32_t i = 0; i < operands; ++i) {
    const Value value = operation.in[i].value;
    if (!values_[value].joined) continue;
    const Operation& inner = this->operation(value);
    if (isSplat(inner)) {
      selectScale(operation, i);
    } else if (inner.opcode == Opcode::DOT) {
      selectDotMax(operation);
    } else {
      selectPair(operation, i);
    }
    return true;
  }
  return false;
}

// Fills in a and b of a product of a vector and a splatted scalar, operand `splat`.
unsigned Selector::scaleOperands(const Operation& operation, uint32_t splat, Record& record) {
  // Addresses and registers can be asked for in any order: memory() lets a record store what it
  // leaves in a register, and empties none.
  const Operand vector = operation.in[1 - splat];
  const Operand scalar = this->operation(operation.in[splat].value).in[0];
  unsigned form = 0;
  if (inRegister(vector, Register::Vector, operation.n)) {
    form |= 1;
  } else {
    record.a = memory(vector);
  }
  if (inRegister(scalar, Register::Scalar, 1)) {
    form |= 2;
  } else {
    record.b = memory(scalar);
  }
  return form;
}

void Selector::selectScale(const Operation& operation, uint32_t splat) {
  Record record = {};
  const unsigned form = scaleOperands(operation, splat, record);
  const RecordHandler* steps = kernelForms(kScaleOperation).steps[operation.n - 1][form];
  produce(record, {steps[0], steps[1]}, Register::Vector);
}

void Selector::selectDotMax(const Operation& operation) {
  const Operation& product = this->operation(operation.in[0].value);
  Record record = {};
  // The record has the product's operands and this one; the product itself is never anywhere.
  record.c = memory(operation.in[1]);
  const unsigned form = vectorOperands(product, record);
  produce(record, dotMaxSteps(product.n, form), Register::Scalar);
}

// Whether the pair's other operand is in the register too, as a of the first operation.
bool Selector::readsTwice(const Operation& first, Operand other) const {
  const Register argument = kernelForms(static_cast<unsigned>(first.opcode)).argument;
  return argument == Register::Word && other == first.in[0] && inRegister(other, argument, 1);
}

// The first operation's operands. No register changes when a record is made to store what it leaves
// there, so operands can be asked for in any order.
unsigned Selector::pairOperands(const Operation& first, Record& record) {
  for (uint32_t k = 0; k < 2; ++k) {
    if (values_[first.in[k].value].joined) return scaleOperands(first, k, record);
  }
  const Register argument = kernelForms(static_cast<unsigned>(first.opcode)).argument;
  const Register where = first.n == 1 ? argument : Register::Vector;
  const uint32_t** addresses[2] = {&record.a, &record.b};
  unsigned form = 0;
  for (uint32_t k = 0; k < 2; ++k) {
    const bool hasForm = form == 0 || where != Register::Word;
    if (hasForm && inRegister(first.in[k], where, first.n)) {
      form |= 1u << k;
    } else {
      *addresses[k] = kernelOperand(first, k);
    }
  }
  return form;
}

void Selector::selectPair(const Operation& operation, uint32_t inner) {
  const Operation& first = this->operation(operation.in[inner].value);
  const uint32_t n = operation.n;
  const bool isScale = values_[first.in[0].value].joined || values_[first.in[1].value].joined;
  Record record = {};
  unsigned form = 0;
  if (operandCount(operation) == 2 && readsTwice(first, operation.in[1 - inner])) {
    form = kFirstAndOther;
    record.b = kernelOperand(first, 1);
  } else {
    if (operandCount(operation) == 2) record.c = kernelOperand(operation, 1 - inner);
    form = pairOperands(first, record);
  }
  const Register result =
      n == 1 ? kernelForms(static_cast<unsigned>(operation.opcode)).result : Register::Vector;
  const unsigned number = isScale ? kScaleOperation : numberOf(first);
  produce(record, pairSteps(number, numberOf(operation), inner == 1, n, form), result);
}

// Arithmetic and functions ------------------------------------------------------------------------

void Selector::selectOperate(const Operation& operation) {
  if (selectJoined(operation)) return;
  if (operandShape(operation.opcode).isComponentWise) return selectKernel(operation);
  if (operation.opcode >= Opcode::NOISE1 && operation.opcode <= Opcode::NOISE4) {
    return selectNoise(operation);
  }
  if (operation.opcode >= Opcode::MUL_MAT_MAT && operation.opcode <= Opcode::MUL_MAT_VEC) {
    return selectProduct(operation);
  }
  selectGeometry(operation);
}

void Selector::selectKernel(const Operation& operation) {
  const unsigned number = numberOf(operation);
  const KernelForms& forms = kernelForms(number);
  const uint32_t n = operation.n;
  const uint32_t operands = forms.operands;
  Record record = {};
  const uint32_t** addresses[3] = {&record.a, &record.b, &record.c};
  unsigned form = 0;
  for (uint32_t i = 0; i < operands; ++i) {
    // Of three operands at most one comes from a register: forms for more would be many and hardly
    // used.
    const bool scalar = n == 1 || ((forms.scalarOperands >> i) & 1) != 0;
    const Register where = scalar ? forms.argument : Register::Vector;
    if (forms.hasAllForms && (operands < 3 || form == 0) &&
        inRegister(operation.in[i], where, scalar ? 1 : n)) {
      form = operands < 3 ? form | 1u << i : i + 1;
    } else {
      // No instruction on values has more than three operands.
      // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
      *addresses[i] = kernelOperand(operation, i);
    }
  }
  const Register result = forms.singleWord ? Register::Word
                          : n == 1         ? forms.result
                                           : Register::Vector;
  const RecordHandler* steps = forms.steps[n - 1][form];
  produce(record, {steps[0], steps[1]}, result);
  // A branch that follows at once, on nothing but this, turns the record into its own.
  if (n == 1 && forms.branches[form] != nullptr) {
    comparison_ = records_.size() - 1;
    branchForm_ = forms.branches[form];
    loopForm_ = forms.loops[form];
    comparedOpcode_ = number;
  }
}

// Operands of up to two vectors, each from the vector register or from memory.
unsigned Selector::vectorOperands(const Operation& operation, Record& record) {
  const uint32_t** addresses[3] = {&record.a, &record.b, &record.c};
  const uint32_t operands = operandCount(operation);
  unsigned form = 0;
  for (uint32_t i = 0; i < operands; ++i) {
    if (operands < 3 && inRegister(operation.in[i], Register::Vector, operation.n)) {
      form |= 1u << i;
    } else {
      // No instruction on values has more than three operands.
      // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
      *addresses[i] = memory(operation.in[i]);
    }
  }
  if (operands == 1) record.b = record.a;
  return form;
}

void Selector::selectGeometry(const Operation& operation) {
  Record record = {};
  const unsigned form = vectorOperands(operation, record);
  produce(record, geometrySteps(operation.opcode, operation.n, form),
          operation.words == 1 ? Register::Scalar : Register::Vector);
}

void Selector::selectProduct(const Operation& operation) {
  const uint32_t n = operation.n;
  Record record = {};
  record.x = n;
  if (operation.opcode == Opcode::MUL_MAT_MAT) {
    record.a = memory(operation.in[0]);
    record.b = memory(operation.in[1]);
    record.run = &matrixMatrixStep;
    return produceInMemory(record);
  }
  // A matrix is wider than any register, so only the vector is looked for in one.
  const bool matrixFirst = operation.opcode == Opcode::MUL_MAT_VEC;
  const uint32_t vector = matrixFirst ? 1 : 0;
  const bool held = inRegister(operation.in[vector], Register::Vector, n);
  const unsigned form = held ? 1u << vector : 0;
  if (form != 1) record.a = memory(operation.in[0]);
  if (form != 2) record.b = memory(operation.in[1]);
  produce(record, matrixFirst ? matrixVectorSteps(n, form) : vectorMatrixSteps(n, form),
          Register::Vector);
}

void Selector::selectNoise(const Operation& operation) {
  Record record = {};
  record.a = memory(operation.in[0]);
  record.x = operation.n;
  produce(record, noiseSteps(operation.words),
          operation.words == 1 ? Register::Scalar : Register::Vector);
}

// Constructors and swizzles -----------------------------------------------------------------------

void Selector::selectCompose(const Operation& operation) {
  const uint32_t n = operation.words;
  const Operand first = operation.in[0];
  Record record = {};
  if (isSplat(operation)) {
    const bool inScalar = inRegister(first, Register::Scalar, 1);
    if (!inScalar) record.a = memory(first);
    return produce(record, splatSteps(n, inScalar), Register::Vector);
  }
  // From one vector in its register.
  bool one = true;
  bool leading = first.first == 0;  // all but the last word are the register's first ones
  uint32_t mask = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const Operand word = operation.in[i];
    one = one && word.value == first.value && word.first < 4;
    mask |= (word.first & 3) << (2 * i);
    if (i + 1 < n) leading = leading && word.value == first.value && word.first == i;
  }
  // From the cheapest record to the one that always fits: a shuffle of the register, the register
  // with one word more, words from anywhere.
  const Operand whole = {first.value, 0};
  if (one && inRegister(whole, Register::Vector, 1)) {
    const uint32_t width = registers_[static_cast<unsigned>(Register::Vector)].width;
    bool within = true;
    for (uint32_t i = 0; i < n; ++i) within = within && operation.in[i].first < width;
    if (within) return produce(record, shuffleSteps(n, mask), Register::Vector);
  }
  if (leading && inRegister(whole, Register::Vector, n - 1)) {
    const Operand last = operation.in[n - 1];
    const bool inScalar = inRegister(last, Register::Scalar, 1);
    if (!inScalar) record.a = memory(last);
    return produce(record, appendSteps(n - 1, inScalar), Register::Vector);
  }
  selectGather(operation);
}

void Selector::selectGather(const Operation& operation) {
  const uint32_t n = operation.words;
  Record record = {};
  // e shares its place with the site: a gather can stop nothing and has none.
  const uint32_t** addresses[4] = {&record.a, &record.b, &record.c, &record.e};
  uint32_t inScalar = n;
  for (uint32_t i = 0; i < n; ++i) {
    if (inScalar == n && inRegister(operation.in[i], Register::Scalar, 1)) {
      inScalar = i;
    } else {
      *addresses[i] = memory(operation.in[i]);
    }
  }
  produce(record, gatherSteps(n, inScalar), Register::Vector);
}

// Parts by index ----------------------------------------------------------------------------------

// An index as operand b; true when it is in the word register.
bool Selector::takeIndex(Operand index, Record& record) {
  if (inRegister(index, Register::Word, 1)) return true;
  record.b = memory(index);
  return false;
}

void Selector::selectElement(const Operation& operation) {
  Record record = {};
  record.a = memory(operation.in[0]);
  record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
  record.y = operation.n;
  record.site = operation.site;
  const bool inWord = takeIndex(operation.in[1], record);
  produceWords(record, componentSteps(inWord), 1);
}

void Selector::selectColumn(const Operation& operation) {
  Record record = {};
  record.a = memory(operation.in[0]);
  record.x = VM_ERR_INDEX_OUT_OF_BOUNDS;
  record.site = operation.site;
  const bool inWord = takeIndex(operation.in[1], record);
  produce(record, columnSteps(operation.n, inWord), Register::Vector);
}

}  // namespace shadermachine::engine
