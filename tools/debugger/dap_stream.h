// Messages of the Debug Adapter Protocol on a pair of streams.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace shadermachine::tools {

// Reads on a thread of its own, so that a client can end a command that runs.
class DapStream {
 public:
  // `urgent` is called on the reading thread for every message as it comes, and not any more once
  // the stream is gone.
  DapStream(std::FILE* input, std::FILE* output, std::function<void(const nlohmann::json&)> urgent);
  ~DapStream();
  DapStream(const DapStream&) = delete;
  DapStream& operator=(const DapStream&) = delete;

  // The next message; none when the client is gone or talks nonsense.
  std::optional<nlohmann::json> next();
  bool isBroken() const;
  void send(nlohmann::json message);

 private:
  // What the reading thread works on: it may still wait for the client when the stream is gone.
  class Inbox;

  std::FILE* output_;
  int sequence_ = 0;
  std::shared_ptr<Inbox> inbox_;
};

}  // namespace shadermachine::tools
