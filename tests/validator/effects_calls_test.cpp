// Calls of the shader's functions and of the host's, and returns.

#include "support.h"

namespace shadermachine::tools {
namespace {

const Op kEmpty = {VM_OP_PUSH_EMPTY};
const Op kF = {VM_OP_LOAD_LOCAL, {kScalar}};
const Op kV4 = {VM_OP_LOAD_LOCAL, {kVector}};
const Op kV2 = {VM_OP_LOAD_GLOBAL, {kHost}};
const Op kLoadPair = {VM_OP_LOAD_LOCAL, {kPair}};
const Op kSampler = {VM_OP_LOAD_LOCAL, {kImage}};
const Op kStoreV4 = {VM_OP_STORE_LOCAL, {kVector}};
const Op kRelease = {VM_OP_POP_RELEASE};
const Op kPop = {VM_OP_POP};

Op call(int64_t function) { return {VM_OP_CALL, {function}}; }
Op builtin(int64_t id) { return {VM_OP_CALL_BUILTIN, {id}}; }
Op lookUp(int64_t arguments, int64_t kind) {
  return {VM_OP_HOST_LOOKUP_1, {arguments << 5 | kind << 2}};
}

void takeRange(Scene& s) {
  s.record().hostFunctionBase = kBodiless;
  s.record().hostFunctionCount = 1;
}
void takeEndless(Scene& s) {
  s.record().hostFunctionBase = kEndless;
  s.record().hostFunctionCount = 1;
}
void takeEndlessByA(Scene& s) { s.record().hostFunctionA = kEndless; }
void takeEndlessByB(Scene& s) { s.record().hostFunctionB = kEndless; }
void takeByB(Scene& s) { s.record().hostFunctionB = kGivesVec3; }
void takePairByA(Scene& s) { s.record().hostFunctionA = kGivesPair; }
void takeByA(Scene& s) { s.record().hostFunctionA = kBodiless; }
void takeByABlock(Scene& s) {
  s.record().hostFunctionA = kNothing;
  s.record().hostStructMode = 6;
}

// clang-format off
const std::vector<Case> kCases = {
    {"ResultIsBelowTheArguments",
     {kEmpty, kLoadPair, call(kGivesVec3), kRelease, {VM_OP_SIN, {3}}, kPop}},
    {"AggregateResult", {kEmpty, call(kGivesPair), {VM_OP_STORE_LOCAL, {kPair}}}},
    {"NothingIsReachedAfterAnEndlessFunction", {call(kEndless), kPop}},
    {"HostFunctionWritesAVec4", {kEmpty, kF, kF, call(kBodiless), {VM_OP_POP_N, {2}}, kStoreV4},
     "", takeRange},
    {"HostRangeEnds",
     {kEmpty, kLoadPair, call(kGivesVec3), kRelease, {VM_OP_SIN, {3}}, kPop}, "", takeRange},
    {"OverrideBOrOwnCode", {kEmpty, kLoadPair, call(kGivesVec3), kRelease, {VM_OP_SIN, {3}}, kPop},
     "", takeByB},
    {"OverrideAGivesAWord",
     {kEmpty, kF, kF, call(kBodiless), {VM_OP_POP_N, {2}}, {VM_OP_STORE_LOCAL, {kScalar}}},
     "", takeByA},
    {"BuiltinFunctions",
     {kF, kV4, builtin(275), kStoreV4, kV4, kF, builtin(276), kPop, kF, kF, builtin(277), kStoreV4,
      kF, kV4, kF, builtin(278), kStoreV4, kV4, kV4, builtin(293), kEmpty, kV4, kF, kF,
      builtin(294), kStoreV4,
      kEmpty, kV4, kF, kF, kF, builtin(297), kStoreV4, kEmpty, kV4, kV4, builtin(298),
      kF, kV4, kV4, kLoadPair, builtin(267)}},
    {"LookUps",
     {kSampler, kV2, lookUp(2, 1), kStoreV4, kSampler, kV4, kF, lookUp(3, 6), kStoreV4,
     lookUp(1, 0)}},
    {"HostUnary", {kV4, {VM_OP_HOST_UNARY_2, {0}}, kStoreV4}},

    {"ArgumentsMissing", {kF, call(kNothing)},
     "CALL: error: needs 2 values above the locals, there is 1"},
    {"ArgumentIsInline", {kF, kF, call(kNothing), kPop, kPop},
     "CALL: error: S0 is an inline value, a view of structure 0 is needed"},
    {"ArgumentIsUndefined", {kEmpty, kLoadPair, call(kNothing), kRelease, kPop},
     "CALL: error: S1 has 0 defined words, 1 needed"},
    {"ArgumentIsATwin", {kF, kLoadPair, {VM_OP_DUP}, {VM_OP_SWAP}, kF, {VM_OP_SWAP}, call(kNothing),
     {VM_OP_POP_N, {2}}, kRelease, kPop},
     "CALL: error: S0 has a twin made by DUP, which must be dropped first"},
    {"ArgumentIsNotReleased", {kF, kLoadPair, call(kNothing), {VM_OP_POP_N, {2}}},
     "POP_N: error: S0 is a view of structure 0 and leaves without release"},
    {"NoSlotForTheResult", {kLoadPair, call(kGivesVec3), kRelease},
     "CALL: error: needs 2 values above the locals, there is 1"},
    {"ResultOverAView", {kLoadPair, kLoadPair, call(kGivesVec3), kRelease, kPop},
     "CALL: error: S1 receives the result but is a view of structure 0"},
    {"ResultIsNarrower", {kEmpty, kLoadPair, call(kGivesVec3), kRelease, kStoreV4},
     "STORE_LOCAL: error: S0 has 3 defined words, 4 needed"},
    {"NoSuchFunction", {call(6), kPop}, "CALL: error: there is no function 6"},
    {"NoCode", {kF, kF, call(kBodiless)},
     "CALL: warning: function 2 has no code: always stops with 3"},
    {"HostFunctionNeedsThreeSlots", {kF, kF, call(kBodiless), {VM_OP_POP_N, {2}}},
     "CALL: error: needs 3 values above the locals, there are 2", takeRange},
    {"HostFunctionWritesOverAView", {kLoadPair, kF, kF, call(kBodiless), {VM_OP_POP_N, {3}}},
     "CALL: error: S2 is a view of structure 0, an inline value is needed", takeRange},
    {"HostFunctionWritesOverAView1", {kEmpty, kLoadPair, kF, call(kEndless), kPop, kRelease, kPop},
     "CALL: error: S1 is a view of structure 0, an inline value is needed", takeEndless},
    {"HostFunctionChangesAConstant",
     {kEmpty, {VM_OP_PUSH_1}, kF, call(kEndless), kPop, {VM_OP_STORE_LOCAL_ELEM, {kPair, 1}}},
     "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant",
     takeEndless},
    {"OverrideAChangesAConstant",
     {kEmpty, kF, {VM_OP_PUSH_1}, call(kEndless), {VM_OP_STORE_LOCAL_ELEM, {kPair, 1}}},
     "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant",
     takeEndlessByA},
    {"OverrideBWritesOverAView", {kLoadPair, kLoadPair, call(kEndless), kRelease, kRelease},
     "CALL: error: S1 is a view of structure 0, an inline value is needed", takeEndlessByB},
    {"HostAndCodeDisagree", {kEmpty, kF, kF, call(kGivesPair), {VM_OP_POP_N, {3}}},
     "CALL: error: S0 is a view or inline, depending on whether the host takes the call",
     takePairByA},
    {"OverrideAGivesOnlyAWord", {kEmpty, kF, kF, call(kBodiless), {VM_OP_POP_N, {2}},
     {VM_OP_SIN, {2}}, kPop},
     "SIN: error: S0 has 1 defined word, 2 needed", takeByA},
    {"OverrideAReadsABlock", {kEmpty, kF, kLoadPair, call(kNothing), kRelease, kPop, kPop},
     "CALL: error: S1 is inline, a view is needed\n"
     "CALL: error: S0 is a view of structure 0, an inline value is needed", takeByABlock},
    {"ParametersMayChange",
     {kLoadPair, {VM_OP_PUSH_1}, kLoadPair, call(kNothing), kRelease, {VM_OP_STORE_LOCAL_ELEM,
     {kPairs, 1}},
      kF, {VM_OP_PUSH_1}, kLoadPair, call(kNothing), kRelease, {VM_OP_STORE_LOCAL_ELEM,
      {kPair, 1}}},
     "STORE_LOCAL_ELEM: error: the member of structure 0 is computed, it must be constant"},

    {"NoSuchBuiltinFunction", {builtin(268)},
     "CALL_BUILTIN: warning: there is no built-in function 268: always stops with 17"},
    {"BuiltinArguments", {kF, kF, builtin(275), kPop},
     "CALL_BUILTIN: error: S0 has 1 defined word, 3 needed"},
    {"BuiltinNeedsABlock", {kF, kV4, kV4, kF, builtin(267)},
     "CALL_BUILTIN: error: S0 is inline, a view is needed"},
    {"BuiltinReleasesATwin",
     {kLoadPair, {VM_OP_DUP}, kF, kV4, kV4, {VM_OP_POP_N, {3}}, kF, {VM_OP_SWAP}, kV4, {VM_OP_SWAP},
     kV4,
      {VM_OP_SWAP}, builtin(267), kRelease},
     "CALL_BUILTIN: error: S0 has a twin made by DUP, which must be dropped first"},
    {"BuiltinDropsAView", {kLoadPair, kV4, kV4, builtin(298)},
     "CALL_BUILTIN: error: S2 is a view of structure 0, an inline value is needed"},
    {"BuiltinDepth", {kV4, kF, kF, builtin(296)},
     "CALL_BUILTIN: error: needs 4 values above the locals, there are 3"},
    {"SamplerIsTooNarrow", {kF, kV2, lookUp(2, 1), kPop},
     "HOST_LOOKUP_1: error: S1 has 1 defined word, 2 needed"},
    {"CoordinatesMissing", {kSampler, kV2, lookUp(2, 3), kPop},
     "HOST_LOOKUP_1: error: S0 has 2 defined words, 3 needed"},
    {"ExtraMissing", {kSampler, kV2, lookUp(3, 1), kPop},
     "HOST_LOOKUP_1: error: needs 3 values above the locals, there are 2"},
    {"ExtraUndefined", {kSampler, kV2, kEmpty, lookUp(3, 1), kPop},
     "HOST_LOOKUP_1: error: S0 has 0 defined words, 1 needed"},
    {"HostUnaryOfAView", {kLoadPair, {VM_OP_HOST_UNARY_1, {0}}, kRelease},
     "HOST_UNARY_1: error: S0 is a view of structure 0, an inline value is needed"},

    {"ViewLeftAtTheReturn", {kLoadPair},
     "RETURN: error: S0 is a view of structure 0 and is left without release at the return"},
    {"EntryReturnsAView", {kLoadPair, {VM_OP_RETURN_VALUE}},
     "RETURN_VALUE: error: the entry function returns a view of structure 0, which nobody "
     "releases"},
    {"ReturnsATwin", {kLoadPair, {VM_OP_DUP}, {VM_OP_RETURN_VALUE}},
     "RETURN_VALUE: error: S0 has a twin made by DUP, which must be dropped first\n"
     "RETURN_VALUE: error: the entry function returns a view of structure 0, which nobody "
     "releases\n"
     "RETURN_VALUE: error: S1 is a view of structure 0 and is left without release at the return"},
    {"ReturnsALocal", {{VM_OP_RETURN_VALUE}},
     "RETURN_VALUE: error: needs 1 value above the locals, there are 0"},
    {"ReservedInstruction", {{VM_OP_RESERVED_197, {0}}},
     "RESERVED_197: warning: reserved instruction: always stops with 17"},
};
// clang-format on

VALIDATOR_CASES(Calls, kCases);

}  // namespace
}  // namespace shadermachine::tools
