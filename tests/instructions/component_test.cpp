// The component-wise families: each instruction against its formula, stated in double precision and
// rounded at every step where the instruction rounds, over edge values in every combination.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include "instructions/opcode_info.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

// Of one component: the operands' words in, the result's word out.
using Formula = std::function<uint32_t(const uint32_t* words)>;

float rounded(double value) { return static_cast<float>(value); }
double floatOf(uint32_t word) { return asFloat(word); }
int64_t intOf(uint32_t word) { return static_cast<int32_t>(word); }
uint32_t wordOf(int64_t value) { return static_cast<uint32_t>(value); }

template <class F>
Formula onFloat(F f) {
  return [f](const uint32_t* w) { return bits(rounded(f(floatOf(w[0])))); };
}
template <class F>
Formula onFloats(F f) {
  return [f](const uint32_t* w) { return bits(rounded(f(floatOf(w[0]), floatOf(w[1])))); };
}
template <class F>
Formula on3Floats(F f) {
  return [f](const uint32_t* w) {
    return bits(rounded(f(floatOf(w[0]), floatOf(w[1]), floatOf(w[2]))));
  };
}
template <class F>
Formula onInt(F f) {
  return [f](const uint32_t* w) { return wordOf(f(intOf(w[0]))); };
}
template <class F>
Formula onInts(F f) {
  return [f](const uint32_t* w) { return wordOf(f(intOf(w[0]), intOf(w[1]))); };
}
template <class F>
Formula ifInts(F f) {
  return [f](const uint32_t* w) { return uint32_t{f(intOf(w[0]), intOf(w[1]))}; };
}
template <class F>
Formula ifFloats(F f) {
  return [f](const uint32_t* w) { return uint32_t{f(floatOf(w[0]), floatOf(w[1]))}; };
}
// The C library's own result, in single precision.
template <class F>
Formula byLibrary(F f) {
  return [f](const uint32_t* w) { return bits(f(asFloat(w[0]))); };
}

// Never -0.0.
double plusZero(double x) { return x == 0 ? 0.0 : x; }
double floorOf(double x) { return plusZero(std::floor(x)); }
double constant(uint32_t word) { return floatOf(word); }

double modulo(double x, double y) {
  const double whole = floorOf(rounded(x / y));
  return x - rounded(whole * y);
}
double mix(double x, double y, double a) {
  return double{rounded(x * rounded(1 - a))} + rounded(y * a);
}
double clampTo(double x, double lo, double hi) {
  const double m = x > lo ? x : lo;
  return m < hi ? m : hi;
}
double smooth(double e0, double e1, double x, double t) {
  t = t > 0 ? (t < 1 ? t : 1) : 0;
  const double curve = double{rounded(t * t)} * rounded(3 - rounded(t * 2));
  return e0 >= x ? 0 : x >= e1 ? 1 : curve;
}
double smoothByDivision(double e0, double e1, double x) {
  return smooth(e0, e1, x, rounded(double{rounded(x - e0)} / rounded(e1 - e0)));
}
double smoothByReciprocal(double e0, double e1, double x) {
  const float r = rounded(1 / double{rounded(e1 - e0)});
  return smooth(e0, e1, x, rounded(double{rounded(x - e0)} * r));
}

uint32_t toInt(const uint32_t* w) {
  const double x = std::trunc(floatOf(w[0]));
  const bool fits = x >= -2147483648.0 && x <= 2147483647.0;
  return fits ? wordOf(static_cast<int64_t>(x)) : 0x80000000u;
}

// shape: one letter per operand, V a vector, S a scalar; s for instructions without a count, which
// work on component 0 only.
struct ComponentCase {
  VmOpcode opcode;
  const char* shape;
  Formula formula;
};

