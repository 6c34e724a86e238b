// Instructions on scalars, vectors and matrices.

#include "support.h"

namespace shadermachine::tools {
namespace {

const Op kF = {VM_OP_LOAD_LOCAL, {kScalar}};
const Op kV4 = {VM_OP_LOAD_LOCAL, {kVector}};
const Op kM3 = {VM_OP_LOAD_LOCAL, {kMatrix}};
const Op kV2 = {VM_OP_LOAD_GLOBAL, {kHost}};
const Op kView = {VM_OP_LOAD_LOCAL, {kPair}};
const Op kPop = {VM_OP_POP};
const Op kStoreV4 = {VM_OP_STORE_LOCAL, {kVector}};

// clang-format off
const std::vector<Case> kCases = {
    {"Arithmetic", {kV4, kV4, {VM_OP_MUL_F, {4}}, kF, {VM_OP_ADD_VS_F, {4}}, kStoreV4}},
    {"ScalarOnTheLeftIsWidened", {kF, kV4, {VM_OP_SUB_SV_F, {4}}, kStoreV4}},
    {"SmoothstepWidens", {kF, kF, kV4, {VM_OP_SMOOTHSTEP_SSV, {4}}, kStoreV4}},
    {"NoiseWidens", {kF, {VM_OP_NOISE4, {1}}, kStoreV4}},
    {"DotKeepsTheOtherWords", {kV4, kV4, {VM_OP_DOT, {4}}, kStoreV4}},
    {"SplatAndFill", {kF, {VM_OP_CTOR_VEC4_A, {1}}, kPop, kV2, kV2, {VM_OP_CTOR_VEC4_B, {2, 2}},
     kStoreV4}},
    {"MatrixForms",
     {kF, {VM_OP_CTOR_MAT4, {1}}, {VM_OP_CTOR_MAT3, {16}}, {VM_OP_CTOR_MAT2, {9}},
      {VM_OP_CTOR_VEC4_A, {4}}, kStoreV4}},
    {"OperandsBeyondTheResult", {kV4, kF, {VM_OP_CTOR_VEC4_A, {4, 2}}, kStoreV4}},
    {"NoOperandsMakeNothing", {{VM_OP_CTOR_VEC4_A}}},
    {"Products",
     {kM3, kM3, {VM_OP_MUL_MAT_MAT, {3}}, kV4, {VM_OP_MUL_MAT_VEC, {3}}, {VM_OP_CTOR_VEC3_A, {3}},
     kPop}},
    {"ColumnOfAMatrix", {kM3, {VM_OP_PUSH_INDEX_IMM, {2}}, {VM_OP_MAT_COLUMN, {3}}, kPop}},
    {"EmptyComparison",
     {{VM_OP_PUSH_EMPTY}, {VM_OP_PUSH_EMPTY}, {VM_OP_EQ_F, {0}}, {VM_OP_STORE_LOCAL, {kScalar}}}},

    {"UnaryReadsTooMuch", {kV2, {VM_OP_SIN, {3}}, kPop},
     "SIN: error: S0 has 2 defined words, 3 needed"},
    {"BinaryRight", {kV4, kV2, {VM_OP_ADD_F, {4}}, kPop},
     "ADD_F: error: S0 has 2 defined words, 4 needed"},
    {"BinaryBoth", {kF, kV2, {VM_OP_ADD_F, {4}}, kPop},
     "ADD_F: error: S1 has 1 defined word, 4 needed\n"
     "ADD_F: error: S0 has 2 defined words, 4 needed"},
    {"BinaryView", {kV4, kView, {VM_OP_ADD_F, {4}}, kPop},
     "ADD_F: error: S0 is a view of structure 0, an inline value is needed"},
    {"VectorScalar", {kF, kF, {VM_OP_ADD_VS_F, {2}}, kPop},
     "ADD_VS_F: error: S1 has 1 defined word, 2 needed"},
    {"ScalarVector", {kF, kF, {VM_OP_SUB_SV_F, {2}}, kPop},
     "SUB_SV_F: error: S0 has 1 defined word, 2 needed"},
    {"ScalarBinary", {{VM_OP_PUSH_EMPTY}, kF, {VM_OP_LT_F}, kPop},
     "LT_F: error: S1 has 0 defined words, 1 needed"},
    {"Ternary", {kV4, kV4, kF, {VM_OP_MIX, {4}}, kPop},
     "MIX: error: S0 has 1 defined word, 4 needed"},
    {"TernaryVSS", {kF, kF, kF, {VM_OP_CLAMP_VSS, {3}}, kPop},
     "CLAMP_VSS: error: S2 has 1 defined word, 3 needed"},
    {"TernaryVVS", {kV4, kF, kF, {VM_OP_MIX_VVS, {4}}, kPop},
     "MIX_VVS: error: S1 has 1 defined word, 4 needed"},
    {"TernarySSV", {kF, kF, kF, {VM_OP_SMOOTHSTEP_SSV, {2}}, kPop},
     "SMOOTHSTEP_SSV: error: S0 has 1 defined word, 2 needed"},
    {"ProductReplacesTheSlot", {kM3, kM3, {VM_OP_MUL_MAT_VEC, {3}}, kStoreV4},
     "STORE_LOCAL: error: S0 has 3 defined words, 4 needed"},
    {"SmallMatrix", {kV4, kV4, {VM_OP_MUL_MAT_VEC, {3}}, kPop},
     "MUL_MAT_VEC: error: S1 has 4 defined words, 9 needed"},
    {"NoDimension", {kF, kF, {VM_OP_MUL_MAT_MAT, {0}}, kPop}, "MUL_MAT_MAT: error: dimension 0"},
    {"SwizzleSource", {kV2, {VM_OP_SWIZZLE, {0, 2, 8}}, kPop},
     "SWIZZLE: error: S0 has 2 defined words, 3 needed"},
    {"SwizzleResult", {kV4, {VM_OP_SWIZZLE, {0, 2, 0}}, {VM_OP_SIN, {3}}, kPop},
     "SIN: error: S0 has 2 defined words, 3 needed"},
    {"SwizzleCount", {kV4, {VM_OP_SWIZZLE_3, {0, 5, 0}}, kPop},
     "SWIZZLE_3: error: count 5 is above 4"},
    {"VectorElement", {kV2, {VM_OP_VEC_ELEMENT, {4}}, kPop},
     "VEC_ELEMENT: error: S0 has 2 defined words, 4 needed"},
    {"MatrixColumn", {kV4, {VM_OP_MAT_COLUMN, {3}}, kPop},
     "MAT_COLUMN: error: S0 has 4 defined words, 9 needed"},
    {"Cross", {kV2, kV4, {VM_OP_CROSS}, kPop}, "CROSS: error: S1 has 2 defined words, 3 needed"},
    {"CrossReplacesTheSlot", {kV4, kV4, {VM_OP_CROSS}, kStoreV4},
     "STORE_LOCAL: error: S0 has 3 defined words, 4 needed"},
    {"ReflectReplacesTheSlot", {kV4, kV4, {VM_OP_REFLECT, {2}}, kStoreV4},
     "STORE_LOCAL: error: S0 has 2 defined words, 4 needed"},
    {"RefractReplacesTheSlot", {kV4, kV4, kF, {VM_OP_REFRACT, {3}}, kStoreV4},
     "STORE_LOCAL: error: S0 has 3 defined words, 4 needed"},
    {"Refract", {kV4, kV4, {VM_OP_PUSH_EMPTY}, {VM_OP_REFRACT, {4}}, kPop},
     "REFRACT: error: S0 has 0 defined words, 1 needed"},
    {"NoisePoint", {kF, {VM_OP_NOISE1, {5}}, kPop}, "NOISE1: error: count 5 is above 4"},
    {"NoNoisePoint", {kF, {VM_OP_NOISE1, {0}}, kPop}, "NOISE1: error: count 0"},
    {"TooManyOperands", {kF, kF, kF, {VM_OP_CTOR_VEC2_A, {1, 1, 1}}, kPop},
     "CTOR_VEC2_A: error: 3 operands for a result of 2 components"},
    {"MissingOperands", {kF, {VM_OP_CTOR_VEC3_A, {1, 1, 1}}, kPop},
     "CTOR_VEC3_A: error: needs 3 values above the locals, there is 1"},
    {"OperandTooNarrow", {kF, kF, {VM_OP_CTOR_VEC3_A, {2, 1}}, kPop},
     "CTOR_VEC3_A: error: S1 has 1 defined word, 2 needed"},
    {"ResultNotFilled", {kV2, {VM_OP_CTOR_VEC4_A, {2}}, kStoreV4},
     "STORE_LOCAL: error: S0 has 2 defined words, 4 needed"},
    {"CountBeyondASlot", {kM3, {VM_OP_CTOR_MAT2, {17}}, kPop},
     "CTOR_MAT2: error: count 17 is above 16"},
    {"BlockOfASmallerMatrix", {kV4, {VM_OP_CTOR_MAT2, {9}}, kPop},
     "CTOR_MAT2: error: S0 has 4 defined words, 5 needed"},
    {"ConstantIsChanged",
     {kF, {VM_OP_PUSH_0}, {VM_OP_INC_I, {1}}, {VM_OP_STORE_LOCAL_ELEM, {kPair, 1}}},
     "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant"},
    {"ViewInAConstructor", {kView, {VM_OP_CTOR_VEC2_A, {1}}, kPop},
     "CTOR_VEC2_A: error: S0 is a view of structure 0, an inline value is needed"},
};
// clang-format on

VALIDATOR_CASES(Inline, kCases);

}  // namespace
}  // namespace shadermachine::tools
