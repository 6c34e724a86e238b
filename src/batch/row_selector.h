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
#include "form/decode.h"
#include "form/form.h"
#include "form/passes.h"
#include "instructions/access_path.h"
#include "instructions/decoded_instruction.h"
#include "machine/machine.h"

namespace shadermachine::batch {

inline constexpr uint32_t kRowWordBytes = sizeof(uint32_t);  // of one invocation

class RowSelector {
 public:
  RowSelector(const form::Form& form, form::Decoder& decoder, const Machine& machine,
              const RowFunctions& functions, RowProgram& program)
      : form_(form),
        decoder_(decoder),
        shader_(*machine.shader),
        functions_(functions),
        program_(program),
        working_(RowProgram::kMaxBytes),
        watch_(machine.timeLimit) {}
  RowSelector(const RowSelector&) = delete;
  RowSelector& operator=(const RowSelector&) = delete;

  // Fills in the program. It stays without a first record when the form has operations that rows do
  // not know. False when memory is short.
  bool select();

  // For listings. Of a program's record: the operation that it was made for.
  uint32_t operationOf(uint32_t record) const { return drafts_[record].origin; }
  // The first operation that rows do not know; operations.size() when they know all.
  uint32_t firstUnknown() const { return firstUnknown_; }
  // Whether it may go on at its target.
  bool leads(const RowRecord& record) const;
  uint32_t rowCount() const { return rowCount_; }
  // The rows of words of variables and temporaries: calls the function with row, place and word. A
  // row may come twice; the first time counts.
  template <class Function>
  void forEachPlaceRow(Function function) const {
    for (uint32_t a = 0; a < aggregates_.size(); ++a) {
      const Aggregate& aggregate = aggregates_[a];
      for (uint32_t w = 0; w < aggregate.bytes / kRowWordBytes; ++w) {
        function(aggregate.row + w, aggregate.place, w);
      }
    }
    for (Place place = 0; place < form_.slotCount; ++place) {
      for (uint32_t w = 0; w < form::kPlaceWords; ++w) {
        const uint32_t row = placeWords_[place * form::kPlaceWords + w].row;
        if (row != kNone) function(row, place, w);
      }
    }
  }

 private:
  using Operation = form::Operation;
  using Operand = form::Operand;
  using Place = form::Place;
  static constexpr uint32_t kNone = UINT32_MAX;
  // A program that needs more of anything is left to the machine: one copy of an aggregate names
  // thousands of rows.
  static constexpr uint32_t kMaxRows = 16384;
  static constexpr uint32_t kMaxRecords = 1u << 19;
  static constexpr uint32_t kMaxOperands = 1u << 21;
  // Of records between two that look at the clock: some tens of microseconds.
  static constexpr uint32_t kOperandsPerLook = 8192;
  static constexpr uint32_t kSlotBytes = form::kPlaceWords * sizeof(uint32_t);

  // About an operation.
  struct Info {
    uint32_t lastUse;       // operation that uses its value last; kNone: nobody
    uint32_t nextStore;     // of a load or store: the next store into one of its words
    uint32_t rows;          // of its value: where rows_ begin
    uint32_t expiring;      // first value whose last use this is
    uint32_t alsoExpiring;  // another with the same last use
    uint32_t ownsRows;      // a bit per word: a temporary row, given back after the last use
    uint32_t references;    // where those that it names begin in references_
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
  // Rows of a structure or array, one after another.
  struct Aggregate {
    uint32_t row;
    uint32_t bytes;
    Place place;          // where a reference to it is first
    uint32_t copied;      // aggregate that it is a copy of part of, or kNone
    uint32_t replacedBy;  // operation that names it first, when all do that, once; or kNone
    uint32_t block;       // whose `store` this is
    uint32_t store;       // next operation that changes it
    bool isStored;        // by any operation, of any block
    bool isNamed;         // likewise
  };
  // Part of an aggregate, in bytes; or an inline value, without one.
  struct Reference {
    uint32_t aggregate = kNone;
    uint32_t first = 0;
    uint32_t bytes = 0;
    bool operator==(const Reference&) const = default;
  };
  // Rows, from the first of which run-time indices count.
  struct Path {
    uint32_t row;
    Operand in[form::kMaxStoreIndices];
    RowPath limits;
  };
  // What a plain handler stores into: `bytes` from `first`, further by indices in slots.
  struct StoredPart {
    uint32_t first;
    uint32_t bytes;
    bool isInline;  // so is the value then
    RowPath limits;
    Place slots[RowPath::kMost];
  };
  struct Draft {
    RowStep run;
    uint32_t result;  // where operands_ begin; kNone for none
    uint32_t in[3];
    uint32_t target;   // block
    uint32_t request;  // kNone for none
    uint32_t n;
    uint32_t join;
    uint32_t path;    // kNone for none
    uint32_t origin;  // operation
  };

