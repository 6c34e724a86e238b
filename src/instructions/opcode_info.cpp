#include "instructions/opcode_info.h"

namespace shadermachine {
namespace {

template <class... Kinds>
consteval std::array<OperandKind, kMaxOperands> operandList(Kinds... kinds) {
  return {kinds...};
}

// The numbers of the rows in table order, to pin that row n describes opcode n.
constexpr unsigned kRowNumbers[] = {
#define OPCODE(number, ...) number,
#include "instructions/opcodes.def"
#undef OPCODE
};

consteval bool rowsAreInOrder() {
  for (unsigned row = 0; row < kOpcodeCount; ++row) {
    if (kRowNumbers[row] != row) return false;
  }
  return true;
}

static_assert(sizeof(kRowNumbers) / sizeof(kRowNumbers[0]) == kOpcodeCount);
static_assert(rowsAreInOrder());

}  // namespace

#define VARIES kVaries
#define OPCODE(number, mnemonic, handler, operands, pops, pushes, pseudoCode) \
  OpcodeInfo{#mnemonic, operandList operands, pops, pushes, pseudoCode},
consteval std::array<OpcodeInfo, kOpcodeCount> opcodeTable() {
  using enum OperandKind;
  return {
#include "instructions/opcodes.def"
  };
}
#undef OPCODE
#undef VARIES
constexpr std::array<OpcodeInfo, kOpcodeCount> kOpcodeTable = opcodeTable();

uint32_t instructionLength(const uint8_t* code, uint32_t available) {
  if (available == 0 || code[0] >= kOpcodeCount) return 0;
  uint32_t length = 1;
  uint32_t listLength = 0;
  for (OperandKind kind : kOpcodeTable[code[0]].operands) {
    const uint32_t width = operandWidth(kind) * (isList(kind) ? listLength : 1);
    if (width > available - length) return 0;
    if (kind == OperandKind::OperandCount || kind == OperandKind::PathLength) {
      listLength = uint32_t{code[length]} | uint32_t{code[length + 1]} << 8;
    }
    length += width;
  }
  return length;
}

}  // namespace shadermachine
