// The debugger's command language, as people know it from gdb: one command a line, a text as
// answer.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "debugger/debugger.h"

namespace shadermachine::tools {

class Console {
 public:
  explicit Console(Debugger& debugger);

  // What is said before the first command.
  std::string greeting();
  // An empty line repeats the last command that moves. Ends with a newline unless empty.
  std::string execute(const std::string& line);
  bool isDone() const { return isDone_; }
  // How the run ended: true for one that failed.
  bool hasFailed() const { return debugger_.run().isOver() && isFailure(debugger_.run().error()); }

  // Names of commands that begin so, for completion.
  static std::vector<std::string> completions(const std::string& begin);

 private:
  friend struct ConsoleCommands;

  std::string where();
  std::string show(const Stop& stop);
  std::string frameLine(size_t frame) const;
  std::string listing(uint32_t file, uint32_t first, uint32_t last) const;

  Debugger& debugger_;
  size_t frame_ = 0;
  std::string last_;
  std::deque<std::string> said_;       // by logpoints
  std::vector<std::string> displays_;  // shown at every stop
  uint32_t nextListed_ = 0;
  bool isDone_ = false;
};

}  // namespace shadermachine::tools
