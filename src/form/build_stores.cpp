// The builder's stores into parts of variables, at access paths of constants and run-time indices.
//
// A negative index is a pattern of components. Run-time indices that could be negative are left to
// the plain handlers, which know what such a pattern stores.

#include <algorithm>

#include "form/builder.h"

namespace shadermachine::form {
namespace {

constexpr uint32_t kMaxSteps = 8;  // of paths that are built

}  // namespace

// What a mask without the sign bit has left of an index.
bool Builder::isNeverNegative(Operand index) const {
  if (form_.failed()) return false;
  const Operation& made = form_.operations[index.value];
  if (made.kind != Kind::Operate || made.opcode != Opcode::BIT_AND) return false;
  for (uint32_t i = 0; i < 2; ++i) {
    uint32_t mask = 0;
    const Operand operand = {made.in[i].value, made.in[i].first + index.first};
    if (constantOf(operand, mask) && static_cast<int32_t>(mask) >= 0) return true;
  }
  return false;
}

bool Builder::walkStep(Operand index, StorePath& path, uint64_t limit) {
  uint32_t number = 0;
  const bool known = constantOf(index, number);
  if (!known && (path.indices == kMaxStoreIndices || !isNeverNegative(index))) return false;
  const auto structOf = [this](int32_t type) { return decoder_.consultStruct(type); };
  PathStep step;
  if (!hasParts(path.part) || !pickPart(structOf, path.part, number, step)) return false;
  if (!known && step.stride == 0) return false;
  // Wherever an index leads below its bound, the part lies inside the one before.
  const uint64_t last = known ? step.offset : uint64_t{step.bound - 1} * step.stride;
  if (last + step.size > limit || path.offset + step.offset > UINT32_MAX) return false;
  if (!known) {
    path.index[path.indices] = index;
    path.steps[path.indices++] = {step.stride, step.bound};
  }
  path.offset += static_cast<uint32_t>(step.offset);
  path.size = step.size;
  path.part = step.part;
  return true;
}

// False for a path that leads nowhere, or nowhere for sure.
bool Builder::walkPath(const VarInfo& info, const Operand* indices, uint32_t n, StorePath& path) {
  path = {};
  path.part = {info.type, info.count};
  // How large an aggregate's block is shows when the store runs.
  uint64_t limit = isBasicVar(info) ? kPlaceWords * sizeof(uint32_t) : UINT64_MAX;
  for (uint32_t k = 0; k < n; ++k) {
    uint32_t number = 0;
    if (constantOf(indices[k], number) && static_cast<int32_t>(number) < 0) {
      path.pattern = SwizzlePattern(static_cast<int32_t>(number));
      const bool ofVector = path.part.count == 0 && isVectorType(path.part.type);
      return ofVector && k + 1 == n;
    }
    if (!walkStep(indices[k], path, limit)) return false;
    limit = path.size;
    if (k > 0) continue;
    path.firstEnd = path.offset + path.size;
    path.firstIsIndex = path.indices > 0;
  }
  return n > 0;
}

void Builder::storeWords(Place place, const VarInfo& info, const StorePath& path, uint32_t at,
                         uint32_t n, Operand value) {
  if (isBasicVar(info) && path.indices == 0) return store(place, at / 4, n, value);
  Operation made = operation(isBasicVar(info) ? Kind::StoreIndexed : Kind::StorePart);
  made.place = place;
  made.first = at;
  made.n = static_cast<uint8_t>(n);
  made.count = path.indices;
  made.size = isBasicVar(info) ? 0 : path.firstEnd;
  made.stride = path.firstIsIndex ? path.steps[0].stride : 0;
  made.in[0] = value;
  auto* steps = form_.arena.allocate<IndexStep>(kMaxStoreIndices);
  if (steps == nullptr) return;
  std::copy_n(path.steps, kMaxStoreIndices, steps);
  std::copy_n(path.index, path.indices, made.in + 1);
  made.steps = steps;
  append(made);
}

bool Builder::storeAtPath(Place place, const VarInfo& info, const StorePath& path,
                          int32_t valueDepth) {
  if (!path.pattern.isPending()) {
    const bool inWords = path.size % 4 == 0 && path.size > 0 && path.size <= kPlaceWords * 4;
    if (path.part.type >= 0 || path.part.count > 0 || !inWords) return false;
    const uint32_t n = path.size / 4;
    storeWords(place, info, path, path.offset, n, readTop(valueDepth, n));
    return true;
  }
  const uint32_t count = path.pattern.count();
  const uint32_t size = typeByteSize(path.part.type);
  if (count == 0 || count > kMaxSelectors) return false;
  if (!path.pattern.staysBefore(path.size == 0 ? size : std::min(size, path.size))) return false;
  const Operand value = readTop(valueDepth, count);
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t at = path.offset + path.pattern.selector(i) * 4;
    storeWords(place, info, path, at, 1, word(value, i));
  }
  return true;
}

bool Builder::buildPartStore(Instance& instance, const Instruction& item) {
  const VarInfo& info = *namedVariable(item, shader_, *instance.function->record);
  const Place place =
      namesGlobal(item.opcode) ? item.operands[0] : instance.call->localsSlot + item.operands[0];
  const bool byOperands =
      item.opcode == Opcode::STORE_LOCAL_ELEM_IMM || item.opcode == Opcode::STORE_GLOBAL_ELEM_IMM;
  const uint32_t n = item.operands[1];
  if (n == 0 || n > kMaxSteps) return false;
  Operand indices[kMaxSteps];
  for (uint32_t k = 0; k < n; ++k) {
    const auto depth = static_cast<int32_t>(k);
    if (!byOperands && !holdsWords(depth)) return false;
    indices[k] = byOperands ? constantWord(static_cast<uint32_t>(int32_t{item.listedIndex(k)}))
                            : readTop(depth, 1);
  }
  const uint32_t pushed = byOperands ? 0 : n;
  StorePath path;
  if (!holdsWords(static_cast<int32_t>(pushed)) || !walkPath(info, indices, n, path)) return false;
  if (isBasicVar(info) && path.indices > 1) return false;
  if (!storeAtPath(place, info, path, static_cast<int32_t>(pushed))) return false;
  pop(pushed + 1);
  return true;
}

}  // namespace shadermachine::form
