// Instructions that combine the components of whole values: comparisons, products, geometry, noise.
#include <gtest/gtest.h>

#include "noise/evaluation.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

// The result replaces its slot; components after the result mean nothing.
Program replacing(VmOpcode opcode, std::vector<int64_t> operands, std::vector<Words> inputs,
                  Words top) {
  Program program = onInputs(opcode, std::move(operands), std::move(inputs), std::move(top));
  program.keepsRest = false;
  return program;
}

std::vector<Program> comparisons() {
  const Words nan = {bits(1.0f), bits(kNan)};
  const Words zero = {0}, minusZero = {kMinusZero};
  std::vector<Program> programs;
  constexpr VmOpcode kPairs[][2] = {
      {VM_OP_EQ_I, VM_OP_NE_I}, {VM_OP_EQ_B, VM_OP_NE_B}, {VM_OP_EQ_F, VM_OP_NE_F}};
  for (const VmOpcode(&pair)[2] : kPairs) {
    const bool isFloat = pair[0] == VM_OP_EQ_F;
    const auto both = [&](int64_t n, const Words& a, const Words& b, bool result) {
      programs.push_back(onInputs(pair[0], {n}, {a, b}, ints({result})));
      programs.push_back(onInputs(pair[1], {n}, {a, b}, ints({!result})));
    };
    both(0, {1}, {2}, true);
    both(3, {1, 2, 3}, {1, 2, 3}, true);
    both(3, {1, 2, 3}, {9, 2, 3}, false);
    both(16, {1}, {1}, false);  // filler words differ between inputs
    both(2, nan, nan, !isFloat);
    both(1, zero, minusZero, isFloat);
  }
  return programs;
}

// Arrays of one int on the left, of one or more on the right.
std::vector<Program> aggregateComparisons() {
  struct Case {
    int left, right, rightCount;
    bool equal;
  };
  std::vector<Program> programs;
  for (const Case& c : {Case{1, 1, 1, true}, {1, 2, 1, false}, {1, 1, 2, false}}) {
    for (VmOpcode opcode : {VM_OP_EQ_AGG, VM_OP_NE_AGG}) {
      const auto body = [=](ShaderBuilder&, FunctionBuilder& code) {
        code.pushInt(c.left);
        code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 1});
        for (int i = 0; i < c.rightCount; ++i) code.pushInt(c.right);
        code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, c.rightCount});
        code.emit(opcode);
      };
      programs.push_back(giving(opcode, "arrays", body, {c.equal == (opcode == VM_OP_EQ_AGG), 0}));
    }
  }
  const auto noBlocks = [=](ShaderBuilder&, FunctionBuilder& code) {
    code.emit(VM_OP_PUSH_ZERO4);
    code.emit(VM_OP_PUSH_ZERO4);
    code.emit(VM_OP_EQ_AGG);
  };
  programs.push_back(giving(VM_OP_EQ_AGG, "empty views are unequal", noBlocks, {0, 0}));
  return programs;
}

