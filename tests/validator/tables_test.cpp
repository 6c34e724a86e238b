// The record and its tables.

#include "support.h"

namespace shadermachine::tools {
namespace {

struct TableCase {
  const char* name;
  void (*change)(Scene&);
  const char* expected;
};

void PrintTo(const TableCase& value, std::ostream* stream) { *stream << value.name; }

class ValidatorTables : public testing::TestWithParam<TableCase> {};

TEST_P(ValidatorTables, Finds) {
  Scene scene;
  GetParam().change(scene);
  EXPECT_EQ(findings(scene), GetParam().expected);
}

// clang-format off
const std::vector<TableCase> kCases = {
    {"Sound", [](Scene&) {}, ""},
    {"Version", [](Scene& s) { s.record().version = 2; }, "error: version is 2, not 1"},
    {"Entry", [](Scene& s) { s.record().entryIndex = 6; },
     "error: entryIndex is 6, functionCount 6"},
    {"EntryWithoutCode", [](Scene& s) { s.record().entryIndex = kBodiless; },
     "error: the entry function has no code"},
    {"NullEntry",
     [](Scene& s) { s.shader.addFunction("none").setNull(); s.record().entryIndex = 6; },
     "error: the entry function has no code"},
    {"NullFunctionIsFine", [](Scene& s) { s.shader.addFunction("none").setNull(); }, ""},
    {"CodeOutside",
     [](Scene& s) { s.shader.addFunction("out").setCodeRange(0xFFFFFFFF, 0xFFFFFFFF); },
     "error: function 6: its code ends at 8589934590, the code has 17 bytes"},
    {"Parameters", [](Scene& s) { s.main.setParamCount(9); },
     "error: function 0: paramCount is 9, localCount only 8"},
    {"ByteSize", [](Scene& s) { s.shader.info(GlobalId{kNumbers}).byteSize = 12; },
     "error: global 1: byteSize is 12, its type takes 16"},
    {"ArrayLength", [](Scene& s) { s.shader.info(GlobalId{kNumbers}).count = 0x40000004; },
     "error: global 1: byteSize is 16, its type takes 4294967312"},
    {"UnknownType", [](Scene& s) { s.main.info(LocalId{kScalar}).type = -101; },
     "error: function 0, local 0: there is no type -101"},
    {"UnknownStructure", [](Scene& s) { s.main.info(LocalId{kPair}).type = 2; },
     "error: function 0, local 6: there is no type 2"},
    {"NullStructure", [](Scene& s) { s.shader.addNullStruct("none"); },
     "error: structure 2 is null"},
    {"EmptyStructure", [](Scene& s) { s.shader.addStruct("none", {}); },
     "error: structure 2: its size is 0, not a number of words"},
    {"StructureOfBrokenWords", [](Scene& s) { s.shader.info(s.shader.addStruct("s",
     {{"m", VM_TYPE_INT}})).size = 6; },
     "error: structure 2: its size is 6, not a number of words"},
    {"StructureTooSmall", [](Scene& s) { s.shader.info(s.shader.addStruct("s",
     {{"m", VM_TYPE_VEC2}})).size = 4; },
     "error: structure 2: its size is 4, its members take 8"},
    {"MemberOffset", [](Scene& s) { s.shader.member(0, 1).memberOffset = 8; },
     "error: structure 0, member 1: memberOffset is 8, the members before it end at 4"},
    {"MemberType", [](Scene& s) { s.shader.member(0, 0).type = -77; },
     "error: structure 0, member 0: there is no type -77"},
    {"RecursiveStructures",
     [](Scene& s) {
       const TypeCode first = s.shader.addStruct("first", {{"m", VM_TYPE_INT}});
       s.shader.member(first, 0).type = s.shader.addStruct("second", {{"m", first}});
     },
     "error: structure 2 contains itself or a structure that does\n"
     "error: structure 3 contains itself or a structure that does"},
    {"NoSuchOutput", [](Scene& s) { s.record().outputGlobal0 = 5; },
     "error: outputGlobal0: there is no global 5"},
    {"NegativeOutput", [](Scene& s) { s.record().outputGlobal1 = -2; },
     "error: outputGlobal1: there is no global -2"},
    {"OutputIsAnAggregate", [](Scene& s) { s.record().outputGlobal0 = kNumbers; },
     "error: outputGlobal0: global 1 is an aggregate, the host reads an inline value"},
    {"BackingGlobalIsInline", [](Scene& s) { s.record().builtinGlobal300 = kColor; },
     "error: built-in variable 300: global 0 is inline, the host fills a block"},
    {"BackingGlobalTooSmall", [](Scene& s) { s.record().builtinGlobals[25] = kNumbers; },
     "error: built-in variable 450: global 1 has 16 bytes, the host may write 64"},
    {"NoBackingGlobal", [](Scene& s) { s.record().builtinGlobal304 = 9; },
     "error: built-in variable 304: there is no global 9"},
    {"HostFunctions",
     [](Scene& s) {
       s.record().hostFunctionA = 6;
       s.record().hostFunctionB = -2;
       s.record().hostFunctionBase = 7;
     },
     "error: hostFunctionA: there is no function 6\n"
     "error: hostFunctionB: there is no function -2\n"
     "error: hostFunctionBase: there is no function 7"},
    {"HostFunctionType", [](Scene& s) { s.record().hostFunctionAType = 2; },
     "error: hostFunctionAType: there is no structure 2"},
    {"CodeIsStillDecoded",
     [](Scene& s) { s.main.emit(VM_OP_SIN, {17}); s.record().outputGlobal0 = 5; },
     "error: outputGlobal0: there is no global 5\nSIN: error: count 17 is above 16"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Tables, ValidatorTables, testing::ValuesIn(kCases),
                         [](const auto& instance) { return instance.param.name; });

TEST(ValidatorTables, FindsMissingTables) {
  EXPECT_EQ(findings(validate({})), "error: there is no shader");
  CompiledShader shader = {};
  shader.globalCount = 1;
  EXPECT_EQ(findings(validate({&shader, 1, 1})),
            "error: functions is null\nerror: structTypes is null\nerror: globals is null\n"
            "error: code is null");
}

TEST(ValidatorTables, FindsMissingLocalsAndMembers) {
  ShaderFunction function = {};
  function.localCount = 1;
  function.codeLength = 1;
  const ShaderFunction* functions[] = {&function};
  StructInfo structure = {};
  structure.size = 4;
  structure.memberCount = 1;
  const StructInfo* structures[] = {&structure};
  const uint8_t code[] = {VM_OP_RETURN};
  CompiledShader shader = {};
  shader.version = 1;
  shader.functionCount = 1;
  shader.functions = functions;
  shader.structTypes = structures;
  shader.code = code;
  EXPECT_EQ(findings(validate({&shader, 1, 1})),
            "error: structure 0: members is null\nerror: function 0: locals is null");
}

}  // namespace
}  // namespace shadermachine::tools
