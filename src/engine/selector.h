// Last stage: the records of a form, for one machine.
//
// Handlers take their operands from memory or from one of three registers, so most of what is left
// to decide is where a value is. Every value has a home: the place that it is stored into, if
// nothing needs that place's old words in between, else scratch words of its own. A value that a
// record has left in a register is written home only when somebody reads it from memory after the
// register has got another one; the record that made it then becomes its storing form.
//
// What holds between two records:
//  1. A value is in a register (and pending, or at home), at home, or at a place that it was loaded
//     from. A place's words change only after every value that lies there and is still used has
//     been moved away (claim()).
//  2. A value whose home is a place is written there by its own record or not at all; so the place
//     is claimed when the value is made, not when the store is reached. Until then nobody else
//     reads the place or has a reference in its slot.
//  3. At a block's beginning registers hold nothing that anybody knows.
#pragma once

#include "engine/kernel_table.h"
#include "engine/steps.h"
#include "form/form.h"

namespace shadermachine::engine {

using form::Kind;
using form::Operand;
using form::Operation;
using form::Place;
using form::Value;

class Selector {
 public:
  Selector(const form::Form& form, form::Arena& arena, Machine& machine);
  Selector(const Selector&) = delete;
  Selector& operator=(const Selector&) = delete;

  // The first record; null when memory is short.
  const Record* select();
  uint32_t recordCount() const { return records_.size(); }
  // For listings: the operation that record i was made for.
  uint32_t operationOf(uint32_t i) const { return origins_[i]; }

 private:
  static constexpr uint32_t kNone = UINT32_MAX;

  struct ValueInfo {
    uint32_t uses;
    uint32_t lastUse;   // operation
    uint32_t* address;  // of its words; null: it has never been in memory
    Place place;        // that the address lies in, or kNone
    uint32_t first;     // word of the place
    Place home;         // that it will be stored into, or kNone
    uint32_t homeWord;
    uint32_t homeStore;  // the operation that stores it there
    Place copy;  // another place that has the same words, as long as its version is copyVersion
    uint32_t copyWord;
    uint32_t copyVersion;
    Value nextHere;  // other values in the same place
    bool joined;     // its operation is part of the record of the operation that uses it
  };
  struct PlaceInfo {
    Value values;  // that lie here
    uint32_t version;
  };
  struct RegisterState {
    Value value;
    uint32_t record;  // that filled it
    uint32_t width;
    bool pending;  // its home has not been written
  };
  struct Link {
    uint32_t record;
    uint32_t target;  // block number, or record when `toRecord`
    bool back;        // the way back of a loop: the record's c
  };

  // selector.cpp: where values are
  bool start();
  void startStorages();
  void analyseBlock(const form::Block& block);
  void chooseHomes(const form::Block& block);
  bool canMakeAt(Value value, uint32_t store) const;
  bool keepsReferences(const Operation& operation) const;
  void selectBlock(const form::Block& block);
  void selectOperation(const Operation& operation);
  const Operation& operation(Value value) const { return form_.operations[value]; }
  uint32_t* addressOf(Place place, uint32_t word = 0);
  PlaceInfo& placeInfo(Place place) { return places_[form_.placeNumber(place)]; }
  bool isUsedLater(Value value) const { return values_[value].lastUse > now_; }
  bool inRegister(Operand operand, Register which, uint32_t n) const;
  const uint32_t* memory(Operand operand);
  void settle(RegisterState& held);
  void clobber(Register which);
  void forgetRegisters();
  void liveAt(Value value, Place place, uint32_t word);
  void claim(Place place, uint32_t words);
  void claimWritten(const Operation& operation);
  void moveAway(Value value);
  uint32_t* scratch(uint32_t n);
  uint32_t emit(const Record& record);
  uint32_t* claimHome(uint32_t* otherwise);
  void produce(Record record, StepPair steps, Register result, uint32_t* otherwise = nullptr);
  void produceWords(Record record, StepPair steps, uint32_t n, uint32_t* otherwise = nullptr);
  void produceInMemory(Record record, uint32_t* otherwise = nullptr);

  // select_operations.cpp
  void selectOperate(const Operation& operation);
  void selectKernel(const Operation& operation);
  unsigned numberOf(const Operation& operation) const;
  const uint32_t* kernelOperand(const Operation& operation, uint32_t i);
  bool selectJoined(const Operation& operation);
  void selectScale(const Operation& operation, uint32_t splat);
  unsigned scaleOperands(const Operation& operation, uint32_t splat, Record& record);
  bool readsTwice(const Operation& first, Operand other) const;
  unsigned pairOperands(const Operation& first, Record& record);
  void selectPair(const Operation& operation, uint32_t inner);
  void selectDotMax(const Operation& operation);
  unsigned vectorOperands(const Operation& operation, Record& record);
  void selectGeometry(const Operation& operation);
  void selectProduct(const Operation& operation);
  void selectNoise(const Operation& operation);
  void selectCompose(const Operation& operation);
  void selectGather(const Operation& operation);
  void selectElement(const Operation& operation);
  void selectColumn(const Operation& operation);
  bool joins(const Operation& operation, uint32_t i, Value value) const;

  // select_effects.cpp
  void selectStore(const Operation& operation);
  bool selectZeros(const Operation& operation);
  void selectBranch(const Operation& operation);
  void selectJump(const Operation& operation);
  void selectMember(const Operation& operation);
  void selectReadElement(const Operation& operation);
  void selectLoadIndexed(const Operation& operation);
  void selectCheckBound(const Operation& operation);
  void selectStorage(const Operation& operation);
  void selectCopyWords(const Operation& operation);
  const uint32_t* partSource(const Operation& copy, uint32_t bytes);
  bool setLimits(const Operation& element, Record& record);
  void selectPartStore(const Operation& operation);
  void selectDeepStore(const Operation& operation, PartLimits& limits);
  void selectHost(const Operation& operation);
  void selectWideHost(const Operation& operation, Record record);
  void selectReference(const Operation& operation);
  void selectPlain(const Operation& operation);
  void selectEnd(const Operation& operation);
  bool takeIndex(Operand index, Record& record);
  const Record* link();
  void shortenLoop(Record* records, uint32_t jump, uint32_t start) const;

  const form::Form& form_;
  form::Arena& arena_;
  Machine& machine_;
  form::Array<ValueInfo> values_;
  form::Array<PlaceInfo> places_;
  form::Array<Record> records_;
  form::Array<uint32_t> origins_;
  form::Array<RecordHandler> storing_;  // per record: its storing form
  form::Array<uint32_t>
      compared_;  // per record: the opcode of a comparison that branches, or kNone
  form::Array<uint32_t> blockStarts_;
  form::Array<Link> links_;
  uint32_t* scratchPlaces_ = nullptr;
  form::Array<uint32_t*> storagePlaces_;  // by place, from the first storage's on
  uint32_t* constants_ = nullptr;
  uint32_t* pool_ = nullptr;
  uint32_t poolFree_ = 0;
  RegisterState registers_[3] = {};
  uint32_t now_ = 0;  // operation being selected
  uint32_t blockEnd_ = 0;
  uint32_t skipUntil_ = 0;              // operations that a record before has taken along
  RecordHandler branchForm_ = nullptr;  // of the last record, when it is a comparison
  RecordHandler loopForm_ = nullptr;
  uint32_t comparedOpcode_ = kNone;
  uint32_t comparison_ = kNone;  // that record
  uint32_t lastBranch_ = kNone;  // a comparison that has become a branch
};

}  // namespace shadermachine::engine
