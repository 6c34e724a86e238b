// The subcommands that look at a shader without running it.
#include <shadermachine-tools/disassembler.h>

#include "cli/commands.h"
#include "cli/input_options.h"
#include "cli/output_file.h"
#include "cli/shader_file.h"

namespace shadermachine::tools {
namespace {

void writeAssembly(const LoadedShader& shader, const DisassemblyOptions& options,
                   const std::string& path) {
  writeFile(path, disassemble(shader.view(), options));
}

}  // namespace

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
  command->callback([path, options] { writeAssembly(loadShader(*path), *options, "-"); });
}

void addGlslCommand(CLI::App& program, Outcome&) {
  CLI::App* command =
      program.add_subcommand("glsl", "Compile a GLSL fragment shader to assembly text");
  auto path = std::make_shared<std::string>();
  auto source = std::make_shared<SourceOptions>();
  auto output = std::make_shared<std::string>("-");
  command->add_option("shader", *path, "the shader's file")->required();
  addSourceOptions(*command, *source);
  command->add_option("-o,--output", *output, "the file to write; standard output unless given")
      ->type_name("FILE.sasm");
  command->add_flag("-g", source->isForDebugging,
                    "compile for debuggers: no inlining, a place for every variable");
  command->callback([path, source, output] {
    writeAssembly(compileShadingLanguage(readText(*path), *path, *source), {}, *output);
  });
}

void addValCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command = program.add_subcommand("val", "Validate shaders");
  auto paths = std::make_shared<std::vector<std::string>>();
  auto source = std::make_shared<SourceOptions>();
  command->add_option("shader", *paths, "files to check")->required();
  addSourceOptions(*command, *source);
  command->callback([paths, source, &outcome] {
    for (const std::string& path : *paths) {
      const LoadedShader shader = loadShader(path, *source);
      if (!reportValidation(shader.view(), path)) outcome.exitCode = kBadInput;
    }
  });
}

}  // namespace shadermachine::tools
