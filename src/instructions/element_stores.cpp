// Stores into a part of a variable, at the end of an access path.

#include "instructions/handlers.h"
#include "machine/types.h"

namespace shadermachine {
namespace {

// A component selection, carried by a negative index as its negation.
class SwizzlePattern {
 public:
  SwizzlePattern() = default;
  explicit SwizzlePattern(int32_t index)
      : bits_(static_cast<uint16_t>(-static_cast<int32_t>(static_cast<int16_t>(index)))) {}

  bool isPending() const { return bits_ != 0; }
  uint32_t count() const { return (bits_ >> 8) & 7; }
  uint32_t selector(uint32_t i) const { return (bits_ >> (2 * i)) & 3; }

 private:
  uint16_t bits_ = 0;
};

constexpr uint32_t kMaxSelectors = 4;

constexpr bool isScalarOrVectorType(TypeCode type) {
  return type >= VM_TYPE_BOOL && type <= VM_TYPE_BVEC4;
}

// Walks an access path. Every step narrows the target to a part that lies inside the part before;
// a step that would leave it drops the store.
class PartWalk {
 public:
  PartWalk(Machine& machine, ValueSlot& slot, const VarInfo& info)
      : machine_(machine), type_(info.type), count_(info.count) {
    const bool basic = isBasicVar(info);
    target_ = basic ? reinterpret_cast<uint8_t*>(slot.value.words) : slot.view.data;
    limit_ = basic ? sizeof slot.value.words : slot.view.size;
    dropped_ = target_ == nullptr;
  }

  void step(int32_t index) {
    if (dropped_) return;
    if (index < 0) {
      pattern_ = SwizzlePattern(index);
    } else if (count_ > 0) {
      stepIntoArray(static_cast<uint32_t>(index));
    } else if (type_ >= 0) {
      stepIntoStruct(static_cast<uint32_t>(index));
    } else if (isVectorType(type_)) {
      stepIntoVector(static_cast<uint32_t>(index));
    } else if (isMatrixType(type_)) {
      stepIntoMatrix(static_cast<uint32_t>(index));
    }
  }

  void write(const ValueSlot& value) const {
    if (dropped_) return;
    const bool aggregate = type_ >= 0 || count_ > 0;
    if (aggregate) {
      if (value.view.data != nullptr && value.view.size >= size_) copy(value.view.data);
    } else if (!pattern_.isPending()) {
      if (size_ <= sizeof value.value.words) copy(value.value.words);
    } else if (isScalarOrVectorType(type_)) {
      writeSelected(value.value.words);
    }
  }

 private:
  // Narrows the target to `size` bytes at `offset` of the part so far.
  void narrow(uint64_t offset, uint32_t size) {
    if (offset + size > limit_) {
      dropped_ = true;
      return;
    }
    target_ += offset;
    limit_ = size;
    size_ = size;
  }

  void stepIntoArray(uint32_t index) {
    uint32_t elementSize = typeByteSize(type_);
    if (type_ >= 0) {
      const StructInfo* info = structType(machine_, type_);
      elementSize = info == nullptr ? 0 : info->size;
      dropped_ = info == nullptr;
    }
    if (dropped_ || index >= count_) {
      dropped_ = true;
      return;
    }
    narrow(uint64_t{index} * elementSize, elementSize);
    count_ = 0;
  }

  void stepIntoStruct(uint32_t index) {
    const StructInfo* info = structType(machine_, type_);
    if (info == nullptr || info->members == nullptr || index >= info->memberCount) {
      dropped_ = true;
      return;
    }
    const VarInfo& member = info->members[index];
    narrow(member.memberOffset, member.byteSize);
    type_ = member.type;
    count_ = member.count;
  }

  void stepIntoVector(uint32_t index) {
    if (pattern_.isPending()) {
      if (index >= kMaxSelectors) {
        dropped_ = true;
        return;
      }
      index = pattern_.selector(index);
      pattern_ = SwizzlePattern();
    }
    pickPart(index);
    type_ = vectorScalarType(type_);
  }

