// The program `shadermachine`: a thin shell around the tools library.
#include <shadermachine/shadermachine.h>

#include <cstdio>
#include <exception>
#include <new>

#include "cli/commands.h"
#include "cli/output_file.h"

using namespace shadermachine::tools;

namespace {

constexpr const char* kDescription =
    "Assembles, checks, runs and renders compiled shader programs on the CPU.";

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0  success\n"
    "  1  a file is missing, malformed or does not validate, or a result cannot be written\n"
    "  2  the options make no sense\n"
    "  3  the shader ran and failed (render: for at least one fragment)";

int parseAndRun(int argc, char** argv) {
  CLI::App program(kDescription, "shadermachine");
  program.footer(kFooter);
  program.set_version_flag("--version", "shadermachine " SHADERMACHINE_VERSION_STRING);
  program.require_subcommand(1);
  Outcome outcome;
  addRenderCommand(program, outcome);
  addRunCommand(program, outcome);
  addAsmCommand(program, outcome);
  addDisCommand(program, outcome);
  addValCommand(program, outcome);
  addGlslCommand(program, outcome);
  addOpcodesCommand(program, outcome);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kSuccess : kBadUsage;
  }
  return outcome.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int code = parseAndRun(argc, argv);
    return finishStandardOutput() ? code : kBadInput;
  } catch (const std::bad_alloc&) {
    std::fputs("shadermachine: not enough memory\n", stderr);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  return kBadInput;
}
