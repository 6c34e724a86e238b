#include "access_path.h"

#include <algorithm>

#include "diagnostics.h"
#include "machine/types.h"

namespace shadermachine::tools {
namespace {

constexpr uint32_t kMaxSelectors = 4;
constexpr size_t kMaxStrays = 64;

bool isScalarOrVector(TypeCode type) { return type <= VM_TYPE_BVEC4; }

}  // namespace

bool AccessPath::step(std::optional<int32_t> index) {
  if (index && *index < 0) {
    // As the machine cuts it (SwizzlePattern).
    pattern_ = static_cast<uint16_t>(-static_cast<int16_t>(*index));
    return true;
  }
  if (count_ == 0 && type_ >= 0) return stepIntoStructure(index);
  if (count_ != 0) {
    stepIntoArray(index);
  } else if (isVectorType(type_)) {
    stepIntoVector(index);
  } else if (isMatrixType(type_)) {
    stepIntoMatrix(index);
  }
  return true;
}

bool AccessPath::stepIntoStructure(std::optional<int32_t> index) {
  const StructInfo& info = *types_.structure(type_);
  if (!index) {
    problem_ =
        text("the member of ", types_.describe(type_, 0), " is computed, it must be constant");
  } else if (static_cast<uint32_t>(*index) >= info.memberCount) {
    problem_ = text(types_.describe(type_, 0), " has no member ", *index);
  } else {
    const VarInfo& member = info.members[*index];
    type_ = member.type;
    count_ = member.count;
    bytes_ = member.byteSize;
  }
  return problem_.empty();
}

void AccessPath::stepIntoArray(std::optional<int32_t> index) {
  checkBound(index, count_, "elements");
  bytes_ = types_.elementBytes(type_);
  count_ = 0;
}

void AccessPath::stepIntoVector(std::optional<int32_t> index) {
  const uint32_t components = typeByteSize(type_) / kWordBytes;
  if (pattern_ == 0) {
    checkBound(index, components, "components");
  } else {
    checkBound(index, kMaxSelectors, "selectors");
    if (index && pattern_ != kAnyPattern && *index < static_cast<int32_t>(kMaxSelectors)) {
      checkBound(static_cast<int32_t>(selector(static_cast<uint32_t>(*index))), components,
                 "components");
    }
    pattern_ = 0;
  }
  bytes_ = kWordBytes;
  type_ = vectorScalarType(type_);
}

void AccessPath::stepIntoMatrix(std::optional<int32_t> index) {
  checkBound(index, typeByteSize(type_) / typeStride(type_), "columns");
  bytes_ = typeStride(type_);
  type_ = matrixColumnType(type_);
}

void AccessPath::checkBound(std::optional<int32_t> index, uint32_t bound, const char* noun) {
  // The first step that leaves its part drops the store; what the later ones would do is of no
  // account.
  if (index && static_cast<uint32_t>(*index) >= bound && dropped_.empty()) {
    dropped_ = text("index ", *index, " is outside the ", bound, ' ', noun);
  }
}

uint32_t AccessPath::words() const {
  const auto whole = static_cast<uint32_t>(bytes_ / kWordBytes);
  if (pattern_ == 0) return whole;
  if (pattern_ != kAnyPattern) return std::min(selectedCount(), kMaxSelectors);
  return isScalarOrVector(type_) ? std::max(whole, kMaxSelectors) : whole;
}

std::string AccessPath::dropReason() const {
  if (!dropped_.empty() || pattern_ == 0 || isAggregate()) return dropped_;
  const uint32_t components = typeByteSize(type_) / kWordBytes;
  if (isMatrixType(type_) || components == 0 || type_ >= VM_TYPE_SAMPLER_0) {
    return "components are selected of what is no vector";
  }
  if (selectedCount() > kMaxSelectors)
    return text("the pattern selects ", selectedCount(), " components");
  for (uint32_t i = 0; i < selectedCount(); ++i) {
    if (selector(i) >= components) {
      return text("selector ", selector(i), " is outside the ", components, " components");
    }
  }
  return {};
}

bool AccessPaths::step(std::optional<int32_t> index, bool isPosition) {
  // Made anew from those before: each may end here, or go on in two ways.
  std::vector<AccessPath> before;
  before.swap(strays_);
  for (AccessPath& stray : before) {
    if (!isPosition) {
      AccessPath selected = stray;
      selected.stepBySelection();
      addStray(selected);
    }
    if (stray.step(index)) {
      addStray(stray);
    } else if (!index) {
      strayProblem_ = stray.problem();
    }
  }
  if (!isPosition) {
    AccessPath selected = meant_;
    selected.stepBySelection();
    addStray(selected);
  }
  return meant_.step(index);
}

void AccessPaths::addStray(const AccessPath& path) {
  if (path.isDropped()) return;
  const bool isKnown = std::any_of(strays_.begin(), strays_.end(),
                                   [&](const AccessPath& known) { return known.leadsWhere(path); });
  if (isKnown) return;
  // Different places double with each index that may be negative; so many are a mistake, whatever
  // they are.
  if (strays_.size() < kMaxStrays) return strays_.push_back(path);
  strayProblem_ = "the path may lead to too many places";
}

uint32_t AccessPaths::strayWords() const {
  uint32_t words = 0;
  for (const AccessPath& stray : strays_) {
    // An inline value is no aggregate, and a view brings all its words.
    if (!stray.isAggregate()) words = std::max(words, stray.words());
  }
  return words;
}

}  // namespace shadermachine::tools
