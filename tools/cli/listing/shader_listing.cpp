#include "cli/listing/shader_listing.h"

#include <memory>
#include <sstream>
#include <vector>

#include "cli/listing/form_text.h"
#include "engine/improve.h"
#include "engine/selector.h"
#include "form/builder.h"
#include "render/fragment_host.h"
#ifdef SHADERMACHINE_HAVE_BATCH
#include "batch/row_selector.h"
#endif

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

#ifdef SHADERMACHINE_HAVE_BATCH

// Of all rows: words of variables and temporaries by their names, others by their numbers.
std::vector<std::string> rowNames(const batch::RowSelector& selector) {
  std::vector<std::string> names(selector.rowCount());
  selector.forEachPlaceRow([&names](uint32_t row, form::Place place, uint32_t word) {
    if (!names[row].empty()) return;
    names[row] = "s" + std::to_string(place) + (word == 0 ? "" : "." + std::to_string(word));
  });
  for (size_t row = 0; row < names.size(); ++row) {
    if (names[row].empty()) names[row] = "r" + std::to_string(row);
  }
  return names;
}

std::string batchText(const form::Form& form, form::Decoder& decoder, Machine& machine) {
  const batch::RowFunctions& functions = batch::bestRowFunctions();
  batch::RowProgram program(kMostBytes);
  batch::RowSelector selector(form, decoder, machine, functions, program);
  if (!selector.select()) throw std::bad_alloc();
  if (program.first == nullptr) {
    const uint32_t i = selector.firstUnknown();
    const std::string why = i < form.operations.size() ? operationText(form, form.operations[i])
                                                       : "the program would be too large";
    return "invocations run one by one: " + why + "\n";
  }
  const std::vector<std::string> names = rowNames(selector);
  const auto rowText = [&](const uint32_t* row) {
    return names[static_cast<size_t>(row - program.rows) / batch::kRowWords];
  };
  std::ostringstream out;
  for (uint32_t i = 0; i < program.recordCount; ++i) {
    const batch::RowRecord& record = program.first[i];
    out << "r" << i << "  ";
    if (record.run == functions.join) {
      out << "join " << record.join << "\n";
      continue;
    }
    const uint32_t origin = selector.operationOf(i);
    const bool copies = record.run == functions.copy.masked;
    const bool leads = selector.leads(record);
    const form::Operation& operation = form.operations[origin];
    if (record.run == functions.clock && operation.kind != form::Kind::Clock) {
      out << "clock\n";
      continue;
    }
    if (operation.words > 0 && !copies) out << "%" << origin << " = ";
    out << (copies ? "copy" : operationText(form, operation));
    if (leads) out << " -> join " << record.target->join;
    const uint32_t results = copies ? record.n : leads ? 0 : operation.words;
    for (uint32_t w = 0; record.result != nullptr && w < results; ++w) {
      out << (w == 0 ? "  | " : ", ") << rowText(record.result[w]);
      if (copies) out << "=" << rowText(record.in[0][w]);
    }
    out << "\n";
  }
  return out.str();
}

#endif

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
  if (stage == Stage::Batch) {
    form.isHidden = true;
    form.outputs[0] = view.shader->outputGlobal0;
    form.outputs[1] = view.shader->outputGlobal1;
  }
  const form::BuildResult result = form::buildForm(form, decoder, working, machine);
  std::string text = plainFunctions(*view.shader, decoder);
  if (result != form::BuildResult::Built) {
    return text + "the shader is left to the plain handlers\n";
  }
  if (stage == Stage::BuiltForm) return text + formText(form);
  engine::improve(form, machine);
  if (stage == Stage::Form) return text + formText(form);
#ifdef SHADERMACHINE_HAVE_BATCH
  if (stage == Stage::Batch) return text + batchText(form, decoder, machine);
#endif
  engine::Selector selector(form, memory, machine);
  const engine::Record* records = selector.select();
  if (records == nullptr) throw std::bad_alloc();
  return text + recordsText(machine, form, selector, records);
}

}  // namespace shadermachine::tools
