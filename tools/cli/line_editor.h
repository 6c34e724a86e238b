// Lines of commands from a terminal: with history and completion in builds with libedit.
#pragma once

#include <memory>
#include <string>

namespace shadermachine::tools {

class LineEditor {
 public:
  LineEditor();
  ~LineEditor();

  // False at the end of the input.
  bool read(std::string& line);

 private:
  struct Terminal;
  std::unique_ptr<Terminal> terminal_;
};

}  // namespace shadermachine::tools
