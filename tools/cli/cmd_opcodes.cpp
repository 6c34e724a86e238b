#include "cli/commands.h"

namespace shadermachine::tools {
void addOpcodesCommand(CLI::App&, Outcome&) {}
void addRunCommand(CLI::App&, Outcome&) {}
}  // namespace shadermachine::tools
