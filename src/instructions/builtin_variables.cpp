#include "instructions/builtin_variables.h"

#include "instructions/handlers.h"
#include "machine/types.h"

namespace shadermachine {
namespace {

using enum BuiltinFamily;

uint32_t wordAt(const void* record, uint32_t offset) {
  uint32_t word;
  std::memcpy(&word, static_cast<const uint8_t*>(record) + offset, sizeof word);
  return word;
}

// Asks the host to fill `data`; a null callback leaves it as it is.
void askHost(Machine& machine, const BuiltinVariable& variable, void* data, uint32_t count) {
  const VmBuiltinCallback callback = builtinCallback(machine, variable.callbackSlot);
  if (callback == nullptr) return;
  chargeHostCall(machine);
  callback(data, count, variable.indexed ? currentIndex(machine) : -1, machine.userData);
}

VmError readFromGlobal(Machine& machine, const BuiltinVariable& variable) {
  const uint32_t global = wordAt(machine.shader, variable.recordOffset);
  if (global >= machine.shader->globalCount) return VM_ERR_NO_BUILTIN_VARIABLE;
  BlockView& view = topSlot(machine).view;
  blockShare(&view, &machine.stack[global].view);
  const VarInfo& info = machine.shader->globals[global];
  const uint32_t count = variable.family == GlobalArray ? info.count : 1;
  // The host writes so many elements, of at least the global's own type.
  if (view.data != nullptr && uint64_t{count} * typeByteSize(info.type) > view.size) {
    return VM_ERR_INVALID_SHADER;
  }
  askHost(machine, variable, view.data, count);
  return VM_OK;
}

// Fills the top slot.
VmError readBuiltinVariable(Machine& machine, uint32_t id) {
  const BuiltinVariable variable = builtinVariable(id);
  uint32_t* words = topSlot(machine).value.words;
  switch (variable.family) {
    case None:
      return VM_ERR_NO_BUILTIN_VARIABLE;
    case RunWord:
      words[0] = wordAt(static_cast<const ShaderMachine*>(&machine), variable.recordOffset);
      return VM_OK;
    case HostValue:
    case IndexedValue:
      askHost(machine, variable, words, 1);
      return VM_OK;
    case GlobalElement:
    case GlobalArray:
      return readFromGlobal(machine, variable);
  }
  return VM_ERR_NO_BUILTIN_VARIABLE;
}

}  // namespace

void loadBuiltin(Machine& machine) {
  if (pushSlot(machine) == nullptr) return;
  const VmError error = readBuiltinVariable(machine, fetchU16(machine));
  if (error != VM_OK) stopRun(machine, error);
}

}  // namespace shadermachine
