// Structures and arrays: constructors, comparison, parts and element stores.

#include "support.h"

namespace shadermachine::tools {
namespace {

constexpr int64_t kPairType = 0;
constexpr int64_t kLightType = 1;
constexpr int64_t kY = -0x101;  // selects component y: one selector, 1
constexpr int64_t kWY = -0x207;

const Op kF = {VM_OP_LOAD_LOCAL, {kScalar}};
const Op kV4 = {VM_OP_LOAD_LOCAL, {kVector}};
const Op kV2 = {VM_OP_LOAD_GLOBAL, {kHost}};
const Op kLoadPair = {VM_OP_LOAD_LOCAL, {kPair}};
const Op kLoadLight = {VM_OP_LOAD_LOCAL, {kLight}};
const Op kLoadPairs = {VM_OP_LOAD_LOCAL, {kPairs}};
const Op kIndex = {VM_OP_PUSH_INDEX_IMM, {1}};
const Op kStoreF = {VM_OP_STORE_LOCAL, {kScalar}};
const Op kRelease = {VM_OP_POP_RELEASE};
const Op kPop = {VM_OP_POP};

// clang-format off
const std::vector<Case> kCases = {
    {"Constructors",
     {kF, kV2, {VM_OP_CTOR_STRUCT, {kPairType}}, {VM_OP_STORE_LOCAL, {kPair}},
      kLoadPair, kLoadPair, {VM_OP_CTOR_ARRAY, {kPairType, 2}}, {VM_OP_STORE_LOCAL, {kPairs}},
      kLoadPair, {VM_OP_LOAD_GLOBAL, {kNumbers}}, {VM_OP_CTOR_STRUCT, {kLightType}},
      {VM_OP_STORE_LOCAL, {kLight}}, kF, kF, kF, kF, {VM_OP_CTOR_ARRAY, {VM_TYPE_FLOAT, 4}},
      {VM_OP_STORE_GLOBAL, {kNumbers}}}},
    {"Parts",
     {kIndex, {VM_OP_LOAD_GLOBAL, {kLights}}, {VM_OP_ARRAY_ELEMENT, {kLightType}},
      {VM_OP_STRUCT_FIELD, {kLightType, 1}}, kIndex, {VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT}},
      kStoreF}},
    {"ComparisonConsumes", {kLoadPair, kLoadPair, {VM_OP_EQ_AGG}, kStoreF}},
    {"ElementStores",
     {kF, {VM_OP_STORE_GLOBAL_ELEM_IMM, {kLights, 1, 0, 0}},
      kV2, {VM_OP_STORE_LOCAL_ELEM_IMM, {kVector, kWY}},
      kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kVector, kWY, 0}},
      kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kMatrix, 2, 1}},
      kLoadPair, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPairs, 1}},
      kLoadPair, {VM_OP_STORE_GLOBAL_ELEM_IMM, {kLights, 0, 0}}}},
    {"ComputedPath",
     {kF, {VM_OP_PUSH_3}, {VM_OP_PUSH_1}, kF, {VM_OP_STORE_GLOBAL_ELEM, {kLights, 3}}}},
    {"PatternOnTheStack",
     {kV2, {VM_OP_PUSH_U32, {kWY}}, {VM_OP_STORE_LOCAL_ELEM, {kVector, 1}}}},
    {"EmptyPathTakesAnything", {kLoadPair, {VM_OP_STORE_LOCAL_ELEM_IMM, {kScalar}}}},
    {"IndexOnAScalarIsIgnored", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kVector, 3, 0}}}},

    {"MemberTooNarrow", {kF, kF, {VM_OP_CTOR_STRUCT, {kPairType}}, kRelease},
     "CTOR_STRUCT: error: S0 has 1 defined word, 2 needed"},
    {"MemberIsInline", {kF, {VM_OP_LOAD_GLOBAL, {kNumbers}}, {VM_OP_CTOR_STRUCT, {kLightType}},
     kRelease},
     "CTOR_STRUCT: error: S1 is an inline value, a view of structure 0 is needed"},
    {"MembersMissing", {kF, {VM_OP_CTOR_STRUCT, {kPairType}}, kRelease},
     "CTOR_STRUCT: error: needs 2 values above the locals, there is 1"},
    {"NoSuchStructure", {kF, {VM_OP_CTOR_STRUCT, {2}}, kRelease},
     "CTOR_STRUCT: error: there is no structure 2"},
    {"NoMembers", {kF, {VM_OP_CTOR_STRUCT, {2}}, kRelease},
     "CTOR_STRUCT: error: structure 2 has no members",
     [](Scene& s) { s.shader.info(s.shader.addStruct("Opaque", {})).size = 8; }},
    {"TwinsInAConstructor", {kLoadPair, {VM_OP_DUP}, {VM_OP_CTOR_ARRAY, {kPairType, 2}}, kRelease},
     "CTOR_ARRAY: error: S1 has a twin made by DUP, which must be dropped first\n"
     "CTOR_ARRAY: error: S0 has a twin made by DUP, which must be dropped first"},
    {"EmptyArray", {kF, {VM_OP_CTOR_ARRAY, {VM_TYPE_FLOAT, 0}}, kPop},
     "CTOR_ARRAY: error: an array of 0 elements cannot be made"},
    {"ArrayBeyond32Bits", {kLoadPair, {VM_OP_CTOR_ARRAY, {2, 4}}, kRelease},
     "CTOR_ARRAY: error: an array of 4 elements cannot be made",
     [](Scene& s) { s.shader.info(s.shader.addStruct("Huge", {})).size = 0x40000000; }},
    {"NoElementType", {kF, {VM_OP_CTOR_ARRAY, {-50, 1}}, kPop},
     "CTOR_ARRAY: error: there is no type -50"},
    {"ElementsAreInline", {kF, kF, {VM_OP_CTOR_ARRAY, {kPairType, 2}}, kRelease},
     "CTOR_ARRAY: error: S1 is an inline value, a view of structure 0 is needed\n"
     "CTOR_ARRAY: error: S0 is an inline value, a view of structure 0 is needed"},
    {"ComparesInline", {kF, kF, {VM_OP_EQ_AGG}, kPop},
     "EQ_AGG: error: S0 is inline, a view is needed\n"
     "EQ_AGG: error: S1 is inline, a view is needed"},
    {"ComparesOtherTypes", {kLoadLight, kLoadPair, {VM_OP_NE_AGG}, kPop},
     "NE_AGG: error: S1 is a view of structure 1, a view of structure 0 is needed"},
    {"ComparesTwins", {kLoadPair, {VM_OP_DUP}, {VM_OP_EQ_AGG}, kPop},
     "EQ_AGG: error: S0 has a twin made by DUP, which must be dropped first\n"
     "EQ_AGG: error: S1 has a twin made by DUP, which must be dropped first"},
    {"FieldOfAnotherStructure", {kLoadPair, {VM_OP_STRUCT_FIELD, {kLightType, 0}}, kRelease},
     "STRUCT_FIELD: error: S0 is a view of structure 0, a view of structure 1 is needed"},
    {"FieldOfAnArray", {kLoadPairs, {VM_OP_STRUCT_FIELD, {kPairType, 0}}, kPop},
     "STRUCT_FIELD: error: S0 is a view of array of 2 of structure 0, a view of structure 0 is "
     "needed"},
    {"FieldOfInline", {kF, {VM_OP_STRUCT_FIELD, {kPairType, 0}}, kPop},
     "STRUCT_FIELD: error: S0 is an inline value, a view of structure 0 is needed"},
    {"NoSuchField", {kLoadPair, {VM_OP_STRUCT_FIELD, {kPairType, 2}}, kPop},
     "STRUCT_FIELD: error: structure 0 has no member 2"},
    {"FieldOfATwin", {kLoadPair, {VM_OP_DUP}, {VM_OP_STRUCT_FIELD, {kPairType, 0}}, kPop, kRelease},
     "STRUCT_FIELD: error: S0 has a twin made by DUP, which must be dropped first"},
    {"FieldIsNarrower", {kLoadPair, {VM_OP_STRUCT_FIELD, {kPairType, 1}}, {VM_OP_SIN, {3}}, kPop},
     "SIN: error: S0 has 2 defined words, 3 needed"},
    {"ElementOfAStructure", {kLoadPair, {VM_OP_ARRAY_ELEMENT, {kPairType}}, kRelease},
     "ARRAY_ELEMENT: error: S0 is a view of structure 0, a view of an array of structure 0 is "
     "needed"},
    {"ElementOfAnotherType", {kLoadPairs, {VM_OP_ARRAY_ELEMENT, {VM_TYPE_VEC3}}, kPop},
     "ARRAY_ELEMENT: error: S0 is a view of array of 2 of structure 0, a view of an array of "
     "type -96 is needed"},
    {"ElementOfNoType", {kLoadPairs, {VM_OP_ARRAY_ELEMENT, {-101}}, kPop},
     "ARRAY_ELEMENT: error: there is no type -101"},

    {"StoresTooFewWords", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kMatrix, 1}}},
     "STORE_LOCAL_ELEM_IMM: error: S0 has 1 defined word, 3 needed"},
    {"StoresTooFewSelected", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kVector, kWY}}},
     "STORE_LOCAL_ELEM_IMM: error: S0 has 1 defined word, 2 needed"},
    {"StoresInlineIntoAggregate", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPairs, 1}}},
     "STORE_LOCAL_ELEM_IMM: error: S0 is an inline value, a view of structure 0 is needed"},
    {"StoresViewIntoInline", {kLoadPair, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPairs, 1, 0}}},
     "STORE_LOCAL_ELEM_IMM: error: S0 is a view of structure 0, an inline value is needed"},
    {"StoresATwin", {kLoadPair, {VM_OP_DUP}, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPairs, 1}}, kRelease},
     "STORE_LOCAL_ELEM_IMM: error: S0 has a twin made by DUP, which must be dropped first"},
    {"StoresBehindTheArray", {kF, {VM_OP_STORE_GLOBAL_ELEM_IMM, {kNumbers, 4}}},
     "STORE_GLOBAL_ELEM_IMM: warning: never stores: index 4 is outside the 4 elements"},
    {"StoresBehindTheColumns", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kMatrix, 3, 0}}},
     "STORE_LOCAL_ELEM_IMM: warning: never stores: index 3 is outside the 3 columns"},
    {"SelectsBehindTheVector", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPoints, 0, -0x103}}},
     "STORE_LOCAL_ELEM_IMM: warning: never stores: selector 3 is outside the 2 components"},
    {"SelectsOfAMatrix", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kMatrix, kY}}},
     "STORE_LOCAL_ELEM_IMM: warning: never stores: components are selected of what is no vector"},
    {"SelectsTooMany", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kVector, -0x500}}},
     "STORE_LOCAL_ELEM_IMM: warning: never stores: the pattern selects 5 components"},
    {"NoSuchMember", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPair, 2}}},
     "STORE_LOCAL_ELEM_IMM: error: structure 0 has no member 2"},
    {"ComputedMember", {kF, kF, {VM_OP_STORE_LOCAL_ELEM, {kPair, 1}}},
     "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant"},
    {"FirstProblemOfAPath",
     {kF, {VM_OP_PUSH_9}, kF, {VM_OP_STORE_LOCAL_ELEM, {kPair, 2}}},
     "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant"},
    {"IndexThroughASelector", {kF, {VM_OP_STORE_LOCAL_ELEM_IMM, {kPoints, 0, -0x103, 0}}},
     "STORE_LOCAL_ELEM_IMM: warning: never stores: index 3 is outside the 2 components"},
    {"PathWithoutIndices", {kF, {VM_OP_PUSH_1}, {VM_OP_STORE_GLOBAL_ELEM, {kNumbers, 2}}},
     "STORE_GLOBAL_ELEM: error: needs 3 values above the locals, there are 2"},
    {"UnwrittenIndex", {kF, {VM_OP_PUSH_EMPTY}, {VM_OP_STORE_GLOBAL_ELEM, {kNumbers, 1}}},
     "STORE_GLOBAL_ELEM: error: S0 has 0 defined words, 1 needed"},
    {"NoSuchGlobal", {kF, {VM_OP_STORE_GLOBAL_ELEM_IMM, {9, 0}}},
     "STORE_GLOBAL_ELEM_IMM: error: there is no global 9"},
};
// clang-format on

VALIDATOR_CASES(Aggregates, kCases);

}  // namespace
}  // namespace shadermachine::tools
