// The validator on arbitrary tables and bytes, and a run of what it lets through.

#include <shadermachine-tools/shader_builder.h>
#include <shadermachine-tools/validator.h>

#include <utility>

#include "fuzz/arbitrary_host.h"
#include "fuzz/choices.h"

using namespace shadermachine;

namespace {

void spoil(fuzz::Choices& choices, VarInfo& info) {
  if (choices.oneIn(4)) info.byteSize = choices.value<uint16_t>();
  if (choices.oneIn(8)) info.count = choices.value<uint32_t>();
  if (choices.oneIn(8)) info.memberOffset = choices.value<uint8_t>();
  if (choices.oneIn(8)) info.type = choices.value<int16_t>();
}

tools::Variable anyVariable(fuzz::Choices& choices, uint32_t structs) {
  const auto code =
      static_cast<TypeCode>(choices.oneIn(3) ? static_cast<int32_t>(choices.below(structs + 1))
                                             : -100 + static_cast<int32_t>(choices.below(24)));
  return {"", code, choices.oneIn(3) ? choices.below(5) : 0,
          static_cast<uint16_t>(choices.oneIn(5) ? VM_VAR_HOST_0 : 0)};
}

void addTables(fuzz::Choices& choices, tools::ShaderBuilder& shader) {
  const uint32_t structs = choices.below(4);
  for (uint32_t s = 0; s < structs; ++s) {
    if (choices.oneIn(8)) {
      shader.addNullStruct("");
      continue;
    }
    std::vector<tools::Variable> members(choices.below(5));
    for (auto& member : members) member = anyVariable(choices, s);
    const TypeCode code = shader.addStruct("", members);
    for (uint32_t m = 0; m < members.size(); ++m) spoil(choices, shader.member(code, m));
    if (choices.oneIn(4)) shader.info(code).size = choices.value<uint16_t>();
  }
  for (uint32_t g = choices.below(5); g > 0; --g) {
    spoil(choices, shader.info(shader.addGlobal(anyVariable(choices, structs))));
  }
}

void addFunction(fuzz::Choices& choices, tools::ShaderBuilder& shader) {
  tools::FunctionBuilder& function = shader.addFunction("");
  const uint32_t locals = choices.below(5);
  for (uint32_t i = 0; i < locals; ++i) {
    spoil(choices, function.info(function.addLocal(anyVariable(choices, 3))));
  }
  function.setParamCount(static_cast<uint16_t>(choices.below(locals + 1 + choices.oneIn(16))));
  if (choices.oneIn(16)) function.setNull();
  std::vector<uint8_t> code(choices.below(64));
  for (uint8_t& byte : code) byte = choices.value<uint8_t>();
  function.emitBytes(code);
  if (choices.oneIn(8)) function.setCodeRange(choices.below(80), choices.below(80));
}

// The numbers after the tables, small or wild.
void bindRecord(fuzz::Choices& choices, CompiledShader& record) {
  const auto number = [&] {
    return choices.oneIn(8) ? choices.value<int32_t>() : static_cast<int32_t>(choices.below(8)) - 1;
  };
  record.entryIndex = static_cast<uint16_t>(choices.oneIn(8) ? choices.below(5) : 0);
  record.outputGlobal0 = number();
  record.outputGlobal1 = number();
  if (choices.oneIn(2)) return;
  record.hostFunctionA = number();
  record.hostFunctionB = number();
  record.hostFunctionBase = number();
  record.hostFunctionCount = static_cast<uint16_t>(choices.below(4));
  record.hostFunctionAType = number();
  record.hostStructMode = choices.below(8);
  for (int32_t& global : record.builtinGlobals) global = number();
  record.builtinGlobal300 = number();
  record.builtinGlobal303 = number();
  record.builtinGlobal304 = number();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr uint32_t kTimeout = 2;
  static const fuzz::MachinePtr machine = fuzz::makeMachine(true);
  fuzz::Choices choices({data, size});
  tools::ShaderBuilder shader;
  addTables(choices, shader);
  for (uint32_t f = choices.between(1, 4); f > 0; --f) addFunction(choices, shader);
  bindRecord(choices, shader.record());
  const tools::BuiltShader built = std::move(shader).build();
  if (!tools::validate(built.view()).valid()) return 0;

  fuzz::ArbitraryHost host(static_cast<uint32_t>(size));
  fuzz::runAndForget(*machine, built.record(), host.startup(kTimeout), 2);
  return 0;
}
