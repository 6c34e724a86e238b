// Which functions call which.
#pragma once

#include <cstdint>
#include <vector>

#include "decoder.h"

namespace shadermachine::tools {

class CallGraph {
 public:
  explicit CallGraph(const std::vector<DecodedFunction>& functions);

  const std::vector<uint32_t>& callers(uint32_t function) const { return callers_[function]; }
  // Callees before their callers, except around cycles.
  const std::vector<uint32_t>& order() const { return order_; }
  bool isRecursive(uint32_t function) const { return recursive_[function]; }

 private:
  std::vector<std::vector<uint32_t>> callees_;
  std::vector<std::vector<uint32_t>> callers_;
  std::vector<uint32_t> order_;
  std::vector<bool> recursive_;
};

}  // namespace shadermachine::tools
