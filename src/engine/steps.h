// Handlers of the records that are not component-wise instructions.
#pragma once

#include <cstddef>

#include "engine/kernel_table.h"

namespace shadermachine::engine {

inline ValueSlot& slotOf(const uint32_t* words) {
  const char* start = reinterpret_cast<const char*>(words) - offsetof(InlineValue, words);
  return *objectAt<ValueSlot>(const_cast<char*>(start));
}

// steps_flow.cpp

// The frames of inlined calls, and the entry function's, at a site.
void fillFrames(Machine& machine, const Site& site);

// Brings frames, pc, top and the index stack to what the plain handlers would have at the site.
inline void enterSite(Machine& machine, const Site& site) {
  machine.frameIndex = site.call->frameIndex;
  machine.indexTop = site.indexTop;
  if (site.call->caller != nullptr) return fillFrames(machine, site);
  CallFrame& entry = machine.frames[0];
  entry.pc = site.pc;
  entry.top = site.top;
}

Step plainStep(ENGINE_STATE);      // site: one instruction by its plain handler
Step plainCallStep(ENGINE_STATE);  // site: CALL, and what it calls, by the plain handlers
Step stopStep(ENGINE_STATE);       // site, x: ends the run with code x
Step finishStep(ENGINE_STATE);     // as stopStep(), in the entry function
Step jumpStep(ENGINE_STATE);       // target
// Where loops go when their time may be over: d: site, c: the record that goes on.
Step timeStep(ENGINE_STATE);
Step clockStep(ENGINE_STATE);          // site: now and then in code without jumps
Step jumpBackStep(ENGINE_STATE);       // c and d as of timeStep()
Step branchWordStep(ENGINE_STATE);     // to the target when the word register is 0
Step branchMemoryStep(ENGINE_STATE);   // to the target when word a is 0
Step zeroSlotsStep(ENGINE_STATE);      // the first four words of x slots, from the words at d
Step zeroWideSlotsStep(ENGINE_STATE);  // the same, all words
Step initLocalsStep(ENGINE_STATE);     // site, d: words of the first local; x locals from number y
Step releaseSlotStep(ENGINE_STATE);    // d: words of the slot whose block is released
Step clearSlotStep(ENGINE_STATE);      // d: words of the slot whose reference is cleared
// d: slot; a: aggregate variable; x bytes at y, all if x is 0; b: null, or an index that counts z
// bytes.
Step shareViewStep(ENGINE_STATE);

// steps_host.cpp

// LOAD_GLOBAL of host variable number x. A basic one of n words: the host fills the words at a.
// For n above 4 no register is filled. An aggregate: the host fills its own block; d: the slot that
// would be pushed.
StepPair hostVariableSteps(uint32_t n);
Step hostAggregateStep(ENGINE_STATE);
// Built-in variable of callback x; y: whether the current index is passed. The host fills the words
// at d; the first four are in the vector register too.
Step hostBuiltinStep(ENGINE_STATE);
// `bytes` bytes at `offset` of an aggregate, and at as much more as its index says.
struct PartSource {
  uint32_t offset;
  uint32_t bytes;
  uint32_t stride;
  const uint32_t* index;  // null: none
};
// Stores into the aggregate variable d (a slot's words). site: with the value popped.
Step storeBlockStep(ENGINE_STATE);   // from the temporary a, which gives its reference up
Step copyBlockStep(ENGINE_STATE);    // from the variable a; c: null, or the PartSource
Step fillStorageStep(ENGINE_STATE);  // likewise; b: data of the block that d must keep
Step renewStep(ENGINE_STATE);        // d gets a block of its own of x bytes
Step openStorageStep(ENGINE_STATE);  // the slot d gets the FixedBlock a, of x bytes
Step reserveStep(ENGINE_STATE);      // stops where a block of x bytes could not be made

// steps_move.cpp

// From a to d; n words, or for n = 4 of three too. exact: three words and not the fourth.
RecordHandler copyStep(uint32_t n, bool exact);
Step copyWordsStep(ENGINE_STATE);  // x words
// From a register to d.
RecordHandler storeStep(bool fromWord, bool fromScalar, uint32_t n, bool exact);

StepPair shuffleSteps(uint32_t n, uint32_t mask);     // vector -> vector
StepPair splatSteps(uint32_t n, bool inScalar);       // a or scalar -> vector
StepPair gatherSteps(uint32_t n, uint32_t inScalar);  // words a, b, c, e; inScalar: n for none
StepPair appendSteps(uint32_t lane, bool inScalar);   // vector with a or scalar in the lane

// steps_parts.cpp

// Reads a part of an aggregate variable: a: its slot's words; y: bytes that the block must have;
// x: byte offset of the part. Zero when the block is too small. For n above 4 words go to d only.
// based: b: an index that counts z bytes.
StepPair memberSteps(uint32_t n, bool based);
// What an array may be asked for besides its element's size.
struct ElementLimits {
  uint32_t count;  // 0: the block's size decides
  uint32_t bytes;  // that the block must have
  uint32_t baseStride;
  const uint32_t* base;  // null, or an index that counts baseStride bytes
};
// A part of one element of an array: b: the index (or the word register); y: bytes of an element;
// z: bytes before the part in element 0; c: null, or ElementLimits. site, x: stops with code x when
// the index is out of range. size: words of a part of more than four.
StepPair elementSteps(uint32_t n, bool indexInWord);
// Stops as elementSteps() would, and reads nothing.
RecordHandler checkIndexStep(bool indexInWord);
// What an index is made of besides one operand: see form::IndexStep.
struct IndexPlan {
  uint32_t add;
  uint32_t mask;
  uint32_t baseStride;
  const uint32_t* base;  // a second index, of this stride
};
// Words at an address: a: with all indices 0; b: the index (or the word register), which counts y
// bytes and must be below z; c: null, or the IndexPlan. site, x and size as of elementSteps().
StepPair indexedSteps(uint32_t n, bool indexInWord, bool planned);
RecordHandler checkBoundStep(bool indexInWord);  // b, z, site and x as above
Step copyIndexedStep(ENGINE_STATE);              // x words from a, and y bytes for each of b, to d
// Component b of the y components at a; site and x as above.
StepPair componentSteps(bool indexInWord);
// Column b of the n times n matrix at a; site and x as above.
StepPair columnSteps(uint32_t n, bool indexInWord);

// steps_part_stores.cpp

// What a store into a part has to check.
struct PartLimits {
  uint32_t bytes;        // that the block must have with the first index 0
  uint32_t bytesStride;  // and more for each of it
  uint32_t count;        // of indices
  const uint32_t* index[form::kMaxStoreIndices];
  form::IndexStep steps[form::kMaxStoreIndices];
};
enum class IndexSource : uint8_t { None, Word, Memory };
// Stores n words, from a or a register (n = 1: scalar, 2 to 4: vector), at byte x of a part of the
// variable d (its slot's words), which is an aggregate or, not inBlock, of the words d themselves.
// One index, in the word register or at b, counts y bytes and must be below z. c: PartLimits. size:
// words of a part of more than four.
RecordHandler storePartStep(bool inBlock, IndexSource index, uint32_t n, bool inRegister);
// Any number of indices, by the limits; `size` words from a.
Step storeDeepPartStep(ENGINE_STATE);
Step storeDeepWordsStep(ENGINE_STATE);  // not in a block

// steps_geometry.cpp

// Form bits as of the component-wise instructions: which operands are in the vector register.
StepPair lengthSteps(uint32_t n, unsigned form);
StepPair normalizeSteps(uint32_t n, unsigned form);
StepPair distanceSteps(uint32_t n, unsigned form);
StepPair dotSteps(uint32_t n, unsigned form);
StepPair dotMaxSteps(uint32_t n, unsigned form);  // the larger of the dot product and c
StepPair crossSteps(unsigned form);
StepPair reflectSteps(uint32_t n, unsigned form);
StepPair refractSteps(uint32_t n);
StepPair faceforwardSteps(uint32_t n);
StepPair matrixVectorSteps(uint32_t n, unsigned form);  // form bit 1: the vector is in its register
StepPair vectorMatrixSteps(uint32_t n, unsigned form);  // form bit 0
Step matrixMatrixStep(ENGINE_STATE);                    // a, b to d; dimension x
StepPair noiseSteps(uint32_t results);                  // n in x, point at a

}  // namespace shadermachine::engine
