#include <exception>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "c_interface.h"

using namespace shadermachine::tools;

struct VmToolsBuilder {
  ShaderBuilder shader;
  std::vector<FunctionBuilder*> functions;
  std::vector<uint32_t> labelCounts;  // of each function
  std::string error;                  // the first one
};

namespace {

// What `work` returns, or -1 when it throws, which is noted.
template <class Work>
int32_t guarded(VmToolsBuilder* builder, const char* where, const Work& work) {
  try {
    return static_cast<int32_t>(work());
  } catch (const std::bad_alloc&) {
    if (builder->error.empty()) builder->error = kOutOfMemory;
  } catch (const std::exception& error) {
    if (builder->error.empty()) builder->error = std::string("error: ") + where + error.what();
  }
  return -1;
}

FunctionBuilder& functionOf(VmToolsBuilder* builder, int32_t function) {
  const auto index = static_cast<size_t>(function);
  if (index >= builder->functions.size() || builder->functions[index] == nullptr) {
    throw std::out_of_range("no such function");
  }
  return *builder->functions[index];
}

Label labelOf(const VmToolsBuilder* builder, int32_t function, int32_t label) {
  const auto index = static_cast<uint32_t>(label);
  if (index >= builder->labelCounts[static_cast<size_t>(function)]) {
    throw std::out_of_range("no such label");
  }
  return {index};
}

Variable toVariable(const VmToolsVariable& variable) {
  return {variable.name != nullptr ? variable.name : "", variable.type, variable.count,
          variable.flags};
}

}  // namespace

VmToolsBuilder* vmToolsCreateBuilder(void) {
  try {
    return new VmToolsBuilder;
  } catch (const std::exception&) {
    return nullptr;
  }
}

int32_t vmToolsAddStruct(VmToolsBuilder* builder, const char* name, const VmToolsVariable* members,
                         size_t memberCount) {
  return guarded(builder, "vmToolsAddStruct: ", [&] {
    std::vector<Variable> variables;
    for (const VmToolsVariable& member : std::span(members, memberCount)) {
      variables.push_back(toVariable(member));
    }
    return builder->shader.addStruct(name, variables);
  });
}

int32_t vmToolsAddGlobal(VmToolsBuilder* builder, const VmToolsVariable* variable) {
  return guarded(builder, "vmToolsAddGlobal: ", [&] {
    return builder->shader.addGlobal(toVariable(*variable)).index;
  });
}

int32_t vmToolsAddFunction(VmToolsBuilder* builder, const char* name) {
  return guarded(builder, "vmToolsAddFunction: ", [&] {
    builder->labelCounts.push_back(0);
    builder->functions.push_back(nullptr);
    builder->functions.back() = &builder->shader.addFunction(name);
    return builder->functions.size() - 1;
  });
}

int32_t vmToolsAddParam(VmToolsBuilder* builder, int32_t function,
                        const VmToolsVariable* variable) {
  return guarded(builder, "vmToolsAddParam: ", [&] {
    return functionOf(builder, function).addParam(toVariable(*variable)).index;
  });
}

int32_t vmToolsAddLocal(VmToolsBuilder* builder, int32_t function,
                        const VmToolsVariable* variable) {
  return guarded(builder, "vmToolsAddLocal: ", [&] {
    return functionOf(builder, function).addLocal(toVariable(*variable)).index;
  });
}

int32_t vmToolsAddLabel(VmToolsBuilder* builder, int32_t function) {
  return guarded(builder, "vmToolsAddLabel: ", [&] {
    const Label label = functionOf(builder, function).newLabel();
    builder->labelCounts[static_cast<size_t>(function)] = label.index + 1;
    return label.index;
  });
}

void vmToolsBindLabel(VmToolsBuilder* builder, int32_t function, int32_t label) {
  guarded(builder, "vmToolsBindLabel: ", [&] {
    functionOf(builder, function).bind(labelOf(builder, function, label));
    return 0;
  });
}

void vmToolsEmit(VmToolsBuilder* builder, int32_t function, uint8_t opcode, const int64_t* operands,
                 size_t operandCount) {
  guarded(builder, "vmToolsEmit: ", [&] {
    functionOf(builder, function)
        .emit(static_cast<VmOpcode>(opcode), std::span(operands, operandCount));
    return 0;
  });
}

void vmToolsEmitJump(VmToolsBuilder* builder, int32_t function, uint8_t opcode, int32_t label) {
  guarded(builder, "vmToolsEmitJump: ", [&] {
    functionOf(builder, function)
        .emitJump(static_cast<VmOpcode>(opcode), labelOf(builder, function, label));
    return 0;
  });
}

void vmToolsPushFloat(VmToolsBuilder* builder, int32_t function, float value) {
  guarded(builder, "vmToolsPushFloat: ", [&] {
    functionOf(builder, function).pushFloat(value);
    return 0;
  });
}

CompiledShader* vmToolsBuilderRecord(VmToolsBuilder* builder) { return &builder->shader.record(); }

VmToolsShader* vmToolsBuild(VmToolsBuilder* builder, VmToolsMessageCallback callback,
                            void* userData) {
  if (builder == nullptr) return nullptr;
  VmToolsShader* result = nullptr;
  if (builder->error.empty()) {
    guarded(builder, "vmToolsBuild: ", [&] {
      result = new VmToolsShader{std::move(builder->shader).build(), {}};
      return 0;
    });
  }
  if (!builder->error.empty()) report(callback, userData, builder->error);
  delete builder;
  return result;
}
