// Stores into a part of a variable, at the end of an access path.

#include "instructions/access_path.h"
#include "instructions/handlers.h"

namespace shadermachine {
namespace {

constexpr bool isScalarOrVectorType(TypeCode type) {
  return type >= VM_TYPE_BOOL && type <= VM_TYPE_BVEC4;
}

// Walks an access path. Every step narrows the target to a part that lies inside the part before;
// a step that would leave it drops the store.
class PartWalk {
 public:
  PartWalk(Machine& machine, ValueSlot& slot, const VarInfo& info)
      : machine_(machine), part_{info.type, info.count} {
    const bool basic = isBasicVar(info);
    target_ = basic ? reinterpret_cast<uint8_t*>(slot.value.words) : slot.view.data;
    limit_ = basic ? sizeof slot.value.words : slot.view.size;
    dropped_ = target_ == nullptr;
  }

  void step(int32_t index) {
    if (dropped_) return;
    if (index < 0) {
      pattern_ = SwizzlePattern(index);
    } else if (hasParts(part_)) {
      stepInto(static_cast<uint32_t>(index));
    }
  }

  void write(const ValueSlot& value) const {
    if (dropped_) return;
    const bool aggregate = part_.type >= 0 || part_.count > 0;
    if (aggregate) {
      if (value.view.data != nullptr && value.view.size >= size_) copy(value.view.data);
    } else if (!pattern_.isPending()) {
      if (size_ <= sizeof value.value.words) copy(value.value.words);
    } else if (isScalarOrVectorType(part_.type)) {
      writeSelected(value.value.words);
    }
  }

 private:
  // Narrows the target to the part; one that does not lie inside the part before drops the store.
  void stepInto(uint32_t index) {
    const bool ofVector = part_.count == 0 && isVectorType(part_.type);
    if (ofVector && pattern_.isPending()) {
      dropped_ = index >= kMaxSelectors;
      // Masked, since the store may have been dropped by the line before.
      index = pattern_.selector(index & (kMaxSelectors - 1));
      pattern_ = SwizzlePattern();
    }
    const auto structOf = [this](int32_t type) { return structType(machine_, type); };
    PathStep step;
    if (dropped_ || !pickPart(structOf, part_, index, step) || step.offset + step.size > limit_) {
      dropped_ = true;
      return;
    }
    target_ += step.offset;
    limit_ = size_ = step.size;
    part_ = step.part;
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
    const uint32_t size = typeByteSize(part_.type);
    if (!pattern_.staysBefore(size < limit_ ? size : limit_)) return;
    for (uint32_t i = 0; i < count; ++i) {
      std::memcpy(target_ + pattern_.selector(i) * sizeof(uint32_t), &components[i],
                  sizeof(uint32_t));
    }
  }

  Machine& machine_;
  uint8_t* target_;
  uint32_t limit_;  // bytes from target_ that belong to the part
  PartType part_;
  uint32_t size_ = 0;  // bytes a whole-part store copies; 0 until the first step
  SwizzlePattern pattern_;
  bool dropped_ = false;
};

void popValue(Machine& machine) {
  // Only the slot tells whether its value is a view: a store is not told the type of what it takes.
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
  // Written before anything is popped: the value may be a view of the variable's own block.
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
