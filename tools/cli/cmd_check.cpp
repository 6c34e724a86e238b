// The subcommands that look at a shader without running it.
#include <shadermachine-tools/disassembler.h>

#include <cstdio>

#include "cli/commands.h"
#include "cli/shader_file.h"

namespace shadermachine::tools {

void addAsmCommand(CLI::App& program, Outcome&) {
  CLI::App* command = program.add_subcommand("asm", "Check that shaders assemble");
  auto paths = std::make_shared<std::vector<std::string>>();
  command->add_option("shader", *paths, "files to check")->required();
  command->callback([paths] {
    for (const std::string& path : *paths) loadShader(path);
  });
}

void addDisCommand(CLI::App& program, Outcome&) {
  CLI::App* command = program.add_subcommand("dis", "Print a shader as assembly text");
  auto path = std::make_shared<std::string>();
  auto options = std::make_shared<DisassemblyOptions>();
  command->add_option("shader", *path, "the shader's file")->required();
  command->add_flag("--annotate", options->annotate,
                    "add offset, bytes and stack depth of every instruction");
  command->callback([path, options] {
    std::fputs(disassemble(loadShader(*path).view(), *options).c_str(), stdout);
  });
}

void addValCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command = program.add_subcommand("val", "Validate shaders");
  auto paths = std::make_shared<std::vector<std::string>>();
  command->add_option("shader", *paths, "files to check")->required();
  command->callback([paths, &outcome] {
    for (const std::string& path : *paths) {
      const BuiltShader shader = loadShader(path);
      if (!reportValidation(shader.view(), path)) outcome.exitCode = kBadInput;
    }
  });
}

}  // namespace shadermachine::tools
