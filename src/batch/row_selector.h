// From a form to records on rows, in one pass over each block after one that decides where words
// are.
//
// Words have rows: a constant's for good, a place's for good, a value's while it is used. Values
// that are only words of others have no rows of their own, so swizzles, constructors and loads of
// variables are no records.
//
//  1. A load's words are the place's rows when nobody changes these before the load's last use;
//     else they are copied.
//  2. A value that is stored is computed into the place's row when nobody reads the old words
//     after, no invocation leaves the block between the two, and the next store comes after the
//     value's last use. Only then, and in copies, are rows of places written: under a mask.
#pragma once

#include "batch/row_program.h"
#include "form/form.h"
#include "machine/machine.h"

namespace shadermachine::batch {

class RowSelector {
 public:
  RowSelector(const form::Form& form, const Machine& machine, const RowFunctions& functions,
              RowProgram& program)
      : form_(form),
        machine_(machine),
        shader_(*machine.shader),
        functions_(functions),
        program_(program),
        working_(RowProgram::kMaxBytes) {}
  RowSelector(const RowSelector&) = delete;
  RowSelector& operator=(const RowSelector&) = delete;

  // Fills in the program. It stays without a first record when the form has operations that rows do
  // not know. False when memory is short.
  bool select();

  // For listings. Of a program's record: the operation that it was made for.
  uint32_t operationOf(uint32_t record) const { return drafts_[record].origin; }
  // The first operation that rows do not know; operations.size() when they know all.
  uint32_t firstUnknown() const;
  // Whether it may go on at its target.
  bool leads(const RowRecord& record) const;
  // Which word of which place a row is; false for rows of values and constants.
  bool isPlaceRow(const uint32_t* row, form::Place& place, uint32_t& word) const;

 private:
  using Operation = form::Operation;
  using Operand = form::Operand;
  using Place = form::Place;
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kMaxRows = 16384;

  // About an operation.
  struct Info {
    uint32_t lastUse;       // operation that uses its value last; kNone: nobody
    uint32_t nextStore;     // of a load or store: the next store into one of its words
    uint32_t rows;          // of its value: where rows_ begin
    uint32_t expiring;      // first value whose last use this is
    uint32_t alsoExpiring;  // another with the same last use
    uint32_t ownsRows;      // a bit per word: a temporary row, given back after the last use
  };
  // About a word of a place, in the current block.
  struct PlaceWord {
    uint32_t row;    // kNone: nobody has named it
    uint32_t block;  // whose `store` and `busy` these are
    uint32_t store;  // next store
    uint32_t busy;   // last operation that reads or stores what is in the row
    bool isStored;   // by any operation, of any block
    bool isLoaded;
  };
  // Rows that a record names besides its own.
  struct RequestRows {
    HostRequest request;
    uint32_t answer, coords, extra, index;
  };
  // Rows of a structure or array, one after another; bytes is 0 where there are none.
  struct Aggregate {
    uint32_t row;
    uint32_t bytes;
    uint32_t block;  // of a temporary: where it was made
    uint32_t store;  // next operation in the current block that changes it
    bool isStored;
  };
  struct Draft {
    RowStep run;
    uint32_t result;  // where operands_ begin; kNone for none
    uint32_t in[3];
    uint32_t target;   // block
    uint32_t request;  // kNone for none
    uint32_t n;
    uint32_t join;
    uint32_t count;  // of an array's elements; kNone: no array
    uint32_t stride;
    uint32_t origin;  // operation
  };

  // row_selector.cpp: what is known, and where words are
  bool isKnown(const Operation& operation) const;
  bool isKnownPlain(const Operation& plain) const;
  uint32_t operandByte(const Operation& plain) const;
  bool isKnownForm() const;
  bool prepare();
  void notePlaces(const Operation& operation);
  void lookBack(uint32_t block);
  void useOperands(uint32_t i);
  void placeWords(uint32_t block);
  void placeLoad(uint32_t i);
  void placeAnswer(uint32_t i);
  void placeStore(uint32_t i);
  bool canLiveIn(uint32_t busy, uint32_t store, Operand value) const;
  bool readsBefore(const Operation& operation, uint32_t row, uint32_t word) const;
  PlaceWord& placeWord(Place place, uint32_t word) {
    return placeWords_[form_.placeNumber(place) * form::kPlaceWords + word];
  }
  PlaceWord& wordInBlock(Place place, uint32_t word);
  Place firstSlot(const Operation& operation) const;
  Place endSlot(const Operation& operation) const;
  Operand root(Operand value) const;
  uint32_t rowOf(Operand value);
  uint32_t knownRowOf(Operand value) const;
  uint32_t placeRow(Place place, uint32_t word);
  uint32_t slotRows(Place place);
  uint32_t constantRow(uint32_t word);
  uint32_t runWordRow(uint32_t offset);

