// Variables, constants and references.

#include "support.h"

namespace shadermachine::tools {
namespace {

const Op kLoadPair = {VM_OP_LOAD_LOCAL, {kPair}};
const Op kStorePair = {VM_OP_STORE_LOCAL, {kPair}};

// clang-format off
const std::vector<Case> kCases = {
    {"LoadsAndStores",
     {{VM_OP_LOAD_LOCAL, {kVector}}, {VM_OP_STORE_GLOBAL, {kColor}}, {VM_OP_LOAD_LOCAL, {kPairs}},
      {VM_OP_STORE_LOCAL, {kPairs}}, {VM_OP_LOAD_GLOBAL, {kHost}}, {VM_OP_POP}}},
    {"TwinIsDroppedBeforeTheStore", {kLoadPair, {VM_OP_DUP}, {VM_OP_POP}, kStorePair}},
    {"EitherTwinMayGo",
     {kLoadPair, {VM_OP_PUSH_0}, {VM_OP_SWAP}, {VM_OP_DUP}, {VM_OP_SWAP}, {VM_OP_POP},
      {VM_OP_POP_RELEASE}, {VM_OP_POP}}},
    {"SwappedViewIsStillSole",
     {{VM_OP_PUSH_0}, kLoadPair, {VM_OP_SWAP}, {VM_OP_POP}, {VM_OP_POP_RELEASE}}},
    {"KeepLeavesTheTwin",
     {kLoadPair, {VM_OP_DUP}, {VM_OP_STORE_LOCAL_KEEP, {kPair}}, {VM_OP_POP_N, {1}},
      {VM_OP_MAKE_UNIQUE}, {VM_OP_POP_RELEASE}}},
    {"ComponentOfALocal",
     {{VM_OP_LOAD_LOCAL_COMPONENT, {9, 8, kMatrix}}, {VM_OP_STORE_LOCAL, {kScalar}}}},
    {"BuiltinVariables",
     {{VM_OP_LOAD_BUILTIN, {283}}, {VM_OP_STORE_LOCAL, {kVector}}, {VM_OP_LOAD_BUILTIN, {284}},
      {VM_OP_STORE_LOCAL, {kScalar}}, {VM_OP_LOAD_BUILTIN, {440}}, {VM_OP_STORE_GLOBAL, {kStates}}},
     "", [](Scene& s) { s.record().builtinGlobals[16] = kStates; }},

    {"TooFewWords", {{VM_OP_LOAD_GLOBAL, {kHost}}, {VM_OP_STORE_LOCAL, {kVector}}},
     "STORE_LOCAL: error: S0 has 2 defined words, 4 needed"},
    {"UnwrittenSlot", {{VM_OP_PUSH_EMPTY}, {VM_OP_STORE_LOCAL, {kScalar}}},
     "STORE_LOCAL: error: S0 has 0 defined words, 1 needed"},
    {"ViewAsInline", {kLoadPair, {VM_OP_STORE_LOCAL, {kScalar}}},
     "STORE_LOCAL: error: S0 is a view of structure 0, an inline value is needed"},
    {"InlineAsView", {{VM_OP_LOAD_LOCAL, {kScalar}}, kStorePair},
     "STORE_LOCAL: error: S0 is an inline value, a view of structure 0 is needed"},
    {"OtherArray", {{VM_OP_LOAD_GLOBAL, {kNumbers}}, {VM_OP_STORE_LOCAL, {kPoints}}},
     "STORE_LOCAL: error: S0 is a view of array of 4 of type -98, a view of array of 3 of type -97 "
     "is needed"},
    {"ViewPopped", {kLoadPair, {VM_OP_POP}},
     "POP: error: S0 is a view of structure 0 and leaves without release"},
    {"BothTwinsPopped", {kLoadPair, {VM_OP_DUP}, {VM_OP_POP_N, {2}}},
     "POP_N: error: S1 is a view of structure 0 and leaves without release"},
    {"TwinStored", {kLoadPair, {VM_OP_DUP}, kStorePair, {VM_OP_POP_RELEASE}},
     "STORE_LOCAL: error: S0 has a twin made by DUP, which must be dropped first"},
    {"OwnerStoredUnderItsTwin", {kLoadPair, {VM_OP_DUP}, {VM_OP_SWAP}, kStorePair, {VM_OP_POP}},
     "STORE_LOCAL: error: S0 has a twin made by DUP, which must be dropped first\n"
     "POP: error: S0 is a view of structure 0 and leaves without release"},
    {"TwinReleased", {kLoadPair, {VM_OP_DUP}, {VM_OP_POP_RELEASE}, {VM_OP_POP_RELEASE}},
     "POP_RELEASE: error: S0 has a twin made by DUP, which must be dropped first"},
    {"TwinMadeUnique",
     {kLoadPair, {VM_OP_DUP}, {VM_OP_MAKE_UNIQUE}, {VM_OP_POP}, {VM_OP_POP_RELEASE}},
     "MAKE_UNIQUE: error: S0 has a twin made by DUP, which must be dropped first"},
    {"InlineMadeUnique", {{VM_OP_PUSH_0}, {VM_OP_MAKE_UNIQUE}},
     "MAKE_UNIQUE: error: S0 is inline, a view is needed"},
    {"LocalPopped", {{VM_OP_POP}}, "POP: error: needs 1 value above the locals, there are 0"},
    {"LocalDuplicated", {{VM_OP_DUP}}, "DUP: error: needs 1 value above the locals, there are 0"},
    {"LocalSwapped", {{VM_OP_PUSH_0}, {VM_OP_SWAP}},
     "SWAP: error: needs 2 values above the locals, there is 1"},
    {"PopsMoreThanThereIs", {{VM_OP_PUSH_0}, {VM_OP_POP_N, {2}}},
     "POP_N: error: needs 2 values above the locals, there is 1"},
    {"IndexFromAView", {kLoadPair, {VM_OP_PUSH_INDEX}},
     "PUSH_INDEX: error: S0 is a view of structure 0, an inline value is needed"},
    {"ComponentOfAnAggregate", {{VM_OP_LOAD_LOCAL_COMPONENT, {4, 0, kPoints}}},
     "LOAD_LOCAL_COMPONENT: error: local 4 is an aggregate"},
    {"ComponentBeyondTheLocal", {{VM_OP_LOAD_LOCAL_COMPONENT, {4, 2, kImage}}},
     "LOAD_LOCAL_COMPONENT: error: component 2 is beyond the 2 words of local 3"},
    {"ComponentAtTheBound", {{VM_OP_LOAD_LOCAL_COMPONENT, {4, 4, kVector}}},
     "LOAD_LOCAL_COMPONENT: warning: component 4 is not below 4: always stops with 12"},
    {"NoSuchBuiltin", {{VM_OP_LOAD_BUILTIN, {267}}},
     "LOAD_BUILTIN: warning: there is no built-in variable 267: always stops with 8"},
    {"BuiltinWithoutGlobal", {{VM_OP_LOAD_BUILTIN, {303}}},
     "LOAD_BUILTIN: warning: no global backs built-in variable 303: always stops with 8"},
    {"BuiltinIsNarrower", {{VM_OP_LOAD_BUILTIN, {284}}, {VM_OP_STORE_LOCAL, {kVector}}},
     "STORE_LOCAL: error: S0 has 2 defined words, 4 needed"},
    {"EveryMistakeIsFound",
     {{VM_OP_LOAD_LOCAL, {99}}, kStorePair, kLoadPair, {VM_OP_STORE_LOCAL, {kVector}},
      {VM_OP_ADD_F, {17}}},
     "LOAD_LOCAL: error: there is no local 99\n"
     "STORE_LOCAL: error: S0 is a view of structure 0, an inline value is needed\n"
     "ADD_F: error: count 17 is above 16\n"
     "ADD_F: error: needs 2 values above the locals, there are 0"},
};
// clang-format on

VALIDATOR_CASES(Stack, kCases);

TEST(Validator, StopsFollowingAStackThatCannotExist) {
  Scene scene;
  scene.write(Code(2000, Op{VM_OP_PUSH_0}));
  EXPECT_EQ(findings(scene), "PUSH_0: warning: the value stack is full: always stops with 10");
}

}  // namespace
}  // namespace shadermachine::tools
