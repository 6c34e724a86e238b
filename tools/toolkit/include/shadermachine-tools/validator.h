// Proves that a shader keeps to the rules which the machine trusts.
//
// A shader that validates can be run on any host that answers the callbacks as host_contract.h says
// without memory fault, leak or undefined behaviour, and reads no word that nothing has written. It
// may still end with a run-time code (indices, stack exhaustion, time limit, memory).
//
// The stack is followed abstractly: a slot is inline with a number of defined words, or a view of a
// structure or array. A view on the stack holds one reference. DUP makes a twin that names the same
// reference; all but one of the twins must be dropped with POP or POP_N before the last is stored,
// released or otherwise consumed.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

enum class Severity : uint8_t {
  Error,    // the promise above does not hold
  Warning,  // safe, but certainly not meant: an instruction that always ends the run, recursion
};

struct Diagnostic {
  Severity severity = Severity::Error;
  int32_t function = -1;  // -1: the record's tables
  uint32_t offset = 0;    // in the function's code; 0 for a remark about the function as a whole
  const char* mnemonic = nullptr;  // null unless about one instruction
  std::string message;
};

// "function 1, offset 12, ADD_F: error: S0 has 1 defined word, 3 needed"
std::string toString(const Diagnostic& diagnostic);

// With file, line and column of the source in front and the line and a caret behind, where the view
// knows them; the file's name stands in for sources without one. Ends with a newline.
std::string formatDiagnostic(const Diagnostic& diagnostic, const ShaderView& view,
                             std::string_view fileName);

enum class ReturnKind : uint8_t {
  Never,      // no return is reachable
  Nothing,    // RETURN
  Inline,     // RETURN_VALUE of an inline value
  Aggregate,  // RETURN_VALUE of a structure or array
};

struct InstructionFacts {
  uint32_t offset = 0;
  int32_t depth = -1;  // slots in use before the instruction, locals included; -1: never reached
};

struct FunctionFacts {
  ReturnKind returnKind = ReturnKind::Never;
  uint32_t returnWords = 0;                    // defined words of an inline result
  TypeCode returnType = 0;                     // of an aggregate result: structure or element type
  uint32_t returnCount = 0;                    // and array length
  uint32_t maximumDepth = 0;                   // slots, locals included
  bool recursive = false;                      // can call itself, directly or not
  std::vector<InstructionFacts> instructions;  // in code order, up to the first undecodable byte
};

struct ValidationResult {
  std::vector<Diagnostic> diagnostics;   // tables first, then function by function in code order
  std::vector<FunctionFacts> functions;  // one per function; none when the tables are broken

  bool valid() const;  // no errors; warnings do not count
};

// Reads nothing but the record, its tables and `codeSize` bytes of code, whatever they hold; names
// are not read. Ends after bounded work: an enormous program is refused with an error.
ValidationResult validate(const ShaderView& view);

}  // namespace shadermachine::tools
