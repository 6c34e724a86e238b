// Compares the C library's functions with those of src/batch/c_library.h, in every instruction set
// that this processor has.
//
//   prove_c_library [STEP]
//
// Functions of one argument: every STEP-th float (1 by default: all 2^32 of them) and the
// neighbourhoods of arguments where they change their ways. Functions of two: as many pairs as 2^32
// / STEP, a quarter of them at most, random ones of several kinds.

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <span>

#include "batch/c_library_check.h"
#include "batch/rows.h"
#include "instructions/opcode_info.h"

namespace shadermachine::batch {
namespace {

struct alignas(kRowBytes) Row {
  float values[kRowWords];
};

struct OneArgument {
  const char* name;
  Opcode opcode;
  float (*ofLibrary)(float);
};
struct TwoArguments {
  const char* name;
  Opcode opcode;
  float (*ofLibrary)(float, float);
};

constexpr OneArgument kOneArgument[] = {
    {"sin", Opcode::SIN, ::sinf},    {"cos", Opcode::COS, ::cosf},
    {"tan", Opcode::TAN, ::tanf},    {"asin", Opcode::ASIN, ::asinf},
    {"acos", Opcode::ACOS, ::acosf}, {"atan", Opcode::ATAN, ::atanf},
    {"exp", Opcode::EXP, ::expf},    {"exp2", Opcode::EXP2, ::exp2f},
    {"log", Opcode::LOG, ::logf}};
constexpr TwoArguments kTwoArguments[] = {{"pow", Opcode::POW, ::powf},
                                          {"atan2", Opcode::ATAN2, ::atan2f}};

// Where arguments are treated in another way, and what gives the least and the greatest results.
constexpr float kTurns[] = {0.0f,    0x1p-126f, 0x1p-29f, 0x1p-27f,  0x1p-13f, 0x1p-12f, 0.4375f,
                            0.5f,    0.6875f,   0.75f,    0.785398f, 0.975f,   1.0f,     1.1875f,
                            2.4375f, 3.141593f, 88.72f,   87.34f,    104.0f,   120.0f,   126.0f,
                            128.0f,  150.0f,    151.0f,   0x1p20f,   0x1p25f,  0x1p29f,  INFINITY};

uint64_t differences = 0;

bool isSame(float a, float b) {
  return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

void report(const char* name, float x, float y, float expected, float got) {
  if (++differences > 20) return;
  std::printf("%s(%a, %a): %a, not %a\n", name, static_cast<double>(x), static_cast<double>(y),
              static_cast<double>(expected), static_cast<double>(got));
}

void call(const RowFunctions& functions, Opcode opcode, const Row& x, const Row& y, Row& result) {
  uint32_t* const results[] = {reinterpret_cast<uint32_t*>(result.values)};
  const uint32_t* const in[][1] = {{reinterpret_cast<const uint32_t*>(x.values)},
                                   {reinterpret_cast<const uint32_t*>(y.values)}};
  RowRecord record = {};
  record.result = results;
  record.in[0] = in[0];
  record.in[1] = in[1];
  record.n = 1;
  RowState state = {};
  functions.start(state, ~uint64_t{0});
  functions.byOpcode[static_cast<unsigned>(opcode)].plain(&record, state);
}

void compare(const OneArgument& function, const RowFunctions& functions, const Row& x) {
  Row result;
  call(functions, function.opcode, x, x, result);
  for (uint32_t i = 0; i < kRowWords; ++i) {
    const float expected = function.ofLibrary(x.values[i]);
    if (!isSame(expected, result.values[i])) {
      report(function.name, x.values[i], 0.0f, expected, result.values[i]);
    }
  }
}

void compareAll(const OneArgument& function, const RowFunctions& functions, uint64_t step) {
  Row x;
  for (uint64_t first = 0; first < uint64_t{1} << 32; first += step * kRowWords) {
    for (uint32_t i = 0; i < kRowWords; ++i) {
      x.values[i] = std::bit_cast<float>(static_cast<uint32_t>(first + i * step));
    }
    compare(function, functions, x);
  }
  for (const float turn : kTurns) {
    for (const uint32_t sign : {0u, 0x80000000u}) {
      for (uint32_t i = 0; i < kRowWords; ++i) {
        const uint32_t bits = std::bit_cast<uint32_t>(turn) + i - kRowWords / 2;
        x.values[i] = std::bit_cast<float>(bits ^ sign);
      }
      compare(function, functions, x);
    }
  }
}

// Of any size, of usual sizes, whole numbers, and near 1, where powers are steepest.
float anyFloat(std::mt19937_64& random) {
  const uint64_t word = random();
  const auto bits = static_cast<uint32_t>(word >> 32);
  const float unit = std::ldexp(static_cast<float>(bits >> 8), -24);
  switch (word % 8) {
    case 0:
      return std::bit_cast<float>(bits);
    case 1:
      return static_cast<float>(static_cast<int32_t>(bits) >> 24);
    case 2:
      return std::bit_cast<float>(0x3F800000 + (bits >> 12) - 0x80000);
    case 3:
      return (unit - 0.5f) * 300.0f;
    case 4:
      return kTurns[bits % std::size(kTurns)];
    default:
      return unit * 8.0f;
  }
}

void compareSome(const TwoArguments& function, const RowFunctions& functions, uint64_t step) {
  std::mt19937_64 random(1);
  Row x, y, result;
  for (uint64_t pairs = 0; pairs < (uint64_t{1} << 30) / step; pairs += kRowWords) {
    for (uint32_t i = 0; i < kRowWords; ++i) {
      x.values[i] = anyFloat(random);
      y.values[i] = anyFloat(random);
    }
    call(functions, function.opcode, x, y, result);
    for (uint32_t i = 0; i < kRowWords; ++i) {
      const float expected = function.ofLibrary(x.values[i], y.values[i]);
      if (!isSame(expected, result.values[i])) {
        report(function.name, x.values[i], y.values[i], expected, result.values[i]);
      }
    }
  }
}

void compareSet(const RowFunctions& functions, uint64_t step) {
  for (const OneArgument& function : kOneArgument) {
    compareAll(function, functions, step);
  }
  for (const TwoArguments& function : kTwoArguments) {
    compareSome(function, functions, step);
  }
}

int prove(uint64_t step) {
  std::printf("%s\n", cLibraryIsProven ? "by vectors where they are proven"
                                       : "no proof for this C library: every lane asks it");
  const struct {
    const char* name;
    InstructionSet set;
  } kSets[] = {{"baseline", InstructionSet::Baseline},
               {"AVX2", InstructionSet::Avx2},
               {"AVX-512", InstructionSet::Avx512}};
  for (const auto& [name, set] : kSets) {
    const RowFunctions* functions = rowFunctions(set);
    if (functions == nullptr) continue;
    compareSet(*functions, step);
    std::printf("%s: %llu differences\n", name, static_cast<unsigned long long>(differences));
    std::fflush(stdout);
  }
  return differences == 0 ? 0 : 1;
}

}  // namespace
}  // namespace shadermachine::batch

int main(int count, char** arguments) {
  const uint64_t step = count > 1 ? std::strtoull(arguments[1], nullptr, 10) : 1;
  return shadermachine::batch::prove(step == 0 ? 1 : step);
}
