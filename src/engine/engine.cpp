#include "engine/engine.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include "engine/snapshot.h"
#include "engine/steps.h"
#include "engine/translator.h"

namespace shadermachine::engine {

// One shader's program for one machine: its records hold addresses of the machine's slots.
struct Translation {
  explicit Translation(size_t limit) : arena(limit) {}
  uint64_t bytes() const { return sizeof *this + arena.bytes(); }
  static constexpr size_t kMaxBytes = size_t{16} << 20;

  Translation* next = nullptr;
  Snapshot snapshot;
  Arena arena;
  const Record* first = nullptr;
};

namespace {

constexpr uint32_t kMaxTranslations = 8;
// A translation takes as long as some hundred plain runs of its shader. So
// many runs of shaders without a translation are plain after one that replaced another, or came to
// nothing: shaders that take turns then cost no more than they would without the engine.
constexpr uint32_t kPlainRuns = 4096;
// Each retry makes one more instruction keep words that a later one turned out to read.
constexpr uint32_t kMaxAttempts = 40;

void destroy(Translation* translation) {
  std::destroy_at(translation);
  std::free(translation);
}

// One that the machine keeps, and counts among its memory.
void drop(Machine& machine, Translation* translation) {
  machine.memory.inUse -= translation->bytes();
  destroy(translation);
}

// The program of a shader that is left to the plain handlers.
constexpr Record kPlainProgram = {&plainRunStep, nullptr, nullptr, nullptr, nullptr,
                                  {nullptr},     0,       0,       0,       0};

// False when memory is short. A shader that is left to the plain handlers has no first record.
bool makeRecords(Machine& machine, Decoder& decoder, Translation& translation) {
  for (uint32_t attempt = 0; attempt < kMaxAttempts; ++attempt) {
    translation.arena.release();
    auto* translator = static_cast<Translator*>(std::malloc(sizeof(Translator)));
    if (translator == nullptr) return false;
    std::construct_at(translator, translation.arena, decoder, machine);
    translation.first = translator->translate(machine.shader->entryIndex);
    const bool again = translator->retry();
    std::destroy_at(translator);
    std::free(translator);
    if (translation.arena.failed()) return translation.arena.isFull();
    if (!again) return true;
    translation.first = nullptr;
  }
  return true;
}

// The snapshot comes with a translation that has no records too: that is remembered like another.
// False when memory is short, or when it is too large even so.
bool takeSnapshot(const CompiledShader& shader, const Decoder& decoder, Translation& translation) {
  if (!translation.arena.failed()) {
    if (translation.snapshot.take(shader, decoder, translation.arena)) return true;
    if (!translation.arena.isFull()) return false;
  }
  translation.first = nullptr;
  translation.arena.release();
  return translation.snapshot.take(shader, decoder, translation.arena);
}

// Null when memory is short: the run is then a plain one, and the next tries again. Null as well
// when the run's time does not suffice, or the shader is too large to be known again.
Translation* translate(Machine& machine) {
  auto* translation = static_cast<Translation*>(std::malloc(sizeof(Translation)));
  if (translation == nullptr) return nullptr;
  const uint64_t share = memoryForTranslations(machine.memory);
  const uint64_t records = share < sizeof *translation ? 0 : share - sizeof *translation;
  std::construct_at(translation, std::min<uint64_t>(records, Translation::kMaxBytes));
  Arena decoded(Translation::kMaxBytes);
  Decoder decoder(decoded, machine);
  const bool made = makeRecords(machine, decoder, *translation) &&
                    (!decoded.failed() || decoded.isFull()) && !decoder.isOverTime(0) &&
                    takeSnapshot(*machine.shader, decoder, *translation);
  if (made) {
    if (translation->first == nullptr) translation->first = &kPlainProgram;
    return translation;
  }
  if (decoder.isOverTime(0) || translation->arena.isFull()) {
    machine.runsBeforeTranslation = kPlainRuns;
  }
  destroy(translation);
  return nullptr;
}

// Drops the translations used longest ago; never the first.
void limitTranslations(Machine& machine) {
  Translation* last = machine.translations;
  uint64_t bytes = last->bytes();
  for (uint32_t i = 1; last->next != nullptr && i < kMaxTranslations; ++i) {
    bytes += last->next->bytes();
    if (bytes > memoryForTranslations(machine.memory)) break;
    last = last->next;
  }
  Translation* rest = last->next;
  last->next = nullptr;
  if (rest != nullptr) machine.runsBeforeTranslation = kPlainRuns;
  while (rest != nullptr) {
    Translation* next = rest->next;
    drop(machine, rest);
    rest = next;
  }
}

// Moves a translation of this shader to the front; null when there is none.
Translation* findTranslation(Machine& machine) {
  Translation** link = &machine.translations;
  while (*link != nullptr && !(*link)->snapshot.matches(*machine.shader)) link = &(*link)->next;
  Translation* found = *link;
  if (found == nullptr) return nullptr;
  *link = found->next;
  found->next = machine.translations;
  machine.translations = found;
  return found;
}

// Where a shader is noted that was found to have no translation. Looking through all of them takes
// as long as a small shader runs.
const CompiledShader*& passedOver(Machine& machine) {
  const uint64_t address = reinterpret_cast<uintptr_t>(machine.shader);
  return machine.passedOver[(address * 0x9E3779B97F4A7C15) >> 56];
}

// Apart from selectProgram(), which has to save the fewer registers. Null when this run is plain.
[[gnu::noinline]] Translation* findOrTranslate(Machine& machine) {
  const bool waits = machine.runsBeforeTranslation != 0;
  const bool known = waits && passedOver(machine) == machine.shader;
  Translation* found = known ? nullptr : findTranslation(machine);
  if (found != nullptr) return found;
  if (waits) {
    --machine.runsBeforeTranslation;
    passedOver(machine) = machine.shader;
    return nullptr;
  }
  std::fill(std::begin(machine.passedOver), std::end(machine.passedOver), nullptr);
  Translation* made = translate(machine);
  if (made == nullptr) return nullptr;
  made->next = machine.translations;
  machine.translations = made;
  machine.memory.inUse += made->bytes();
  limitTranslations(machine);
  return made;
}

}  // namespace

const Record* selectProgram(Machine& machine) {
  machine.heldProgram = nullptr;
  const bool stopped = machine.runState == VM_RUN_STOPPING;  // a global could not be allocated
  if (stopped || machine.runsPlain != 0) return &kPlainProgram;
  const Translation* translation = machine.translations;
  if (translation == nullptr || !translation->snapshot.matches(*machine.shader)) {
    translation = findOrTranslate(machine);
    if (translation == nullptr) return &kPlainProgram;
  }
  machine.heldProgram = translation->first;
  return translation->first;
}

bool isTranslated(const Machine& machine) {
  return machine.heldProgram != nullptr && machine.heldProgram != &kPlainProgram;
}

void release(Machine& machine) {
  while (machine.translations != nullptr) {
    Translation* next = machine.translations->next;
    drop(machine, machine.translations);
    machine.translations = next;
  }
  machine.heldProgram = nullptr;
}

}  // namespace shadermachine::engine
