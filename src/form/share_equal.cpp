// Equal expressions: a pure operation of a block that repeats an earlier one is not made twice, nor
// is a check of an index that has passed.

#include "form/passes.h"

namespace shadermachine::form {
namespace {

class EqualOperations {
 public:
  explicit EqualOperations(Form& form) : form_(form) {}

  void run() {
    for (uint32_t i = 0; i < form_.operations.size(); ++i) standsFor_.append(i);
    for (uint32_t i = 0; i < kBuckets; ++i) table_.append(kNoValue);
    if (standsFor_.failed() || table_.failed()) return;
    for (uint32_t b = 0; b < form_.blocks.size(); ++b) visitBlock(form_.blocks[b]);
  }

 private:
  // An operation looks at its bucket only: what collides is not found, and nothing is searched.
  static constexpr uint32_t kBuckets = 4096;

  void visitBlock(const Block& block) {
    // Instead of emptying the table for every block: entries before `first_` do not count.
    first_ = block.begin;
    for (uint32_t i = block.begin; i < block.end; ++i) {
      Operation& operation = form_.operations[i];
      const uint32_t operands = operandCount(operation);
      for (uint32_t k = 0; k < operands; ++k) {
        operation.in[k].value = standsFor_[operation.in[k].value];
      }
      // Behind a plain handler only constants can be named.
      if (operation.kind == Kind::Plain || operation.kind == Kind::PlainCall) first_ = i;
      if (!isShareable(operation)) continue;
      Value& entry = table_[hashOf(operation) % kBuckets];
      if (entry != kNoValue && entry >= first_ && sameOperation(entry, operation)) {
        standsFor_[i] = entry;
        // The value that nobody names any more goes with the dead ones; a check makes none, so that
        // nobody would take it away.
        if (operation.kind == Kind::CheckBound) operation = {};
      } else {
        entry = i;
      }
    }
  }

  // Loads have forwardLoads(), and what stops a run must do so where it stands.
  static bool isShareable(const Operation& operation) {
    return operation.kind == Kind::Constant || operation.kind == Kind::Compose ||
           operation.kind == Kind::Operate || operation.kind == Kind::RunWord ||
           operation.kind == Kind::CheckBound;
  }

  uint32_t hashOf(const Operation& operation) const {
    uint32_t hash = static_cast<uint32_t>(operation.kind) * 31 +
                    static_cast<uint32_t>(operation.opcode) * 7 + operation.n;
    const auto mix = [&hash](uint32_t x) { hash = (hash ^ x) * 0x9E3779B1u; };
    if (operation.kind == Kind::RunWord) mix(operation.first);
    if (operation.kind == Kind::Constant) {
      for (uint32_t w = 0; w < operation.words; ++w) mix(*form_.constantWords(operation, w));
    }
    const uint32_t operands = operandCount(operation);
    for (uint32_t k = 0; k < operands; ++k) mix(operation.in[k].value * 16 + operation.in[k].first);
    return hash ^ hash >> 15;
  }

  bool sameOperation(Value entry, const Operation& operation) const {
    // The operands have been replaced in both, so equal numbers are equal values. Words of
    // constants are compared as bits: 0.0 and -0.0 are two values, and a NaN is itself.
    const Operation& other = form_.operations[entry];
    if (other.kind != operation.kind || other.opcode != operation.opcode ||
        other.n != operation.n || other.words != operation.words) {
      return false;
    }
    if (operation.kind == Kind::RunWord) return other.first == operation.first;
    if (operation.kind == Kind::CheckBound && other.steps[0].bound != operation.steps[0].bound) {
      return false;
    }
    if (operation.kind == Kind::Constant) {
      return std::memcmp(form_.constantWords(other), form_.constantWords(operation),
                         operation.words * sizeof(uint32_t)) == 0;
    }
    const uint32_t operands = operandCount(operation);
    for (uint32_t k = 0; k < operands; ++k) {
      if (!(other.in[k] == operation.in[k])) return false;
    }
    return true;
  }

  Form& form_;
  Array<Value> standsFor_;
  Array<Value> table_;
  uint32_t first_ = 0;  // operations before this one cannot be named
};

}  // namespace

void shareEqual(Form& form) { EqualOperations(form).run(); }

}  // namespace shadermachine::form