  // row_aggregates.cpp: structures and arrays
  bool isKnownAggregate(const Operation& operation) const;
  bool isReadable(const Operation& read) const;
  uint32_t elementCount(const Operation& read) const;
  bool isConstructor(Opcode opcode) const;
  uint32_t constructorOperands(const Operation& plain) const;
  void findAggregates();
  void addAggregate(Place place, uint32_t bytes);
  void lookBackAtAggregates(uint32_t i);
  void placeRead(uint32_t i);
  void selectAggregate(uint32_t i);
  void selectInitLocals(const Operation& init);
  void selectElement(uint32_t i);
  void selectConstructor(const Operation& plain);
  void selectAnswerInBlock(const Operation& ask);
  void copyAggregate(uint32_t to, uint32_t from, uint32_t bytes);
  uint32_t operandWord(const Operation& plain, uint32_t at) const;

  // row_records.cpp: the records
  void selectBlock(uint32_t block);
  void selectOperation(uint32_t i);
  void selectOperate(uint32_t i);
  bool isConstant(Operand value, uint32_t words) const;
  void selectChoice(uint32_t i, StepForms forms);
  void selectLoad(uint32_t i);
  void selectStore(uint32_t i);
  void selectBranch(uint32_t i);
  bool selectLoopBranch(uint32_t i);
  void selectJump(uint32_t i);
  void selectHost(uint32_t i);
  void selectPlain(uint32_t i);
  void selectOnSlots(const Operation& plain);
  uint32_t takeRow();
  void takeRows(uint32_t i);
  void expire(uint32_t i);
  void copy(uint32_t to, uint32_t from);
  void flushCopies();
  Draft draft(RowStep run) const;
  void append(const Draft& made, uint32_t value = kNone);
  void appendJoin();
  void appendRequest(RowStep run, const RequestRows& rows);
  uint32_t listOperand(Operand value, uint32_t count);
  uint32_t listResult(uint32_t i);
  RowStep stepFor(StepForms forms, uint32_t i) const;
  uint32_t indexRow(const Operation& operation) const;
  uint32_t loopBehind(uint32_t block) const;

  // row_finish.cpp: from drafts to records
  bool finish();
  bool makeRows();
  uint32_t* rowAt(uint32_t row) const;
  bool finishRecords();
  bool finishRows();

  const form::Form& form_;
  const Machine& machine_;
  const CompiledShader& shader_;
  const RowFunctions& functions_;
  RowProgram& program_;
  form::Arena working_;
  Info* info_ = nullptr;
  PlaceWord* placeWords_ = nullptr;
  Aggregate* aggregates_ = nullptr;  // by slot
  uint32_t* blockJoins_ =
      nullptr;                  // join at the beginning of each block; kNone: nobody jumps there
  form::Array<uint32_t> rows_;  // of values' words; kNone: not decided
  form::Array<uint32_t> operands_;  // rows by record
  form::Array<uint32_t> spareRows_;
  form::Array<uint32_t> constants_;     // words, and
  form::Array<uint32_t> constantRows_;  // their rows
  form::Array<uint32_t> runWords_;      // offsets, and
  form::Array<uint32_t> runWordRows_;
  form::Array<uint32_t> copiesTo_;
  form::Array<uint32_t> copiesFrom_;
  form::Array<Draft> drafts_;
  form::Array<RequestRows> requests_;
  uint32_t rowCount_ = 0;
  uint32_t joinCount_ = 0;
  uint32_t block_ = 0;
  uint32_t now_ = 0;           // operation
  uint32_t barrier_ = 0;       // the last operation at which invocations can leave the block, + 1
  uint32_t lastMade_ = kNone;  // value of the record before
  bool isUnknown_ = false;     // rows do not know this form after all
};

// Instructions left to plain handlers whose steps ask the host.
bool asksHost(Opcode opcode);

// Steps that ask the host.
const RowRecord* askForVariable(const RowRecord* record, RowState& state);
const RowRecord* askForBlock(const RowRecord* record, RowState& state);
const RowRecord* askForBuiltin(const RowRecord* record, RowState& state);
const RowRecord* askForUnary(const RowRecord* record, RowState& state);
const RowRecord* askForLookup(const RowRecord* record, RowState& state);

// Delivers the outputs of the invocations that run.
void deliverOutputs(RowState& state);

}  // namespace shadermachine::batch
