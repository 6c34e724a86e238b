#include "engine/engine.h"

#include <memory>

#include "engine/snapshot.h"
#include "engine/translator.h"
#include "instructions/opcode_table.h"
#include "machine/run_loop.h"

namespace shadermachine::engine {

// One shader's program for one machine: its records hold addresses of the machine's slots.
struct Translation {
  Translation() : arena(kMaxBytes) {}
  static constexpr size_t kMaxBytes = size_t{16} << 20;

  Translation* next = nullptr;
  Snapshot snapshot;
  Arena arena;
  const Record* first = nullptr;  // null: the shader is left to the plain handlers
};

namespace {

constexpr uint32_t kMaxTranslations = 8;
// Each retry makes one more instruction keep words that a later one turned out to read.
constexpr uint32_t kMaxAttempts = 40;

void destroy(Translation* translation) {
  std::destroy_at(translation);
  std::free(translation);
}

void executePlain(Machine& machine) {
  initEntryLocals(machine);
  while (machine.runState != VM_RUN_STOPPING) kHandlers[fetchU8(machine)](machine);
}

bool makeRecords(Machine& machine, Decoder& decoder, Translation& translation) {
  for (uint32_t attempt = 0; attempt < kMaxAttempts; ++attempt) {
    auto* translator = static_cast<Translator*>(std::malloc(sizeof(Translator)));
    if (translator == nullptr) return false;
    std::construct_at(translator, translation.arena, decoder, machine);
    translation.first = translator->translate(machine.shader->entryIndex);
    const bool again = translator->retry();
    std::destroy_at(translator);
    std::free(translator);
    if (translation.arena.failed()) return false;
    if (!again) return true;
    translation.first = nullptr;
  }
  return true;
}

// Null when memory is short: the run is then a plain one, and the next tries again.
Translation* translate(Machine& machine) {
  auto* translation = static_cast<Translation*>(std::malloc(sizeof(Translation)));
  if (translation == nullptr) return nullptr;
  std::construct_at(translation);
  Decoder decoder(translation->arena, machine);
  if (!makeRecords(machine, decoder, *translation) ||
      !translation->snapshot.take(*machine.shader, decoder)) {
    destroy(translation);
    return nullptr;
  }
  return translation;
}

// Drops the translations used longest ago.
void limitTranslations(Machine& machine) {
  Translation* last = machine.translations;
  for (uint32_t i = 1; last != nullptr && i < kMaxTranslations; ++i) last = last->next;
  if (last == nullptr) return;
  Translation* rest = last->next;
  last->next = nullptr;
  while (rest != nullptr) {
    Translation* next = rest->next;
    destroy(rest);
    rest = next;
  }
}

// Moves a translation of this shader to the front; null when there is none.
Translation* findTranslation(Machine& machine) {
  Translation** link = &machine.translations;
  for (; *link != nullptr; link = &(*link)->next) {
    Translation* found = *link;
    if (!found->snapshot.matches(*machine.shader)) continue;
    *link = found->next;
    found->next = machine.translations;
    machine.translations = found;
    return found;
  }
  return nullptr;
}

const Translation* translationOf(Machine& machine) {
  // A shader that the machine has held since its last run must not have changed.
  if (machine.sameShader != 0 && machine.heldTranslation != nullptr) {
    return machine.heldTranslation;
  }
  machine.heldTranslation = findTranslation(machine);
  if (machine.heldTranslation != nullptr) return machine.heldTranslation;
  Translation* made = translate(machine);
  if (made == nullptr) return nullptr;
  made->next = machine.translations;
  machine.translations = made;
  machine.heldTranslation = made;
  limitTranslations(machine);
  return made;
}

}  // namespace

void execute(Machine& machine) {
  const Translation* translation = machine.runsPlain != 0 ? nullptr : translationOf(machine);
  const bool stopped = machine.runState == VM_RUN_STOPPING;  // a global could not be allocated
  if (translation == nullptr || translation->first == nullptr || stopped) {
    return executePlain(machine);
  }
  runRecords(translation->first, machine);
}

bool isTranslated(const Machine& machine) {
  return machine.heldTranslation != nullptr && machine.heldTranslation->first != nullptr;
}

void release(Machine& machine) {
  while (machine.translations != nullptr) {
    Translation* next = machine.translations->next;
    destroy(machine.translations);
    machine.translations = next;
  }
  machine.heldTranslation = nullptr;
}

}  // namespace shadermachine::engine
