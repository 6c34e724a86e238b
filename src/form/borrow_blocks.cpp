// References of temporaries that are not taken, because what holds one can read its variable.
//
// The plain handlers count a reference for an argument while its function runs, and for a result on
// its way into a variable. Nobody can tell when, until the temporary gives the reference up, the
// host looks at nothing, the run does not finish, and the variable stays as it is: the temporary is
// then a loan, and the operations that name it name its variable instead.
//
// One walk over the blocks finds which loan each slot holds. A loan that turns out to need its
// reference takes it, and the walk begins again; after some rounds all of them do.

#include <algorithm>

#include "form/passes.h"

namespace shadermachine::form {
namespace {

class Borrowing {
 public:
  Borrowing(Form& form, const TimeLimit& limit) : form_(form), watch_(limit) {}

  void run() {
    if (form_.isHidden || !findLoans()) return;
    for (uint32_t round = 0; round < kMostRounds; ++round) {
      isRefused_ = false;
      if (!settleEntries()) return;
      if (isRefused_) continue;
      rewrites_ = true;
      for (uint32_t b = 0; b < form_.blocks.size(); ++b) walk(b);
      return;
    }
  }

 private:
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kUnreached = UINT32_MAX - 1;
  static constexpr uint32_t kMostSlots = 64;
  static constexpr uint32_t kMostEntries = 1u << 20;
  static constexpr uint32_t kMostRounds = 8;

  // What a temporary would share: `size` bytes of a variable's block, 0: all.
  struct Source {
    Place slot;
    uint32_t first;
    uint32_t size;
    bool operator==(const Source&) const = default;
  };
  struct Loan {
    Source source;
    bool isRefused;  // needs its reference
  };

  uint32_t slotCount() const { return slots_.size(); }
  uint32_t* entry(uint32_t block) { return &entries_[block * slotCount()]; }

  // Loans -----------------------------------------------------------------------------------------

  bool findLoans() {
    for (Place slot = 0; slot < form_.slotCount; ++slot) numbers_.append(kNone);
    if (numbers_.failed()) return false;
    for (uint32_t i = 0; i < form_.operations.size(); ++i) {
      const Operation& operation = form_.operations[i];
      const bool lends = operation.kind == Kind::ShareView || operation.kind == Kind::MoveSlot;
      const bool isLoan = lends && addSlot(operation.place);
      loanAt_.append(isLoan ? loans_.size() : kNone);
      // Only in its block is there an index.
      if (isLoan) loans_.append({{}, operation.steps != nullptr});
    }
    for (uint32_t k = 0; k < slotCount(); ++k) held_.append(kNone);
    if (uint64_t{slotCount()} * form_.blocks.size() > kMostEntries) return false;
    for (uint32_t e = 0; e < slotCount() * form_.blocks.size(); ++e) entries_.append(kUnreached);
    return loans_.size() > 0 && !loans_.failed() && !loanAt_.failed() && !slots_.failed() &&
           !held_.failed() && !entries_.failed();
  }

  bool addSlot(Place slot) {
    if (numbers_[slot] != kNone) return true;
    if (slotCount() == kMostSlots || slot < form_.globalCount) return false;
    numbers_[slot] = slotCount();
    return slots_.append(slot);
  }

  void refuse(uint32_t loan) {
    if (loan >= kUnreached || loans_[loan].isRefused) return;
    loans_[loan].isRefused = true;
    isRefused_ = true;
  }

  bool isTracked(Place slot) const { return slot < numbers_.size() && numbers_[slot] != kNone; }
  uint32_t heldBy(Place slot) const { return isTracked(slot) ? held_[numbers_[slot]] : kNone; }
  void hold(Place slot, uint32_t loan) {
    if (isTracked(slot)) held_[numbers_[slot]] = loan;
  }

  // The slot has another reference, or none, from here on; what it held is not given up.
  void lose(Place slot) {
    refuse(heldBy(slot));
    hold(slot, kNone);
  }

  void loseAll() {
    for (uint32_t k = 0; k < slotCount(); ++k) lose(slots_[k]);
  }

  // The aggregate in the slot changes, or its reference does: loans of it would show that.
  void change(Place slot) {
    for (uint32_t k = 0; k < slotCount(); ++k) {
      if (held_[k] != kNone && loans_[held_[k]].source.slot == slot) lose(slots_[k]);
    }
  }

  // Flow ------------------------------------------------------------------------------------------

  // False when that takes too long: loops hardly ever carry references.
  bool settleEntries() {
    std::fill_n(entries_.data(), entries_.size(), kUnreached);
    std::fill_n(entry(0), slotCount(), kNone);
    for (uint32_t pass = 0; pass < kMostRounds; ++pass) {
      isChanged_ = false;
      for (uint32_t b = 0; b < form_.blocks.size(); ++b) {
        const uint64_t operations = form_.blocks[b].end - form_.blocks[b].begin;
        if (watch_.isOverAfter((1 + operations) * slotCount())) return false;
        walk(b);
      }
      if (!isChanged_) return true;
    }
    return false;
  }

  void walk(uint32_t b) {
    if (*entry(b) == kUnreached) return;
    std::copy_n(entry(b), slotCount(), held_.data());
    const Block block = form_.blocks[b];
    for (uint32_t i = block.begin; i < block.end; ++i) visit(i);
    const bool ends = block.end > block.begin && endsBlock(form_.operations[block.end - 1].kind);
    if (!ends && b + 1 < form_.blocks.size()) flowInto(b + 1);
  }

