// The form: what a shader's entry function and all it calls do, as blocks of operations on values,
// before anybody decides how to run it. It is made from the bytecode in one pass (builder.h),
// improved by passes that each do one thing (passes.h), and run by a back end.
//
// Words live in places: a value slot of the machine, an entry of its index stack, or scratch words
// of the translation. Variables, and temporaries that have to be somewhere, are places; everything
// else is a value, made by one operation and used by later ones of the same block.
//
// What holds, between any two stages (check.h checks it):
//  1. A value is used only in the block that makes it, after the operation that makes it, and not
//     behind a plain handler that runs in between (constants excepted: they are nowhere). What must
//     outlive a block is stored into a place; a join of two ways finds it there on each of them.
//  2. A value has all the words that its users read. An instruction on n components of a wider
//     value makes a value of n words; the slot's other words stay part of the slot (builder.h).
//  3. Control enters a block at its first operation and leaves it by Jump, JumpBack, Finish or Stop
//     at its end, by a Branch anywhere, or into the next block in order.
//  4. An operation at which the host can look (isSeen) names all that the host must find: frames,
//     pc and tops by its site, and every slot and index up to the tops in its place, stored before.
//     Only such operations and Finish show the words of places to anybody outside; after Finish
//     the globals and the entry function's locals are in their slots.
//  5. A place of a slot above the top of a site, or of an index above it, is nobody's: its words
//     may be anything.
//  6. References to blocks are in slots, never in values. They are moved, shared and released by
//     operations of their own, in the order of the instructions.
//  7. A read or view behind a run-time index (`steps`) follows, in its block, a CheckIndex of the
//     same variable and index; in a storage, a CheckBound of the same index.
//  8. From OpenStorage to ReleaseSlot the slot of a storage's variable has the only reference to
//     its block. All other operations name the words, not the slot.
//  9. An operation that reads through a slot's reference, or gives it away, has it from another
//  one.
#pragma once

#include <shadermachine/machine.h>

#include "form/arena.h"
#include "instructions/opcode_info.h"

namespace shadermachine::form {

using Value = uint32_t;  // number of the operation that makes it
inline constexpr Value kNoValue = UINT32_MAX;

using Place = uint32_t;
inline constexpr Place kFirstIndexPlace = VM_STACK_CAPACITY;  // below: value slots
inline constexpr Place kFirstScratchPlace = kFirstIndexPlace + VM_INDEX_STACK_CAPACITY;
inline constexpr uint32_t kPlaceWords = VM_COMPONENT_COUNT;
inline constexpr uint32_t kMaxStoreIndices = 3;
// Blocks up to this size are freed at once, and no work on them looks at the clock.
inline constexpr uint32_t kMostSmallBytes = 4092;

// Words first, first + 1, ... of a value: as many as the operation reads.
struct Operand {
  Value value = kNoValue;
  uint32_t first = 0;
  bool operator==(const Operand&) const = default;
};

// A run-time index of an access path: what an operand says, plus `add`, of which the bits in the
// mask count. It counts `stride` bytes and must be below the bound, if that is not 0.
struct IndexStep {
  uint32_t stride = 0;
  uint32_t bound = 0;
  uint32_t add = 0;
  uint32_t mask = UINT32_MAX;
};

struct SlotBytes {
  Place slot;
  uint32_t bytes;
};

// Memory of the translation that is an aggregate variable's block: the words of `count` places one
// after another. No operation reads or stores words of two of them.
struct Storage {
  Place slot;  // of the variable
  uint32_t bytes;
  Place first;
  uint32_t count;
  bool isUsable;
};

// One function in the tree of inlined calls.
struct InlinedCall {
  const InlinedCall* caller;  // null for the entry function
  uint32_t function;
  uint32_t localsSlot;  // absolute slot of the first local
  int32_t frameIndex;
  uint32_t callerPc;  // the caller's frame while this call is under way
  int32_t callerTop;
};

// The state of the machine that the plain handlers would have at one instruction.
struct Site {
  const InlinedCall* call;
  uint32_t pc;
  int32_t top;       // of the call's frame, relative to its locals
  int32_t indexTop;  // of the index stack
  uint32_t opcode;   // that a plain handler runs here

