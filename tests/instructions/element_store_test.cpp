// Stores of basic values into parts of variables: indices on the stack or in the code, into locals
// and globals. All four instructions take the same paths.
#include <gtest/gtest.h>

#include <algorithm>

#include "machine/memory.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;
using Path = std::vector<int64_t>;

constexpr uint32_t kBefore = 0x77;  // every word of the variable before the store

struct StoreCase {
  const char* title;
  TypeCode type;
  uint32_t count;
  Path path;
  Words value;
  std::vector<std::pair<size_t, uint32_t>> written;  // (word of the variable, its new value)
};

constexpr TypeCode kInner = 0;  // float, ivec2
constexpr TypeCode kOuter = 1;  // int, vec3[2], mat2, Inner[2]: words 0, 1-6, 7-10, 11-16

void addTypes(Tables& shader) {
  shader.addStruct("Inner",
                   {{.name = "f", .type = VM_TYPE_FLOAT}, {.name = "v", .type = VM_TYPE_IVEC2}});
  shader.addStruct("Outer", {{.name = "i", .type = VM_TYPE_INT},
                             {.name = "v", .type = VM_TYPE_VEC3, .count = 2},
                             {.name = "m", .type = VM_TYPE_MAT2},
                             {.name = "s", .type = kInner, .count = 2}});
}

const std::vector<StoreCase>& storeCases() {
  static const int64_t wy = tools::swizzleStep("wy"), zx = tools::swizzleStep("zx");
  static const int64_t five = -int64_t{0x0500}, nothing = -int64_t{0x0003};
  static const Words v = {1, 2, 3, 4};
  static const std::vector<StoreCase> cases = {
      {"selected components", VM_TYPE_VEC4, 0, {wy}, v, {{3, 1}, {1, 2}}},
      {"first of the selected", VM_TYPE_VEC4, 0, {wy, 0}, v, {{3, 1}}},
      {"second of the selected, trailing index", VM_TYPE_VEC4, 0, {wy, 1, 0}, v, {{1, 1}}},
      {"later selection replaces", VM_TYPE_VEC4, 0, {wy, zx}, v, {{2, 1}, {0, 2}}},
      {"component", VM_TYPE_IVEC3, 0, {2}, v, {{2, 1}}},
      {"component past the end", VM_TYPE_IVEC3, 0, {3}, v, {}},
      {"selection past the end", VM_TYPE_VEC3, 0, {wy}, v, {}},
      {"selector past the end", VM_TYPE_VEC3, 0, {wy, 0}, v, {}},
      {"selector number past four", VM_TYPE_VEC4, 0, {wy, 4}, v, {}},
      {"five components selected", VM_TYPE_VEC4, 0, {five}, v, {}},
      {"no components selected", VM_TYPE_VEC4, 0, {nothing}, v, {}},
      {"empty path", VM_TYPE_VEC4, 0, {}, v, {}},
      {"index on a scalar", VM_TYPE_FLOAT, 0, {0}, v, {}},
      {"column", VM_TYPE_MAT3, 0, {1}, v, {{3, 1}, {4, 2}, {5, 3}}},
      {"component of a column", VM_TYPE_MAT3, 0, {2, 1}, v, {{7, 1}}},
      {"column past the end", VM_TYPE_MAT3, 0, {3}, v, {}},
      {"selection on a column", VM_TYPE_MAT3, 0, {2, zx}, v, {{8, 1}, {6, 2}}},
      {"selection before the column", VM_TYPE_MAT3, 0, {zx, 2}, v, {{8, 1}, {6, 2}}},
      {"selection on a whole matrix", VM_TYPE_MAT3, 0, {zx}, v, {}},
      {"sampler", VM_TYPE_SAMPLER_3, 0, {zx}, v, {}},
      {"array element", VM_TYPE_VEC3, 4, {3}, v, {{9, 1}, {10, 2}, {11, 3}}},
      {"component of an element", VM_TYPE_VEC3, 4, {3, 1}, v, {{10, 1}}},
      {"selection on an element", VM_TYPE_VEC3, 4, {1, zx}, v, {{5, 1}, {3, 2}}},
      {"element past the end", VM_TYPE_VEC3, 4, {4}, v, {}},
      {"walk ends early", VM_TYPE_VEC3, 4, {7, 0}, v, {}},
      {"far element", VM_TYPE_VEC3, 4, {0x7FFF}, v, {}},
      {"sampler element", VM_TYPE_SAMPLER_0, 2, {1}, v, {{2, 1}, {3, 2}}},
      {"member", kOuter, 0, {0}, v, {{0, 1}}},
      {"element of a member", kOuter, 0, {1, 1}, v, {{4, 1}, {5, 2}, {6, 3}}},
      {"component of an element of a member", kOuter, 0, {1, 0, 2}, v, {{3, 1}}},
      {"matrix member", kOuter, 0, {2}, v, {{7, 1}, {8, 2}, {9, 3}, {10, 4}}},
      {"deep", kOuter, 0, {3, 1, 1, 0}, v, {{15, 1}}},
      {"deep selection", kOuter, 0, {3, 1, 1, tools::swizzleStep("yx")}, v, {{16, 1}, {15, 2}}},
      {"member past the end", kOuter, 0, {4}, v, {}},
      {"element of a member past the end", kOuter, 0, {1, 2}, v, {}},
      {"basic value into an aggregate member", kOuter, 0, {1}, v, {}},
      {"basic value into an aggregate element", kInner, 2, {1}, v, {}},
  };
  return cases;
}

