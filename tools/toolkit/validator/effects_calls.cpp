// Control flow, calls of the shader's functions and of the host's.

#include <shadermachine-tools/host_contract.h>

#include <algorithm>

#include "effects.h"
#include "instructions/builtin_functions.h"
#include "instructions/lookup_form.h"

namespace shadermachine::tools::effects {
namespace {

// Every view left above the locals, besides the result, would lose its reference.
void needNothingOwned(Step& step, uint32_t firstLeft) {
  for (uint32_t k = firstLeft; k < step.stack.size(); ++k) {
    const Slot& slot = step.stack.below(k);
    if (slot.isView()) {
      step.error("S", k, " is ", describe(step.program.types, slot),
                 " and is left without release at the return");
    }
  }
}

ReturnSummary inlineSummary(uint32_t words) {
  ReturnSummary summary;
  summary.kind = ReturnKind::Inline;
  summary.words = static_cast<uint8_t>(words);
  return summary;
}

void finishReturn(Step& step, const ReturnSummary& summary) {
  const ReturnSummary& known = step.program.returns[step.functionIndex];
  // Known before anything is reported: errors are told in a walk after the search has ended.
  if (known.isMixed && known.disagreesWith(summary)) {
    step.error("returns ", describe(step.program.types, summary),
               ", another return of the function ", describe(step.program.types, known));
  }
  step.returned = summary;
  step.end();
}

}  // namespace

// The target is the caller's business.
void jump(Step& step) { step.end(); }

void jumpIfFalse(Step& step) {
  step.needWords(0, 1);
  step.stack.drop(1);
}

void returnVoid(Step& step) {
  needNothingOwned(step, 0);
  ReturnSummary summary;
  summary.kind = ReturnKind::Nothing;
  finishReturn(step, summary);
}

namespace {

constexpr uint8_t kAllWords = VM_COMPONENT_COUNT;

// Without values above the locals the last local is returned.
ReturnSummary returnLocal(Step& step, const VarInfo& local) {
  if (isBasic(local)) return inlineSummary(local.byteSize / kWordBytes);
  const uint32_t number = step.function.localCount - 1u;
  if (number < step.function.paramCount && !step.isEntry()) {
    step.error("returns parameter ", number, ", whose block the caller would look for");
  }
  return {ReturnKind::Aggregate, false, 0, local.type, local.count};
}

ReturnSummary returnTop(Step& step) {
  const Slot& slot = step.stack.below(0);
  if (!slot.isView()) return inlineSummary(slot.isKnown() ? slot.words : kAllWords);
  step.needSole(0);
  if (step.isEntry()) {
    step.error("the entry function returns ", describe(step.program.types, slot),
               ", which nobody releases");
  }
  return {ReturnKind::Aggregate, false, 0, slot.type, slot.count};
}

}  // namespace

void returnValue(Step& step) {
  const VarInfo* local = step.localBelow(0);
  if (local == nullptr && !step.needDepth(1)) return;
  const ReturnSummary summary = local != nullptr ? returnLocal(step, *local) : returnTop(step);
  needNothingOwned(step, 1);
  finishReturn(step, summary);
}

void discard(Step& step) { step.end(); }
void halt(Step& step) { step.end(); }

void reserved(Step& step) { step.stops(VM_ERR_NOT_IMPLEMENTED, "reserved instruction"); }
void reservedSkip1(Step& step) { reserved(step); }
void reservedSkip2(Step& step) { reserved(step); }

// CALL --------------------------------------------------------------------------------------------

namespace {

// A CALL may be answered by the host or by the function's own code; which one is known only when it
// runs. What holds afterwards holds whoever answers.
class Call {
 public:
  explicit Call(Step& step)
      : step_(step),
        shader_(step.program.shader),
        index_(static_cast<int32_t>(step.operand(0))),
        callee_(shader_.functions[index_]) {}

  void run() {
    if (!checkArguments()) return;
    if (isInHostRange() || index_ == shader_.hostFunctionB || index_ == shader_.hostFunctionA) {
      answerByAnyone();
    } else if (hasNoCode()) {
      step_.stops(VM_ERR_INVALID_FUNCTION, "function ", index_, " has no code");
    } else if (!answerByCode()) {
      step_.end();
    }
  }

 private:
  bool hasNoCode() const { return callee_ == nullptr || callee_->codeLength == 0; }

  bool isInHostRange() const {
    const int64_t offset = int64_t{index_} - shader_.hostFunctionBase;
    return shader_.hostFunctionBase != -1 && offset >= 0 && offset < shader_.hostFunctionCount;
  }

  // The caller's variable is the callee's during the call, and may change.
  static bool canBeAt(const VarInfo& parameter, const VarInfo& local) {
    return parameter.type == local.type && parameter.count == local.count;
  }

  // The declared parameters hold for the host's answer as well. Where there are fewer values above
  // the locals, these are arguments too.
  bool checkArguments() {
    if (callee_ == nullptr) return true;
    const uint32_t count = callee_->paramCount;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t k = count - 1 - i;
      if (const VarInfo* local = step_.localBelow(k)) {
        if (canBeAt(callee_->locals[i], *local)) continue;
        step_.error("the caller's local is argument ", i, " and of another type");
        return false;
      }
      if (!step_.needDepth(k + 1)) return false;
      step_.needValueOf(k, callee_->locals[i]);
      // Parameters are variables of the callee.
      step_.stack.below(k).constant.reset();
      step_.stack.below(k).isPosition = false;
    }
    return true;
  }

