// The program `shadermachine`: a thin shell around the tools library.
#include <shadermachine/shadermachine.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>

#include "assembly/symbols.h"
#include "cli/commands.h"
#include "cli/files.h"
#include "cli/picture_file.h"
#include "cli/system.h"

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

std::string versionText() {
  std::string text = "shadermachine " SHADERMACHINE_VERSION_STRING "\n";
#ifdef SHADERMACHINE_HAVE_GLSL
  text += "with the GLSL compiler\n";
#else
  text += "without the GLSL compiler\n";
#endif
#ifdef SHADERMACHINE_HAVE_WINDOW
  text += "with the live window\n";
#else
  text += "without the live window\n";
#endif
  return text + "reads " + readableFormatNames() + ", writes " + pictureFormatNames();
}

void addCommands(CLI::App& program, Outcome& outcome) {
  addRenderCommand(program, outcome);
  addViewCommand(program, outcome);
  addRunCommand(program, outcome);
  addDebugCommand(program, outcome);
  addAsmCommand(program, outcome);
  addDisCommand(program, outcome);
  addValCommand(program, outcome);
  addGlslCommand(program, outcome);
  addOpcodesCommand(program, outcome);
  addHelpCommands(program, outcome);
}

// The message for a name that is none, with the one that was perhaps meant.
int refuse(const std::string& what, const std::string& name,
           const std::vector<std::string>& candidates) {
  const std::vector<std::string_view> views(candidates.begin(), candidates.end());
  std::fprintf(stderr, "shadermachine: no %s is named '%s'%s\n", what.c_str(), name.c_str(),
               assembly::suggestion(name, views).c_str());
  return kBadUsage;
}

std::vector<std::string> subcommandNames(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return names;
}

// For options and files that the chosen subcommand does not take.
int refuseExtras(const CLI::App& program, const CLI::ParseError& error) {
  for (const CLI::App* command : program.get_subcommands()) {
    for (const std::string& extra : command->remaining()) {
      if (!extra.starts_with("--")) continue;
      std::vector<std::string> names;
      for (const CLI::Option* option : command->get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
      }
      return refuse("option of " + command->get_name(), extra.substr(0, extra.find('=')), names);
    }
  }
  return program.exit(error) == 0 ? kSuccess : kBadUsage;
}

int parseAndRun(int argc, char** argv) {
  CLI::App program(kDescription, "shadermachine");
  program.footer(kFooter);
  program.set_version_flag("--version", versionText());
  Outcome outcome;
  addCommands(program, outcome);
  if (argc < 2) {
    std::fputs(program.help().c_str(), stdout);
    return kBadUsage;
  }
  const std::vector<std::string> names = subcommandNames(program);
  if (argv[1][0] != '-' && std::ranges::count(names, argv[1]) == 0) {
    return refuse("subcommand", argv[1], names);
  }
  // The topic would be taken for a subcommand to run.
  if (argc == 3 && std::string_view(argv[1]) == "help" && argv[2][0] != '-') {
    printHelp(program, argv[2]);
    return kSuccess;
  }
  try {
    program.parse(argc, argv);
  } catch (const CLI::ExtrasError& error) {
    return refuseExtras(program, error);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kSuccess : kBadUsage;
  }
  return outcome.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  useBinaryStreams();
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