struct Form {
  VmOpcode opcode;
  bool global, immediate;
};
constexpr Form kForms[] = {{VM_OP_STORE_LOCAL_ELEM, false, false},
                           {VM_OP_STORE_LOCAL_ELEM_IMM, false, true},
                           {VM_OP_STORE_GLOBAL_ELEM, true, false},
                           {VM_OP_STORE_GLOBAL_ELEM_IMM, true, true}};

void emitStore(Code& code, const Form& form, const Path& path) {
  Path operands = {0};
  if (form.immediate) {
    operands.insert(operands.end(), path.begin(), path.end());
  } else {
    for (auto index = path.rbegin(); index != path.rend(); ++index) {
      code.emit(VM_OP_PUSH_U32, {*index});
    }
    operands.push_back(static_cast<int64_t>(path.size()));
  }
  code.emit(form.opcode, operands);
}

// Variable 0 of either kind; input global 1 supplies the value.
void addVariable(Tables& shader, Code& code, TypeCode type, uint32_t count) {
  addTypes(shader);
  shader.addGlobal({.name = "g", .type = type, .count = count});
  addInput(shader);
  code.addLocal({.name = "l", .type = type, .count = count});
}

BuiltShader storeShader(const StoreCase& c, const Form& form) {
  return buildShader([&](Tables& shader, Code& code) {
    addVariable(shader, code, c.type, c.count);
    probe(code);  // here the host fills the variable
    code.pushInt(5);
    code.emit(VM_OP_LOAD_GLOBAL, {1});
    emitStore(code, form, c.path);
    probe(code);
    code.emit(VM_OP_RETURN);
  });
}

// The words of a variable's value.
uint32_t* wordsOf(ValueSlot& slot) {
  return slot.view.data == nullptr ? slot.value.words : objectAt<uint32_t>(slot.view.data);
}

void checkStore(const StoreCase& c, const Form& form) {
  SCOPED_TRACE(std::string(c.title) + ", opcode " + std::to_string(form.opcode));
  Rig rig;
  rig.inputs = {{}, c.value};
  const BuiltShader shader = storeShader(c, form);
  const VarInfo& info = shader.record()->globals[0];
  const bool basic = c.type < 0 && c.count == 0;
  const size_t words = basic ? size_t{VM_COMPONENT_COUNT} : info.byteSize / 4;
  std::vector<Words> seen;
  rig.reply = [&](const HostCall& call, void*) {
    if (call.slot != kProbe) return;
    uint32_t* variable = wordsOf(rig.machine->stack[form.global ? 0 : 2]);
    seen.emplace_back(variable, variable + words);
    if (seen.size() == 1) std::fill_n(variable, words, kBefore);
  };
  ASSERT_EQ(rig.run(shader), VM_OK);
  ASSERT_EQ(seen.size(), 2u);
  Words expected(words, kBefore);
  for (const auto& [word, value] : c.written) expected[word] = value;
  EXPECT_EQ(seen[1], expected);
  EXPECT_EQ(rig.calls.back().top, 1) << "the value and the indices are consumed";
  EXPECT_EQ(rig.calls.back().stack.back().value.words[0], 5u);
}

TEST(ElementStores, WriteThePartAndNothingElse) {
  for (const StoreCase& c : storeCases()) {
    for (const Form& form : kForms) checkStore(c, form);
  }
}

TEST(ElementStores, IndicesOnTheStackAre32Bits) {
  for (int64_t index : {int64_t{0x10000}, int64_t{0x7FFFFFFF}}) {
    checkStore({"far element", VM_TYPE_VEC3, 4, {index}, {1}, {}}, kForms[0]);
    checkStore({"far member", kOuter, 0, {index}, {1}, {}}, kForms[0]);
    checkStore({"far column", VM_TYPE_MAT4, 0, {index}, {1}, {}}, kForms[2]);
    checkStore({"far component", VM_TYPE_VEC4, 0, {index}, {1}, {}}, kForms[2]);
  }
  const int64_t wy = tools::swizzleStep("wy");
  checkStore({"low half is the pattern", VM_TYPE_VEC4, 0, {wy - 0x10000}, {1, 2}, {{3, 1}, {1, 2}}},
             kForms[0]);
}

}  // namespace
}  // namespace shadermachine::tests