std::vector<Program> products() {
  const Words a = floats({1, 2, 3, 4}), b = floats({5, 6, 7, 8});
  const Words identity = floats({1, 0, 0, 0, 1, 0, 0, 0, 1});
  const Words m3 = floats({1, 2, 3, 4, 5, 6, 7, 8, 9});
  const Words m4 = floats({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  const Words v = floats({1, -1, 2, 0.5f});
  // From 0.0 in increasing order: (1e8 + 1) - 1e8 loses the 1.
  const Words order = floats({1e8f, 0, 0, 1, 0, 0, -1e8f, 0, 0});
  return {
      replacing(VM_OP_MUL_MAT_MAT, {2}, {a, b}, floats({23, 34, 31, 46})),
      replacing(VM_OP_MUL_MAT_MAT, {3}, {m3, identity}, m3),
      replacing(VM_OP_MUL_MAT_MAT, {3}, {identity, m3}, m3),
      replacing(VM_OP_MUL_MAT_MAT, {1}, {floats({3}), floats({-2})}, floats({-6})),
      replacing(VM_OP_MUL_VEC_MAT, {2}, {floats({1, 1}), a}, floats({3, 7})),
      replacing(VM_OP_MUL_VEC_MAT, {4}, {v, m4}, floats({7, 17, 27, 37})),
      replacing(VM_OP_MUL_MAT_VEC, {2}, {a, floats({1, 1})}, floats({4, 6})),
      replacing(VM_OP_MUL_MAT_VEC, {4}, {m4, v}, floats({20.5f, 23, 25.5f, 28})),
      replacing(VM_OP_MUL_MAT_VEC, {3}, {order, floats({1, 1, 1})}, floats({0, 0, 0})),
      replacing(VM_OP_MUL_MAT_VEC, {2}, {floats({kInfinity, 1, 0, 1}), floats({0, 2})},
                floats({kNan, 2})),
      {.opcode = VM_OP_MUL_MAT_MAT,
       .title = "dimension 0",
       .body = instruction(VM_OP_MUL_MAT_MAT, {0}, 2),
       .inputs = {a, b},
       .error = VM_ERR_INVALID_SHADER},
  };
}

std::vector<Program> geometry() {
  const Words x = floats({1, 0, 0}), y = floats({0, 1, 0}), z = floats({0, 0, 1});
  const Words up = floats({0, 1}), down = floats({0, -1});
  return {
      onInputs(VM_OP_LENGTH, {2}, {floats({3, 4})}, floats({5})),
      onInputs(VM_OP_LENGTH, {0}, {floats({3, 4})}, floats({0})),
      onInputs(VM_OP_DISTANCE, {2}, {floats({1, 1}), floats({4, 5})}, floats({5})),
      onInputs(VM_OP_DOT, {3}, {floats({1, 2, 3}), floats({4, 5, 6})}, floats({32})),
      onInputs(VM_OP_DOT, {3}, {floats({1e8f, 1, -1e8f}), floats({1, 1, 1})}, floats({0})),
      onInputs(VM_OP_DOT, {1}, {floats({-0.0f}), floats({1})}, Words{0}),
      replacing(VM_OP_CROSS, {}, {x, y}, z),
      replacing(VM_OP_CROSS, {}, {y, x}, floats({0, 0, -1})),
      replacing(VM_OP_CROSS, {}, {floats({2, 3, 5}), floats({7, 11, 13})}, floats({-16, 9, 1})),
      onInputs(VM_OP_NORMALIZE, {2}, {floats({3, 4})}, floats({0.6f, 0.8f})),
      onInputs(VM_OP_NORMALIZE, {2}, {floats({0, 0})}, floats({kNan, kNan})),
      onInputs(VM_OP_FACEFORWARD, {2}, {up, floats({1, 0}), up}, Words{0, bits(-1.0f)}),
      onInputs(VM_OP_FACEFORWARD, {2}, {up, up, down}, up),
      onInputs(VM_OP_FACEFORWARD, {2}, {up, floats({kNan, 0}), up}, Words{0, bits(-1.0f)}),
      replacing(VM_OP_REFLECT, {2}, {floats({1, -1}), up}, floats({1, 1})),
      replacing(VM_OP_REFRACT, {2}, {down, up, floats({1})}, down),
      replacing(VM_OP_REFRACT, {2}, {floats({0.8f, -0.6f}), up, floats({1.5f})}, Words{0, 0}),
      replacing(VM_OP_REFRACT, {2}, {down, up, floats({kNan})}, floats({kNan, kNan})),
  };
}

std::vector<Program> reductions() {
  return {
      onInputs(VM_OP_ANY_B, {0}, {ints({7})}, ints({0})),
      onInputs(VM_OP_ANY_B, {3}, {Words{0, 0, kMinusZero}}, ints({1})),
      onInputs(VM_OP_ANY_B, {2}, {ints({0, 0, 1})}, ints({0})),
      onInputs(VM_OP_ALL_B, {0}, {ints({0})}, ints({1})),
      onInputs(VM_OP_ALL_B, {3}, {ints({1, 1, 0, 1})}, ints({0})),
      onInputs(VM_OP_ALL_B, {2}, {ints({5, 1, 0, 1})}, ints({1})),
  };
}

// The program's noise is that of the evaluation tested elsewhere.
std::vector<Program> noises() {
  constexpr VmOpcode kOpcodes[] = {VM_OP_NOISE1, VM_OP_NOISE2, VM_OP_NOISE3, VM_OP_NOISE4};
  const Words point = floats({0.5f, 0.25f, -7.3f, 1.75f});
  vmInitialize();
  std::vector<Program> programs;
  for (size_t results = 1; results <= 4; ++results) {
    for (uint32_t n = 0; n <= 4; ++n) {
      float values[4];
      for (size_t i = 0; i < 4; ++i) values[i] = asFloat(point[i]);
      const Words expected(results, bits(noiseScalar(values, n)));
      programs.push_back(onInputs(kOpcodes[results - 1], {n}, {point}, expected));
    }
  }
  return programs;
}

}  // namespace

std::vector<Program> vectorPrograms() {
  std::vector<Program> all;
  for (auto family : {comparisons, aggregateComparisons, products, geometry, reductions, noises}) {
    for (Program& program : family()) all.push_back(std::move(program));
  }
  return all;
}

}  // namespace shadermachine::tests
