#include <cstdio>
#include <iostream>

#include "cli/line_editor.h"

namespace shadermachine::tools {

struct LineEditor::Terminal {};

LineEditor::LineEditor() = default;
LineEditor::~LineEditor() = default;

bool LineEditor::read(std::string& line) {
  std::fputs("(debug) ", stdout);
  std::fflush(stdout);
  return static_cast<bool>(std::getline(std::cin, line));
}

}  // namespace shadermachine::tools
