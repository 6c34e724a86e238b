// What the opcode table says about each instruction, for everything that decodes bytecode. Free of
// handlers, so tools use it without the machine.
#pragma once

#include <array>
#include <cstdint>

namespace shadermachine {

inline constexpr unsigned kOpcodeCount = 206;

enum class Opcode : uint8_t {
#define OPCODE(number, mnemonic, ...) mnemonic = number,
#include "instructions/opcodes.def"
#undef OPCODE
};

// One encoded operand. The comment gives its width and what the machine makes of it.
enum class OperandKind : uint8_t {
  None,
  Local,            // u16 number of a local
  Global,           // u16 number of a global
  Function,         // u16 index of a function
  BuiltinVariable,  // u16 id, 258 to 450
  BuiltinFunction,  // u16 id, 267 to 298
  Jump,             // u32 offset from the following instruction, modulo 2^32
  Count,            // u8 component count, at most 16
  SmoothCount,      // u8 component count, at most 4
  SwizzleCount,     // u8 component count, at most 4
  NoiseCount,       // u8 component count, at most 4
  Dimension,        // u8 matrix dimension, at most 4
  PopCount,         // u8 number of slots
  Byte,             // u8 literal
  Word,             // u32 literal
  IndexByte,        // u8 literal for the index stack
  Bound,            // u8 component bound, at most 16
  Component,        // u8 component number
  Mask,             // u8, four 2-bit component selectors
  StructType,       // u16 index of a structure type
  ElementType,      // i16 type code
  ElementCount,     // u16 number of elements
  Member,           // u32 member number
  LookupForm,       // u8: bits 5-6 argument count, bits 2-4 kind
  Skip8,            // u8 without meaning
  Skip16,           // u16 without meaning
  OperandCount,     // u16 length of the CountList that follows
  CountList,        // one u8 component count per operand
  PathLength,       // u16 length of the access path
  Path,             // one i16 index or swizzle pattern per step of the access path
};

inline constexpr unsigned kMaxOperands = 3;

struct OpcodeInfo {
  const char* mnemonic;
  std::array<OperandKind, kMaxOperands> operands;  // None past the last
  int8_t pops;                                     // kVaries: depends on the operands
  int8_t pushes;
  const char* pseudoCode;
};

inline constexpr int8_t kVaries = -1;

// Encoded bytes of one operand; for CountList and Path, of one entry.
constexpr unsigned operandWidth(OperandKind kind) {
  using enum OperandKind;
  switch (kind) {
    case None:
      return 0;
    case Jump:
    case Word:
    case Member:
      return 4;
    case Local:
    case Global:
    case Function:
    case BuiltinVariable:
    case BuiltinFunction:
    case StructType:
    case ElementType:
    case ElementCount:
    case Skip16:
    case OperandCount:
    case PathLength:
    case Path:
      return 2;
    default:
      return 1;
  }
}

// Whether an earlier operand says how often this one comes.
constexpr bool isList(OperandKind kind) {
  return kind == OperandKind::CountList || kind == OperandKind::Path;
}

// Largest value a count operand may have; 0 for operands without a limit of their own.
constexpr unsigned operandLimit(OperandKind kind) {
  using enum OperandKind;
  switch (kind) {
    case Count:
    case Bound:
      return 16;
    case SmoothCount:
    case SwizzleCount:
    case NoiseCount:
    case Dimension:
      return 4;
    default:
      return 0;
  }
}

// Indexed by opcode.
extern const std::array<OpcodeInfo, kOpcodeCount> kOpcodeTable;

inline const OpcodeInfo& opcodeInfo(Opcode opcode) {
  return kOpcodeTable[static_cast<unsigned>(opcode)];
}

// Length in bytes of the instruction at code[0], opcode byte included; 0 when the byte is no opcode
// or the instruction does not end within `available` bytes.
uint32_t instructionLength(const uint8_t* code, uint32_t available);

}  // namespace shadermachine
