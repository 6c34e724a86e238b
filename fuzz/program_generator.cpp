#include "fuzz/program_generator.h"

#include <utility>

#include "fuzz/generator.h"
#include "instructions/builtin_variables.h"

namespace shadermachine::fuzz {
namespace {

void flipBytes(Choices& choices, const tools::BuiltShader& shader) {
  const tools::ShaderView view = shader.view();
  if (view.codeSize == 0) return;
  // The finished shader owns its code as plain writable bytes.
  auto* code = const_cast<uint8_t*>(view.shader->code);
  for (uint32_t flips = choices.below(4); flips > 0; --flips) {
    code[choices.below(view.codeSize)] = choices.value<uint8_t>();
  }
}

// Small wrong numbers, which lead further than wild ones.
void spoilTables(Choices& choices, ShaderBuilder& shader) {
  VarInfo& info = shader.info(GlobalId{0});
  switch (choices.below(8)) {
    case 1:
      info.byteSize = choices.below(80);
      break;
    case 2:
      info.count = choices.below(6);
      break;
    case 3:
      info.type = static_cast<TypeCode>(choices.below(40)) - 20;
      break;
    case 4:
      shader.record().outputGlobal0 = static_cast<int32_t>(choices.below(12)) - 2;
      break;
    case 5:
      shader.record().entryIndex = static_cast<uint16_t>(choices.below(5));
      break;
    case 6:
      shader.function(FunctionId{0}).setParamCount(static_cast<uint16_t>(choices.below(6)));
      break;
    case 7:
      shader.function(FunctionId{0}).setCodeRange(choices.below(40), choices.below(100));
      break;
    default:
      break;
  }
}

}  // namespace

Generator::Generator(Choices& choices, const ProgramOptions& options)
    : choices_(choices), options_(options) {}

Type Generator::anyAggregate() {
  if (choices_.oneIn(3)) {
    const auto code = static_cast<TypeCode>(choices_.between(0, 22) - 100);
    return {code, choices_.between(1, 4)};
  }
  const auto code = static_cast<TypeCode>(choices_.below(static_cast<uint32_t>(structs_.size())));
  return {code, choices_.oneIn(3) ? choices_.between(1, 3) : 0};
}

Type Generator::anyType(bool allowAggregates) {
  if (allowAggregates && options_.hasAggregates && choices_.oneIn(3)) return anyAggregate();
  constexpr TypeCode kCommon[] = {VM_TYPE_FLOAT, VM_TYPE_VEC2, VM_TYPE_VEC3,  VM_TYPE_VEC4,
                                  VM_TYPE_INT,   VM_TYPE_BOOL, VM_TYPE_IVEC3, VM_TYPE_MAT2,
                                  VM_TYPE_MAT3,  VM_TYPE_MAT4, VM_TYPE_BVEC2, VM_TYPE_SAMPLER_2};
  return {choices_.of(kCommon), 0};
}

// Later structures may contain earlier ones.
void Generator::addStructs() {
  const uint32_t count = choices_.between(1, 3);
  for (uint32_t s = 0; s < count; ++s) {
    std::vector<Type> members;
    std::vector<tools::Variable> variables;
    const uint32_t memberCount = choices_.between(1, 4);
    for (uint32_t m = 0; m < memberCount; ++m) {
      const Type type = anyType(s > 0);
      members.push_back(type);
      variables.push_back({"m" + std::to_string(m), type.code, type.count, 0});
    }
    shader_.addStruct("S" + std::to_string(s), variables);
    structs_.push_back(std::move(members));
  }
}

// The first is basic, for the outputs.
void Generator::addGlobals() {
  const uint32_t count = choices_.between(1, 6);
  for (uint32_t g = 0; g < count; ++g) {
    const Type type = anyType(g > 0);
    const uint16_t flags = choices_.oneIn(5) ? VM_VAR_HOST_0 : 0;
    shader_.addGlobal({"g" + std::to_string(g), type.code, type.count, flags});
    globals_.push_back(type);
  }
  for (uint32_t g = 0; g < options_.fillers; ++g) shader_.addGlobal({"filler", VM_TYPE_INT, 0, 0});
  shader_.record().outputGlobal0 = 0;
  if (choices_.oneIn(2)) shader_.record().outputGlobal1 = 0;
}

// Puts arrays of vec4 behind built-in variables.
void Generator::bindBuiltins() {
  for (uint16_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) {
    const BuiltinVariable variable = shadermachine::builtinVariable(id);
    if (variable.family < BuiltinFamily::GlobalElement || !choices_.oneIn(4)) continue;
    const auto global = choices_.below(static_cast<uint32_t>(globals_.size()));
    const Type& type = globals_[global];
    if (type.code != VM_TYPE_VEC4 || type.count == 0) continue;
    auto* record = reinterpret_cast<uint8_t*>(&shader_.record());
    std::memcpy(record + variable.recordOffset, &global, sizeof global);
    builtinViews_.push_back({type, id});
  }
}

// Makes the function one that a host may take over, if there is none of its kind yet.
void Generator::offerToHost(Signature& signature, int32_t function) {
  CompiledShader& record = shader_.record();
  switch (choices_.below(3)) {
    case 0:
      if (record.hostFunctionBase != -1) return;
      signature = {{{VM_TYPE_VEC4, 0}, anyAggregate()}, Type{VM_TYPE_VEC4, 0}};
      record.hostFunctionBase = function;
      record.hostFunctionCount = 1;
      break;
    case 1:
      if (record.hostFunctionA != -1) return;
      signature = {{{VM_TYPE_INT, 0}, {VM_TYPE_VEC4, 0}}, Type{VM_TYPE_INT, 0}};
      record.hostFunctionA = function;
      if (choices_.oneIn(2)) record.hostFunctionAType = 0;
      break;
    default:
      if (record.hostFunctionB != -1) return;
      signature = {{anyAggregate()}, Type{VM_TYPE_VEC3, 0}};
      record.hostFunctionB = function;
      break;
  }
}

// Values that registers hold are more likely than others.
Signature Generator::anySignature() {
  constexpr TypeCode kFloatTypes[] = {VM_TYPE_FLOAT, VM_TYPE_VEC2, VM_TYPE_VEC3, VM_TYPE_VEC4};
  Signature signature;
  const auto anyPart = [&] {
    return choices_.oneIn(2) ? anyType(true) : Type{choices_.of(kFloatTypes), 0};
  };
  for (uint32_t p = choices_.below(4); p > 0; --p) signature.parameters.push_back(anyPart());
  if (!choices_.oneIn(4)) signature.result = anyPart();
  return signature;
}

void Generator::declareFunctions() {
  functions_.emplace_back();
  shader_.addFunction("main");
  for (uint32_t count = choices_.below(6); count > 0; --count) {
    Signature signature = anySignature();
    if (options_.hasAggregates && choices_.oneIn(4)) {
      signature = {{anyAggregate()}, std::nullopt};
      if (!choices_.oneIn(4))
        signature.result = choices_.oneIn(2) ? signature.parameters[0] : anyType(true);
    }
    const auto index = static_cast<int32_t>(functions_.size());
    if (!options_.isInline && choices_.oneIn(5)) offerToHost(signature, index);
    functions_.push_back(std::move(signature));
    shader_.addFunction("f" + std::to_string(index));
  }
}

void Generator::addLocals(uint32_t most) {
  locals_ = functions_[current_].parameters;
  for (size_t p = 0; p < locals_.size(); ++p) {
    code_->addParam({"p" + std::to_string(p), locals_[p].code, locals_[p].count, 0});
  }
  for (uint32_t count = choices_.below(most + 1); count > 0; --count) {
    const Type type = anyType(true);
    code_->addLocal({"v" + std::to_string(locals_.size()), type.code, type.count, 0});
    locals_.push_back(type);
  }
}

void Generator::listVariables() {
  variables_.clear();
  for (const auto* types : {&locals_, &globals_}) {
    for (uint16_t i = 0; i < types->size(); ++i) {
      variables_.push_back({(*types)[i], types == &globals_, i});
    }
  }
}

void Generator::listParts() {
  parts_.clear();
  if (!options_.hasAggregates) return;
  const auto addElement = [&](const Type& whole) {
    if (whole.count > 0) parts_.push_back({whole, {whole.code, 0}, 0});
  };
  for (size_t s = 0; s < structs_.size(); ++s) {
    for (uint32_t m = 0; m < structs_[s].size(); ++m) {
      parts_.push_back({{static_cast<TypeCode>(s), 0}, structs_[s][m], m});
      addElement(structs_[s][m]);
    }
  }
  for (const VariableRef& variable : variables_) addElement(variable.type);
}

void Generator::writeFunction(size_t index) {
  current_ = static_cast<uint16_t>(index);
  code_ = &shader_.function(FunctionId{current_});
  const auto& result = functions_[index].result;
  returnsEarly_ = choices_.oneIn(2) && (!result || !result->isBasic() || result->words() <= 4);
  loopCount_ = 0;
  // Small functions leave registers as the caller filled them.
  const bool isSmall = index > 0 && !choices_.oneIn(3);
  addLocals(isSmall ? 1 : 4);
  listVariables();
  listParts();
  budget_ = isSmall ? choices_.below(8) : 40 * choices_.between(1, index > 0 ? 2 : 5);
  const bool isQuiet = index > 0 && locals_.size() > 0 && !locals_[0].isBasic() &&
                       functions_[index].parameters.size() == 1;
  if (isQuiet && choices_.oneIn(2)) return writeQuietFunction();
  if (isSmall && choices_.oneIn(2)) assign();
  if (!isSmall) {
    statements(0);
    statements(0);
  }
  if (isSmall && choices_.oneIn(2)) {
    finishWithSum();
  } else {
    finishFunction();
  }
}

tools::BuiltShader Generator::build() && {
  addStructs();
  addGlobals();
  bindBuiltins();
  declareFunctions();
  // The entry function last: it would use the choices up.
  for (size_t f = functions_.size(); f-- > 0;) writeFunction(f);
  if (options_.hasFlaws && choices_.oneIn(4)) spoilTables(choices_, shader_);
  return std::move(shader_).build();
}

tools::BuiltShader generateProgram(Choices& choices, const ProgramOptions& options) {
  tools::BuiltShader shader = Generator(choices, options).build();
  if (options.hasFlaws) flipBytes(choices, shader);
  return shader;
}

}  // namespace shadermachine::fuzz
