#include <histedit.h>

#include <cstdio>
#include <new>
#include <vector>

#include "cli/line_editor.h"
#include "debugger/console.h"

namespace shadermachine::tools {
namespace {

char* prompt(EditLine*) {
  static char text[] = "(debug) ";
  return text;
}

unsigned char complete(EditLine* editor, int) {
  const LineInfo* line = el_line(editor);
  const std::string begin(line->buffer, line->cursor);
  const std::vector<std::string> names = Console::completions(begin);
  if (names.size() != 1 || el_insertstr(editor, names[0].c_str() + begin.size()) != 0) {
    return CC_ERROR;
  }
  return CC_REFRESH;
}

}  // namespace

struct LineEditor::Terminal {
  std::unique_ptr<EditLine, decltype(&el_end)> editor;
  std::unique_ptr<History, decltype(&history_end)> past;
};

LineEditor::LineEditor()
    : terminal_(new Terminal{{el_init("shadermachine", stdin, stdout, stderr), &el_end},
                             {history_init(), &history_end}}) {
  EditLine* const editor = terminal_->editor.get();
  History* const past = terminal_->past.get();
  if (editor == nullptr || past == nullptr) throw std::bad_alloc();
  HistEvent event;
  history(past, &event, H_SETSIZE, 1000);
  history(past, &event, H_SETUNIQUE, 1);
  el_set(editor, EL_PROMPT, prompt);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_SIGNAL, 1);
  el_set(editor, EL_HIST, history, past);
  el_set(editor, EL_ADDFN, "complete", "complete a command", complete);
  el_set(editor, EL_BIND, "^I", "complete", nullptr);
}

LineEditor::~LineEditor() = default;

bool LineEditor::read(std::string& line) {
  int length = 0;
  const char* text = el_gets(terminal_->editor.get(), &length);
  if (text == nullptr || length <= 0) return false;
  line.assign(text, static_cast<size_t>(length));
  while (line.ends_with('\n')) line.pop_back();
  HistEvent event;
  if (!line.empty()) history(terminal_->past.get(), &event, H_ENTER, line.c_str());
  return true;
}

}  // namespace shadermachine::tools
