// Code that the translator joins into fewer records, or puts off, run plain and translated.

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/validator.h>

#include <string>

#include "fuzz/engine_comparison.h"

namespace shadermachine::tests {
namespace {

constexpr char kTables[] = R"(
.struct Light
  .member vec3 position
  .member float radius
.end
.global vec4 color
.global vec3 here host
.global float level host
.global mat4 model host
.global Light given host
.global Light kept
.global Light other
.output0 color
.function change(Light light)
  LOAD_GLOBAL other
  STORE_LOCAL light
  PUSH_0
  HOST_UNARY_1 0
  POP
  RETURN
.end
.function main()
  .local vec3 p
  .local float f
  .local Light mine
  LOAD_GLOBAL here
  STORE_LOCAL p
  LOAD_GLOBAL given
  STORE_GLOBAL other
)";

constexpr char kHalfVector[] = "PUSH_U32 0.5\nPUSH_U32 -3.0\nPUSH_U32 1.25\nCTOR_VEC3_A 1, 1, 1\n";
constexpr char kOneVector[] = "PUSH_U32 2.0\nPUSH_U32 4.0\nPUSH_U32 8.0\nCTOR_VEC3_A 1, 1, 1\n";
// A float that is no constant.
constexpr char kFloat[] = "PUSH_U32 3.0\nNEG_F 1\n";
constexpr char kProbe[] = "PUSH_0\nHOST_UNARY_1 0\nPOP\n";
constexpr char kStoreVector[] = "PUSH_1_F\nCTOR_VEC4_A 3, 1\nSTORE_GLOBAL color\n";
constexpr char kStoreFloat[] = "CTOR_VEC4_A 1\nSTORE_GLOBAL color\n";

struct Case {
  const char* name;
  std::string body;
};

const std::string kHalf = kHalfVector;
const std::string kOne = kOneVector;

const Case kCases[] = {
    {"the dot product is larger", kHalf + kHalf + "DOT 3\nPUSH_1_F\nMAX 1\n" + kStoreFloat},
    {"the bound is larger", kHalf + kHalf + "NEG_F 3\nDOT 3\nPUSH_1_F\nMAX 1\n" + kStoreFloat},
    {"the bound comes first", "PUSH_1_F\n" + kHalf + kHalf + "DOT 3\nMAX 1\n" + kStoreFloat},
    {"a vector by a scalar", kHalf + kFloat + "CTOR_VEC3_A 1\nMUL_F 3\n" + kStoreVector},
    {"a scalar by a vector", kFloat + ("CTOR_VEC3_A 1\n" + kHalf) + "MUL_F 3\n" + kStoreVector},
    {"a scalar in memory", kFloat + ("STORE_LOCAL f\n" + kHalf) +
                               "NEG_F 3\nLOAD_LOCAL f\nCTOR_VEC3_A 1\nMUL_F 3\n" + kStoreVector},
    {"a splat by itself", std::string(kFloat) + "CTOR_VEC3_A 1\nDUP\nMUL_F 3\n" + kStoreVector},
    {"a product of a scalar added",
     kOne + kHalf + kFloat + "CTOR_VEC3_A 1\nMUL_F 3\nADD_F 3\n" + kStoreVector},
    {"a product of a scalar divided by",
     kOne + kHalf + kFloat + "CTOR_VEC3_A 1\nMUL_F 3\nDIV_F 3\n" + kStoreVector},
    {"a quotient of a sum", kHalf + kOne + "ADD_F 3\n" + kHalf + "DIV_F 3\n" + kStoreVector},
    {"host variables of all sizes",
     "LOAD_GLOBAL level\nLOAD_GLOBAL here\nLOAD_GLOBAL model\n" + (kProbe + kOne) +
         "PUSH_1_F\nCTOR_VEC4_A 3, 1\nMUL_MAT_VEC 4\nSTORE_GLOBAL color\nNEG_F 3\n" + kProbe +
         "SWIZZLE .y\nADD_F 1\n" + kStoreFloat},
    {"built-in variables",
     std::string("LOAD_BUILTIN 258\nLOAD_BUILTIN 283\nDUP\nADD_F 3\nLOAD_BUILTIN 382\n") + kProbe +
         "POP\nSWIZZLE .zx\nSWIZZLE .y\nADD_I 1\n" + kStoreFloat},
    {"an aggregate variable changes below its value",
     std::string("LOAD_GLOBAL kept\nLOAD_GLOBAL other\nSTORE_GLOBAL kept\n") + kProbe +
         "STRUCT_FIELD Light, radius\n" + kStoreFloat},
    {"an aggregate stored into itself",
     std::string("LOAD_GLOBAL other\nSTORE_GLOBAL other\n") + kProbe +
         "LOAD_GLOBAL other\nLOAD_GLOBAL other\nSTORE_GLOBAL other\n" + kProbe +
         "STRUCT_FIELD Light, radius\n" + kStoreFloat},
    {"a host aggregate loaded again", std::string("LOAD_GLOBAL given\nLOAD_GLOBAL given\n") +
                                          kProbe + "STORE_LOCAL mine\nSTORE_GLOBAL kept\n" +
                                          kProbe + "LOAD_LOCAL mine\nSTRUCT_FIELD Light, radius\n" +
                                          kStoreFloat},
    {"a parameter shares its block", std::string("LOAD_GLOBAL kept\nCALL change\nPOP_RELEASE\n") +
                                         kProbe + "LOAD_GLOBAL kept\nSTRUCT_FIELD Light, radius\n" +
                                         kStoreFloat},
};

TEST(RecordSelection, RunsLikeThePlainHandlers) {
  vmInitialize();
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    const std::string text = kTables + test.body + "RETURN\n.end\n.entry main\n";
    tools::AssemblyResult result = tools::assemble(text);
    for (const auto& error : result.errors) ADD_FAILURE() << tools::formatError(error, text, "");
    ASSERT_TRUE(result.shader);
    EXPECT_TRUE(tools::validate(result.shader->view()).valid());
    for (uint32_t seed = 1; seed <= 4; ++seed) {
      const fuzz::Comparison comparison = fuzz::compareRuns(*result.shader->record(), seed);
      EXPECT_EQ(comparison.difference, "");
      EXPECT_TRUE(comparison.translated);
      EXPECT_EQ(comparison.error, VM_OK);
    }
  }
}

}  // namespace
}  // namespace shadermachine::tests
