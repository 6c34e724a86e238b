// Copies through places: what a block has stored or loaded it need not load again.

#include "form/passes.h"

namespace shadermachine::form {
namespace {

class LoadForwarding {
 public:
  explicit LoadForwarding(Form& form) : form_(form) {}

  void run() {
    if (!start()) return;
    for (uint32_t b = 0; b < form_.blocks.size(); ++b) {
      // What holds at a block's end need not hold on every way into the next. The stamp forgets all
      // heads at once: clearing them would cost every block the number of places.
      known_.clear();
      ++stamp_;
      for (uint32_t i = form_.blocks[b].begin; i < form_.blocks[b].end; ++i) visit(i);
    }
  }

 private:
  static constexpr uint32_t kNone = UINT32_MAX;

  // Words of a place that are those of a value.
  struct Known {
    uint32_t first;
    uint32_t n;
    Operand operand;
    uint32_t next;  // of the same place
  };
  struct Head {
    uint32_t stamp;
    uint32_t known;
  };

  bool start() {
    for (uint32_t p = 0; p < form_.placeCount(); ++p) heads_.append({0, kNone});
    for (uint32_t i = 0; i < form_.operations.size(); ++i) standsFor_.append({i, 0});
    return !heads_.failed() && !standsFor_.failed();
  }

  uint32_t& headOf(Place place) {
    Head& head = heads_[form_.placeNumber(place)];
    if (head.stamp != stamp_) head = {stamp_, kNone};
    return head.known;
  }

  // Words that are written are no longer known. A write drops all that it overlaps, so a place's
  // list stays as short as its words.
  void forget(Place place, uint32_t words) {
    uint32_t* link = &headOf(place);
    while (*link != kNone) {
      Known& known = known_[*link];
      if ((wordMask(known.first, known.n) & words) != 0) {
        *link = known.next;
      } else {
        link = &known.next;
      }
    }
  }

  void learn(Place place, uint32_t first, uint32_t n, Operand operand) {
    uint32_t& head = headOf(place);
    if (!known_.append({first, n, operand, head})) return;
    head = known_.size() - 1;
  }

  void visitLoad(uint32_t i, const Operation& load) {
    for (uint32_t k = headOf(load.place); k != kNone; k = known_[k].next) {
      const Known& known = known_[k];
      // Words from two values are loaded again: composing them is no cheaper.
      if (load.first < known.first || load.first + load.words > known.first + known.n) continue;
      standsFor_[i] = {known.operand.value, known.operand.first + load.first - known.first};
      return;
    }
    learn(load.place, load.first, load.words, {i, 0});
  }

  void visit(uint32_t i) {
    Operation& operation = form_.operations[i];
    // Operands first, so that what is learnt of this operation names the value that stays.
    const uint32_t operands = operandCount(operation);
    for (uint32_t k = 0; k < operands; ++k) {
      const Operand stands = standsFor_[operation.in[k].value];
      operation.in[k] = {stands.value, operation.in[k].first + stands.first};
    }
    if (operation.kind == Kind::Load) return visitLoad(i, operation);
    if (operation.kind == Kind::Plain || operation.kind == Kind::PlainCall) {
      ++stamp_;  // may have written anything
      return known_.clear();
    }
    // Forgotten before the store's own words are learnt.
    const Written written = writtenBy(operation);
    for (Place p = written.place; p < written.end; ++p) forget(p, written.words);
    if (operation.kind == Kind::Store) {
      learn(operation.place, operation.first, operation.n, operation.in[0]);
    } else if (operation.kind == Kind::HostVariable || operation.kind == Kind::HostBuiltin) {
      learn(operation.place, 0, operation.words, {i, 0});  // the host has written them there
    }
  }

  Form& form_;
  Array<Known> known_;
  Array<Head> heads_;
  Array<Operand> standsFor_;
  uint32_t stamp_ = 0;
};

}  // namespace

void forwardLoads(Form& form) { LoadForwarding(form).run(); }

}  // namespace shadermachine::form