const std::vector<ComponentCase>& componentCases() {
  static const auto add = [](auto a, auto b) { return a + b; };
  static const auto subtract = [](auto a, auto b) { return a - b; };
  static const auto multiply = [](auto a, auto b) { return a * b; };
  static const auto divide = [](double a, double b) { return a / b; };
  static const auto less = [](auto a, auto b) { return a < b; };
  static const auto lessEqual = [](auto a, auto b) { return a <= b; };
  static const auto greater = [](auto a, auto b) { return a > b; };
  static const auto greaterEqual = [](auto a, auto b) { return a >= b; };
  static const auto equal = [](auto a, auto b) { return a == b; };
  static const auto notEqual = [](auto a, auto b) { return a != b; };
  static const auto smaller = [](double a, double b) { return a < b ? a : b; };
  static const auto larger = [](double a, double b) { return a > b ? a : b; };
  static const auto step = [](double edge, double x) { return edge > x ? 0.0 : 1.0; };
  static const auto isZero = [](int64_t x) { return int64_t{x == 0}; };
  static const auto isTrue = [](int64_t x) { return int64_t{x != 0}; };
  static const std::vector<ComponentCase> cases = {
      {VM_OP_INT_TO_BOOL, "V", onInt(isTrue)},
      {VM_OP_BOOL_TO_INT, "V", onInt(isTrue)},
      {VM_OP_FLOAT_TO_BOOL, "V", [](auto* w) { return uint32_t{floatOf(w[0]) != 0}; }},
      {VM_OP_BOOL_TO_FLOAT, "V", [](auto* w) { return bits(w[0] != 0 ? 1.0f : 0.0f); }},
      {VM_OP_INT_TO_FLOAT, "V", [](auto* w) { return bits(rounded(double(intOf(w[0])))); }},
      {VM_OP_FLOAT_TO_INT, "V", toInt},
      {VM_OP_LOGICAL_AND_B, "ss", ifInts([](int64_t a, int64_t b) { return a && b; })},
      {VM_OP_LOGICAL_OR_B, "ss", ifInts([](int64_t a, int64_t b) { return a || b; })},
      {VM_OP_LOGICAL_XOR_B, "ss", ifInts([](int64_t a, int64_t b) { return !a != !b; })},
      {VM_OP_LOGICAL_NOT_B, "s", onInt(isZero)},
      {VM_OP_LT_I, "ss", ifInts(less)},
      {VM_OP_LT_F, "ss", ifFloats(less)},
      {VM_OP_GT_I, "ss", ifInts(greater)},
      {VM_OP_GT_F, "ss", ifFloats(greater)},
      {VM_OP_LE_I, "ss", ifInts(lessEqual)},
      {VM_OP_LE_F, "ss", ifFloats(lessEqual)},
      {VM_OP_GE_I, "ss", ifInts(greaterEqual)},
      {VM_OP_GE_F, "ss", ifFloats(greaterEqual)},
      {VM_OP_ADD_I, "VV", onInts(add)},
      {VM_OP_ADD_F, "VV", onFloats(add)},
      {VM_OP_ADD_VS_F, "VS", onFloats(add)},
      {VM_OP_ADD_SV_F, "SV", onFloats(add)},
      {VM_OP_SUB_I, "VV", onInts(subtract)},
      {VM_OP_SUB_F, "VV", onFloats(subtract)},
      {VM_OP_SUB_VS_F, "VS", onFloats(subtract)},
      {VM_OP_SUB_SV_F, "SV", onFloats(subtract)},
      {VM_OP_DIV_I, "VV", onInts([](int64_t a, int64_t b) { return b == 0 ? 0 : a / b; })},
      {VM_OP_DIV_F, "VV", onFloats(divide)},
      {VM_OP_DIV_VS_F, "VS", onFloats([](double a, double b) { return a * rounded(1 / b); })},
      {VM_OP_DIV_SV_F, "SV", onFloats(divide)},
      {VM_OP_MUL_I, "VV", onInts(multiply)},
      {VM_OP_MUL_F, "VV", onFloats(multiply)},
      {VM_OP_COMP_MUL_F, "VV", onFloats(multiply)},
      {VM_OP_NEG_I, "V", onInt(std::negate<int64_t>())},
      {VM_OP_NEG_F, "V", onFloat([](double x) { return 0.0 - x; })},
      {VM_OP_INC_I, "V", onInt([](int64_t x) { return x + 1; })},
      {VM_OP_INC_F, "V", onFloat([](double x) { return x + 1; })},
      {VM_OP_DEC_I, "V", onInt([](int64_t x) { return x - 1; })},
      {VM_OP_DEC_F, "V", onFloat([](double x) { return x - 1; })},
      {VM_OP_RADIANS, "V", onFloat([](double x) { return x * constant(0x3C8EFA35); })},
      {VM_OP_DEGREES, "V", onFloat([](double x) { return x * constant(0x42652EE1); })},
      {VM_OP_SIN, "V", byLibrary(sinf)},
      {VM_OP_COS, "V", byLibrary(cosf)},
      {VM_OP_TAN, "V", byLibrary(tanf)},
      {VM_OP_ASIN, "V", byLibrary(asinf)},
      {VM_OP_ACOS, "V", byLibrary(acosf)},
      {VM_OP_ATAN, "V", byLibrary(atanf)},
      {VM_OP_ATAN2, "VV", [](auto* w) { return bits(atan2f(asFloat(w[0]), asFloat(w[1]))); }},
      {VM_OP_POW, "VV", [](auto* w) { return bits(powf(asFloat(w[0]), asFloat(w[1]))); }},
      {VM_OP_EXP, "V", byLibrary(expf)},
      {VM_OP_LOG, "V", byLibrary(logf)},
      {VM_OP_EXP2, "V", byLibrary(exp2f)},
      {VM_OP_LOG2, "V",
       [](auto* w) { return bits(rounded(double{logf(asFloat(w[0]))} * constant(0x3FB8AA3B))); }},
      {VM_OP_SQRT, "V", onFloat([](double x) { return std::sqrt(x); })},
      {VM_OP_INVERSE_SQRT, "V",
       onFloat([](double x) { return 1 / double{rounded(std::sqrt(x))}; })},
      {VM_OP_ABS, "V", [](auto* w) { return w[0] & 0x7FFFFFFF; }},
      {VM_OP_SIGN, "V", onFloat([](double x) { return double(x > 0) - double(x < 0); })},
      {VM_OP_FLOOR, "V", onFloat(floorOf)},
      {VM_OP_CEIL, "V", onFloat([](double x) { return plusZero(std::ceil(x)); })},
      {VM_OP_FRACT, "V", onFloat([](double x) { return x - floorOf(x); })},
      {VM_OP_MOD_VS, "VS", onFloats(modulo)},
      {VM_OP_MOD, "VV", onFloats(modulo)},
      {VM_OP_MIN_VS, "VS", onFloats(smaller)},
      {VM_OP_MIN, "VV", onFloats(smaller)},
      {VM_OP_MAX_VS, "VS", onFloats(larger)},
      {VM_OP_MAX, "VV", onFloats(larger)},
      {VM_OP_CLAMP_VSS, "VSS", on3Floats(clampTo)},
      {VM_OP_CLAMP, "VVV", on3Floats(clampTo)},
      {VM_OP_MIX_VVS, "VVS", on3Floats(mix)},
      {VM_OP_MIX, "VVV", on3Floats(mix)},
      {VM_OP_STEP_SV, "SV", onFloats(step)},
      {VM_OP_STEP, "VV", onFloats(step)},
      {VM_OP_SMOOTHSTEP_SSV, "SSV", on3Floats(smoothByReciprocal)},
      {VM_OP_SMOOTHSTEP, "VVV", on3Floats(smoothByDivision)},
      {VM_OP_LESS_THAN_I, "VV", ifInts(less)},
      {VM_OP_LESS_THAN_F, "VV", ifFloats(less)},
      {VM_OP_LESS_EQUAL_I, "VV", ifInts(lessEqual)},
      {VM_OP_LESS_EQUAL_F, "VV", ifFloats(lessEqual)},
      {VM_OP_GREATER_THAN_I, "VV", ifInts(greater)},
      {VM_OP_GREATER_THAN_F, "VV", ifFloats(greater)},
      {VM_OP_GREATER_EQUAL_I, "VV", ifInts(greaterEqual)},
      {VM_OP_GREATER_EQUAL_F, "VV", ifFloats(greaterEqual)},
      {VM_OP_EQUAL_I, "VV", ifInts(equal)},
      {VM_OP_EQUAL_B, "VV", ifInts(equal)},
      {VM_OP_EQUAL_F, "VV", ifFloats(equal)},
      {VM_OP_NOT_EQUAL_I, "VV", ifInts(notEqual)},
      {VM_OP_NOT_EQUAL_B, "VV", ifInts(notEqual)},
      {VM_OP_NOT_EQUAL_F, "VV", ifFloats(notEqual)},
      {VM_OP_NOT_B, "V", onInt(isZero)},
      {VM_OP_BIT_OR, "VV", onInts([](int64_t a, int64_t b) { return a | b; })},
      {VM_OP_BIT_XOR, "VV", onInts([](int64_t a, int64_t b) { return a ^ b; })},
      {VM_OP_BIT_AND, "VV", onInts([](int64_t a, int64_t b) { return a & b; })},
      {VM_OP_BIT_NOT, "V", onInt([](int64_t x) { return ~x; })},
  };
  return cases;
}

