#include "debugger/dap_stream.h"

#include <charconv>
#include <cstring>
#include <utility>

namespace shadermachine::tools {
namespace {

using nlohmann::json;

constexpr size_t kMaxMessage = 16 << 20;
constexpr size_t kMaxHeader = 4096;
constexpr size_t kMaxQueued = 10000;
constexpr int kMaxMessageNesting = 100;

// No object when the text is none, or nested so deeply that walking it would take too much stack.
json parsed(const std::string& text) {
  bool isDeep = false;
  const auto look = [&isDeep](int depth, json::parse_event_t, json&) {
    isDeep = isDeep || depth > kMaxMessageNesting;
    return !isDeep;
  };
  json message = json::parse(text, look, false);
  return isDeep ? json() : message;
}

}  // namespace

DapStream::DapStream(std::FILE* input, std::FILE* output, std::function<void(const json&)> urgent)
    : input_(input), output_(output), urgent_(std::move(urgent)), reader_([this] { readAll(); }) {}

// A reader that still waits for a client that says nothing more ends with the process.
DapStream::~DapStream() {
  bool isOver = false;
  {
    const std::lock_guard lock(mutex_);
    isOver = isAtEnd_;
  }
  if (isOver) {
    reader_.join();
  } else {
    reader_.detach();
  }
}

std::optional<std::string> DapStream::readMessage() {
  size_t length = 0;
  bool hasLength = false;
  std::string line;
  for (size_t read = 0; read < kMaxHeader; ++read) {
    const int c = std::fgetc(input_);
    if (c == EOF) {
      isBroken_ = read > 0;
      return std::nullopt;
    }
    if (c != '\n') {
      if (c != '\r') line += static_cast<char>(c);
      continue;
    }
    if (line.empty()) {
      if (!hasLength || length > kMaxMessage) break;
      std::string body(length, '\0');
      if (std::fread(body.data(), 1, length, input_) != length) break;
      return body;
    }
    constexpr std::string_view kLength = "Content-Length: ";
    if (line.starts_with(kLength)) {
      const char* const end = line.data() + line.size();
      const auto result = std::from_chars(line.data() + kLength.size(), end, length);
      hasLength = result.ec == std::errc() && result.ptr == end;
    }
    line.clear();
  }
  isBroken_ = true;
  return std::nullopt;
}

void DapStream::readAll() {
  while (true) {
    const std::optional<std::string> text = readMessage();
    json message = text ? parsed(*text) : json();
    const bool isMessage = message.is_object();
    if (isMessage) urgent_(message);
    const std::lock_guard lock(mutex_);
    isBroken_ = isBroken_ || (text && !isMessage) || messages_.size() >= kMaxQueued;
    isAtEnd_ = !isMessage || isBroken_;
    if (!isAtEnd_) messages_.push_back(std::move(message));
    arrived_.notify_one();
    if (isAtEnd_) return;
  }
}

std::optional<json> DapStream::next() {
  std::unique_lock lock(mutex_);
  arrived_.wait(lock, [this] { return !messages_.empty() || isAtEnd_; });
  if (messages_.empty()) return std::nullopt;
  json message = std::move(messages_.front());
  messages_.pop_front();
  return message;
}

void DapStream::send(json message) {
  message["seq"] = ++sequence_;
  const std::string text = message.dump(-1, ' ', false, json::error_handler_t::replace);
  std::fprintf(output_, "Content-Length: %zu\r\n\r\n", text.size());
  std::fwrite(text.data(), 1, text.size(), output_);
  std::fflush(output_);
}

}  // namespace shadermachine::tools
