// What a translation was made from, copied, so that a later run can be told to be of the same
// shader without a look at memory that the host may have freed since.
#pragma once

#include "engine/arena.h"
#include "machine/machine.h"

namespace shadermachine::engine {

class Decoder;

class Snapshot {
 public:
  // Copies all of the shader that the decoder has looked at. False when memory is short.
  bool take(const CompiledShader& shader, const Decoder& decoder);
  ~Snapshot() {
    std::free(bytes_);
    std::free(lists_);
  }
  Snapshot() = default;
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  bool matches(const CompiledShader& shader) const;

 private:
  uint8_t* bytes_ = nullptr;
  size_t size_ = 0;
  uint32_t* lists_ = nullptr;  // functions, then structure types that the copy covers
  uint32_t functionCount_ = 0;
  uint32_t structCount_ = 0;
};

}  // namespace shadermachine::engine
