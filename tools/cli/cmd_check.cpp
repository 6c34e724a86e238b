// The subcommands that translate and check shaders without running them.
#include <shadermachine-tools/binary_file.h>
#include <shadermachine-tools/disassembler.h>

#include <filesystem>
#include <optional>

#include "cli/commands.h"
#include "cli/files.h"
#include "cli/input_options.h"
#include "cli/shader_file.h"
#ifdef SHADERMACHINE_HAVE_ENGINE
#include "cli/listing/shader_listing.h"
#endif

namespace shadermachine::tools {
namespace {

// What a subcommand that translates one shader is told.
struct Translation {
  std::string path;
  SourceOptions source;
  std::string output;
  DisassemblyOptions text;
};

constexpr const char* kBinaryExtension = ".smo";
constexpr const char* kAssemblyExtension = ".sasm";

std::string checkOutput(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  const bool isKnown =
      extension.empty() || extension == kBinaryExtension || extension == kAssemblyExtension;
  return isKnown ? "" : "expected FILE.smo or FILE.sasm, not " + path;
}

CLI::Option* addOutputOption(CLI::App& command, std::string& path, const char* description) {
  return command.add_option("-o,--output", path, description)
      ->type_name("FILE")
      ->check(CLI::Validator(checkOutput, ""));
}

void writeShader(const LoadedShader& shader, const Translation& options, bool isBinary) {
  writeFile(options.output, isBinary ? writeBinary(shader.view(), shader.values)
                                     : disassemble(shader.view(), options.text));
}

CLI::App* addTranslation(CLI::App& program, const char* name, const char* description,
                         Translation& options) {
  CLI::App* command = program.add_subcommand(name, description);
  command->add_option("shader", options.path, "the shader's file")->required()->type_name("FILE");
  return command;
}

}  // namespace

void addAsmCommand(CLI::App& program, Outcome&) {
  CLI::App* command =
      program.add_subcommand("asm", "Check that shaders assemble, or write one as a binary file");
  auto paths = std::make_shared<std::vector<std::string>>();
  auto options = std::make_shared<Translation>();
  command->add_option("shader", *paths, "files to check")->required()->type_name("FILE");
  addOutputOption(*command, options->output, "the file to write: .smo for a binary file, or .sasm");
  addSourceOptions(*command, options->source);
  command->callback([paths, options] {
    if (!options->output.empty() && paths->size() > 1) {
      throw CLI::ValidationError("--output", "takes one shader");
    }
    for (const std::string& path : *paths) {
      const LoadedShader shader = loadShader(path, options->source);
      if (options->output.empty()) continue;
      writeShader(shader, *options, !options->output.ends_with(kAssemblyExtension));
    }
  });
}

void addDisCommand(CLI::App& program, Outcome&) {
  auto options = std::make_shared<Translation>();
  options->output = "-";
  CLI::App* command = addTranslation(program, "dis", "Print a shader as assembly text", *options);
  command->add_flag("--annotate", options->text.annotate,
                    "add offset, bytes and stack depth of every instruction");
  addSourceOptions(*command, options->source);
#ifdef SHADERMACHINE_HAVE_ENGINE
  auto stage = std::make_shared<std::optional<Stage>>();
  const auto addStage = [&](const char* name, Stage value, const char* text) {
    command->add_flag_callback(
        name, [stage, value] { *stage = value; }, text);
  };
  addStage("--built-form", Stage::BuiltForm, "print the engine's form as made from the bytecode");
  addStage("--form", Stage::Form, "print the form as it is run");
  addStage("--records", Stage::Records, "print the records chosen for it");
#ifdef SHADERMACHINE_HAVE_BATCH
  addStage("--batch", Stage::Batch, "print the records of batches, or why they run one by one");
#endif
  command->callback([options, stage] {
    const LoadedShader shader = loadShader(options->path, options->source);
    if (!*stage) return writeShader(shader, *options, false);
    if (!reportValidation(shader.view(), options->path)) {
      throw InputError("only valid shaders have a form");
    }
    writeFile(options->output, shaderListing(shader.view(), **stage));
  });
#else
  command->callback(
      [options] { writeShader(loadShader(options->path, options->source), *options, false); });
#endif
}

void addGlslCommand(CLI::App& program, Outcome&) {
  auto options = std::make_shared<Translation>();
  options->output = "-";
  CLI::App* command =
      addTranslation(program, "glsl",
                     "Compile a GLSL fragment shader to assembly text or a binary file", *options);
  addOutputOption(*command, options->output,
                  "the file to write: .smo for a binary file, or .sasm; standard output unless "
                  "given");
  addSourceOptions(*command, options->source);
  options->source.language = kGlsl;
  command->add_flag("-g", options->source.isForDebugging,
                    "compile for debuggers: no inlining, a place for every variable");
  command->callback([options] {
    writeShader(loadShader(options->path, options->source), *options,
                options->output.ends_with(kBinaryExtension));
  });
}

void addValCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command = program.add_subcommand("val", "Validate shaders");
  auto paths = std::make_shared<std::vector<std::string>>();
  auto source = std::make_shared<SourceOptions>();
  command->add_option("shader", *paths, "files to check")->required()->type_name("FILE");
  addSourceOptions(*command, *source);
  command->callback([paths, source, &outcome] {
    for (const std::string& path : *paths) {
      const LoadedShader shader = loadShader(path, *source);
      if (!reportValidation(shader.view(), path)) outcome.exitCode = kBadInput;
    }
  });
}

}  // namespace shadermachine::tools