  // Without the host's callback a function without code ends the run.
  void answerByAnyone() {
    // Each answer starts from the stack before the call.
    before_ = step_.stack;
    if (isInHostRange()) answerByHostFunction();
    if (index_ == shader_.hostFunctionB) answerByOverrideB();
    if (index_ == shader_.hostFunctionA) answerByOverrideA();
    if (!hasNoCode() && answerByCode()) recordAnswer();
    if (!step_.hasEnded()) finish();
  }

  void answerByHostFunction() {
    if (!step_.needDepth(3)) return;
    step_.needWords(2, 0);
    step_.needWords(1, 0);
    step_.write(2, kHostFunctionWords);
    step_.write(1, 0);
    recordAnswer();
  }

  void answerByOverrideB() {
    if (!step_.needDepth(2)) return;
    step_.needView(0);
    step_.needWords(1, 0);
    step_.write(1, kOverrideBWords);
    recordAnswer();
  }

  void answerByOverrideA() {
    constexpr uint32_t kWordFromBlock = 6;
    if (!step_.needDepth(3)) return;
    if (shader_.hostStructMode == kWordFromBlock) {
      step_.needView(1);
    } else {
      step_.needWords(1, 1);
    }
    step_.needWords(0, 1);
    step_.needWords(2, 0);
    step_.write(0, 0);
    step_.write(2, kOverrideAWords);
    recordAnswer();
  }

  // False when the function never returns, or cannot be called.
  bool answerByCode() {
    const ReturnSummary& summary = step_.program.returns[static_cast<size_t>(index_)];
    if (summary.kind == ReturnKind::Never) return false;
    return summary.kind == ReturnKind::Nothing || setResult(summary);
  }

  bool setResult(const ReturnSummary& summary) {
    const uint32_t k = callee_->paramCount;
    if (const VarInfo* local = step_.localBelow(k)) return setLocal(*local, summary);
    if (!step_.needDepth(k + 1)) return false;
    const Slot& slot = step_.stack.below(k);
    if (slot.isView()) {
      step_.error("S", k, " receives the result but is ", describe(step_.program.types, slot));
    }
    Slot result = inlineSlot(summary.words);
    if (summary.kind == ReturnKind::Aggregate) result = viewSlot(summary.type, summary.count);
    step_.stack.set(k, summary.isMixed ? unknownSlot() : result);
    return true;
  }

  // A result that lands on a local must give it all its words.
  bool setLocal(const VarInfo& local, const ReturnSummary& summary) {
    if (summary.kind != ReturnKind::Inline || !isBasic(local)) {
      step_.error("the result would take the place of a local's block");
    } else if (summary.words < local.byteSize / kWordBytes) {
      step_.error("the result has ", counted(summary.words, "defined word"),
                  ", the local below the arguments has ", local.byteSize / kWordBytes);
    }
    return true;
  }

  // Keeps what the stack is after this answer and goes back to before the call.
  void recordAnswer() {
    if (isAnswered_) {
      after_.mergeWith(step_.stack);
    } else {
      after_ = step_.stack;
    }
    isAnswered_ = true;
    step_.stack = before_;
  }

  void finish() {
    step_.stack = after_;
    for (uint32_t k = 0; k < step_.stack.size(); ++k) {
      if (step_.stack.below(k).kind == SlotKind::Conflict &&
          before_.below(k).kind != SlotKind::Conflict) {
        step_.error("S", k, " is a view or inline, depending on whether the host takes the call");
      }
    }
  }

  Step& step_;
  const CompiledShader& shader_;
  const int32_t index_;
  const ShaderFunction* callee_;
  AbstractStack before_;  // these two when the host may answer
  AbstractStack after_;
  bool isAnswered_ = false;
};

}  // namespace

void call(Step& step) { Call(step).run(); }

// Functions of the host ---------------------------------------------------------------------------

// What hosts are told is what the machine does.
static_assert(std::ranges::equal(kBuiltinFunctions, kServedFunctions, {}, &BuiltinFunction::pops,
                                 &ServedFunction::pops) &&
              std::ranges::equal(kBuiltinFunctions, kServedFunctions, {}, &BuiltinFunction::id,
                                 &ServedFunction::id));

void callBuiltin(Step& step) {
  const uint32_t id = step.operand(0);
  const BuiltinFunction* function = findBuiltinFunction(id);
  if (function == nullptr) {
    return step.stops(VM_ERR_NOT_IMPLEMENTED, "there is no built-in function ", id);
  }
  if (!step.needDepth(function->operandCount)) return;
  for (uint32_t i = 0; i < function->operandCount; ++i) {
    const uint32_t k = function->operandCount - 1u - i;
    const int8_t words = function->reads[i];
    if (words == kReadsBlock) {
      step.needView(k);
      step.needSole(k);
    } else {
      step.needWords(k, static_cast<uint32_t>(words));
    }
  }
  step.stack.drop(function->pops);
  if (function->writes != 0) step.write(0, function->writes);
}

void callHostUnary(Step& step) {
  step.needWords(0, 1);
  step.write(0, 1);
}

void callHostLookup(Step& step) {
  const uint32_t form = step.operand(0);
  const uint32_t arguments = lookupArguments(form);
  if (arguments < 2) return;
  if (!step.needDepth(arguments)) return;
  step.needWords(arguments - 1, kSamplerWords);
  const uint32_t kind = lookupKind(form);
  const bool isDescribed =
      kind == kTexelKind && arguments == 3 && step.instruction.opcode == Opcode::HOST_LOOKUP_2;
  step.needWords(arguments - 2, isDescribed ? kDescribedWords : kLookupKinds[kind].coordinates);
  if (arguments == 3) step.needWords(0, 1);
  step.stack.drop(arguments - 1);
  step.write(0, kLookupResultWords);
}

}  // namespace shadermachine::tools::effects