  // row_selector.cpp: what is known, and where words are
  bool isKnown(const Operation& operation) const;
  bool isKnownPlain(const Operation& plain) const;
  bool hasKnownOutputs() const;
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
  template <class Function>
  void forEachSlot(const Operation& operation, Function function) const;
  Operand root(Operand value) const;
  uint32_t rowOf(Operand value);
  uint32_t knownRowOf(Operand value) const;
  uint32_t placeRow(Place place, uint32_t word);
  uint32_t slotRows(Place place);
  bool listConstants();
  uint32_t constantRow(uint32_t word);
  uint32_t runWordRow(uint32_t offset);

  // row_references.cpp: which aggregates the operations name
  DecodedInstruction instructionOf(const Operation& plain) const;
  const StructInfo* structOf(uint32_t operand);
  uint32_t slotsOf(const Operation& plain) const;
  bool trackSlots();
  Reference held(Place slot) const;
  void hold(Place slot, const Reference& reference);
  Reference addAggregate(Place place, uint64_t bytes);
  Reference addCopy(Place place, uint32_t bytes, const Reference& of);
  bool isShared(uint32_t aggregate, Place slot, int32_t top) const;
  bool isCopyHeld(uint32_t aggregate) const;
  bool arriveAt(uint32_t block);
  bool bringsBack(const Operation& jump) const;
  bool resolveFlow(const Operation& operation);
  bool resolveReferences();
  bool resolveBlock(const form::Block& block);
  bool resolve(const Operation& operation);
  bool name(const Reference& reference);
  bool changesPart(const Reference& reference);
  void beginWith(const Reference& reference);
  bool resolveLocals(const Operation& init);
  bool resolveView(const Operation& share);
  bool resolveWholeStore(const Operation& store);
  bool resolvePlain(const Operation& plain);
  bool resolveConstructor(const Operation& plain);
  bool resolveMember(const Operation& plain);
  bool resolveElement(const Operation& plain);

  // row_part_stores.cpp: stores into parts by their plain handlers
  Place basicTarget(const Operation& plain) const;
  static Place variableOf(const Operation& plain, const DecodedInstruction& item);
  Operand storedIn(Place slot, uint32_t i) const;
  bool isMasked(Operand index) const;
  bool walkStep(StoredPart& part, PartType& type, Operand index, Place slot) const;
  bool walkTo(StoredPart& part, PartType& type, uint32_t number, Place slot) const;
  bool findPart(const Operation& plain, uint32_t i, StoredPart& part) const;
  bool resolvePartStore(const Operation& plain);
  void selectStoredPart(uint32_t i);

  // row_aggregates.cpp: structures and arrays
  static bool isReadable(const Operation& read, uint32_t bytes);
  static bool isStorable(const Operation& store, uint32_t bytes);
  static uint32_t storeBound(const Operation& store, uint32_t step, uint32_t bytes);
  Place firstWordSlot(const Operation& plain) const;
  const Reference& referenceOf(uint32_t i, uint32_t k = 0) const {
    return references_[info_[i].references + k];
  }
  uint32_t rowOf(const Reference& reference) const;
  void lookBackAtAggregates(uint32_t i);
  void changeAggregate(uint32_t i, uint32_t k);
  void addStep(Path& path, Operand index, uint32_t stride, uint32_t bound) const;
  Path readPath(uint32_t i) const;
  Path storePath(uint32_t i, uint32_t row, uint32_t bytes) const;
  void placeRead(uint32_t i);
  void selectAggregate(uint32_t i);
  void selectInitLocals(uint32_t i);
  void selectRead(uint32_t i);
  void selectCheck(uint32_t i);
  void selectPartStore(uint32_t i, const Path& path);
  void selectOnReferences(uint32_t i);
  void selectComparison(uint32_t i);
  void selectConstructor(uint32_t i);
  void selectElement(uint32_t i);
  void swapWords(Place top);
  void selectAnswerInBlock(uint32_t i);
  void copyRows(uint32_t to, uint32_t from, uint32_t bytes);
  void copyParallel(uint32_t* to, uint32_t* from, uint32_t count);
  void namePath(Draft& made, const Path& path);
  void appendRead(const Path& path, uint32_t to, uint32_t words);

