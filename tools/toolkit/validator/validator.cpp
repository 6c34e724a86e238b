#include <shadermachine-tools/source_map.h>
#include <shadermachine-tools/validator.h>

#include <algorithm>
#include <memory>

#include "call_graph.h"
#include "flow.h"
#include "tables.h"

namespace shadermachine::tools {
namespace {

constexpr uint64_t kMaxCodeBytes = uint64_t{1} << 20;  // of all functions together

class Validation {
 public:
  explicit Validation(const ShaderView& view) : view_(view) {}

  ValidationResult run() {
    if (view_.shader == nullptr) {
      diagnostics_.error({}, "there is no shader");
    } else {
      // In this order: decoding reads the tables that were found to exist, following the stack
      // trusts what both found sound.
      checkTables(view_, diagnostics_);
      const bool tablesAreSound = diagnostics_.errorCount() == 0;
      if (view_.shader->functions != nullptr && decodeFunctions() && tablesAreSound) checkStacks();
    }
    result_.diagnostics = diagnostics_.take();
    return std::move(result_);
  }

 private:
  uint32_t functionCount() const { return view_.shader->functionCount; }

  // Empty, too, for functions whose code lies outside the view.
  bool hasCode(uint32_t index) const {
    const ShaderFunction* function = view_.shader->functions[index];
    return function != nullptr && view_.shader->code != nullptr &&
           uint64_t{function->codeOffset} + function->codeLength <= view_.codeSize;
  }

  bool decodeFunctions() {
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < functionCount(); ++i) {
      if (hasCode(i)) bytes += view_.shader->functions[i]->codeLength;
    }
    // Functions may share code, each of which is decoded and followed by itself.
    if (bytes > kMaxCodeBytes) {
      diagnostics_.error({}, "the functions have ", bytes, " bytes of code, more than ",
                         kMaxCodeBytes, " are not checked");
      return false;
    }
    for (uint32_t i = 0; i < functionCount(); ++i) {
      decoded_.push_back(hasCode(i) ? decodeFunction(view_, i, diagnostics_) : DecodedFunction());
    }
    return true;
  }

  void checkStacks() {
    const CallGraph calls(decoded_);
    Program program(view_);
    std::vector<FunctionFlow> flows;
    for (uint32_t i = 0; i < functionCount(); ++i) flows.emplace_back(program, i, decoded_[i]);
    if (!search(calls, program, flows)) {
      return diagnostics_.error({}, "the program is too complex to be checked");
    }
    for (uint32_t i = 0; i < functionCount(); ++i) {
      result_.functions.push_back(reportFunction(i, calls, flows[i]));
    }
  }

  // A result that becomes better known is news to the callers of the function only.
  static bool search(const CallGraph& calls, Program& program, std::vector<FunctionFlow>& flows) {
    Budget budget;
    // Callees lie on top: without recursion every function is searched once, with its callees
    // known.
    std::vector<uint32_t> work(calls.order().rbegin(), calls.order().rend());
    std::vector<bool> isQueued(flows.size(), true);
    while (!work.empty()) {
      const uint32_t function = work.back();
      work.pop_back();
      isQueued[function] = false;
      flows[function].search(budget);
      if (!budget.spend(1)) return false;
      // Ends: a summary changes a bounded number of times, always towards knowing less, and so do
      // the stacks (mergeWith()). The budget bounds the time.
      if (!program.returns[function].mergeWith(flows[function].summary())) continue;
      for (uint32_t caller : calls.callers(function)) {
        if (!isQueued[caller]) work.push_back(caller);
        isQueued[caller] = true;
      }
    }
    return true;
  }

  FunctionFacts reportFunction(uint32_t index, const CallGraph& calls, FunctionFlow& flow) {
    FunctionFacts facts;
    for (const Instruction& instruction : decoded_[index].instructions) {
      facts.instructions.push_back({instruction.pc, -1});
    }
    facts.recursive = calls.isRecursive(index);
    if (facts.recursive) {
      diagnostics_.warning({static_cast<int32_t>(index)}, "the function can call itself");
    }
    flow.report(diagnostics_, facts);
    return facts;
  }

  const ShaderView view_;
  Diagnostics diagnostics_;
  std::vector<DecodedFunction> decoded_;
  ValidationResult result_;
};

}  // namespace

bool ValidationResult::valid() const {
  return std::none_of(diagnostics.begin(), diagnostics.end(), [](const Diagnostic& diagnostic) {
    return diagnostic.severity == Severity::Error;
  });
}

std::string toString(const Diagnostic& diagnostic) {
  std::string place;
  if (diagnostic.function >= 0) {
    place = text("function ", diagnostic.function, ", offset ", diagnostic.offset);
    if (diagnostic.mnemonic != nullptr) place += text(", ", diagnostic.mnemonic);
    place += ": ";
  }
  const char* severity = diagnostic.severity == Severity::Error ? "error: " : "warning: ";
  return text(place, severity, diagnostic.message);
}

std::string formatDiagnostic(const Diagnostic& diagnostic, const ShaderView& view,
                             std::string_view fileName) {
  std::string message = diagnostic.message;
  if (diagnostic.function >= 0) {
    message += " (" + functionText(view, static_cast<uint32_t>(diagnostic.function)) +
               text(", offset ", diagnostic.offset);
    if (diagnostic.mnemonic != nullptr) message += text(", ", diagnostic.mnemonic);
    message += ")";
  }
  return formatMessage(messagePlace(view, diagnostic.function, diagnostic.offset, fileName),
                       diagnostic.severity == Severity::Error ? "error" : "warning", message);
}

ValidationResult validate(const ShaderView& view) { return Validation(view).run(); }

}  // namespace shadermachine::tools
