// First stage of a translation: what a function's code is, seen without running it. For every
// reachable instruction the stack depth, the depth of the index stack and the defined words of each
// temporary are known before it runs, or the function is left to the plain handlers.
#pragma once

#include "engine/arena.h"
#include "instructions/opcode_info.h"
#include "machine/machine.h"

namespace shadermachine::engine {

inline constexpr uint32_t kMaxTemporaries = 48;
// Calls are followed and inlined so deep; what is called deeper is left to the plain handlers.
inline constexpr int32_t kMaxCallDepth = 40;

// Temporaries of one frame before an instruction runs.
struct StackState {
  uint16_t count;                   // temporaries above the locals
  int16_t indexDepth;               // entries of the index stack, relative to the function's entry
  uint64_t blockMask;               // bit t: temporary t may hold a reference to a block
  uint8_t widths[kMaxTemporaries];  // words of temporary t that some instruction has defined
};

struct Instruction {
  uint32_t pc;
  uint32_t end;  // pc of the following instruction
  Opcode opcode;
  bool isTarget;   // control can come here other than from the instruction before
  uint16_t count;  // temporaries before it runs
  int16_t indexDepth;
  bool keepsWords;    // its result must keep the words that it does not write
  StackState* state;  // of jump targets only
};

struct DecodedFunction {
  const ShaderFunction* record;
  const uint8_t* code;
  Instruction* instructions;  // in code order
  uint32_t count;
  uint32_t maxTemporaries;
  uint32_t order;       // of completion
  int32_t returnWidth;  // defined words of the returned value; -1 when nothing is returned
  bool returnsBlock;
  bool keepsIndices;  // returns with entries of its own on the index stack
};

uint32_t operandU8(const uint8_t* code, uint32_t at);
uint32_t operandU16(const uint8_t* code, uint32_t at);
uint32_t operandU32(const uint8_t* code, uint32_t at);

// All functions of a shader that a translation has looked at.
class Decoder {
 public:
  Decoder(Arena& arena, const Machine& machine);

  // Decodes the function and what it calls. Null when it must be left to the plain handlers (or
  // memory is short). A function that is decoded later than one that calls it (of a recursion, or
  // first met too deep) was unknown when the caller's stack was followed.
  const DecodedFunction* decode(uint32_t function);

  // Counts work against the run's time. True when it has taken half of that: the translation is
  // given up, and leaves the other half to the plain handlers.
  bool isOverTime(uint32_t work);

  // True when CALL of the function goes to the host or ends the run, whatever is on the stack.
  bool isPlainCall(uint32_t function) const;

  // True when any CALL has been looked at: then the numbers that decide who serves it matter.
  bool foundCalls() const { return foundCalls_; }
  // True when anything of the function's record has been looked at.
  bool consulted(uint32_t function) const { return functions_[function].consulted; }
  // Null for a function that is not decoded, or could not be.
  const DecodedFunction* decoded(uint32_t function) const {
    return functions_[function].visit == Visit::Usable ? &functions_[function].decoded : nullptr;
  }

 private:
  enum class Visit : uint8_t { None, InProgress, Usable, Unusable };
  struct Entry {
    Visit visit;
    bool consulted;
    DecodedFunction decoded;
  };

  const CompiledShader& shader_;
  const Machine& machine_;
  Arena& arena_;
  Entry* functions_;
  int32_t depth_ = 0;
  uint32_t completed_ = 0;
  uint32_t work_ = 0;  // since the clock was read
  bool overTime_ = false;
  mutable bool foundCalls_ = false;
};

}  // namespace shadermachine::engine
