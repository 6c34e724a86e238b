// Files that the program reads and writes, and its standard output.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

namespace shadermachine::tools {

// Something wrong with what the user gave; the text says what and where, perhaps on many lines.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a whole file; "-" is standard input.
std::string readText(const std::string& path);

// A file that is wholly new or as it was before: what is written goes to a file beside the target,
// which takes the target's place in commit(), with its permissions. A target that is no regular
// file (a device, a pipe) is written into, as is one in a folder that takes no new files. "-" is
// standard output. All functions throw InputError.
class OutputFile {
 public:
  explicit OutputFile(const std::string& path);
  ~OutputFile();  // without commit(): leaves the target alone

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  std::FILE* stream();
  // Ends the writing. Nothing may be written afterwards.
  void commit();

 private:
  void openBeside(bool exists);
  [[noreturn]] void fail() const;

  std::string path_;       // as the user named it
  std::string target_;     // behind symbolic links
  std::string temporary_;  // empty when the target itself is written
  std::FILE* stream_ = nullptr;
};

// Writes a whole file.
void writeFile(const std::string& path, std::string_view bytes);

// To be called last: false, after a message, when something that went to standard output did not
// arrive. A reader that has gone away is no message.
bool finishStandardOutput();

}  // namespace shadermachine::tools
