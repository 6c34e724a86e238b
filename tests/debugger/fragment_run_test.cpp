// Long runs gone through both ways: states that snapshots lead to are those of the way there.
#include "debugger/fragment_run.h"

#include <gtest/gtest.h>
#include <shadermachine-tools/glsl.h>
#include <shadermachine-tools/shader_builder.h>

#include <cstdio>
#include <memory>
#include <random>

#include "debugger/dap.h"
#include "debugger/value.h"

namespace shadermachine::tools {
namespace {

// Shared, nested and passed blocks, calls in one another, derivatives, stacks that go up and down.
constexpr const char* kSource = R"(#version 120
struct Light { vec3 pos; float power[3]; };
Light lights[4];
float sum(Light l, int depth) {
  float result = 0.0;
  for (int i = 0; i < 3; ++i) result += l.power[i] * l.pos[i];
  if (depth == 0) return result;
  Light copy = l;
  copy.power[depth] = dFdx(result + gl_FragCoord.x);
  return result + copy.power[depth];
}
void main() {
  Light own = Light(vec3(0.5), float[3](1.0, 2.0, 3.0));
  float total = 0.0;
  for (int i = 0; i < 4000; ++i) {
    lights[i - i / 4 * 4] = own;
    own.power[i - i / 3 * 3] += 0.25;
    total += sum(own, i - i / 3 * 3) + sum(lights[1], 0);
    if (i > 3900) own = lights[2];
  }
  gl_FragColor = vec4(total);
}
)";

void addSlot(std::string& text, const ValueSlot& slot) {
  if (slot.view.data == nullptr) {
    text.append(reinterpret_cast<const char*>(slot.value.words), sizeof slot.value.words);
    return;
  }
  DataBlock* const block = blockOf(slot.view);
  text += "block " + std::to_string(block->referenceCount) + " " +
          std::to_string(slot.view.offset) + " of " + std::to_string(headOf(block)->size) + " ";
  text.append(reinterpret_cast<const char*>(slot.view.data), slot.view.size);
}

std::string stateOf(const FragmentRun& run) {
  const Machine& machine = run.machine();
  std::string text = std::to_string(run.steps()) + " " + std::to_string(machine.blockBytes);
  for (int32_t i = 0; i <= machine.frameIndex; ++i) {
    const CallFrame& frame = machine.frames[i];
    text += " " + std::to_string(frame.code + frame.pc - machine.shader->code);
  }
  for (int32_t i = 0; i <= machine.indexTop; ++i) {
    text += " " + std::to_string(machine.indexStack[i]);
  }
  const CallFrame& frame = machine.frames[machine.frameIndex];
  for (const ValueSlot* slot = machine.stack; slot <= frame.locals + frame.top; ++slot) {
    addSlot(text, *slot);
  }
  return text;
}

TEST(FragmentRun, SeeksBothWays) {
  GlslResult glsl = compileGlsl(kSource, {.fileName = "a.frag", .isForDebugging = true});
  ASSERT_TRUE(glsl.shader);
  const ShaderView view = glsl.shader->view();
  const FrameInputs frame = {.width = 8, .height = 8};
  HostInputs inputs(view);
  inputs.startFrame(frame);
  FragmentRun run(view, inputs, frame, 3, 3, 0);
  std::vector<std::string> states;
  for (uint64_t steps = 0; !run.isOver(); run.seek(steps += 9973)) states.push_back(stateOf(run));
  EXPECT_EQ(run.error(), VM_OK);
  ASSERT_GT(states.size(), 60u);
  std::mt19937 random(1);  // NOLINT: the same places every time
  for (int i = 0; i < 100; ++i) {
    const size_t place = random() % states.size();
    run.seek(place * 9973);
    ASSERT_EQ(stateOf(run), states[place]) << place;
  }
}

// Requests as an editor sends them, all before the first is answered: a pause ends what stands
// before it, though that has not begun, and nothing that stands behind.
TEST(Dap, pausesAreKept) {
  ShaderBuilder builder;
  FunctionBuilder& main = builder.addFunction("main");
  const Label again = main.newLabel();
  main.bind(again);
  main.emitJump(VM_OP_JUMP, again);
  const BuiltShader shader = std::move(builder).build();
  const FrameInputs frame = {.width = 2, .height = 2};
  HostInputs inputs(shader.view());
  inputs.startFrame(frame);
  FragmentRun run(shader.view(), inputs, frame, 0, 0, 1);
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> in(std::tmpfile(), &std::fclose);
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> out(std::tmpfile(), &std::fclose);
  for (const char* command : {"launch", "pause", "configurationDone", "pause", "pause", "continue",
                              "pause", "next", "disconnect"}) {
    const std::string text = R"({"type": "request", "seq": 1, "command": ")" + std::string(command);
    std::fprintf(in.get(), "Content-Length: %zu\r\n\r\n%s\"}", text.size() + 2, text.c_str());
  }
  std::rewind(in.get());
  const DapLauncher launch = [&](const DapLaunch&) -> FragmentRun& { return run; };
  EXPECT_TRUE(serveDap(in.get(), out.get(), 0, launch));
  std::string answers(static_cast<size_t>(std::ftell(out.get())), '\0');
  std::rewind(out.get());
  ASSERT_EQ(std::fread(answers.data(), 1, answers.size(), out.get()), answers.size());
  size_t pauses = 0;
  for (size_t at = 0; (at = answers.find(R"("reason":"pause")", at)) != std::string::npos; ++at) {
    ++pauses;
  }
  EXPECT_EQ(pauses, 3u) << answers;
}

TEST(DebugValue, structuresMayNestDeeply) {
  ShaderBuilder builder;
  TypeCode type = VM_TYPE_FLOAT;
  for (int i = 0; i < 32000; ++i) type = builder.addStruct("s", {{"elements", type}});
  builder.addFunction("main").emit(VM_OP_RETURN);
  const BuiltShader shader = std::move(builder).build();
  const DebugValue nan = {debugType(shader.view(), type, 0), {0, 0, 0xC0, 0x7F}};
  EXPECT_EQ(partsOf(shader.view(), nan).size(), 1u);
  EXPECT_TRUE(isNonFinite(shader.view(), nan));
}

}  // namespace
}  // namespace shadermachine::tools
