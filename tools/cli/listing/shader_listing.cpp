#include "cli/listing/shader_listing.h"

#include <memory>
#include <sstream>
#include <vector>

#include "cli/listing/form_text.h"
#include "engine/improve.h"
#include "engine/selector.h"
#include "form/builder.h"
#include "render/fragment_host.h"

namespace shadermachine::tools {
namespace {

constexpr size_t kMostBytes = size_t{256} << 20;

std::string addressText(const Machine& machine, const uint32_t* address) {
  const auto at = reinterpret_cast<uintptr_t>(address);
  const auto stack = reinterpret_cast<uintptr_t>(machine.stack);
  const auto indices = reinterpret_cast<uintptr_t>(machine.indexStack);
  if (at - stack < static_cast<size_t>(machine.stackCapacity) * sizeof(ValueSlot)) {
    const size_t slot = (at - stack) / sizeof(ValueSlot);
    const auto word = address - machine.stack[slot].value.words;
    return "s" + std::to_string(slot) + (word == 0 ? "" : "." + std::to_string(word));
  }
  if (at - indices < sizeof machine.indexStack) {
    return "i" + std::to_string(address - machine.indexStack);
  }
  return "memory";
}

// The handlers' meaning of c and d is their own; addresses say enough.
std::string recordsText(const Machine& machine, const form::Form& form,
                        const engine::Selector& selector, const engine::Record* records) {
  std::ostringstream out;
  for (uint32_t i = 0; i < selector.recordCount(); ++i) {
    const engine::Record& record = records[i];
    const uint32_t origin = selector.operationOf(i);
    const form::Operation& operation = form.operations[origin];
    out << "r" << i << "  ";
    if (operation.words > 0) out << "%" << origin << " = ";
    out << operationText(form, operation);
    const char* separator = "  |";
    const std::pair<const char*, const uint32_t*> operands[] = {
        {"a", record.a}, {"b", record.b}, {"c", record.c}, {"d", record.d}};
    for (const auto& [name, address] : operands) {
      if (address == nullptr || operation.site != nullptr) continue;
      out << separator << " " << name << "=" << addressText(machine, address);
      separator = "";
    }
    out << "\n";
  }
  return out.str();
}

std::string plainFunctions(const CompiledShader& shader, const form::Decoder& decoder) {
  std::string text;
  for (uint32_t f = 0; f < shader.functionCount; ++f) {
    if (!decoder.consulted(f) || decoder.function(f) != nullptr) continue;
    text += "function " + std::to_string(f) + " is left to the plain handlers\n";
  }
  return text;
}

}  // namespace

std::string shaderListing(const ShaderView& view, Stage stage) {
  const HostCallbacks callbacks = FragmentHost::callbacks();
  const MachineCreateInfo info = {&callbacks};
  const MachineHandle handle(vmShaderMachineCreate(&info));
  if (!handle) throw std::bad_alloc();
  auto& machine = static_cast<Machine&>(*handle);
  machine.shader = view.shader;
  form::Arena working(kMostBytes), memory(kMostBytes);
  form::Decoder decoder(working, machine);
  form::Form form(memory);
  const auto builder = std::make_unique<form::Builder>(form, decoder, working, machine);
  const form::BuildResult result = builder->build(view.shader->entryIndex);
  std::string text = plainFunctions(*view.shader, decoder);
  machine.shader = nullptr;
  if (result != form::BuildResult::Built) {
    return text + "the shader is left to the plain handlers\n";
  }
  if (stage == Stage::BuiltForm) return text + formText(form);
  engine::improve(form, machine);
  if (stage == Stage::Form) return text + formText(form);
  engine::Selector selector(form, memory, machine);
  const engine::Record* records = selector.select();
  if (records == nullptr) throw std::bad_alloc();
  return text + recordsText(machine, form, selector, records);
}

}  // namespace shadermachine::tools
