// One instruction applied to the abstract stack: what the effects of all instructions build on.
#pragma once

#include <string>

#include "abstract_stack.h"
#include "decoder.h"
#include "types.h"

namespace shadermachine::tools {

// How a function returns, as far as its reachable returns tell.
struct ReturnSummary {
  ReturnKind kind = ReturnKind::Never;
  bool isMixed = false;  // returns disagree; reported with the function
  uint8_t words = 0;     // of an inline result
  TypeCode type = 0;     // of an aggregate result
  uint32_t count = 0;

  // True when something changed.
  bool mergeWith(const ReturnSummary& other);
  bool disagreesWith(const ReturnSummary& other) const;
};

std::string describe(const Types& types, const ReturnSummary& summary);

struct Program {
  explicit Program(const ShaderView& shaderView)
      : view(shaderView),
        shader(*shaderView.shader),
        types(shaderView),
        returns(shaderView.shader->functionCount) {}

  ShaderView view;
  const CompiledShader& shader;
  Types types;
  std::vector<ReturnSummary> returns;  // per function
};

class Step {
 public:
  // Without diagnostics, errors are found and forgotten.
  Step(const Program& aProgram, uint32_t aFunction, const Instruction& anInstruction,
       AbstractStack& aStack, Diagnostics* diagnostics)
      : program(aProgram),
        function(*aProgram.shader.functions[aFunction]),
        functionIndex(aFunction),
        instruction(anInstruction),
        stack(aStack),
        diagnostics_(diagnostics) {}

  // Checks the instruction and applies it. Defined with the table of effects.
  void apply();

  const Program& program;
  const ShaderFunction& function;
  const uint32_t functionIndex;
  const Instruction& instruction;
  AbstractStack& stack;
  ReturnSummary returned;

  bool hasEnded() const { return hasEnded_; }
  bool isEntry() const { return functionIndex == program.shader.entryIndex; }
  uint32_t operand(uint32_t i) const { return instruction.operands[i]; }

  template <class... Parts>
  void error(const Parts&... parts) {
    if (diagnostics_ == nullptr) return;
    diagnostics_->error(place(), parts...);
  }

  template <class... Parts>
  void warning(const Parts&... parts) {
    if (diagnostics_ == nullptr) return;
    diagnostics_->warning(place(), parts...);
  }

  // Control does not pass to the next instruction.
  void end() { hasEnded_ = true; }
  // The run always stops here with the code; says why.
  template <class... Parts>
  void stops(uint32_t code, const Parts&... parts) {
    warning(parts..., ": always stops with ", code);
    end();
  }

  // The slot k below the top must be inline with at least `words` defined words.
  void needWords(uint32_t k, uint32_t words);
  // It must be a view.
  void needView(uint32_t k);
  // It must be a view of exactly this type.
  void needView(uint32_t k, TypeCode type, uint32_t count);
  // If it is a view, nothing else may name its reference.
  void needSole(uint32_t k);
  // It must be a value of the variable's type that the instruction may consume.
  void needValueOf(uint32_t k, const VarInfo& variable);
  // The local that lies k slots below the top, null when a value or no local does.
  const VarInfo* localBelow(uint32_t k) const;
  // At least n values must lie above the locals; ends the path when they do not.
  bool needDepth(uint32_t n);

  void push(const Slot& slot);
  bool needRoom();
  // n slots leave without release.
  void drop(uint32_t n);
  // The inline slot k below the top gets more words; which ones it had stays known.
  void write(uint32_t k, uint32_t words);

  Slot slotOf(const VarInfo& variable) const;

 private:
  Place place() const {
    return {static_cast<int32_t>(functionIndex), instruction.pc, instruction.info().mnemonic};
  }

  Diagnostics* diagnostics_;
  bool hasEnded_ = false;
};

}  // namespace shadermachine::tools