  void flowInto(uint32_t b) {
    for (uint32_t k = 0; k < slotCount(); ++k) {
      uint32_t& known = entry(b)[k];
      if (known == held_[k]) continue;
      if (known != kUnreached) {
        refuse(known);
        refuse(held_[k]);
      }
      const uint32_t meet = known == kUnreached ? held_[k] : kNone;
      isChanged_ = isChanged_ || known != meet;
      known = meet;
    }
  }

  // Operations ------------------------------------------------------------------------------------

  void visit(uint32_t i) {
    Operation& operation = form_.operations[i];
    switch (operation.kind) {
      case Kind::ShareView:
      case Kind::MoveSlot:
        return visitShare(operation, loanAt_[i]);
      case Kind::ReadMember:
      case Kind::ReadElement:
      case Kind::CheckIndex:
        return visitRead(operation);
      case Kind::CopyBlock:
      case Kind::StoreBlock:
        visitWholeStore(operation);
        break;
      case Kind::ReleaseSlot:
        return visitRelease(operation);
      case Kind::InitLocals:
        for (uint32_t k = 1; k < operation.count; ++k) {
          lose(operation.place + k);
          change(operation.place + k);
        }
        break;
      case Kind::StorePart:
      case Kind::Renew:
      case Kind::ClearSlot:
        break;
      case Kind::Branch:
      case Kind::Jump:
      case Kind::JumpBack:
        return flowInto(form_.order[operation.block]);
      case Kind::Finish:
        return loseAll();
      default:
        return visitOther(operation);
    }
    lose(operation.place);
    change(operation.place);
  }

  void visitOther(const Operation& operation) {
    if (isSeen(operation.kind)) return loseAll();
    const Written written = writtenBy(operation);
    for (Place p = written.place; p < std::min(written.end, form_.slotCount); ++p) lose(p);
  }

  void visitShare(Operation& share, uint32_t loan) {
    const bool moves = share.kind == Kind::MoveSlot;
    Source source = {share.other, share.first, share.size};
    const bool isNamed = lend(source);
    if (moves) {
      if (!isNamed) refuse(loan);
      giveUp(share.other);
    }
    lose(share.place);
    change(share.place);
    const bool isLent = loan != kNone && !loans_[loan].isRefused;
    if (isLent) takeLoan(share.place, loan, source);
    if (!rewrites_ || !(isLent || isNamed)) return;
    if (isLent) {
      share = {};
    } else {
      share.kind = Kind::ShareView;
      name(share, source);
    }
  }

  void takeLoan(Place slot, uint32_t loan, const Source& source) {
    isChanged_ = isChanged_ || !(loans_[loan].source == source);
    loans_[loan].source = source;
    hold(slot, loan);
  }

  // What the slot held is its variable's alone again.
  void giveUp(Place slot) {
    if (heldBy(slot) == kNone) change(slot);
    hold(slot, kNone);
  }

  // Where the source is, when it is part of a loan.
  bool lend(Source& source) {
    const uint32_t loan = heldBy(source.slot);
    if (loan == kNone) return false;
    const Source& of = loans_[loan].source;
    // A part of a part would be there even where the part around it is not.
    if (of.size != 0 && source.size != 0) {
      refuse(loan);
      return false;
    }
    source = of.size != 0 ? of : Source{of.slot, source.first, source.size};
    return true;
  }

  static void name(Operation& operation, const Source& source) {
    operation.other = source.slot;
    operation.first = source.first;
    operation.size = source.size;
  }

  // A whole store of what the slot holds. One of a global may have to leave the run to the plain
  // handlers, which would look for the reference.
  void visitWholeStore(Operation& store) {
    const uint32_t loan = heldBy(store.other);
    Source source = {store.other, store.first, store.size};
    const bool isNamed = lend(source);
    if (isNamed && (source.slot < form_.globalCount || source.slot == store.place)) refuse(loan);
    if (store.kind == Kind::StoreBlock) giveUp(store.other);
    if (!rewrites_ || !isNamed) return;
    store.kind = Kind::CopyBlock;
    name(store, source);
  }

  void visitRelease(Operation& release) {
    const bool isLent = heldBy(release.place) != kNone;
    giveUp(release.place);
    if (rewrites_ && isLent) release = {};
  }

  void visitRead(Operation& read) {
    const uint32_t loan = heldBy(read.place);
    if (loan == kNone) return;
    Operation moved = read;
    if (!moveInto(moved, loans_[loan].source)) return refuse(loan);
    if (rewrites_) read = moved;
  }

  // A read of the temporary as one of the variable, with the same zero words and ends.
  static bool moveInto(Operation& read, const Source& of) {
    read.place = of.slot;
    if (of.size == 0) return true;
    const bool decidesBySize = read.kind != Kind::ReadMember && read.count == 0;
    if (decidesBySize) read.count = of.size / read.stride;
    if (decidesBySize && read.count == 0) return false;
    if (read.size > of.size) return false;
    read.first += of.first;
    // Inside an element that has been checked nothing more is asked of the block.
    if (read.size != 0 || decidesBySize) read.size = of.first + of.size;
    return true;
  }

  Form& form_;
  Watch watch_;
  Array<uint32_t> numbers_;  // of the slots below, by slot
  Array<Place> slots_;       // that hold loans somewhere
  Array<Loan> loans_;
  Array<uint32_t> loanAt_;   // by operation
  Array<uint32_t> held_;     // loan in each of the slots, where the walk is
  Array<uint32_t> entries_;  // and at the beginning of each block
  bool isRefused_ = false;
  bool isChanged_ = false;
  bool rewrites_ = false;
};

}  // namespace

void borrowBlocks(Form& form, const TimeLimit& limit) { Borrowing(form, limit).run(); }

}  // namespace shadermachine::form
