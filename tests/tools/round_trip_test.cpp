// Random records, most of them wrong in many ways, survive disassembling and assembling, and
// writing and reading.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/binary_file.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/shader_builder.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "support/record_difference.h"

namespace shadermachine::tools {
namespace {

class RandomShader {
 public:
  explicit RandomShader(uint32_t seed) : engine_(seed) {}

  BuiltShader make() {
    for (uint32_t i = below(4); i > 0; --i) addStruct();
    for (uint32_t i = below(6); i > 0; --i) spoil(builder_.info(builder_.addGlobal(variable())));
    const uint32_t functionCount = below(6);
    for (uint32_t i = 0; i < functionCount; ++i) fill(builder_.addFunction(name()));
    for (uint32_t i = 0; i < functionCount; ++i) {
      if (below(4) == 0) place({static_cast<uint16_t>(i)});
    }
    setFields(builder_.record());
    return std::move(builder_).build();
  }

 private:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(engine_()) % limit; }

  // Small numbers, so that many are in range, or any.
  uint32_t number() { return below(3) == 0 ? static_cast<uint32_t>(engine_()) : below(8); }
  int32_t index() { return static_cast<int32_t>(below(8) == 0 ? engine_() : below(8) - 1); }

  std::string name() {
    constexpr const char* kNames[] = {"a",  "b", "main", "vec3",   "null",        "1x", "",
                                      "L1", "é", "host", "local0", "a \"b\"\\\n", "_$", "size"};
    return kNames[below(std::size(kNames))];
  }

  Variable variable() {
    const bool isStrange = below(8) == 0;
    const auto type = static_cast<TypeCode>(isStrange ? engine_() : below(27) - 100u);
    const TypeCode known = type == -77 ? TypeCode{0} : type;
    // Together less than 4 GiB, or the builder refuses the structure.
    const uint32_t most = (1u << 30) / std::max(builder_.sizeOf(known), 1u);
    return {name(), known, below(3) == 0 ? std::min(number(), most) : 0,
            static_cast<uint16_t>(below(3) == 0 ? engine_() : below(2))};
  }

  void spoil(VarInfo& info) {
    if (below(6) == 0) info.byteSize = number();
    if (below(6) == 0) info.name = nullptr;
  }

  void addStruct() {
    if (below(5) == 0) {
      builder_.addNullStruct(name());
      return;
    }
    std::vector<Variable> members;
    for (uint32_t i = below(4); i > 0; --i) members.push_back(variable());
    const TypeCode type = builder_.addStruct(name(), members);
    for (uint32_t i = 0; i < members.size(); ++i) {
      VarInfo& member = builder_.member(type, i);
      spoil(member);
      if (below(6) == 0) member.memberOffset = number();
    }
    uint32_t& size = builder_.info(type).size;
    size = std::min(below(6) == 0 ? number() : size, 1u << 30);
  }

  void fill(FunctionBuilder& function) {
    for (uint32_t i = below(3); i > 0; --i) spoil(function.info(function.addParam(variable())));
    for (uint32_t i = below(3); i > 0; --i) spoil(function.info(function.addLocal(variable())));
    if (below(8) == 0) function.setParamCount(static_cast<uint16_t>(number()));
    if (below(8) == 0) return function.setNull();
    if (below(8) == 0) return function.setCodeRange(number(), number());
    for (uint32_t i = below(20); i > 0; --i) emitRandom(function);
  }

  void emitRandom(FunctionBuilder& function) {
    if (below(8) == 0) {
      const auto byte = static_cast<uint8_t>(engine_());
      return function.emitBytes({&byte, 1});
    }
    const auto opcode = static_cast<VmOpcode>(below(VM_OPCODE_COUNT));
    std::vector<int64_t> operands;
    // The builder refuses wrong numbers of operands; lists accept any.
    for (uint32_t attempts = 0; attempts < 5; ++attempts) {
      try {
        return function.emit(opcode, operands);
      } catch (const std::logic_error&) {
        operands.push_back(index());
      }
    }
  }

  void place(FunctionId function) {
    const uint8_t loose[] = {1, 255, static_cast<uint8_t>(engine_())};
    if (below(2) == 0) builder_.placeLooseCode(loose);
    builder_.placeCode(function);
  }

