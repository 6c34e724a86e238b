#include "fuzz/engine_comparison.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>
#include <vector>

#include "engine/engine.h"
#include "fuzz/arbitrary_host.h"
#include "instructions/opcode_info.h"
#include "machine/run_loop.h"
#include "machine/types.h"

namespace shadermachine::fuzz {
namespace {

constexpr int kRuns = 3;
// Of a plain run; what takes more of either is not compared.
constexpr uint32_t kMostSteps = 200000;
constexpr size_t kMostWords = size_t{1} << 23;

// What a host sees of a machine, with addresses replaced by numbers that compare between machines.
struct Snapshot {
  std::vector<int64_t> facts;   // must be equal
  std::vector<uint32_t> words;  // of slots; equal where the plain runs agree on them
  std::vector<std::pair<int64_t, size_t>> parts;  // of the words: slot and end

  void addWords(const void* data, size_t count, int64_t slot) {
    const size_t before = words.size();
    words.resize(before + count);
    if (count != 0) std::memcpy(words.data() + before, data, count * sizeof(uint32_t));
    parts.emplace_back(slot, words.size());
  }
};

class Recorder {
 public:
  Machine* machine = nullptr;
  std::vector<Snapshot> trace;

  bool isFull() const { return words_ > kMostWords; }

  void record(uint64_t call) {
    if (isFull()) return;
    Snapshot snapshot;
    snapshot.facts.push_back(static_cast<int64_t>(call));
    addFrames(snapshot);
    addSlots(snapshot);
    words_ += snapshot.words.size();
    trace.push_back(std::move(snapshot));
  }

 private:
  void addFrames(Snapshot& snapshot) const {
    auto& facts = snapshot.facts;
    facts.insert(facts.end(), {machine->frameIndex, machine->indexTop});
    for (int32_t f = 0; f <= machine->frameIndex; ++f) {
      const CallFrame& frame = machine->frames[f];
      facts.insert(facts.end(), {frame.function->codeOffset, frame.code - machine->shader->code,
                                 frame.locals - machine->stack, frame.pc, frame.top});
    }
    for (int32_t i = 0; i <= machine->indexTop; ++i) facts.push_back(machine->indexStack[i]);
  }

  // Words of a slot that belong to its variable; all of a temporary's.
  uint32_t ownWords(int64_t slot) const {
    uint32_t words = VM_COMPONENT_COUNT;
    for (int32_t f = 0; f <= machine->frameIndex; ++f) {
      const CallFrame& frame = machine->frames[f];
      const int64_t local = slot - (frame.locals - machine->stack);
      if (local >= 0 && local < frame.function->localCount) {
        words = inlineByteSize(frame.function->locals[local]) / 4;
      }
    }
    return words;
  }

  void addSlots(Snapshot& snapshot) {
    const CallFrame& frame = machine->frames[machine->frameIndex];
    const int64_t count = frame.locals + frame.top + 1 - machine->stack;
    std::map<const void*, int64_t> blocks;
    for (int64_t s = 0; s < count; ++s) {
      const ValueSlot& slot = machine->stack[s];
      if (slot.view.data == nullptr) {
        snapshot.facts.push_back(-1);
        // At the end of a run only the globals' words mean anything.
        const bool dead = machine->runState == VM_RUN_IDLE && s >= machine->heldGlobalCount;
        const uint32_t own = dead ? 0 : ownWords(s);
        snapshot.addWords(slot.value.words, own, s);
        continue;
      }
      if (words_ + snapshot.words.size() + slot.view.size / 4 > kMostWords) {
        words_ = kMostWords + 1;
        return;
      }
      const DataBlock* block = blockOf(slot.view);
      const int64_t number =
          blocks.emplace(block, static_cast<int64_t>(blocks.size())).first->second;
      snapshot.facts.insert(snapshot.facts.end(),
                            {number, slot.view.size, slot.view.offset, block->referenceCount});
      snapshot.addWords(slot.view.data, slot.view.size / 4, s);
    }
  }

