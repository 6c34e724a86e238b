// Record selection: variables that the host fills, and stores of aggregates.

#include "engine/flow.h"
#include "engine/translator.h"
#include "instructions/builtin_variables.h"

namespace shadermachine::engine {

bool Translator::loadHostVariable(uint32_t number, const Instruction& item) {
  const VarInfo& info = shader_.globals[number];
  const uint32_t n = variableWords(info);
  const bool basic = isBasicVar(info);
  if (basic && (n == 0 || info.byteSize % 4 != 0 || info.byteSize > 64)) return false;
  out_.flush();
  out_.forgetRegisters();
  const int32_t s = out_.top + 1;
  Record record = {};
  record.x = number;
  record.site = out_.site(item.end, 0, s);
  if (!basic) {
    record.d = out_.home(s);
    record.run = &hostAggregateStep;
    out_.emit(record);
    return loadVariable(static_cast<int32_t>(number), info);
  }
  record.a = out_.home(s);
  out_.produceWords(record, hostVariableSteps(n), n, s);
  return true;
}

bool Translator::selectBuiltin(Instance& instance, Instruction& item) {
  const BuiltinVariable variable =
      builtinVariable(operandU16(instance.function->code, item.pc + 1));
  const int32_t s = out_.top + 1;
  switch (variable.family) {
    case BuiltinFamily::RunWord: {
      out_.pushHome(1);
      const auto* fields = reinterpret_cast<const uint8_t*>(static_cast<ShaderMachine*>(&machine_));
      out_.topEntry().address = reinterpret_cast<const uint32_t*>(fields + variable.recordOffset);
      return true;
    }
    case BuiltinFamily::HostValue:
    case BuiltinFamily::IndexedValue: {
      out_.flush();
      out_.forgetRegisters();
      Record record = {};
      record.run = &hostBuiltinStep;
      record.d = out_.home(s);
      record.x = variable.callbackSlot;
      record.y = variable.indexed ? 1 : 0;
      record.site = out_.site(item.end, 0, s);
      out_.emit(record);
      out_.pushHome(VM_COMPONENT_COUNT);
      out_.holdVector(out_.topEntry(), 4);
      return true;
    }
    default:
      return false;
  }
}

// The top entry into an aggregate variable.
bool Translator::storeAggregate(int32_t s, const Instruction& item) {
  if (!out_.topEntry().block && !out_.topEntry().lazyView) return false;
  out_.evict(s, out_.top);
  const Entry value = out_.topEntry();
  const bool whole =
      value.lazyView && value.viewSize == 0 && value.viewSlot != static_cast<uint32_t>(s);
  if (!whole) out_.flushSlot(out_.top);
  out_.forgetRegisters();
  Record record = {};
  record.run = whole ? &copyBlockStep : &storeBlockStep;
  record.a = out_.home(whole ? static_cast<int32_t>(value.viewSlot) : out_.top);
  record.d = out_.home(s);
  record.site = out_.site(item.end, 0, out_.top - 1);
  out_.emit(record);
  out_.pop();
  return true;
}

}  // namespace shadermachine::engine
