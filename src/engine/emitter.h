// Second stage of a translation: follows what every slot holds while records are appended, so that
// loads, constants and stores need none of their own.
//
// An entry says where the words of a slot's value lie: in the slot itself (its home), in a
// variable, a constant or another slot that it was loaded from, or in a register only, with the
// home reserved for it. Before the memory that an entry refers to changes, the entry is brought
// home; before a register is overwritten, the record that filled it is changed to its storing form.
#pragma once

#include "engine/decode.h"
#include "engine/kernel_table.h"
#include "engine/steps.h"

namespace shadermachine::engine {

struct Entry {
  const uint32_t* address;
  Instruction* narrowedBy;  // the instruction that left words beyond `width` behind, or null
  uint8_t width;            // defined words
  bool block;               // the slot itself may hold a reference to a block
  bool constant;            // the words never change
  bool lazyView;            // a load of an aggregate variable that has not been carried out:
  uint32_t viewSlot;        //   the variable,
  uint32_t viewOffset;      //   first byte,
  uint32_t viewSize;        //   bytes; 0: the whole block
};

class Emitter {
 public:
  Emitter(Arena& arena, Machine& machine);

  bool failed() const {
    return records_.failed() || stores_.failed() || branches_.failed() || arena_.failed();
  }
  bool retry() const { return retry_; }
  uint32_t recordCount() const { return records_.size(); }
  Record& record(uint32_t i) { return records_[i]; }
  // The finished records, with an allocation of their own in the arena.
  Record* finish();

  // Stack -----------------------------------------------------------------------------------------

  int32_t top = -1;       // absolute slot
  int32_t indexTop = -1;  // of the index stack
  const InlinedCall* call = nullptr;

  Entry& slot(int32_t s) { return entries_[s]; }
  Entry& topEntry(int32_t k = 0) { return entries_[top - k]; }
  Entry& index(int32_t i) { return indices_[i]; }
  uint32_t* home(int32_t s) { return machine_.stack[s].value.words; }
  uint32_t* indexHome(int32_t i) { return &machine_.indexStack[i]; }

  void setHome(int32_t s, uint32_t width, bool block = false);
  void push(const Entry& entry) { entries_[++top] = entry; }
  void pushHome(uint32_t width) { setHome(++top, width); }
  void pop(uint32_t n = 1) { top -= static_cast<int32_t>(n); }
  void pushConstant(const uint32_t* words, uint32_t n);
  const uint32_t* constant(const uint32_t* words, uint32_t n);

  // Operands --------------------------------------------------------------------------------------

  bool inRegister(const Entry& entry, Register which, uint32_t n) const;
  // The entry's words in memory.
  const uint32_t* memory(const Entry& entry, uint32_t n);

  // Records ---------------------------------------------------------------------------------------

  uint32_t emit(const Record& record);
  // Before a record that produces a value in slot s from entries firstOperand to lastOperand: frees
  // the slot's words of other entries that refer to them.
  void prepareHome(int32_t s, int32_t firstOperand);
  // Appends a record whose result, n words, is in a register and belongs to slot s; the operands
  // have been popped and the slot becomes the top.
  void produce(Record record, StepPair steps, Register result, uint32_t n, int32_t s);
  // The same for a part of unknown kind, which goes to both the word and the scalar register.
  void produceWord(const Record& record, StepPair steps, int32_t s);
  // A part of unknown kind of any size: up to four words in registers, more in memory, where the
  // record that keeps its result writes them.
  void produceWords(Record record, StepPair steps, uint32_t n, int32_t s);
  // Notes that the last record has left the entry's first n words in the vector register too.
  void holdVector(const Entry& entry, uint32_t n);
  // A result of n words that is in memory only.
  void produceInMemory(Record record, uint32_t n, int32_t s);

  // Takes back the last record when all it made is this value, that nothing else names once the
  // stack ends below slot s.
  bool takeBack(const Entry& value, Register which, int32_t s, Record& record);

  // Stores the top entry into a variable and pops it. n words; exact: no word beyond them.
  void storeTop(int32_t variable, uint32_t* address, uint32_t n, bool exact);
  // Brings entries that refer to a slot's memory home, all but those from position `except` on.
  void evict(int32_t s, int32_t except);
  void evictAll(int32_t s) { evict(s, INT32_MAX); }
  // Forgets registers that stand for memory which has other words now.
  void forgetRange(const uint32_t* address, uint32_t n);
  void forgetSlot(int32_t s) { forgetRange(home(s), VM_COMPONENT_COUNT); }
  // Gives a value that the last record has left in a register only another home; false when it is
  // not one, or others name it.
  bool moveHome(Entry& entry, uint32_t* newHome);
  void demandAll(const Entry& entry);
  void copyTo(const Entry& entry, uint32_t* to, bool exact);

  void flushSlot(int32_t s);
  void flushIndex(int32_t i);
  void flush();  // everything up to the tops
  void flushIndices();
  void forgetRegisters();
  bool refersTo(const Entry& entry, int32_t s) const;
  // The last record's handler becomes the branch form, when it is the comparison that the entry is.
  bool fuseBranch(const Entry& condition);

  const Site* site(uint32_t pc, uint32_t opcode);
  const Site* site(uint32_t pc, uint32_t opcode, int32_t slotTop);

 private:
  struct RegisterState {
    const uint32_t* address;  // memory whose words the register holds; null when unknown
    uint32_t producer;        // the record that filled it
    uint32_t width;
    bool pending;  // the memory has not been written yet
  };

  RegisterState& state(Register which) { return registers_[static_cast<unsigned>(which)]; }
  bool isLive(const RegisterState& held) const;
  bool isFreshResult(const Entry& entry, uint32_t n) const;
  void settle(RegisterState& held);
  void settleRange(const uint32_t* address, uint32_t n);
  void clobber(Register which);
  void claim(Register which, const uint32_t* address, uint32_t producer, uint32_t n);

  Arena& arena_;
  Machine& machine_;
  Array<Record> records_;
  Array<RecordHandler> stores_;    // per record: its storing form
  Array<RecordHandler> branches_;  // per record: its branching form
  Entry* entries_;
  Entry indices_[VM_INDEX_STACK_CAPACITY] = {};
  RegisterState registers_[3] = {};
  RegisterState previous_ = {};    // of the last record's register, before that record
  uint32_t* constants_ = nullptr;  // current pool
  uint32_t constantsFree_ = 0;
  bool retry_ = false;

 public:
  RecordHandler nextBranch = nullptr;  // branching form of the record that is emitted next
};

}  // namespace shadermachine::engine
