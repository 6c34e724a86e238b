// Dead values and dead stores.
//
// A store is dead when no way from it leads to a load of its words, to an operation at which the
// host sees them, or to the run's end where they belong to a global or a local of the entry
// function, before they are stored again.

#include <algorithm>

#include "form/passes.h"

namespace shadermachine::form {
namespace {

using WordMask = uint16_t;
static_assert(kPlaceWords == 16);
constexpr WordMask kAllWords = 0xFFFF;

class DeadCode {
 public:
  DeadCode(Form& form, const TimeLimit& limit) : form_(form), watch_(limit) {}

  void run() {
    if (!countUses(form_, uses_) || !numberPlaces()) return;
    // First the values: a load that nobody uses would keep its store alive.
    removeUnusedValues();
    // Only a fixed point may be used: before it, words count as dead that a later round finds read.
    if (!solve()) return;
    for (uint32_t b = 0; b < form_.blocks.size(); ++b) sweep(b, true);
    removeUnusedValues();
  }

 private:
  // Beyond this much memory, or this many rounds, stores are kept.
  static constexpr size_t kMostMasks = size_t{4} << 20;
  static constexpr uint32_t kMostRounds = 12;
  static constexpr uint32_t kNoNumber = UINT32_MAX;

  // The places that stores name, numbered in order.
  bool numberPlaces() {
    const uint32_t places = form_.placeCount();
    for (uint32_t p = 0; p <= places; ++p) numbers_.append(kNoNumber);
    if (numbers_.failed()) return false;
    // Only these can lose a store, and the masks of all blocks are as long as their number.
    for (uint32_t i = 0; i < form_.operations.size(); ++i) {
      if (form_.operations[i].kind == Kind::Store) numberOf(form_.operations[i].place) = 0;
    }
    for (uint32_t p = 0; p < places; ++p) {
      upTo_.append(count_);  // numbers of places below p
      if (numbers_[p] != kNoNumber) numbers_[p] = count_++;
    }
    upTo_.append(count_);
    return !upTo_.failed();
  }

  uint32_t& numberOf(Place place) { return numbers_[form_.placeNumber(place)]; }

  // Backwards, so that users go before what they use.
  void removeUnusedValues() {
    for (uint32_t i = form_.operations.size(); i-- > 0;) {
      if (uses_[i] == 0 && isPure(form_.operations[i].kind)) remove(i);
    }
  }

  void remove(uint32_t i) {
    Operation& operation = form_.operations[i];
    const uint32_t operands = operandCount(operation);
    for (uint32_t k = 0; k < operands; ++k) --uses_[operation.in[k].value];
    operation = {};
  }

  // Liveness --------------------------------------------------------------------------------------

  WordMask* liveIn(uint32_t block) { return &live_[block * count_]; }

  // What is live at the beginning of each block, to a fixed point.
  bool solve() {
    const size_t masks = (size_t{form_.blocks.size()} + 1) * count_;
    if (count_ == 0 || masks > kMostMasks) return false;
    live_ = static_cast<WordMask*>(std::calloc(masks, sizeof(WordMask)));
    if (live_ == nullptr) return false;
    // One more row than blocks, for the block that is being walked.
    now_ = &live_[form_.blocks.size() * count_];
    for (uint32_t round = 0; round < kMostRounds; ++round) {
      bool changed = false;
      // Backwards, as what is live flows: without loops one round settles it.
      for (uint32_t b = form_.blocks.size(); b-- > 0;) {
        if (watch_.isOverAfter(count_)) return false;
        sweep(b, false);
        if (std::equal(now_, now_ + count_, liveIn(b))) continue;
        std::copy(now_, now_ + count_, liveIn(b));
        changed = true;
      }
      if (!changed) return true;
    }
    return false;
  }

  void sweep(uint32_t b, bool removes) {
    if (b + 1 < form_.blocks.size()) {
      std::copy(liveIn(b + 1), liveIn(b + 1) + count_, now_);
    } else {
      std::fill(now_, now_ + count_, WordMask{0});
    }
    for (uint32_t i = form_.blocks[b].end; i-- > form_.blocks[b].begin;) {
      const Operation& operation = form_.operations[i];
      if (operation.kind == Kind::Store) {
        WordMask& live = now_[numberOf(operation.place)];
        const auto words = static_cast<WordMask>(wordMask(operation.first, operation.n));
        if (removes && (live & words) == 0) {
          remove(i);
        } else {
          // Not the spare words behind: that they may be overwritten is no promise that they are.
          live = static_cast<WordMask>(live & ~words);
        }
      } else {
        passBackwards(operation);
      }
    }
  }