  int32_t topSlot() const { return static_cast<int32_t>(call->localsSlot) + top; }
};

enum class Kind : uint8_t {
#define KIND(name, text) name,
#include "form/kinds.def"
#undef KIND
};

struct Operation {
  Kind kind = Kind::Nothing;
  Opcode opcode = Opcode::NOP;
  uint8_t words = 0;  // of the value that it makes
  uint8_t n = 0;
  bool spare = false;  // Store: the place's words behind mean nothing and may be overwritten
  Place place = 0;
  Place other = 0;
  uint32_t first = 0;
  uint32_t size = 0;
  uint32_t stride = 0;
  uint32_t count = 0;
  uint32_t block = 0;
  const Site* site = nullptr;
  const IndexStep* steps = nullptr;
  Operand in[4];
};

struct Block {
  uint32_t begin = 0;  // operations begin to end - 1
  uint32_t end = 0;
};

// Operations in blocks, in the order in which they are laid out.
class Form {
 public:
  explicit Form(Arena& memory) : arena(memory) {}

  Array<Operation> operations;
  Array<Block> blocks;    // in the order of their operations
  Array<uint32_t> order;  // order[b]: position of block number b, as Branch and Jump name it
  Array<uint32_t> constants;
  uint32_t slotCount = 0;   // slots below this one are named
  uint32_t indexCount = 0;  // and indices
  uint32_t scratchPlaces = 0;
  // Of the aggregate locals of all calls; 0 bytes: of one that must keep a block of its own.
  Array<SlotBytes> aggregates;
  Array<Storage> storages;
  Array<uint32_t> storageWords;  // words before each place from firstStorage on, and before the end
  Place firstStorage = UINT32_MAX;
  uint32_t globalCount = 0;
  Arena& arena;  // of sites and calls
  // The host finds nothing in places but what it is handed: operands of HOST instructions, and
  // after Finish the words of two globals.
  bool isHidden = false;
  int32_t outputs[2] = {-1, -1};

  // Places without gaps, for tables: slots, then indices, then scratch places.
  uint32_t placeCount() const { return slotCount + indexCount + scratchPlaces; }
  uint32_t placeNumber(Place place) const {
    if (place < kFirstIndexPlace) return place;
    if (place < kFirstScratchPlace) return place - kFirstIndexPlace + slotCount;
    return place - kFirstScratchPlace + slotCount + indexCount;
  }

  // Words that a place has.
  uint32_t wordsOf(Place place) const {
    if (place >= kFirstIndexPlace && place < kFirstScratchPlace) return 1;
    if (place < firstStorage) return kPlaceWords;
    return storageWords[place - firstStorage + 1] - storageWords[place - firstStorage];
  }
  const Storage& storageAt(Place first) const {
    uint32_t i = 0;
    while (!storages[i].isUsable || storages[i].first != first) ++i;
    return storages[i];
  }

  bool failed() const {
    return aggregates.failed() || operations.failed() || blocks.failed() || order.failed() ||
           constants.failed() || arena.failed();
  }
  const uint32_t* constantWords(const Operation& operation, uint32_t word = 0) const {
    return &constants[operation.first + word];
  }
};

// How many operands an operation has.
uint32_t operandCount(const Operation& operation);
// Words that it reads of operand i.
uint32_t operandWords(const Operation& operation, uint32_t i);
// The host can look: it must find every place up to the site's tops as the plain handlers would.
bool isSeen(Kind kind);
// Makes a value from its operands and nothing else, and does nothing else.
bool isPure(Kind kind);
// Control does not go on behind it.
bool endsBlock(Kind kind);

// Places place .. end - 1 that it writes, and in each of them the words, as a mask, that it may
// change. Plain handlers write more: see isSeen().
struct Written {
  Place place;
  Place end;
  uint32_t words;
};
Written writtenBy(const Operation& operation);
// Places that it reads run-time words of.
struct PlaceRange {
  Place place;
  Place end;

  bool has(Place other) const { return place <= other && other < end; }
};
PlaceRange readBy(const Operation& operation);
// Reads or changes a reference in the slot. A reference shares the slot's words with inline values,
// so nothing may be written there early: the words are the reference's until the operation is over.
bool touchesReference(const Operation& operation, Place slot);

// Slots up to this one are seen at the operation, a place with words for each.
int32_t seenTop(const Operation& operation);

inline uint32_t wordMask(uint32_t first, uint32_t n) { return ((1u << n) - 1) << first; }

}  // namespace shadermachine::form
