#include "cli/commands.h"
#include "cli/shader_file.h"

namespace shadermachine::tools {

void addAsmCommand(CLI::App& program, Outcome&) {
  CLI::App* command = program.add_subcommand("asm", "Check that a shader assembles");
  auto paths = std::make_shared<std::vector<std::string>>();
  command->add_option("shader", *paths, "files to check")->required();
  command->callback([paths] {
    for (const std::string& path : *paths) loadShader(path);
  });
}

}  // namespace shadermachine::tools
