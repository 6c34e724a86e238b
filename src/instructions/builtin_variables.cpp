#include "instructions/builtin_variables.h"

#include "instructions/handlers.h"

namespace shadermachine {
namespace {

using enum BuiltinFamily;

// Ids first to first + count - 1, served by as many consecutive slots and record fields.
struct IdRange {
  uint16_t first;
  uint8_t count;
  BuiltinFamily family;
  bool indexed;
  uint8_t slot;
  uint16_t offset;
};

constexpr uint16_t runWord(size_t offset) { return static_cast<uint16_t>(offset); }
constexpr uint16_t numbered(uint32_t entry) {
  return static_cast<uint16_t>(offsetof(CompiledShader, builtinGlobals) + entry * sizeof(int32_t));
}
constexpr uint16_t shaderField(size_t offset) { return static_cast<uint16_t>(offset); }

constexpr IdRange kRanges[] = {
    {258, 1, RunWord, false, 0, runWord(offsetof(ShaderMachine, builtin258))},
    {281, 2, RunWord, false, 0, runWord(offsetof(ShaderMachine, builtin281))},
    {285, 1, RunWord, false, 0, runWord(offsetof(ShaderMachine, builtin285))},
    {259, 4, HostValue, false, 57, 0},
    {263, 4, HostValue, false, 62, 0},
    {279, 1, HostValue, false, 61, 0},
    {280, 1, HostValue, false, 66, 0},
    {283, 2, HostValue, false, 67, 0},
    {301, 2, HostValue, false, 70, 0},
    {412, 2, HostValue, false, 43, 0},
    {417, 1, HostValue, false, 2, 0},
    {382, 14, IndexedValue, true, 4, 0},
    {415, 1, IndexedValue, true, 46, 0},
    {416, 1, IndexedValue, true, 3, 0},
    {300, 1, GlobalElement, false, 69, shaderField(offsetof(CompiledShader, builtinGlobal300))},
    {397, 1, GlobalElement, true, 18, numbered(0)},
    {399, 1, GlobalElement, true, 19, numbered(1)},
    {401, 2, GlobalElement, true, 20, numbered(2)},
    {405, 1, GlobalElement, true, 22, numbered(4)},
    {407, 2, GlobalElement, true, 23, numbered(5)},
    {411, 1, GlobalElement, true, 25, numbered(7)},
    {303, 2, GlobalArray, true, 72, shaderField(offsetof(CompiledShader, builtinGlobal303))},
    {432, 4, GlobalArray, true, 26, numbered(12)},
    {436, 4, GlobalArray, true, 30, numbered(8)},
    {440, 9, GlobalArray, true, 34, numbered(16)},
    {450, 1, GlobalArray, true, 45, numbered(25)},
};

constexpr auto makeTable() {
  std::array<BuiltinVariable, kLastBuiltinVariable - kFirstBuiltinVariable + 1> table = {};
  for (const IdRange& range : kRanges) {
    for (uint32_t i = 0; i < range.count; ++i) {
      table[range.first + i - kFirstBuiltinVariable] = {
          range.family, range.indexed, static_cast<uint8_t>(range.slot + i),
          static_cast<uint16_t>(range.offset + i * sizeof(int32_t))};
    }
  }
  return table;
}

uint32_t wordAt(const void* record, uint32_t offset) {
  uint32_t word;
  std::memcpy(&word, static_cast<const uint8_t*>(record) + offset, sizeof word);
  return word;
}

VmBuiltinCallback callbackAt(const Machine& machine, uint32_t slot) {
  VmBuiltinCallback callback;
  static_assert(sizeof callback == 8);
  std::memcpy(&callback, reinterpret_cast<const uint8_t*>(&machine.callbacks) + 8 * slot, 8);
  return callback;
}

// Asks the host to fill `data`; a null callback leaves it as it is.
void askHost(Machine& machine, const BuiltinVariable& variable, void* data, uint32_t count) {
  const VmBuiltinCallback callback = callbackAt(machine, variable.callbackSlot);
  if (callback == nullptr) return;
  callback(data, count, variable.indexed ? currentIndex(machine) : -1, machine.userData);
}

VmError readFromGlobal(Machine& machine, const BuiltinVariable& variable) {
  const uint32_t global = wordAt(machine.shader, variable.recordOffset);
  if (global >= machine.shader->globalCount) return VM_ERR_NO_BUILTIN_VARIABLE;
  BlockView& view = topSlot(machine).view;
  blockShare(&view, &machine.stack[global].view);
  const bool wholeArray = variable.family == GlobalArray;
  askHost(machine, variable, view.data, wholeArray ? machine.shader->globals[global].count : 1);
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

constexpr std::array<BuiltinVariable, kLastBuiltinVariable - kFirstBuiltinVariable + 1>
    kBuiltinVariables = makeTable();

void loadBuiltin(Machine& machine) {
  if (pushSlot(machine) == nullptr) return;
  const VmError error = readBuiltinVariable(machine, fetchU16(machine));
  if (error != VM_OK) stopRun(machine, error);
}

}  // namespace shadermachine
