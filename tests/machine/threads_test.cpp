// Machines on several threads: the same shader, the same results.
#include <gtest/gtest.h>

#include <thread>

#include "support/rig.h"

namespace shadermachine::tests {
namespace {

// Noise, an array, a call and a loop: (noise(x) + 0.25 * 8) of the fragment's host variable.
BuiltShader busyShader() {
  return buildShader([](ShaderBuilder& shader, FunctionBuilder& code) {
    const GlobalId input = addInput(shader);
    const GlobalId out = shader.addGlobal({.name = "out", .type = VM_TYPE_FLOAT});
    const LocalId array = code.addLocal({.name = "a", .type = VM_TYPE_FLOAT, .count = 8});
    FunctionBuilder& quarter = shader.addFunction("quarter");
    quarter.pushFloat(0.25f);
    quarter.emit(VM_OP_RETURN_VALUE);
    code.load(input);
    code.emit(VM_OP_NOISE1, {2});
    for (int i = 0; i < 8; ++i) {
      code.emit(VM_OP_PUSH_EMPTY);
      code.call(quarter.id());
      code.storeElement(array, {i});
      code.load(array);
      code.emit(VM_OP_PUSH_INDEX_IMM, {i});
      code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
      code.emit(VM_OP_ADD_F, {1});
    }
    code.store(out);
    code.emit(VM_OP_RETURN);
    shader.record().outputGlobal0 = shader.record().outputGlobal1 = out.index;
  });
}

std::vector<uint32_t> renderRow(const BuiltShader& shader) {
  constexpr int kFragments = 64;
  vmInitialize();
  std::vector<uint32_t> row;
  Rig rig;
  for (int x = 0; x < kFragments; ++x) {
    const auto position = static_cast<float>(x);
    rig.inputs = {floats({position * 0.37f, position * -0.11f})};
    EXPECT_EQ(rig.run(shader), VM_OK);
    row.push_back(static_cast<uint32_t>(rig.only(kOutput1).fields[0]));
  }
  return row;
}

TEST(Threads, MachinesGiveIdenticalResults) {
  const BuiltShader shader = busyShader();
  std::vector<std::vector<uint32_t>> rows(4);
  std::vector<std::thread> threads;
  for (auto& row : rows) threads.emplace_back([&] { row = renderRow(shader); });
  for (std::thread& thread : threads) thread.join();
  const std::vector<uint32_t> expected = renderRow(shader);
  EXPECT_NE(expected[0], expected[1]);
  for (const auto& row : rows) EXPECT_EQ(row, expected);
}

}  // namespace
}  // namespace shadermachine::tests
