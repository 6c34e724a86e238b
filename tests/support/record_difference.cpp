#include "support/record_difference.h"

namespace shadermachine::testing {
namespace {

class Comparison {
 public:
  std::string difference;

  template <class T>
  void expectEqual(const std::string& what, const T& a, const T& b) {
    if (difference.empty() && a != b) {
      difference = what + ": " + std::to_string(a) + " and " + std::to_string(b);
    }
  }

  void expectEqual(const std::string& what, const char* a, const char* b) {
    const std::string first = a ? a : "(null)";
    const std::string second = b ? b : "(null)";
    if (difference.empty() && first != second) difference = what + ": " + first + " and " + second;
  }

  // Whether both exist.
  bool bothExist(const std::string& what, const void* a, const void* b) {
    expectEqual(what + " exists", a != nullptr, b != nullptr);
    return a && b;
  }

  void variable(const std::string& what, const VarInfo& a, const VarInfo& b, bool isMember) {
    expectEqual(what + ".type", a.type, b.type);
    expectEqual(what + ".flags", a.flags, b.flags);
    expectEqual(what + ".count", a.count, b.count);
    expectEqual(what + ".byteSize", a.byteSize, b.byteSize);
    if (isMember) expectEqual(what + ".memberOffset", a.memberOffset, b.memberOffset);
    expectEqual(what + ".name", a.name, b.name);
  }

  void variables(const std::string& what, const VarInfo* a, size_t countA, const VarInfo* b,
                 size_t countB, bool areMembers = false) {
    expectEqual(what + " count", countA, countB);
    for (size_t i = 0; difference.empty() && i < countA; ++i) {
      variable(what + " " + std::to_string(i), a[i], b[i], areMembers);
    }
  }

  void structure(const std::string& what, const StructInfo* a, const StructInfo* b) {
    if (!bothExist(what, a, b)) return;
    expectEqual(what + ".size", a->size, b->size);
    variables(what + " member", a->members, a->memberCount, b->members, b->memberCount, true);
  }

  void function(const std::string& what, const ShaderFunction* a, const ShaderFunction* b) {
    if (!bothExist(what, a, b)) return;
    expectEqual(what + ".paramCount", a->paramCount, b->paramCount);
    expectEqual(what + ".codeOffset", a->codeOffset, b->codeOffset);
    expectEqual(what + ".codeLength", a->codeLength, b->codeLength);
    variables(what + " local", a->locals, a->localCount, b->locals, b->localCount);
  }

  void fields(const CompiledShader& a, const CompiledShader& b) {
    expectEqual("version", a.version, b.version);
    expectEqual("entryIndex", a.entryIndex, b.entryIndex);
    expectEqual("hostFunctionCount", a.hostFunctionCount, b.hostFunctionCount);
    expectEqual("hostStructMode", a.hostStructMode, b.hostStructMode);
    for (int i = 0; i < 26; ++i) {
      expectEqual("builtinGlobals " + std::to_string(i), a.builtinGlobals[i], b.builtinGlobals[i]);
    }
    expectEqual("outputGlobal0", a.outputGlobal0, b.outputGlobal0);
    expectEqual("outputGlobal1", a.outputGlobal1, b.outputGlobal1);
    expectEqual("hostFunctionA", a.hostFunctionA, b.hostFunctionA);
    expectEqual("hostFunctionBase", a.hostFunctionBase, b.hostFunctionBase);
    expectEqual("hostFunctionB", a.hostFunctionB, b.hostFunctionB);
    expectEqual("hostFunctionAType", a.hostFunctionAType, b.hostFunctionAType);
    expectEqual("builtinGlobal300", a.builtinGlobal300, b.builtinGlobal300);
    expectEqual("builtinGlobal303", a.builtinGlobal303, b.builtinGlobal303);
    expectEqual("builtinGlobal304", a.builtinGlobal304, b.builtinGlobal304);
  }
};

}  // namespace

std::string recordDifference(const tools::ShaderView& a, const tools::ShaderView& b) {
  Comparison comparison;
  comparison.fields(*a.shader, *b.shader);
  comparison.expectEqual("structure count", a.structCount, b.structCount);
  for (size_t i = 0; comparison.difference.empty() && i < a.structCount; ++i) {
    comparison.structure("structure " + std::to_string(i), a.shader->structTypes[i],
                         b.shader->structTypes[i]);
  }
  comparison.variables("global", a.shader->globals, a.shader->globalCount, b.shader->globals,
                       b.shader->globalCount);
  comparison.expectEqual("function count", a.shader->functionCount, b.shader->functionCount);
  for (size_t i = 0; comparison.difference.empty() && i < a.shader->functionCount; ++i) {
    comparison.function("function " + std::to_string(i), a.shader->functions[i],
                        b.shader->functions[i]);
  }
  comparison.expectEqual("code size", a.codeSize, b.codeSize);
  for (uint32_t i = 0; comparison.difference.empty() && i < a.codeSize; ++i) {
    comparison.expectEqual("code byte " + std::to_string(i), a.shader->code[i], b.shader->code[i]);
  }
  return comparison.difference;
}

}  // namespace shadermachine::testing
