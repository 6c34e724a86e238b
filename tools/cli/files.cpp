#include "cli/files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <utility>

namespace shadermachine::tools {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxFileBytes = 1 << 30;
constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGTERM};

// The file that a signal must take along; only one is written at a time. Set while the signals are
// blocked.
char unfinished[4096];

extern "C" void removeUnfinished(int signal) {
  unlink(unfinished);
  std::signal(signal, SIG_DFL);
  raise(signal);
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

// Where the file is that a chain of symbolic links names, there or not.
std::string behindLinks(const std::string& path) {
  constexpr int kMaxLinks = 40;
  fs::path target = path;
  std::error_code error;
  for (int i = 0; i < kMaxLinks && fs::is_symlink(fs::symlink_status(target, error)); ++i) {
    const fs::path link = fs::read_symlink(target, error);
    if (error) break;
    target = target.parent_path() / link;
  }
  return target.string();
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

OutputFile::OutputFile(const std::string& path) : path_(path), target_(path) {
  if (path == "-") {
    stream_ = stdout;
    return;
  }
  struct stat status = {};
  const bool exists = stat(path.c_str(), &status) == 0;
  // Opened by who writes first: a pipe may wait for its reader.
  if (exists && !S_ISREG(status.st_mode)) return;
  target_ = behindLinks(path);
  // A file that may not be written is not to be replaced either.
  if (exists && access(target_.c_str(), W_OK) != 0) fail();
  openBeside(exists ? &status : nullptr);
}

OutputFile::~OutputFile() {
  if (stream_ != nullptr && stream_ != stdout) std::fclose(stream_);
  if (temporary_.empty()) return;
  unlink(temporary_.c_str());
  setUnfinished("");
}

std::FILE* OutputFile::stream() {
  if (stream_ == nullptr) stream_ = std::fopen(target_.c_str(), "wb");
  if (stream_ == nullptr) fail();
  return stream_;
}

void OutputFile::openBeside(const struct stat* old) {
  const fs::path folder = fs::path(target_).parent_path();
  std::string name = (folder / ".shadermachine-XXXXXX").string();
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) {
    if (errno == EACCES && old != nullptr) return;
    fail();
  }
  temporary_ = name;
  setUnfinished(temporary_);
  keepOwnerAndMode(descriptor, old);
  stream_ = fdopen(descriptor, "wb");
  if (stream_ == nullptr) throw std::bad_alloc();
}

void OutputFile::commit() {
  if (stream_ == stdout) return;  // finishStandardOutput() looks at it
  // Taken off first: a stream whose closing fails is closed all the same.
  std::FILE* const stream = std::exchange(stream_, nullptr);
  if (stream == nullptr) return;
  const bool hadError = std::ferror(stream) != 0;
  if (std::fclose(stream) != 0 || hadError) fail();
  if (temporary_.empty()) return;
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail();
  temporary_.clear();
  setUnfinished("");
}

void OutputFile::fail() const {
  throw InputError(path_ + ": " + (errno != 0 ? std::strerror(errno) : "cannot be written"));
}

std::string readText(const std::string& path) {
  const auto fail = [&path] { return InputError(path + ": " + std::strerror(errno)); };
  std::unique_ptr<std::FILE, decltype(&std::fclose)> opened(nullptr, &std::fclose);
  if (path != "-") {
    opened.reset(std::fopen(path.c_str(), "rb"));
    if (opened == nullptr) throw fail();
  }
  std::FILE* const file = path == "-" ? stdin : opened.get();
  std::string text;
  char buffer[65536];
  while (const size_t count = std::fread(buffer, 1, sizeof buffer, file)) {
    text.append(buffer, count);
    if (text.size() > kMaxFileBytes) throw InputError(path + ": is larger than 1 GiB");
  }
  if (std::ferror(file) != 0) throw fail();
  return text;
}

void writeFile(const std::string& path, std::string_view bytes) {
  OutputFile file(path);
  std::fwrite(bytes.data(), 1, bytes.size(), file.stream());
  file.commit();
}

bool finishStandardOutput() {
  std::cout.flush();
  errno = 0;
  const bool isFlushed = std::fflush(stdout) == 0;
  if (isFlushed && std::ferror(stdout) == 0) return true;
  pollfd output = {.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
  const bool readerIsGone = poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
  if (!readerIsGone) {
    std::fprintf(stderr, "standard output: %s\n",
                 errno != 0 ? std::strerror(errno) : "cannot be written");
  }
  return false;
}

}  // namespace shadermachine::tools
