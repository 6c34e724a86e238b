#include "cli/describe.h"

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine/shadermachine.h>

#include <cstdio>

namespace shadermachine::tools {
namespace {

std::vector<const CLI::App*> commandsOf(const CLI::App& program) {
  return program.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return !option->get_positional(); });
}

bool takesFiles(const CLI::App& command) {
  return !command
              .get_options([](const CLI::Option* option) {
                return option->get_positional() && option->get_type_name() == "FILE";
              })
              .empty();
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

std::string replaceAll(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string roff(const std::string& text) {
  const std::string escaped = replaceAll(replaceAll(text, "\\", "\\e"), "-", "\\-");
  return escaped.starts_with('.') || escaped.starts_with('\'') ? "\\&" + escaped : escaped;
}

std::string optionNames(const CLI::Option& option) {
  std::string names;
  for (const std::string& name : option.get_snames()) names += ", -" + name;
  for (const std::string& name : option.get_lnames()) names += ", --" + name;
  return names.substr(2);
}

std::string manualOfCommand(const CLI::App& command) {
  std::string page = ".SS " + command.get_name() + "\n" + roff(command.get_description()) + ".\n";
  for (const CLI::Option* option : command.get_options()) {
    const bool isPositional = option->get_positional();
    page +=
        ".TP\n\\fB" + roff(isPositional ? option->get_name(true) : optionNames(*option)) + "\\fR";
    if (!isPositional && takesValue(*option))
      page += " \\fI" + roff(option->get_type_name()) + "\\fR";
    page += "\n" + roff(option->get_description());
    if (!option->get_default_str().empty()) {
      page += " (unless given: " + roff(option->get_default_str()) + ")";
    }
    page += "\n";
  }
  return page;
}

constexpr const char* kExamples[] = {
    "shadermachine render planet.sasm -o planet.png --size 1920x1080 --samples 4",
    "shadermachine render floor.sasm --texture wood=parquet.jpg,mirror --set scale=2",
    // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one example on two lines
    ("shadermachine render pond.sasm --frames 0:89 -o - --format raw --size 640x360 | \\\n"
     "  ffmpeg -f rawvideo -pix_fmt rgba -s 640x360 -r 30 -i - pond.mp4"),
    "shadermachine glsl water.frag -o water.smo && shadermachine val water.smo",
    "shadermachine run water.smo --pixel 3,4 --trace | less",
};

std::string bashCompletion(const CLI::App& program) {
  std::string names;
  std::string cases;
  for (const CLI::App* command : commandsOf(program)) {
    names += " " + command->get_name();
    cases += "    " + command->get_name() + ") words='";
    for (const CLI::Option* option : optionsOf(*command)) {
      for (const std::string& name : option->get_lnames()) cases += " --" + name;
    }
    cases += "' ;;\n";
  }
  return "_shadermachine() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} words=''\n"
         "  case ${COMP_WORDS[1]} in\n" +
         cases +
         "  esac\n"
         "  if [ \"$COMP_CWORD\" = 1 ]; then words='" +
         names.substr(1) +
         "'; fi\n"
         "  if [ \"$COMP_CWORD\" != 1 ] && [[ $current != -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "  fi\n"
         "}\n"
         "complete -o filenames -F _shadermachine shadermachine\n";
}

// In single quotes, for both of the other shells.
std::string shellQuoted(const std::string& text, const char* quote) {
  return "'" + replaceAll(text, "'", quote) + "'";
}

std::string fishCompletion(const CLI::App& program) {
  const std::string start = "complete -c shadermachine -n ";
  std::string script;
  const auto quoted = [](const std::string& text) { return shellQuoted(text, "\\'"); };
  for (const CLI::App* command : commandsOf(program)) {
    const std::string& name = command->get_name();
    script += start;
    script += "__fish_use_subcommand -f -a " + name + " -d ";
    script += quoted(command->get_description()) + "\n";
    for (const CLI::Option* option : optionsOf(*command)) {
      for (const std::string& longName : option->get_lnames()) {
        script += start;
        script += "'__fish_seen_subcommand_from ";
        script += name;
        script += "' -l ";
        script += longName;
        script += takesValue(*option) ? " -r -d " : " -d ";
        script += quoted(option->get_description()) + "\n";
      }
    }
  }
  return script;
}

// Colons and brackets mean something in what _arguments takes.
std::string zshEscaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '[' || c == ']' || c == ':') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string zshCompletion(const CLI::App& program) {
  std::string names;
  std::string cases;
  const auto quoted = [](const std::string& text) { return shellQuoted(text, "'\\''"); };
  for (const CLI::App* command : commandsOf(program)) {
    const std::string& name = command->get_name();
    names += "    " + quoted(name + ":" + zshEscaped(command->get_description())) + "\n";
    cases += "    " + name + ") _arguments";
    for (const CLI::Option* option : optionsOf(*command)) {
      for (const std::string& longName : option->get_lnames()) {
        std::string entry = "--" + longName + "[" + zshEscaped(option->get_description()) + "]";
        if (takesValue(*option)) entry += ":" + zshEscaped(option->get_type_name()) + ":_files";
        cases += " \\\n      " + quoted(entry);
      }
    }
    if (takesFiles(*command)) cases += " \\\n      '*:file:_files'";
    cases += " ;;\n";
  }
  return "#compdef shadermachine\n"
         "_shadermachine() {\n"
         "  local -a commands\n"
         "  commands=(\n" +
         names +
         "  )\n"
         "  if (( CURRENT == 2 )); then\n"
         "    _describe command commands\n"
         "    return\n"
         "  fi\n"
         "  local command=${words[2]}\n"
         "  shift words\n"
         "  (( CURRENT-- ))\n"
         "  case $command in\n" +
         cases +
         "  esac\n"
         "}\n"
         "if [[ $funcstack[1] == _shadermachine ]]; then\n"
         "  _shadermachine \"$@\"\n"
         "else\n"
         "  compdef _shadermachine shadermachine\n"
         "fi\n";
}

}  // namespace

