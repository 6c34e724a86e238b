// What makes a form better without changing what it does. Each pass is a file of its own and leaves
// a form for which all of form.h's invariants hold. Time is linear in the form, up to a small
// factor that each states. All of them give up quietly when memory is short: the form is then as
// before. Those that go over the form until nothing changes do so too when half of a run's time is
// over: their factor is large.
#pragma once

#include "form/form.h"
#include "machine/time_limit.h"

namespace shadermachine::form {

// Temporaries that hold references nobody can tell from their variables' do not take them.
void borrowBlocks(Form& form, const TimeLimit& limit);

// Aggregate locals that nobody but their own operations has to do with get storages: their parts
// become words of places, which the other passes know.
void settleAggregates(Form& form);

// Loads of words that an operation of the same block has stored or loaded become those values.
void forwardLoads(Form& form);

// Pure operations of a block that repeat an earlier one become its value; a repeated check goes.
void shareEqual(Form& form);

// Removes operations whose values nobody uses, and stores into words that nobody reads or sees
// before they are stored again.
void dropDead(Form& form, const TimeLimit& limit);

// Tells passes, which have no better place to ask, when half of the run's time is over. It reads
// the clock once for so much work that this costs nothing.
class Watch {
 public:
  explicit Watch(const TimeLimit& limit) : limit_(limit) {}

  // `work` in steps of a few nanoseconds.
  bool isOverAfter(uint64_t work) {
    constexpr uint64_t kWorkPerLook = 100'000;
    work_ += work;
    if (work_ < kWorkPerLook) return false;
    work_ = 0;
    return isHalfOver(limit_);
  }

 private:
  const TimeLimit& limit_;
  uint64_t work_ = 0;
};

// How often each value is used, by operation number; for passes and back ends.
bool countUses(const Form& form, Array<uint32_t>& uses);

}  // namespace shadermachine::form
