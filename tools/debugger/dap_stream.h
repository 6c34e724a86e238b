// Messages of the Debug Adapter Protocol on a pair of streams.
#pragma once

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

namespace shadermachine::tools {

// Reads on a thread of its own, so that a client can end a command that runs.
class DapStream {
 public:
  // `urgent` is called on the reading thread for every message as it comes.
  DapStream(std::FILE* input, std::FILE* output, std::function<void(const nlohmann::json&)> urgent);
  ~DapStream();
  DapStream(const DapStream&) = delete;
  DapStream& operator=(const DapStream&) = delete;

  // The next message; none when the client is gone or talks nonsense.
  std::optional<nlohmann::json> next();
  bool isBroken() const { return isBroken_; }
  void send(nlohmann::json message);

 private:
  void readAll();
  // Empty at the end of the input.
  std::optional<std::string> readMessage();

  std::FILE* input_;
  std::FILE* output_;
  std::function<void(const nlohmann::json&)> urgent_;
  int sequence_ = 0;

  std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  std::deque<nlohmann::json> messages_;
  bool isAtEnd_ = false;
  bool isBroken_ = false;
  std::thread reader_;
};

}  // namespace shadermachine::tools
