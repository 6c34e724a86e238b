#include "debugger/dap_stream.h"

#include <charconv>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
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

class DapStream::Inbox {
 public:
  Inbox(std::FILE* input, std::function<void(const json&)> urgent)
      : input_(input), urgent_(std::move(urgent)) {}

  void readAll();
  std::optional<json> next();
  bool isBroken() {
    const std::lock_guard lock(mutex_);
    return isBroken_;
  }
  // Nobody asks any more, and whom `urgent` would tell may be gone.
  void abandon() {
    const std::lock_guard lock(mutex_);
    isAbandoned_ = true;
  }

 private:
  struct Text {
    std::optional<std::string> text;  // empty at the end of the input
    bool isBroken = false;
  };
  Text readMessage();

  std::FILE* input_;

  std::mutex mutex_;  // guards what follows
  std::function<void(const json&)> urgent_;
  std::condition_variable arrived_;
  std::deque<json> messages_;
  bool isAtEnd_ = false;
  bool isBroken_ = false;
  bool isAbandoned_ = false;
};

DapStream::Inbox::Text DapStream::Inbox::readMessage() {
  size_t length = 0;
  bool hasLength = false;
  std::string line;
  for (size_t read = 0; read < kMaxHeader; ++read) {
    const int c = std::fgetc(input_);
    if (c == EOF) return {std::nullopt, read > 0};
    if (c != '\n') {
      if (c != '\r') line += static_cast<char>(c);
      continue;
    }
    if (line.empty()) {
      if (!hasLength || length > kMaxMessage) break;
      std::string body(length, '\0');
      if (std::fread(body.data(), 1, length, input_) != length) break;
      return {std::move(body)};
    }
    constexpr std::string_view kLength = "Content-Length: ";
    if (line.starts_with(kLength)) {
      const char* const end = line.data() + line.size();
      const auto result = std::from_chars(line.data() + kLength.size(), end, length);
      hasLength = result.ec == std::errc() && result.ptr == end;
    }
    line.clear();
  }
  return {std::nullopt, true};
}

void DapStream::Inbox::readAll() {
  while (true) {
    const Text read = readMessage();
    json message = read.text ? parsed(*read.text) : json();
    const bool isMessage = message.is_object();
    const std::lock_guard lock(mutex_);
    if (isAbandoned_) return;
    if (isMessage) urgent_(message);
    isBroken_ = read.isBroken || (read.text && !isMessage) || messages_.size() >= kMaxQueued;
    isAtEnd_ = !isMessage || isBroken_;
    if (!isAtEnd_) messages_.push_back(std::move(message));
    arrived_.notify_one();
    if (isAtEnd_) return;
  }
}

std::optional<json> DapStream::Inbox::next() {
  std::unique_lock lock(mutex_);
  arrived_.wait(lock, [this] { return !messages_.empty() || isAtEnd_; });
  if (messages_.empty()) return std::nullopt;
  json message = std::move(messages_.front());
  messages_.pop_front();
  return message;
}

// The thread ends with the input, or with the process when the client says nothing more.
DapStream::DapStream(std::FILE* input, std::FILE* output, std::function<void(const json&)> urgent)
    : output_(output), inbox_(std::make_shared<Inbox>(input, std::move(urgent))) {
  std::thread([inbox = inbox_] { inbox->readAll(); }).detach();
}

DapStream::~DapStream() { inbox_->abandon(); }

std::optional<json> DapStream::next() { return inbox_->next(); }

bool DapStream::isBroken() const { return inbox_->isBroken(); }

void DapStream::send(json message) {
  message["seq"] = ++sequence_;
  const std::string text = message.dump(-1, ' ', false, json::error_handler_t::replace);
  std::fprintf(output_, "Content-Length: %zu\r\n\r\n", text.size());
  std::fwrite(text.data(), 1, text.size(), output_);
  std::fflush(output_);
}

}  // namespace shadermachine::tools
