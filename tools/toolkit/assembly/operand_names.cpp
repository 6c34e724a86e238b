#include "assembly/operand_names.h"

#include <iterator>

namespace shadermachine::tools {
namespace {

// In the order of OperandKind.
constexpr OperandNames kOperandNames[] = {
    {"", ""},
    {"local", "number of a local of the current function"},
    {"global", "number of a global"},
    {"function", "index of a function"},
    {"builtin", "id of a built-in variable, 258 to 450"},
    {"builtin", "id of a built-in function, 267 to 298"},
    {"offset", "distance from the following instruction, modulo 2^32"},
    {"n", "component count, at most 16"},
    {"n", "component count, at most 4"},
    {"n", "component count, at most 4"},
    {"n", "component count, at most 4"},
    {"n", "matrix dimension, at most 4"},
    {"n", "number of slots"},
    {"value", "the byte pushed"},
    {"value", "the word pushed"},
    {"index", "the index pushed"},
    {"bound", "number of components, at most 16"},
    {"component", "component number"},
    {"mask", "four 2-bit component selectors"},
    {"struct", "index of a structure type"},
    {"type", "type code of the elements"},
    {"count", "number of elements"},
    {"member", "member number"},
    {"form", "bits 5-6: argument count, bits 2-4: kind"},
    {"unused", "without meaning"},
    {"unused", "without meaning"},
    {"length", "number of the counts that follow"},
    {"counts", "one component count per operand"},
    {"length", "number of steps of the access path"},
    {"path", "one position or swizzle pattern per step"},
};
static_assert(std::size(kOperandNames) == static_cast<size_t>(OperandKind::Path) + 1);

bool isSigned(OperandKind kind) {
  return kind == OperandKind::ElementType || kind == OperandKind::Path || kind == OperandKind::Jump;
}

std::string encoding(OperandKind kind) {
  std::string text(1, isSigned(kind) ? 'i' : 'u');
  text += std::to_string(8 * operandWidth(kind));
  if (isOperandList(kind)) text += "...";
  return text;
}

}  // namespace

const OperandNames& operandNames(OperandKind kind) {
  return kOperandNames[static_cast<size_t>(kind)];
}

std::string operandText(const OpcodeInfo& info) {
  std::string text;
  for (OperandKind kind : info.operands) {
    if (kind == OperandKind::None) break;
    text += (text.empty() ? "" : ", ") + encoding(kind) + " " + operandNames(kind).name;
  }
  return text;
}

}  // namespace shadermachine::tools