  void stepIntoMatrix(uint32_t index) {
    pickPart(index);
    type_ = matrixColumnType(type_);
  }

  // A component or column: the part must lie inside the vector or matrix itself.
  void pickPart(uint32_t index) {
    const uint32_t stride = typeStride(type_);
    const uint64_t offset = uint64_t{index} * stride;
    if (offset >= typeByteSize(type_)) {
      dropped_ = true;
      return;
    }
    narrow(offset, stride);
  }

  // Source and target can be parts of one block.
  void copy(const void* source) const {
    if (size_ <= limit_ && chargeBytes(machine_, size_)) {
      moveBytes(machine_, target_, source, size_);
    }
  }

  void writeSelected(const uint32_t* components) const {
    const uint32_t count = pattern_.count();
    if (count > kMaxSelectors) return;
    const uint32_t end = typeByteSize(type_) < limit_ ? typeByteSize(type_) : limit_;
    for (uint32_t i = 0; i < count; ++i) {
      if ((pattern_.selector(i) + 1) * sizeof(uint32_t) > end) return;
    }
    for (uint32_t i = 0; i < count; ++i) {
      std::memcpy(target_ + pattern_.selector(i) * sizeof(uint32_t), &components[i],
                  sizeof(uint32_t));
    }
  }

  Machine& machine_;
  uint8_t* target_;
  uint32_t limit_;  // bytes from target_ that belong to the part
  TypeCode type_;
  uint32_t count_;
  uint32_t size_ = 0;  // bytes a whole-part store copies; 0 until the first step
  SwizzlePattern pattern_;
  bool dropped_ = false;
};

void popValue(Machine& machine) {
  if (topSlot(machine).view.data != nullptr) {
    popRelease(machine);
  } else {
    popSlot(machine);
  }
}

// Indices on the stack: the one applied first is the top slot.
void storeByStack(Machine& machine, ValueSlot& slot, const VarInfo& info) {
  const int32_t n = fetchU16(machine);
  PartWalk walk(machine, slot, info);
  for (int32_t k = 0; k < n; ++k) {
    walk.step(static_cast<int32_t>(topSlot(machine, k).value.words[0]));
  }
  walk.write(topSlot(machine, n));
  popSlots(machine, static_cast<uint32_t>(n));
  popValue(machine);
}

void storeByOperands(Machine& machine, ValueSlot& slot, const VarInfo& info) {
  const uint32_t n = fetchU16(machine);
  PartWalk walk(machine, slot, info);
  for (uint32_t k = 0; k < n; ++k) walk.step(fetchI16(machine));
  walk.write(topSlot(machine));
  popValue(machine);
}

using Store = void (*)(Machine&, ValueSlot&, const VarInfo&);

void storeToLocal(Machine& machine, Store store) {
  const uint32_t number = fetchU16(machine);
  const CallFrame& frame = currentFrame(machine);
  if (number >= frame.function->localCount) return stopRun(machine, VM_ERR_INVALID_SHADER);
  store(machine, frame.locals[number], frame.function->locals[number]);
}

void storeToGlobal(Machine& machine, Store store) {
  const uint32_t number = fetchU16(machine);
  if (number >= machine.shader->globalCount) return stopRun(machine, VM_ERR_INVALID_SHADER);
  store(machine, machine.stack[number], machine.shader->globals[number]);
}

}  // namespace

void storeLocalElem(Machine& machine) { storeToLocal(machine, storeByStack); }
void storeLocalElemImm(Machine& machine) { storeToLocal(machine, storeByOperands); }
void storeGlobalElem(Machine& machine) { storeToGlobal(machine, storeByStack); }
void storeGlobalElemImm(Machine& machine) { storeToGlobal(machine, storeByOperands); }

}  // namespace shadermachine