  // row_records.cpp: the records
  void selectBlock(uint32_t block);
  uint32_t operandCount() const;
  bool isTooMuch() const;
  void appendLook();
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
  uint32_t largestAnswer() const;
  bool finishRecords();
  bool finishRows();
  bool isChangedGlobal(const Aggregate& aggregate) const {
    return aggregate.isStored && aggregate.replacedBy == kNone &&
           aggregate.place < shader_.globalCount;
  }

  const form::Form& form_;
  form::Decoder& decoder_;  // is told of the structure types that the program is made from
  const CompiledShader& shader_;
  const RowFunctions& functions_;
  RowProgram& program_;
  form::Arena working_;
  Info* info_ = nullptr;
  PlaceWord* placeWords_ = nullptr;
  form::Array<Aggregate> aggregates_;
  form::Array<Reference> references_;  // that operations name, in their order
  uint32_t* tracked_ = nullptr;        // by slot: the number of one that can hold a reference
  form::Array<Place> trackedSlots_;    // by number
  Reference* held_ = nullptr;          // by number
  Reference** entries_ = nullptr;      // by block: what slots hold at its beginning
  uint32_t* blockJoins_ =
      nullptr;                  // join at the beginning of each block; kNone: nobody jumps there
  form::Array<uint32_t> rows_;  // of values' words; kNone: not decided
  form::Array<uint32_t> operands_;  // rows by record
  form::Array<uint32_t> spareRows_;
  form::Array<uint32_t> constants_;     // words in order, and
  form::Array<uint32_t> constantRows_;  // their rows; kNone: nobody has named it
  form::Array<uint32_t> runWords_;      // offsets, and
  form::Array<uint32_t> runWordRows_;
  form::Array<uint32_t> copiesTo_;
  form::Array<uint32_t> copiesFrom_;
  form::Array<Draft> drafts_;
  form::Array<RequestRows> requests_;
  form::Array<RowPath> paths_;
  form::Array<StoredPart> parts_;
  form::Watch watch_;
  uint32_t rowCount_ = 0;
  uint32_t joinCount_ = 0;
  uint32_t block_ = 0;
  uint32_t now_ = 0;           // operation
  uint32_t barrier_ = 0;       // the last operation at which invocations can leave the block, + 1
  uint32_t lastMade_ = kNone;  // value of the record before
  uint32_t firstUnknown_ = 0;
  uint32_t wantedUntil_ = 0;  // last use of any value that the block has made so far
  uint32_t looked_ = 0;       // operands before the last look at the clock
  bool isOverTime_ = false;
  bool haveAllCome_ = false;  // to the operation that is looked at, and once only
};

// Instructions left to plain handlers whose steps ask the host.
bool asksHost(Opcode opcode);
// And those that make, move or drop references, or read through them.
bool isOnReferences(Opcode opcode);
bool storesPart(Opcode opcode);
// Steps that ask the host.
const RowRecord* askForVariable(const RowRecord* record, RowState& state);
const RowRecord* askForBlock(const RowRecord* record, RowState& state);
const RowRecord* askForBuiltin(const RowRecord* record, RowState& state);
const RowRecord* askForUnary(const RowRecord* record, RowState& state);
const RowRecord* askForLookup(const RowRecord* record, RowState& state);

// Delivers the outputs of the invocations that run.
void deliverOutputs(RowState& state);

}  // namespace shadermachine::batch
