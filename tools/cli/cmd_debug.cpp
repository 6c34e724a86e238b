// The debugger in a terminal or an editor.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>

#include "cli/commands.h"
#include "cli/files.h"
#include "cli/input_options.h"
#include "cli/line_editor.h"
#include "cli/pixel_option.h"
#include "cli/project.h"
#include "cli/system.h"
#include "debugger/console.h"
#include "debugger/dap.h"

namespace shadermachine::tools {
namespace {

struct DebugOptions {
  InputOptions input;
  PixelOption pixel;
  std::string script;
  bool isForEditor = false;
};

// Ctrl-C stops the command that runs.
std::atomic<int> interrupts = 0;
void interrupt(int) { interrupts = 1; }

// One that came between commands was about none.
std::string answerTo(Console& console, const std::string& line) {
  interrupts = 0;
  return console.execute(line);
}

// Commands from a script are shown before their answers, so that the output reads as a session.
void runScript(Console& console, std::istream& script) {
  for (std::string line; !console.isDone() && std::getline(script, line);) {
    std::printf("(debug) %s\n%s", line.c_str(), answerTo(console, line).c_str());
  }
}

void runTerminal(Console& console) {
  LineEditor editor;
  for (std::string line; !console.isDone() && editor.read(line);) {
    std::fputs(answerTo(console, line).c_str(), stdout);
  }
}

// A run and all that it refers to.
class Session {
 public:
  explicit Session(const DebugOptions& options) : project_(forDebugging(options.input)) {
    const FrameInputs frame = frameInputs(options.input, options.input.frame);
    const Pixel pixel = choosePixel(options.pixel, frame);
    const HostInputs& inputs = project_.inputsOf(frame, options.input);
    run_ = std::make_unique<FragmentRun>(project_.pictureShader().view(), inputs, frame, pixel.x,
                                         pixel.y, options.input.timeout);
  }
  FragmentRun& run() { return *run_; }

 private:
  static InputOptions forDebugging(InputOptions options) {
    options.source.isForDebugging = true;
    return options;
  }

  Project project_;
  std::unique_ptr<FragmentRun> run_;
};

int debugInTerminal(const DebugOptions& options) {
  Session session(options);
  Debugger debugger(session.run(), options.input.timeout);
  Console console(debugger);
  debugger.pauseWhile(interrupts);
  std::signal(SIGINT, interrupt);
  std::fputs(console.greeting().c_str(), stdout);
  if (!options.script.empty()) {
    std::istringstream script(readText(options.script));
    runScript(console, script);
  } else if (!isTerminal(stdin)) {
    runScript(console, std::cin);
  } else {
    runTerminal(console);
  }
  std::signal(SIGINT, SIG_DFL);
  return console.hasFailed() ? kRunFailed : kSuccess;
}

// What the editor says goes before what the command line said.
DebugOptions merged(DebugOptions options, const DapLaunch& launch) {
  if (!launch.program.empty()) options.input.shaderPath = launch.program;
  if (options.input.shaderPath.empty()) throw InputError("launch names no \"program\"");
  if (!launch.pixel.empty()) options.pixel.given = launch.pixel;
  if (options.pixel.given.size() != 0 && options.pixel.given.size() != 2) {
    throw InputError("\"pixel\" is an array of two numbers");
  }
  if (!launch.size.empty()) options.input.size = launch.size;
  if (launch.time) options.input.time = *launch.time;
  const auto append = [](std::vector<std::string>& to, const std::vector<std::string>& from) {
    to.insert(to.end(), from.begin(), from.end());
  };
  append(options.input.textures, launch.textures);
  append(options.input.values, launch.values);
  checkInputs(options.input);
  return options;
}

int debugInEditor(const DebugOptions& options) {
  std::unique_ptr<Session> session;
  const DapLauncher launch = [&](const DapLaunch& wanted) -> FragmentRun& {
    session = std::make_unique<Session>(merged(options, wanted));
    return session->run();
  };
  return serveDap(stdin, stdout, options.input.timeout, launch) ? kSuccess : kBadInput;
}

}  // namespace

void addDebugCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command =
      program.add_subcommand("debug", "Step through a shader's run for one pixel, both ways");
  auto options = std::make_shared<DebugOptions>();
  addInputOptions(*command, options->input);
  addPixelOption(*command, options->pixel);
  command
      ->add_option("-x,--script", options->script,
                   "a file of commands; standard input unless that is a terminal")
      ->type_name("FILE");
  command->add_flag("--dap", options->isForEditor,
                    "talk the Debug Adapter Protocol with an editor, on standard input and output");
  CLI::Option* shader = command->get_option("shader")->required(false);
  command->callback([options, shader, &outcome] {
    if (options->isForEditor) {
      outcome.exitCode = debugInEditor(*options);
      return;
    }
    if (shader->count() == 0) throw CLI::RequiredError("shader");
    outcome.exitCode = debugInTerminal(*options);
  });
}

}  // namespace shadermachine::tools
