#include "call_graph.h"

#include <algorithm>

namespace shadermachine::tools {
namespace {

// Strongly connected components (Tarjan), with a stack of its own: call chains can be long.
class Components {
 public:
  Components(const std::vector<std::vector<uint32_t>>& callees, std::vector<uint32_t>& order,
             std::vector<bool>& recursive)
      : callees_(callees), order_(order), recursive_(recursive), nodes_(callees.size()) {}

  void run() {
    for (uint32_t i = 0; i < nodes_.size(); ++i) {
      if (nodes_[i].number == 0) visit(i);
    }
  }

 private:
  struct Node {
    uint32_t number = 0;  // in order of discovery, from 1
    uint32_t lowest = 0;
    uint32_t nextCallee = 0;
    bool isOpen = false;
  };

  void open(uint32_t function) {
    Node& node = nodes_[function];
    node.number = node.lowest = ++count_;
    node.isOpen = true;
    open_.push_back(function);
    path_.push_back(function);
  }

  void visit(uint32_t root) {
    open(root);
    while (!path_.empty()) {
      const uint32_t function = path_.back();
      Node& node = nodes_[function];
      if (node.nextCallee < callees_[function].size()) {
        const uint32_t callee = callees_[function][node.nextCallee++];
        if (nodes_[callee].number == 0) {
          open(callee);
        } else if (nodes_[callee].isOpen) {
          // Only open ones: a component that is closed cannot lead back here.
          node.lowest = std::min(node.lowest, nodes_[callee].number);
        }
        continue;
      }
      path_.pop_back();
      if (!path_.empty()) {
        Node& caller = nodes_[path_.back()];
        caller.lowest = std::min(caller.lowest, node.lowest);
      }
      if (node.lowest == node.number) close(function);
    }
  }

  // The component whose first function this is has been seen whole.
  void close(uint32_t first) {
    const auto& own = callees_[first];
    const bool isCycle =
        open_.back() != first || std::find(own.begin(), own.end(), first) != own.end();
    uint32_t function;
    do {
      function = open_.back();
      open_.pop_back();
      nodes_[function].isOpen = false;
      recursive_[function] = isCycle;
      order_.push_back(function);
    } while (function != first);
  }

  const std::vector<std::vector<uint32_t>>& callees_;
  std::vector<uint32_t>& order_;
  std::vector<bool>& recursive_;
  std::vector<Node> nodes_;
  std::vector<uint32_t> open_;
  std::vector<uint32_t> path_;
  uint32_t count_ = 0;
};

}  // namespace

CallGraph::CallGraph(const std::vector<DecodedFunction>& functions)
    : callees_(functions.size()), callers_(functions.size()), recursive_(functions.size()) {
  for (uint32_t caller = 0; caller < functions.size(); ++caller) {
    std::vector<uint32_t>& callees = callees_[caller];
    for (const Instruction& instruction : functions[caller].instructions) {
      const bool isCall = instruction.opcode == Opcode::CALL && instruction.isSound;
      if (isCall) callees.push_back(instruction.operands[0]);
    }
    // Each once: callers are looked at again whenever what a callee returns becomes known.
    std::sort(callees.begin(), callees.end());
    callees.erase(std::unique(callees.begin(), callees.end()), callees.end());
    for (uint32_t callee : callees) callers_[callee].push_back(caller);
  }
  Components(callees_, order_, recursive_).run();
}

}  // namespace shadermachine::tools
