// What a translation was made from, copied, so that a later run can be told to be of the same
// shader without a look at memory that the host may have freed since.
#pragma once

#include "form/arena.h"
#include "machine/machine.h"

namespace shadermachine::form {
class Decoder;
}

namespace shadermachine::engine {

class Snapshot {
 public:
  // Copies all of the shader that the decoder has looked at. False when memory is short.
  bool take(const CompiledShader& shader, form::Decoder& decoder, form::Arena& arena);

  bool matches(const CompiledShader& shader) const;

  // Which functions the host serves.
  struct Services {
    uint16_t functionCount, hostFunctionCount;
    int32_t hostFunctionA, hostFunctionBase, hostFunctionB;
    bool operator==(const Services&) const = default;
  };
  struct Variables {
    const VarInfo* entries;  // without their names
    uint32_t count;
  };
  struct Function {
    uint32_t number;
    uint32_t codeLength;  // 0: the shader has no such function, or none that can run
    uint32_t paramCount;
    Variables locals;
    const uint8_t* code;
  };
  struct Struct {
    uint32_t number;
    bool present;
    bool hasMembers;
    uint32_t size;
    Variables members;
  };

 private:
  bool matchesRest(const CompiledShader& shader) const;

  uint16_t entryIndex_ = 0;
  bool hasRest_ = false;
  Function entry_ = {};
  Variables globals_ = {};

  // The rest: of shaders with calls or structures.
  bool foundCalls_ = false;
  Services services_ = {};  // looked at when there are calls only
  const Function* functions_ = nullptr;
  uint32_t functionCount_ = 0;
  const Struct* structs_ = nullptr;
  uint32_t structCount_ = 0;
};

}  // namespace shadermachine::engine