bool isScalarCase(const ComponentCase& c) { return c.shape[0] == 's'; }

uint32_t limitOf(const ComponentCase& c) {
  return operandLimit(kOpcodeTable[c.opcode].operands[0]);
}

// What a NaN result may look like is the compiler's choice, unless no arithmetic makes it.
bool keepsNanBits(VmOpcode opcode) {
  switch (opcode) {
    case VM_OP_ABS:
    case VM_OP_BIT_OR:
    case VM_OP_BIT_XOR:
    case VM_OP_BIT_AND:
    case VM_OP_BIT_NOT:
    case VM_OP_ADD_I:
    case VM_OP_SUB_I:
    case VM_OP_MUL_I:
    case VM_OP_DIV_I:
    case VM_OP_NEG_I:
    case VM_OP_INC_I:
    case VM_OP_DEC_I:
      return true;
    default:
      return false;
  }
}

// The result of the whole instruction: all 16 words of the first operand's slot.
Words expectedWords(const ComponentCase& c, uint32_t n, const std::vector<Words>& inputs) {
  Words result = inputs[0];
  for (uint32_t i = 0; i < n; ++i) {
    uint32_t operands[3] = {};
    for (size_t k = 0; k < inputs.size(); ++k) operands[k] = inputs[k][c.shape[k] == 'V' ? i : 0];
    result[i] = c.formula(operands);
    if (std::isnan(asFloat(result[i])) && !keepsNanBits(c.opcode)) result[i] = kAnyNan;
  }
  return result;
}

