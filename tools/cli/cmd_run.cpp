#include <shadermachine-tools/disassembler.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "assembly/literals.h"
#include "cli/commands.h"
#include "cli/input_options.h"
#include "cli/pixel_option.h"
#include "cli/project.h"
#include "debugger/debugger.h"
#include "debugger/trace.h"
#include "machine/machine.h"
#include "machine/run_loop.h"
#include "render/quad.h"

namespace shadermachine::tools {
namespace {

struct RunOptions {
  InputOptions input;
  PixelOption pixel;
  std::string trace;  // "source", "instructions", or empty
};

std::string slotText(const ValueSlot& slot) {
  if (slot.view.data != nullptr) return "block of " + std::to_string(slot.view.size) + " bytes";
  std::string text;
  for (unsigned i = 0; i < 4; ++i) {
    text += (i == 0 ? "" : " ") + assembly::formatWord(slot.value.words[i]);
  }
  return text;
}

// Function, offset and text of the next instruction, indented by the depth of calls.
std::string instructionText(const Machine& machine, const ShaderView& view) {
  RunFailure place;
  place.error = VM_ERR_TIMEOUT;  // between two instructions
  locateFailure(machine, view, place);
  if (place.function < 0) return "?";
  const auto function = static_cast<uint32_t>(place.function);
  const char* name = view.functionNames != nullptr ? view.functionNames[function] : nullptr;
  std::string text(2 * static_cast<size_t>(machine.frameIndex), ' ');
  text += name != nullptr ? name : std::to_string(function);
  text += "+" + std::to_string(place.offset);
  text.resize(std::max<size_t>(text.size() + 1, 20), ' ');
  return text + disassembleInstruction(view, function, place.offset);
}

std::string topSlotsText(const Machine& machine) {
  const CallFrame& frame = machine.frames[machine.frameIndex];
  const ptrdiff_t globals = machine.shader->globalCount;
  const ptrdiff_t top = frame.locals + frame.top - machine.stack;
  if (top < globals) return "";
  std::string text = "  S0 = " + slotText(machine.stack[top]);
  if (top == globals) return text;
  text.resize(std::max<size_t>(text.size() + 2, 44), ' ');
  return text + "S1 = " + slotText(machine.stack[top - 1]);
}

VmError traceRun(Machine& machine, const ShaderView& view, const StartupInfo& startup) {
  const VmError refused = beginRun(machine, *view.shader, startup);
  if (refused != VM_OK) return refused;
  while (machine.runState != VM_RUN_STOPPING) {
    const std::string instruction = instructionText(machine, view);
    stepInstruction(machine);
    std::printf("%-52s%s\n", instruction.c_str(), topSlotsText(machine).c_str());
  }
  return endRun(machine);
}

void printOutputs(const CompiledShader& shader, const FragmentHost& host) {
  if (shader.outputGlobal0 < 0) return;
  const std::array<float, 4>& c = host.colour();
  std::printf("colour: %.9g %.9g %.9g %.9g\n", c[0], c[1], c[2], c[3]);
  if (shader.outputGlobal1 >= 0) std::printf("depth: %.9g\n", host.depth());
}

int runOnce(const RunOptions& options) {
  RunFailure failure;
  const FrameInputs frame = frameInputs(options.input, options.input.frame);
  const Pixel pixel = choosePixel(options.pixel, frame);
  failure.x = pixel.x;
  failure.y = pixel.y;
  Project project(options.input);
  const ShaderView view = project.pictureShader().view();
  const HostInputs& inputs = project.inputsOf(frame, options.input);

  if (options.trace == "source") {
    FragmentRun run(view, inputs, frame, pixel.x, pixel.y, options.input.timeout);
    Debugger debugger(run, options.input.timeout);
    traceSource(debugger, [](const std::string& line) { std::fputs(line.c_str(), stdout); });
  }

  vmInitialize();
  const HostCallbacks callbacks = FragmentHost::callbacks();
  const MachineHandle handle(createMachine(&callbacks));
  auto* const machine = static_cast<Machine*>(handle.get());
  if (machine == nullptr) throw std::bad_alloc();
  // Slots nobody has written yet are shown, too.
  std::memset(machine->stack, 0, sizeof(ValueSlot) * static_cast<size_t>(machine->stackCapacity));
  QuadRunner runner(view, inputs, *machine, options.input.timeout);
  const auto run = [&](const StartupInfo& startup) {
    return options.trace == "instructions"
               ? traceRun(*machine, view, startup)
               : vmShaderMachineExecuteShader(machine, view.shader, &startup);
  };
  failure.error = runner.runOne(failure.x, frame.height - 1 - failure.y, run);
  if (isFailure(failure.error)) {
    locateFailure(*machine, view, failure);
    const std::string where =
        "pixel (" + std::to_string(failure.x) + ", " + std::to_string(failure.y) + "): ";
    std::fputs(formatFailure(failure, view, options.input.shaderPath, where).c_str(), stderr);
    return kRunFailed;
  }
  std::printf("code %u: %s\n", failure.error, vmGetErrorString(failure.error));
  if (failure.error != VM_ERR_DISCARDED) printOutputs(*view.shader, runner.host());
  return kSuccess;
}

}  // namespace

void addRunCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command =
      program.add_subcommand("run", "Run a shader for one pixel, print its outputs");
  auto options = std::make_shared<RunOptions>();
  addInputOptions(*command, options->input);
  addPixelOption(*command, options->pixel);
  command
      ->add_flag("--trace{source}", options->trace,
                 "print every line of the source and what it changes; =instructions: every "
                 "instruction and the two top slots after it")
      ->check(CLI::IsMember({"source", "instructions"}));
  command->callback([options, &outcome] { outcome.exitCode = runOnce(*options); });
}

}  // namespace shadermachine::tools
