#include "support/rig.h"

#include <algorithm>
#include <concepts>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "machine/machine.h"

namespace shadermachine::tests {
namespace {

uint64_t widened(int32_t value) { return static_cast<uint64_t>(int64_t{value}); }

// What the host may write, and the fields but for the user data, which every request ends with.
struct RequestParts {
  void* target;
  std::vector<uint64_t> fields;
};

RequestParts parts(const tools::Output0Request& r) { return {nullptr, {address(r.words)}}; }
RequestParts parts(const tools::Output1Request& r) { return {nullptr, {bits(r.value)}}; }
RequestParts parts(const tools::BuiltinRequest& r) {
  return {r.data, {address(r.data), r.count, widened(r.index)}};
}
RequestParts parts(const LookupRequest& r) {
  return {r.result,
          {address(r.result), r.sampler, address(r.coords), r.kind, r.param, r.extra, r.hasExtra}};
}
RequestParts parts(const HostVariableRequest& r) {
  return {r.data, {address(r.data), address(r.varInfo), r.index, r.count, widened(r.element)}};
}
RequestParts parts(const HostOverrideRequestA& r) {
  return {r.value, {r.word, address(r.value), address(r.record)}};
}
RequestParts parts(const HostFunctionRequest& r) {
  return {r.a, {address(r.a), address(r.b), widened(r.function), address(r.args)}};
}
RequestParts parts(const tools::OverrideBRequest& r) {
  return {r.output, {address(r.record->record), r.record->mode}};
}
RequestParts parts(const HostCallRequest267& r) {
  return {r.a, {address(r.a), address(r.b), r.word, address(r.block)}};
}
RequestParts parts(const HostCallRequest293& r) { return {r.a, {address(r.a), address(r.b)}}; }
RequestParts parts(const HostCallRequest294& r) {
  return {r.a, {address(r.a), address(r.b), r.word1, r.word0}};
}
RequestParts parts(const HostCallRequest297& r) {
  return {r.a, {address(r.a), address(r.b), r.word2, r.word1, r.word0}};
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

template <class Request>
auto Rig::answer(unsigned slot, const Request& request) {
  auto [target, fields] = parts(request);
  fields.push_back(request.userData);
  record(slot, target, std::move(fields));
  if constexpr (std::same_as<Request, HostOverrideRequestA>) return overrideResult;
}

Rig::Rig(std::initializer_list<unsigned> nullSlots) : callbacks(tools::hostCallbacks<Rig>()) {
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
