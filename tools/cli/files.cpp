#include "cli/files.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <utility>

#include "cli/system.h"

namespace shadermachine::tools {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxFileBytes = 1 << 30;

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

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path), target_(path) {
  if (path == "-") {
    stream_ = stdout;
    return;
  }
  // Opened by who writes first: a pipe may wait for its reader.
  if (isSpecialFile(path)) return;
  target_ = behindLinks(path);
  std::error_code error;
  const bool exists = fs::exists(target_, error);
  // A file that may not be written is not to be replaced either.
  if (exists && !mayWrite(target_)) fail();
  openBeside(exists);
}

OutputFile::~OutputFile() {
  if (stream_ != nullptr && stream_ != stdout) std::fclose(stream_);
  if (temporary_.empty()) return;
  std::remove(temporary_.c_str());
  setUnfinished("");
}

std::FILE* OutputFile::stream() {
  if (stream_ == nullptr) stream_ = std::fopen(target_.c_str(), "wb");
  if (stream_ == nullptr) fail();
  return stream_;
}

void OutputFile::openBeside(bool exists) {
  stream_ = createBeside(target_, temporary_);
  if (stream_ != nullptr) return;
  temporary_.clear();
  if (errno != EACCES || !exists) fail();
}

void OutputFile::commit() {
  if (stream_ == stdout) return;  // finishStandardOutput() looks at it
  // Taken off first: a stream whose closing fails is closed all the same.
  std::FILE* const stream = std::exchange(stream_, nullptr);
  if (stream == nullptr) return;
  const bool hadError = std::ferror(stream) != 0;
  if (std::fclose(stream) != 0 || hadError) fail();
  if (temporary_.empty()) return;
  std::error_code error;
  fs::rename(temporary_, target_, error);  // takes the place of what is there on all systems
  errno = error.default_error_condition().value();
  if (error) fail();
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
  const int reason = errno;
  if (!readerIsGone()) {
    std::fprintf(stderr, "standard output: %s\n",
                 reason != 0 ? std::strerror(reason) : "cannot be written");
  }
  return false;
}

}  // namespace shadermachine::tools
