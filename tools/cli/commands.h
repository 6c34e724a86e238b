// The subcommands. Each adds itself to the program and runs when it was chosen.
#pragma once

#include <CLI/CLI.hpp>

namespace shadermachine::tools {

// What the program returns.
enum ExitCode : int {
  kSuccess = 0,
  kBadInput = 1,   // a file that is missing, malformed or not valid
  kBadUsage = 2,   // options that make no sense
  kRunFailed = 3,  // the shader ran, and failed for at least one fragment
};

// Set by the chosen subcommand, returned by main().
struct Outcome {
  int exitCode = kSuccess;
};

void addAsmCommand(CLI::App& program, Outcome& outcome);
void addDebugCommand(CLI::App& program, Outcome& outcome);
void addDisCommand(CLI::App& program, Outcome& outcome);
void addGlslCommand(CLI::App& program, Outcome& outcome);
void addHelpCommands(CLI::App& program, Outcome& outcome);
// About a subcommand or another topic; about all when there is none. Throws InputError.
void printHelp(const CLI::App& program, const std::string& topic);
void addOpcodesCommand(CLI::App& program, Outcome& outcome);
void addRenderCommand(CLI::App& program, Outcome& outcome);
void addRunCommand(CLI::App& program, Outcome& outcome);
void addValCommand(CLI::App& program, Outcome& outcome);
void addViewCommand(CLI::App& program, Outcome& outcome);

}  // namespace shadermachine::tools
