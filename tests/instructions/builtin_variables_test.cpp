// LOAD_BUILTIN: each id, the slot that answers it and what that slot is given.
#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "support/program.h"

namespace shadermachine::tests {
namespace {

enum class Data { Inline, Global };

struct Answer {
  unsigned slot;
  Data data;
  uint32_t count;  // passed to the host
  bool indexed;
  int32_t CompiledShader::*field = nullptr;  // names the global, ...
  int entry = -1;                            // ... or this entry of builtinGlobals
};

constexpr uint32_t kArrayLength = 8;

std::map<uint32_t, Answer> answers() {
  std::map<uint32_t, Answer> all;
  const std::map<uint32_t, unsigned> inlineSlots = {
      {259, 57}, {260, 58}, {261, 59}, {262, 60}, {263, 62}, {264, 63},
      {265, 64}, {266, 65}, {279, 61}, {280, 66}, {283, 67}, {284, 68},
      {301, 70}, {302, 71}, {412, 43}, {413, 44}, {417, 2}};
  for (const auto& [id, slot] : inlineSlots) all[id] = {slot, Data::Inline, 1, false};
  for (uint32_t id = 382; id <= 395; ++id) all[id] = {id - 378, Data::Inline, 1, true};
  all[415] = {46, Data::Inline, 1, true};
  all[416] = {3, Data::Inline, 1, true};
  all[300] = {69, Data::Global, 1, false, &CompiledShader::builtinGlobal300};
  all[303] = {72, Data::Global, kArrayLength, true, &CompiledShader::builtinGlobal303};
  all[304] = {73, Data::Global, kArrayLength, true, &CompiledShader::builtinGlobal304};
  const uint32_t elements[] = {397, 399, 401, 402, 405, 407, 408, 411};
  for (int k = 0; k < 8; ++k) {
    all[elements[k]] = {static_cast<unsigned>(18 + k), Data::Global, 1, true, nullptr, k};
  }
  for (uint32_t k = 0; k < 4; ++k) {
    all[432 + k] = {26 + k, Data::Global, kArrayLength, true, nullptr, static_cast<int>(12 + k)};
    all[436 + k] = {30 + k, Data::Global, kArrayLength, true, nullptr, static_cast<int>(8 + k)};
  }
  for (uint32_t k = 0; k < 9; ++k) {
    all[440 + k] = {34 + k, Data::Global, kArrayLength, true, nullptr, static_cast<int>(16 + k)};
  }
  all[450] = {45, Data::Global, kArrayLength, true, nullptr, 25};
  return all;
}

// Loads the variable with index 5 pending, global 1 standing behind it if the answer needs one.
BuiltShader loading(uint32_t id, const Answer* answer) {
  return buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
    shader.addGlobal({.name = "other", .type = VM_TYPE_FLOAT});
    shader.addGlobal({.name = "block", .type = VM_TYPE_FLOAT, .count = kArrayLength});
    if (answer != nullptr && answer->field != nullptr) shader.record().*answer->field = 1;
    if (answer != nullptr && answer->entry >= 0) shader.record().builtinGlobals[answer->entry] = 1;
    code.emit(VM_OP_PUSH_INDEX_IMM, {5});
    code.emit(VM_OP_LOAD_BUILTIN, {id});
    probe(code);
    code.emit(VM_OP_POP_RELEASE);
    code.emit(VM_OP_RETURN);
  });
}

TEST(BuiltinVariables, AreAnsweredByTheirSlots) {
  const auto all = answers();
  EXPECT_EQ(all.size(), 62u);
  for (const auto& [id, answer] : all) {
    SCOPED_TRACE(id);
    const BuiltShader shader = loading(id, &answer);
    Rig rig;
    EXPECT_EQ(rig.run(shader), VM_OK);
    ASSERT_EQ(rig.count(answer.slot), 1u);
    const ValueSlot* stack = rig.machine->stack;
    const bool isInline = answer.data == Data::Inline;
    const void* data =
        isInline ? static_cast<const void*>(stack[2].value.words) : stack[1].view.data;
    const uint64_t index = answer.indexed ? 5 : UINT64_MAX;
    EXPECT_EQ(rig.only(answer.slot).fields,
              (std::vector<uint64_t>{address(data), answer.count, index, rig.startup.userData}));
    const ValueSlot& top = rig.only(kProbe).stack[2];
    EXPECT_EQ(top.view.data, isInline ? nullptr : data);

    Rig mute({answer.slot});
    EXPECT_EQ(mute.run(shader), VM_OK) << "a null callback is no error";
    if (isInline) continue;
    const BuiltShader withoutGlobal = loading(id, nullptr);
    EXPECT_EQ(rig.run(withoutGlobal), VM_ERR_NO_BUILTIN_VARIABLE);
  }
}

TEST(BuiltinVariables, OtherIdsDoNotExist) {
  const auto all = answers();
  for (uint32_t id = 250; id <= 460; ++id) {
    if (all.contains(id) || id == 258 || id == 281 || id == 282 || id == 285) continue;
    Rig rig;
    EXPECT_EQ(rig.run(loading(id, nullptr)), VM_ERR_NO_BUILTIN_VARIABLE) << id;
  }
}

TEST(BuiltinVariables, RunWords) {
  Rig rig;
  rig.startup = {rig.startup.userData, 11, 0, 0, 22, 33, 44};
  for (const auto& [id, word] :
       std::map<uint32_t, uint32_t>{{258, 11}, {281, 22}, {282, 33}, {285, 44}}) {
    EXPECT_EQ(rig.run(loading(id, nullptr)), VM_OK);
    EXPECT_EQ(rig.only(kProbe).stack[2].value.words[0], word) << id;
  }
}

TEST(BuiltinVariables, IndexIsMinusOneWithoutAnIndex) {
  Rig rig;
  EXPECT_EQ(rig.run(buildShader([](ShaderBuilder&, FunctionBuilder& code) {
    code.emit(VM_OP_PUSH_INDEX_IMM, {3});
    code.emit(VM_OP_RETURN);
  })),
            VM_OK);
  EXPECT_EQ(rig.run(buildShader([](ShaderBuilder&, FunctionBuilder& code) {
    code.emit(VM_OP_LOAD_BUILTIN, {390});
    code.emit(VM_OP_RETURN);
  })),
            VM_OK);
  EXPECT_EQ(rig.only(12).fields[2], UINT64_MAX);
}

}  // namespace

std::vector<Program> builtinVariablePrograms() {
  return {giving(
      VM_OP_LOAD_BUILTIN, "run word",
      [](ShaderBuilder&, FunctionBuilder& code) { code.emit(VM_OP_LOAD_BUILTIN, {258}); }, {0})};
}

}  // namespace shadermachine::tests
