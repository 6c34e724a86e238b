#include "structure_sizes.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <utility>

namespace shadermachine::tools::glsl {
namespace {

constexpr uint64_t kMemberSize = 4;  // what glslang writes for a member of a basic type

struct Size {
  unsigned depth = 0;
  uint64_t characters = 0;  // of the type's name and those of all members, at most kMaxStructWork

  void add(const Size& inner) {
    depth = std::max(depth, inner.depth);
    characters = std::min(characters + inner.characters, kMaxStructWork);
  }
};

// A structure, or a block of the interface, whose closing bracket has not come.
struct Open {
  std::string_view name;
  Size size;
  Size memberType;  // of the member that is being read
  unsigned members = 0;
};

class StructureSizes {
 public:
  explicit StructureSizes(const std::vector<std::string_view>& tokens) : tokens_(tokens) {}

  std::string problem() {
    for (size_t i = 0; i < tokens_.size(); ++i) {
      if (tokens_[i] == "{" && i > 0 && isName(tokens_[i - 1])) {
        enter(tokens_[i - 1]);
      } else if (!open_.empty()) {
        read(tokens_[i]);
      }
      if (!problem_.empty()) return problem_;
    }
    if (largest_.second * tokens_.size() <= kMaxStructWork) return "";
    return "structure " + std::string(largest_.first) +
           " has too many members for a source of this length";
  }

 private:
  // What stands before the bracket of a structure or block; before that of a statement, these or
  // punctuation.
  static bool isName(std::string_view token) {
    const bool isWord = std::isalnum(static_cast<unsigned char>(token[0])) != 0 || token[0] == '_';
    return isWord && token != "else" && token != "do";
  }

  void refuse(std::string_view name, const std::string& reason) {
    problem_ = "structure " + std::string(name) + reason;
  }

  void enter(std::string_view name) {
    open_.push_back({name, {0, name.size()}, {}, 0});
    if (open_.size() > kMaxStructDepth) refuseDepth(name);
  }

  void refuseDepth(std::string_view name) {
    refuse(name, " is nested more than " + std::to_string(kMaxStructDepth) + " deep");
  }

  void read(std::string_view token) {
    Open& structure = open_.back();
    if (token == "}") {
      leave();
    } else if (token == ";" || token == ",") {
      // One of "S a, b;" is as large as the other.
      structure.size.add(structure.memberType);
      structure.size.add({0, kMemberSize});
      if (++structure.members > kMaxMembers) {
        refuse(structure.name, " has more than " + std::to_string(kMaxMembers) + " members");
      }
      if (token == ";") structure.memberType = {};
    } else if (const auto known = sizes_.find(token); known != sizes_.end()) {
      structure.memberType.add(known->second);
    }
  }

  void leave() {
    const Open structure = open_.back();
    open_.pop_back();
    const Size size = {structure.size.depth + 1, structure.size.characters};
    if (size.depth > kMaxStructDepth) refuseDepth(structure.name);
    if (size.characters > largest_.second) largest_ = {structure.name, size.characters};
    // Scopes are not followed: the larger one of two with the same name stands for both.
    Size& known = sizes_[structure.name];
    known = {std::max(known.depth, size.depth), std::max(known.characters, size.characters)};
    if (!open_.empty()) open_.back().memberType.add(size);
  }

  const std::vector<std::string_view>& tokens_;
  std::map<std::string_view, Size> sizes_;
  std::vector<Open> open_;
  std::pair<std::string_view, uint64_t> largest_;
  std::string problem_;
};

}  // namespace

std::string structureProblem(const std::vector<std::string_view>& tokens) {
  return StructureSizes(tokens).problem();
}

}  // namespace shadermachine::tools::glsl