  void setFields(CompiledShader& record) {
    record.entryIndex = static_cast<uint16_t>(number());
    record.version = static_cast<uint16_t>(below(3));
    record.hostFunctionCount = static_cast<uint16_t>(number());
    record.hostStructMode = number();
    for (int32_t& global : record.builtinGlobals) global = index();
    for (int32_t* field :
         {&record.outputGlobal0, &record.outputGlobal1, &record.hostFunctionA,
          &record.hostFunctionBase, &record.hostFunctionB, &record.hostFunctionAType,
          &record.builtinGlobal300, &record.builtinGlobal303, &record.builtinGlobal304}) {
      *field = index();
    }
  }

  std::mt19937 engine_;
  ShaderBuilder builder_;
};

TEST(RoundTrip, RandomRecords) {
  for (uint32_t seed = 0; seed < 1000; ++seed) {
    const BuiltShader original = RandomShader(seed).make();
    const std::string text = disassemble(original.view(), {.annotate = seed % 2 == 0});
    const AssemblyResult result = assemble(text);
    ASSERT_TRUE(result.shader) << "seed " << seed << "\n"
                               << formatError(result.errors.at(0), text, "text") << text;
    ASSERT_EQ(testing::recordDifference(original.view(), result.shader->view()), "")
        << "seed " << seed << "\n"
        << text;
    const BinaryResult binary = readBinary(writeBinary(original.view()));
    ASSERT_TRUE(binary.shader) << binary.error;
    ASSERT_EQ(disassemble(binary.shader->view(), {.annotate = seed % 2 == 0}), text);
  }
}

TEST(Binary, KeepsValuesAndPassesOverWhatItDoesNotKnow) {
  const BuiltShader shader = RandomShader(1).make();
  std::string bytes = writeBinary(shader.view(), std::vector<NamedValue>{{"scale", {0.5, -2}}});
  bytes += std::string("new!\3\0\0\0abc", 11);
  const BinaryResult result = readBinary(bytes);
  ASSERT_TRUE(result.shader) << result.error;
  ASSERT_EQ(result.values.size(), 1u);
  EXPECT_EQ(result.values[0].name, "scale");
  EXPECT_EQ(result.values[0].components, (std::vector<double>{0.5, -2}));
}

TEST(Binary, NamesWhatIsWrong) {
  const BuiltShader shader = RandomShader(1).make();
  const std::string good = writeBinary(shader.view());
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(readBinary(good.substr(0, size)).shader) << size;
  }
  const auto errorAfter = [&](size_t place, const char* bytes) {
    std::string bad = good;
    return readBinary(bad.replace(place, std::strlen(bytes), bytes)).error;
  };
  EXPECT_EQ(errorAfter(0, "X"), "is no binary shader");
  EXPECT_EQ(errorAfter(4, "\2"), "has version 2 of the format; this program reads 1");
  EXPECT_EQ(errorAfter(8, "CODE"), "has sections in the wrong order");
  EXPECT_EQ(errorAfter(12, "\1"), "section RECD is malformed or cut off");
  const size_t structs = good.find("STRU");
  EXPECT_EQ(errorAfter(structs + 10, "\1"), "section STRU is malformed or cut off");
  EXPECT_EQ(readBinary(good + std::string("NEWS\0\0\0\0", 8)).error,
            "has sections that this program cannot read");
}

TEST(Disassembler, ToleratesMissingTables) {
  EXPECT_EQ(disassemble({}), "");
  CompiledShader record = {};
  record.functionCount = 3;
  record.globalCount = 3;
  const std::string text = disassemble({.shader = &record, .structCount = 3, .codeSize = 3});
  EXPECT_TRUE(assemble(text).shader) << text;
}

TEST(Disassembler, GivesSingleInstructions) {
  ShaderBuilder builder;
  const GlobalId color = builder.addGlobal({"color", VM_TYPE_VEC4});
  FunctionBuilder& main = builder.addFunction("main");
  main.swizzle("xxyy");
  main.store(color);
  const uint8_t cutOff[] = {VM_OP_PUSH_U32, 0};
  main.emitBytes(cutOff);
  const BuiltShader shader = std::move(builder).build();
  EXPECT_EQ(disassembleInstruction(shader.view(), 0, 0), "SWIZZLE .xxyy");
  EXPECT_EQ(disassembleInstruction(shader.view(), 0, 4), "STORE_GLOBAL color");
  EXPECT_EQ(disassembleInstruction(shader.view(), 0, 7), "");
  EXPECT_EQ(disassembleInstruction(shader.view(), 0, 9), "");
  EXPECT_EQ(disassembleInstruction(shader.view(), 1, 0), "");
}

}  // namespace
}  // namespace shadermachine::tools