  // Nothing behind a jump is reached from before it, so what was live there does not count.
  void become(uint32_t block) {
    const WordMask* target = liveIn(form_.order[block]);
    std::copy(target, target + count_, now_);
  }

  // Places from one number of placeNumber() to another.
  void see(uint32_t from, uint32_t end) {
    std::fill(now_ + upTo_[from], now_ + upTo_[end], kAllWords);
  }

  // Plain handlers find their operands above the frame's locals, and some end the run.
  void seeHanded(const Operation& operation) {
    const bool isPlain = operation.kind == Kind::Plain;
    if (isPlain) {
      const auto end = static_cast<uint32_t>(seenTop(operation) + 1);
      see(operation.site->call->localsSlot, std::min(end, form_.slotCount));
    }
    for (const int32_t global : form_.outputs) {
      const auto place = static_cast<uint32_t>(global);
      const bool isSeen = isPlain || operation.kind == Kind::Finish;
      if (isSeen && place < form_.slotCount) see(place, place + 1);
    }
  }

  void seeTops(const Operation& operation, bool slots) {
    if (slots && form_.isHidden) {
      seeHanded(operation);
    } else if (slots) {
      see(0, std::min(static_cast<uint32_t>(seenTop(operation) + 1), form_.slotCount));
    }
    // A run that ends with 0 has given its storages up.
    const bool isOver = operation.kind == Kind::Finish && operation.first == 0;
    if (slots && !isOver && form_.firstStorage != UINT32_MAX) {
      see(form_.placeNumber(form_.firstStorage), form_.placeCount());
    }
    const auto indices = static_cast<uint32_t>(operation.site->indexTop + 1);
    see(form_.slotCount, form_.slotCount + std::min(indices, form_.indexCount));
  }

  void passBackwards(const Operation& operation) {
    switch (operation.kind) {
      case Kind::Load:
        if (numberOf(operation.place) != kNoNumber) {
          WordMask& live = now_[numberOf(operation.place)];
          live = static_cast<WordMask>(live | wordMask(operation.first, operation.words));
        }
        return;
      case Kind::StoreIndexed:
        return;  // which words it leaves alone shows when it runs
      case Kind::Jump:
      case Kind::JumpBack:
        return become(operation.block);
      case Kind::Branch: {
        const WordMask* target = liveIn(form_.order[operation.block]);
        for (uint32_t p = 0; p < count_; ++p) now_[p] = static_cast<WordMask>(now_[p] | target[p]);
        return;
      }
      case Kind::Stop:
      case Kind::Finish:
        std::fill(now_, now_ + count_, WordMask{0});
        return seeTops(operation, operation.kind == Kind::Finish);
      default:
        break;
    }
    // Backwards, what it writes is taken out before what it reads and shows is put in: it may read
    // words that it writes.
    const Written written = writtenBy(operation);
    if (written.end > written.place) {
      const uint32_t first = form_.placeNumber(written.place);
      std::fill(now_ + upTo_[first], now_ + upTo_[first + written.end - written.place],
                WordMask{0});
    }
    const PlaceRange read = readBy(operation);
    if (read.end > read.place) see(form_.placeNumber(read.place), form_.placeNumber(read.end));
    if (isSeen(operation.kind)) seeTops(operation, true);
  }

  Form& form_;
  Watch watch_;
  Array<uint32_t> uses_;
  Array<uint32_t> numbers_;  // by place
  Array<uint32_t> upTo_;     // by place
  uint32_t count_ = 0;
  WordMask* live_ = nullptr;
  WordMask* now_ = nullptr;

 public:
  ~DeadCode() { std::free(live_); }
  DeadCode(const DeadCode&) = delete;
  DeadCode& operator=(const DeadCode&) = delete;
};

}  // namespace

bool countUses(const Form& form, Array<uint32_t>& uses) {
  for (uint32_t i = 0; i < form.operations.size(); ++i) uses.append(0);
  if (uses.failed()) return false;
  for (uint32_t i = 0; i < form.operations.size(); ++i) {
    const Operation& operation = form.operations[i];
    const uint32_t operands = operandCount(operation);
    for (uint32_t k = 0; k < operands; ++k) ++uses[operation.in[k].value];
  }
  return true;
}

void dropDead(Form& form, const TimeLimit& limit) { DeadCode(form, limit).run(); }

}  // namespace shadermachine::form