std::string manualPage(const CLI::App& program) {
  std::string page = ".TH SHADERMACHINE 1 \"\" \"shadermachine " SHADERMACHINE_VERSION_STRING
                     "\" \"User Commands\"\n"
                     ".SH NAME\nshadermachine \\- assembles, checks, runs and renders shader "
                     "programs on the CPU\n"
                     ".SH SYNOPSIS\n.B shadermachine\n\\fISUBCOMMAND\\fR [\\fIOPTION\\fR]... "
                     "[\\fIFILE\\fR]...\n.SH DESCRIPTION\n" +
                     roff(program.get_description()) +
                     "\nShaders are assembly text, GLSL or binary files; \\fB\\-\\fR stands for "
                     "standard input and standard output.\n.SH SUBCOMMANDS\n";
  for (const CLI::App* command : commandsOf(program)) page += manualOfCommand(*command);
  page += ".SH INPUTS\nHost variables get their values by name:\n";
  for (const StandardInput& input : standardInputs()) {
    page += ".TP\n\\fB" + roff(input.names) + "\\fR\n" + roff(input.value) + "\n";
  }
  page += ".SH EXIT STATUS\n.nf\n" + roff(program.get_footer()) + "\n.fi\n.SH EXAMPLES\n.nf\n";
  for (const char* example : kExamples) page += roff(example) + "\n";
  return page + ".fi\n";
}

std::string completion(const CLI::App& program, const std::string& shell) {
  if (shell == "bash") return bashCompletion(program);
  return shell == "fish" ? fishCompletion(program) : zshCompletion(program);
}

std::string inputsText() {
  std::string text = "Host variables get their values by name:\n";
  for (const StandardInput& input : standardInputs()) {
    text += "\n  " + std::string(input.names) + "\n      " + input.value + "\n";
  }
  return text + "\nAll others are zeros, or what --set and --texture give them.\n";
}

}  // namespace shadermachine::tools