  size_t words_ = 0;
};

bool isNan(uint32_t word) { return (word & 0x7FFFFFFF) > 0x7F800000; }

bool sameWord(uint32_t a, uint32_t b) { return a == b || (isNan(a) && isNan(b)); }

// A machine that is run with all words no instruction has defined filled with a pattern.
class Runner {
 public:
  Runner(uint32_t pattern, uint32_t hostSeed) : pattern_(pattern), hostSeed_(hostSeed) {
    recorder_.machine = machine_;
    fill(0, machine_->stackCapacity);
  }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  VmError runTranslated(const CompiledShader& shader) {
    const StartupInfo startup = startupInfo(shader);
    const VmError error = vmShaderMachineExecuteShader(machine_, &shader, &startup);
    recordEnd(error);
    return error;
  }

  VmError runPlain(const CompiledShader& shader) {
    const StartupInfo startup = startupInfo(shader);
    VmError error = beginRun(*machine_, shader, startup);
    if (error == VM_OK) {
      fillAboveTop();
      for (uint32_t steps = 0; machine_->runState != VM_RUN_STOPPING; ++steps) {
        if (steps == kMostSteps || recorder_.isFull()) stopRun(*machine_, VM_ERR_TIMEOUT);
        if (steps < kMostSteps) step();
      }
      error = endRun(*machine_);
    }
    recordEnd(error);
    return error;
  }

  const std::vector<Snapshot>& trace() const { return recorder_.trace; }
  uint32_t slots() const { return slots_; }
  bool hasTranslation() const { return engine::isTranslated(*machine_); }

 private:
  // A new host, so that every run gets the same answers.
  StartupInfo startupInfo(const CompiledShader& shader) {
    host_ = ArbitraryHost(hostSeed_);
    const int32_t output = shader.outputGlobal0;
    if (output >= 0) host_.outputWords = inlineByteSize(shader.globals[output]) / 4;
    host_.onAccess = [this] { recorder_.record(host_.calls()); };
    return host_.startup(0);
  }

  void step() {
    const CallFrame& frame = currentFrame(*machine_);
    const auto* code = frame.code + frame.pc;
    stepInstruction(*machine_);
    scrub(static_cast<Opcode>(code[0]), code);
  }

  uint32_t partWords(Opcode opcode, const uint8_t* code) const {
    int16_t type;
    std::memcpy(&type, code + 1, sizeof type);
    if (opcode == Opcode::ARRAY_ELEMENT) return typeByteSize(type) / 4;
    return machine_->shader->structTypes[type]->members[code[3]].byteSize / 4;
  }

  // Words that carry no meaning after the instruction, and all above the top.
  void scrub(Opcode opcode, const uint8_t* code) {
    using enum Opcode;
    uint32_t meant = VM_COMPONENT_COUNT;
    if (opcode == SWIZZLE || opcode == SWIZZLE_2 || opcode == SWIZZLE_3) meant = code[2];
    if (opcode == CROSS) meant = 3;
    if (opcode == EQ_AGG || opcode == NE_AGG) meant = 2;
    if (opcode == REFLECT || opcode == REFRACT || opcode == MUL_MAT_VEC || opcode == MUL_VEC_MAT) {
      meant = code[1];
    }
    if (opcode == MUL_MAT_MAT) meant = uint32_t{code[1]} * code[1];
    // What the view left behind in the slot is no part of the value that replaces it.
    const bool part = opcode == ARRAY_ELEMENT || opcode == STRUCT_FIELD;
    if (part && topSlot(*machine_).view.data == nullptr) meant = partWords(opcode, code);
    for (uint32_t i = meant; i < VM_COMPONENT_COUNT; ++i)
      topSlot(*machine_).value.words[i] = pattern_;
    fillAboveTop();
  }

  // The slots that the last instruction has given up.
  void fillAboveTop() {
    const CallFrame& frame = currentFrame(*machine_);
    const int64_t above = frame.locals + frame.top + 1 - machine_->stack;
    fill(above, used_);
    used_ = above;
    slots_ = std::max(slots_, static_cast<uint32_t>(above));
  }

  void fill(int64_t from, int64_t end) {
    for (int64_t s = from; s < end; ++s) {
      for (uint32_t& word : machine_->stack[s].value.words) word = pattern_;
    }
  }

