// A shader with something of everything, whose entry function the tests fill with code.
#pragma once

#include <gtest/gtest.h>
#include <shadermachine-tools/shader_builder.h>
#include <shadermachine-tools/validator.h>

#include <string>
#include <utility>
#include <vector>

namespace shadermachine::tools {

// Structures: 0 Pair {float, vec2}, 1 Light {Pair, float[4]}.
// The entry function's locals and the globals, by number:
enum Locals { kScalar, kVector, kMatrix, kImage, kPoints, kPairs, kPair, kLight };
enum Globals { kColor, kNumbers, kLights, kHost, kStates };
// Functions: 0 the entry, then
enum Functions {
  kNothing = 1,  // (float, Pair) -> nothing
  kBodiless,     // (float, float) without code
  kGivesVec3,    // (Pair) -> vec3
  kGivesPair,    // () -> Pair
  kEndless,      // () -> never
};

struct Op {
  VmOpcode opcode;
  std::vector<int64_t> operands = {};
};
using Code = std::vector<Op>;

struct Scene {
  Scene();
  void write(const Code& code) {
    for (const Op& op : code) main.emit(op.opcode, op.operands);
  }
  CompiledShader& record() { return shader.record(); }
  ValidationResult validate();

  ShaderBuilder shader;
  FunctionBuilder& main;
};

// One line per diagnostic. Remarks on instructions of the entry function come without their place.
std::string findings(const ValidationResult& result);
inline std::string findings(Scene& scene) { return findings(scene.validate()); }

// Code of the entry function and what the validator says about it; RETURN is added at the end.
struct Case {
  const char* name;
  Code code;
  const char* expected = "";  // one line per finding
  void (*prepare)(Scene&) = nullptr;
};

inline void PrintTo(const Case& value, std::ostream* stream) { *stream << value.name; }
inline std::string caseName(const testing::TestParamInfo<Case>& info) { return info.param.name; }

class ValidatorCase : public testing::TestWithParam<Case> {};

#define VALIDATOR_CASES(name, cases) \
  INSTANTIATE_TEST_SUITE_P(name, ValidatorCase, testing::ValuesIn(cases), caseName)

}  // namespace shadermachine::tools