constexpr uint32_t kEdges[] = {
    0x00000000, 0x80000000, 0x3F800000, 0xBF800000, 0x3F000000, 0xBF000000, 0xBFC00000,
    0x40200000, 0x3DCCCCCD, 0x40490FDB, 0x41200000, 0xC0A00000, 0x4F32D05E, 0x501502F9,
    0x4AFFFFFF, 0xCB000001, 0x7F800000, 0xFF800000, 0x7FC00000, 0xFFC01234, 0x00000001,
    0x80000001, 0x00800000, 0x7F7FFFFF, 0x00000002, 0x00000007, 0xFFFFFFF9, 0xFFFFFFFF,
    0x7FFFFFFF, 0x01000001, 0x00010000, 0xCF000000, 0x4EFFFFFF};

Words edgeWords(size_t start, size_t stride) {
  Words words(VM_COMPONENT_COUNT);
  for (size_t i = 0; i < words.size(); ++i) {
    words[i] = kEdges[(start + i * stride) % std::size(kEdges)];
  }
  return words;
}

Program componentProgram(const ComponentCase& c, uint32_t round) {
  constexpr uint32_t kCounts[] = {16, 3, 1, 16, 4, 2, 0, 7};
  const uint32_t n =
      isScalarCase(c) ? 1 : std::min(kCounts[round % std::size(kCounts)], limitOf(c));
  std::vector<Words> inputs;
  // The strides are distinct and prime to the number of edges, so rounds meet all pairs.
  for (size_t k = 0; k < std::strlen(c.shape); ++k) {
    inputs.push_back(edgeWords(round * (2 * k + 1) + k, 7 * k + 1));
  }
  Words expected = expectedWords(c, n, inputs);
  std::vector<int64_t> operands;
  if (!isScalarCase(c)) operands.push_back(n);
  Program program = onInputs(c.opcode, operands, std::move(inputs), std::move(expected));
  program.title = "round " + std::to_string(round);
  return program;
}

TEST(Components, MatchTheirFormulas) {
  for (const ComponentCase& c : componentCases()) {
    for (uint32_t round = 0; round < 3 * std::size(kEdges); ++round) {
      check(componentProgram(c, round));
      if (HasFailure()) return;
    }
  }
}

}  // namespace

std::vector<Program> componentPrograms() {
  std::vector<Program> programs;
  for (const ComponentCase& c : componentCases()) programs.push_back(componentProgram(c, 1));
  return programs;
}

}  // namespace shadermachine::tests
