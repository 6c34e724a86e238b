#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>

#include "cli/system.h"

namespace shadermachine::tools {
namespace {

constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGTERM};

// The file that a signal must take along; only one is written at a time. Set while the signals are
// blocked.
char unfinished[4096];

extern "C" void removeUnfinished(int signal) {
  unlink(unfinished);
  std::signal(signal, SIG_DFL);
  raise(signal);
}

// The mode of a new file, as open() would choose it.
mode_t newFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Only root can keep a foreign owner; for others the file becomes theirs. The owner comes first,
// since changing it may take permissions away.
void keepOwnerAndMode(int descriptor, const struct stat* old) {
  const bool isKept = old != nullptr && fchown(descriptor, old->st_uid, old->st_gid) == 0;
  const mode_t special = isKept ? 07000 : 0;
  fchmod(descriptor, old != nullptr ? old->st_mode & (0777 | special) : newFileMode());
}

}  // namespace

void useBinaryStreams() {}

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

size_t terminalColumns() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

double memoryBytes() {
  return static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

bool readerIsGone() {
  pollfd output = {.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
  return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

bool isSpecialFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

bool mayWrite(const std::string& path) { return access(path.c_str(), W_OK) == 0; }

std::FILE* createBeside(const std::string& target, std::string& name) {
  struct stat old = {};
  const bool isReplaced = stat(target.c_str(), &old) == 0;
  name = (std::filesystem::path(target).parent_path() / ".shadermachine-XXXXXX").string();
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  setUnfinished(name);
  keepOwnerAndMode(descriptor, isReplaced ? &old : nullptr);
  std::FILE* const stream = fdopen(descriptor, "wb");
  if (stream == nullptr) {
    close(descriptor);
    unlink(name.c_str());
    setUnfinished("");
    errno = ENOMEM;
  }
  return stream;
}

// Changes the name that the handler sees, with the handler kept away. An ignored signal stays so.
void setUnfinished(const std::string& path) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  for (const int signal : kEndingSignals) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  unfinished[path.copy(unfinished, sizeof unfinished - 1)] = '\0';
  for (const int signal : kEndingSignals) {
    const auto old = std::signal(signal, path.empty() ? SIG_DFL : removeUnfinished);
    if (old == SIG_IGN) std::signal(signal, SIG_IGN);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace shadermachine::tools
