#include "support/rig.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "machine/machine.h"

namespace shadermachine::tests {
namespace {

Rig& rigOf(uint64_t userData) { return *reinterpret_cast<Rig*>(userData); }

uint64_t widened(int32_t value) { return static_cast<uint64_t>(int64_t{value}); }

template <unsigned slot>
void onBuiltin(void* data, uint32_t count, int32_t index, uint64_t userData) {
  rigOf(userData).record(slot, data, {address(data), count, widened(index), userData});
}

void onOutput0(const void* inlineArea, uint64_t userData) {
  rigOf(userData).record(kOutput0, nullptr, {address(inlineArea), userData});
}

void onOutput1(float component0, uint64_t userData) {
  rigOf(userData).record(kOutput1, nullptr, {bits(component0), userData});
}

template <unsigned slot>
void onLookup(const LookupRequest* r) {
  rigOf(r->userData)
      .record(slot, r->result,
              {address(r->result), r->sampler, address(r->coords), r->kind, r->param, r->extra,
               r->hasExtra, r->userData});
}

void onHostVariable(const HostVariableRequest* r) {
  rigOf(r->userData)
      .record(kHostVariable, r->data,
              {address(r->data), address(r->varInfo), r->index, r->count, widened(r->element),
               r->userData});
}

uint32_t onOverrideA(const HostOverrideRequestA* r) {
  Rig& rig = rigOf(r->userData);
  rig.record(kOverrideA, r->value, {r->word, address(r->value), address(r->record), r->userData});
  return rig.overrideResult;
}

void onHostFunction(const HostFunctionRequest* r) {
  rigOf(r->userData)
      .record(kHostFunction, r->a,
              {address(r->a), address(r->b), widened(r->function), address(r->args), r->userData});
}

void onOverrideB(void* output, const HostOverrideRequestB* r) {
  rigOf(r->userData).record(kOverrideB, output, {address(r->record), r->mode, r->userData});
}

void onCall267(const HostCallRequest267* r) {
  rigOf(r->userData)
      .record(kCall267, r->a,
              {address(r->a), address(r->b), r->word, address(r->block), r->userData});
}

template <unsigned slot>
void onCall293(const HostCallRequest293* r) {
  rigOf(r->userData).record(slot, r->a, {address(r->a), address(r->b), r->userData});
}

template <unsigned slot>
void onCall294(const HostCallRequest294* r) {
  rigOf(r->userData)
      .record(slot, r->a, {address(r->a), address(r->b), r->word1, r->word0, r->userData});
}

void onCall297(const HostCallRequest297* r) {
  rigOf(r->userData)
      .record(kCall297, r->a,
              {address(r->a), address(r->b), r->word2, r->word1, r->word0, r->userData});
}

template <size_t... slot>
void fillWithBuiltins(HostCallbacks& callbacks, std::index_sequence<slot...>) {
  const VmBuiltinCallback functions[] = {&onBuiltin<slot>...};
  static_assert(sizeof functions == sizeof callbacks);
  std::memcpy(static_cast<void*>(&callbacks), functions, sizeof callbacks);
}

HostCallbacks recordingCallbacks() {
  HostCallbacks callbacks;
  fillWithBuiltins(callbacks, std::make_index_sequence<kHostSlotCount>());
  callbacks.output0 = &onOutput0;
  callbacks.output1 = &onOutput1;
  callbacks.lookup[0] = &onLookup<kLookup1>;
  callbacks.lookup[1] = &onLookup<kLookup2>;
  callbacks.hostVariable = &onHostVariable;
  callbacks.overrideA = &onOverrideA;
  callbacks.hostFunction = &onHostFunction;
  callbacks.call267 = &onCall267;
  callbacks.overrideB = &onOverrideB;
  callbacks.call293 = &onCall293<kCall293>;
  callbacks.call294to296[0] = &onCall294<kCall294>;
  callbacks.call294to296[1] = &onCall294<kCall294 + 1>;
  callbacks.call294to296[2] = &onCall294<kCall294 + 2>;
  callbacks.call297 = &onCall297;
  callbacks.call298 = &onCall293<kCall298>;
  return callbacks;
}

void writeInput(const Words& input, size_t number, void* target) {
  uint32_t words[VM_COMPONENT_COUNT];
  for (size_t i = 0; i < VM_COMPONENT_COUNT; ++i) {
    words[i] = i < input.size() ? input[i] : fillerWord(number, i);
  }
  std::memcpy(target, words, sizeof words);
}

}  // namespace

MachinePtr makeMachine(const HostCallbacks* callbacks) {
  const MachineCreateInfo info = {callbacks};
  MachinePtr machine(vmShaderMachineCreate(&info));
  const bool plain = std::getenv("SHADERMACHINE_TEST_PLAIN") != nullptr;
  const EngineUse use = plain ? EngineUse::Never : EngineUse::AtOnce;
  if (machine) static_cast<Machine&>(*machine).engineUse = use;
  return machine;
}

Rig::Rig(std::initializer_list<unsigned> nullSlots) : callbacks(recordingCallbacks()) {
  for (unsigned slot : nullSlots) {
    std::memset(reinterpret_cast<char*>(&callbacks) + size_t{8} * slot, 0, 8);
  }
  machine = makeMachine(&callbacks);
  startup.userData = address(this);
}

VmError Rig::run(const CompiledShader* shader) {
  calls.clear();
  return vmShaderMachineExecuteShader(machine.get(), shader, &startup);
}

const HostCall& Rig::only(unsigned slot) const {
  if (count(slot) != 1) {
    throw std::runtime_error("slot " + std::to_string(slot) + " was called " +
                             std::to_string(count(slot)) + " times");
  }
  return *std::ranges::find(calls, slot, &HostCall::slot);
}

size_t Rig::count(unsigned slot) const {
  return static_cast<size_t>(std::ranges::count(calls, slot, &HostCall::slot));
}

void Rig::record(unsigned slot, void* target, std::vector<uint64_t> fields) {
  const CallFrame& frame = machine->frames[machine->frameIndex];
  HostCall call = {slot,
                   std::move(fields),
                   machine->frameIndex,
                   frame.top,
                   machine->indexTop,
                   frame.pc,
                   {machine->stack, frame.locals + frame.top + 1}};
  if (slot == kHostVariable) {
    const size_t global = call.fields[2];
    if (global < inputs.size()) writeInput(inputs[global], global, target);
  }
  if (reply) reply(call, target);
  calls.push_back(std::move(call));
}

void probe(FunctionBuilder& code) { code.emit(VM_OP_HOST_UNARY_1, {0}); }

GlobalId addInput(ShaderBuilder& shader) {
  return shader.addGlobal(
      {.name = "input", .type = VM_TYPE_MAT4, .count = 0, .flags = VM_VAR_HOST_0});
}

BuiltShader buildShader(const Body& body) {
  ShaderBuilder shader;
  body(shader, shader.addFunction("main"));
  return std::move(shader).build();
}

}  // namespace shadermachine::tests
