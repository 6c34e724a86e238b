#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <filesystem>
#include <random>

#include "cli/system.h"

namespace shadermachine::tools {

namespace fs = std::filesystem;

void useBinaryStreams() {
  for (std::FILE* const stream : {stdin, stdout}) _setmode(_fileno(stream), _O_BINARY);
}

bool isTerminal(std::FILE* stream) { return _isatty(_fileno(stream)) != 0; }

size_t terminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) return 0;
  return static_cast<size_t>(info.dwSize.X);
}

double memoryBytes() {
  MEMORYSTATUSEX status = {};
  status.dwLength = sizeof status;
  return GlobalMemoryStatusEx(&status) != 0 ? static_cast<double>(status.ullTotalPhys) : 0;
}

bool readerIsGone() { return errno == EPIPE; }

bool isSpecialFile(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  return fs::exists(status) && !fs::is_regular_file(status);
}

bool mayWrite(const std::string& path) { return _access(path.c_str(), 2) == 0; }

std::FILE* createBeside(const std::string& target, std::string& name) {
  constexpr int kAttempts = 100;
  std::random_device random;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::string last = ".shadermachine-" + std::to_string(random());
    name = (fs::path(target).parent_path() / last).string();
    const int flags = _O_CREAT | _O_EXCL | _O_WRONLY | _O_BINARY | _O_NOINHERIT;
    const int descriptor = _open(name.c_str(), flags, _S_IREAD | _S_IWRITE);
    if (descriptor >= 0) return _fdopen(descriptor, "wb");
    if (errno != EEXIST) break;
  }
  return nullptr;
}

// Ending a program that shows no window is no signal there.
void setUnfinished(const std::string&) {}

}  // namespace shadermachine::tools
