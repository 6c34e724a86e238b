// The subcommands that describe the program.
#include <cstdio>

#include "assembly/symbols.h"
#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"

namespace shadermachine::tools {
namespace {

void print(const std::string& text) { std::fputs(text.c_str(), stdout); }

}  // namespace

// Not by App::help(), which speaks of the subcommand that was chosen.
void printHelp(const CLI::App& program, const std::string& topic) {
  const auto helpOf = [&program](const CLI::App& app) {
    const std::string call = (&app == &program ? "" : program.get_name() + " ") + app.get_name();
    return app.get_formatter()->make_help(&app, call, CLI::AppFormatMode::Normal);
  };
  if (topic.empty()) {
    print(helpOf(program));
  } else if (topic == "inputs") {
    print(inputsText());
  } else {
    std::vector<std::string_view> names = {"inputs"};
    for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
      if (topic == command->get_name()) {
        print(helpOf(*command));
        return;
      }
      names.emplace_back(command->get_name());
    }
    throw InputError("no subcommand is named '" + topic + "'" + assembly::suggestion(topic, names));
  }
}

void addHelpCommands(CLI::App& program, Outcome&) {
  CLI::App* help =
      program.add_subcommand("help", "Describe a subcommand, or what shaders can ask for");
  auto topic = std::make_shared<std::string>();
  help->add_option("topic", *topic, "a subcommand, or: inputs")->type_name("NAME");
  help->callback([&program, topic] { printHelp(program, *topic); });

  CLI::App* complete =
      program.add_subcommand("completion", "Print a script that completes commands in a shell");
  auto shell = std::make_shared<std::string>();
  complete->add_option("shell", *shell, "bash, fish or zsh")
      ->required()
      ->type_name("NAME")
      ->check(CLI::IsMember({kShells[0], kShells[1], kShells[2]}).description(""));
  complete->callback([&program, shell] { print(completion(program, *shell)); });

  program.add_subcommand("man", "Print the manual page")->callback([&program] {
    print(manualPage(program));
  });
}

}  // namespace shadermachine::tools