  void recordEnd(VmError error) {
    Snapshot snapshot;
    snapshot.facts = {-1,
                      error,
                      machine_->frameIndex,
                      machine_->indexTop,
                      machine_->error,
                      machine_->shader != nullptr,
                      host_.checksum()};
    for (int32_t f = 0; f <= machine_->frameIndex; ++f) {
      const CallFrame& frame = machine_->frames[f];
      if (frame.function == nullptr) continue;  // the run was refused
      snapshot.facts.insert(snapshot.facts.end(),
                            {frame.locals - machine_->stack, frame.pc, frame.top});
    }
    for (int64_t s = 0; s < machine_->stackCapacity; ++s) {
      const BlockView& view = machine_->stack[s].view;
      if (view.data != nullptr) {
        snapshot.facts.insert(snapshot.facts.end(),
                              {s, view.size, view.offset, blockOf(view)->referenceCount});
      }
    }
    for (uint32_t g = 0; g < machine_->heldGlobalCount; ++g) {
      const ValueSlot& slot = machine_->stack[g];
      if (slot.view.data == nullptr) snapshot.addWords(slot.value.words, VM_COMPONENT_COUNT, g);
    }
    recorder_.trace.push_back(std::move(snapshot));
  }

  int64_t used_ = 0;  // slots
  uint32_t slots_ = 0;
  uint32_t pattern_;
  uint32_t hostSeed_;
  ArbitraryHost host_{hostSeed_};
  MachinePtr owner_ = makeMachine(true);
  Machine* machine_ = static_cast<Machine*>(owner_.get());
  Recorder recorder_;
};

std::string describe(const Snapshot& plain, const Snapshot& again, const Snapshot& translated,
                     size_t event) {
  std::ostringstream out;
  out << "event " << event << " (call " << plain.facts[0] << ")\n";
  for (const Snapshot* side : {&plain, &translated}) {
    out << (side == &plain ? "plain:     " : "translated:");
    for (int64_t fact : side->facts) out << ' ' << fact;
    out << "\n";
  }
  size_t i = 0;
  for (const auto& [slot, end] : plain.parts) {
    for (const size_t first = i; i < end && i < translated.words.size(); ++i) {
      if (sameWord(plain.words[i], translated.words[i])) continue;
      if (!sameWord(plain.words[i], again.words[i])) continue;
      out << "slot " << slot << " word " << i - first << ": " << std::hex << plain.words[i] << " "
          << translated.words[i] << std::dec << "\n";
    }
  }
  return out.str();
}

std::string compareTraces(const Runner& a, const Runner& b, const Runner& translated) {
  if (a.trace().size() != b.trace().size()) return "reads a word that nothing has written";
  const size_t events = std::min(a.trace().size(), translated.trace().size());
  for (size_t e = 0; e < events; ++e) {
    const Snapshot& first = a.trace()[e];
    const Snapshot& second = b.trace()[e];
    const Snapshot& other = translated.trace()[e];
    if (first.facts != second.facts) return "reads a word that nothing has written";
    bool same = first.facts == other.facts && first.words.size() == other.words.size();
    for (size_t i = 0; same && i < first.words.size(); ++i) {
      const bool defined = sameWord(first.words[i], second.words[i]);
      same = !defined || sameWord(first.words[i], other.words[i]);
    }
    if (!same) return describe(first, second, other, e);
  }
  return a.trace().size() == translated.trace().size() ? "" : "another number of callbacks";
}

}  // namespace

Comparison compareRuns(const CompiledShader& shader, uint32_t hostSeed) {
  Runner first(0xAAAAAAAA, hostSeed);
  Runner second(0x55555555, hostSeed);
  Runner translated(0x33333333, hostSeed);
  Comparison result;
  for (int run = 0; run < kRuns; ++run) {
    result.error = first.runPlain(shader);
    if (result.error == VM_ERR_TIMEOUT) return result;
    second.runPlain(shader);
    translated.runTranslated(shader);
  }
  result.difference = compareTraces(first, second, translated);
  result.callbacks = first.trace().size() - kRuns;
  result.translated = translated.hasTranslation();
  result.slots = first.slots();
  return result;
}

}  // namespace shadermachine::fuzz
