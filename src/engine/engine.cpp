#include "engine/engine.h"

#include "engine/improve.h"
#include "engine/plain_program.h"
#include "engine/selector.h"
#include "engine/translation_cache.h"
#include "form/builder.h"

namespace shadermachine::engine {
namespace {

// While a translation is being made it takes some 300 bytes for each byte of code, inlined calls
// counted again.
constexpr size_t kMaxWorkingBytes = size_t{256} << 20;

enum class Outcome : uint8_t {
  Made,
  Given,       // memory or time does not suffice for this shader
  OutOfMemory  // another run may have more
};

// A shader that is left to the plain handlers has no first record.
Outcome makeRecords(Machine& machine, form::Decoder& decoder, form::Arena& working,
                    Translation& translation) {
  form::Form form(translation.arena);
  const form::BuildResult result = buildForm(form, decoder, working, machine);
  if (result == form::BuildResult::LeftPlain) return Outcome::Made;
  if (result == form::BuildResult::OutOfTime) return Outcome::Given;
  if (result == form::BuildResult::Built) {
    if (!improve(form, machine)) return Outcome::Given;
    Selector selector(form, translation.arena, machine);
    translation.first = selector.select();
    if (translation.first != nullptr) return Outcome::Made;
  }
  const bool full = translation.arena.isFull() || working.isFull();
  return full ? Outcome::Given : Outcome::OutOfMemory;
}

// The snapshot comes with a translation that has no records too: that is remembered like another.
bool takeSnapshot(const CompiledShader& shader, form::Decoder& decoder, Translation& translation) {
  if (!translation.arena.failed() &&
      translation.snapshot.take(shader, decoder, translation.arena)) {
    return true;
  }
  translation.first = nullptr;
  translation.arena.release();
  return translation.snapshot.take(shader, decoder, translation.arena);
}

// Null when memory is short: the run is then a plain one.
Translation* translate(Machine& machine, TranslationCache& cache) {
  Translation* translation = newTranslation(machine.memory);
  if (translation == nullptr) return nullptr;
  form::Arena working(kMaxWorkingBytes);
  form::Decoder decoder(working, machine);
  const Outcome outcome = makeRecords(machine, decoder, working, *translation);
  if (outcome == Outcome::OutOfMemory || !takeSnapshot(*machine.shader, decoder, *translation)) {
    if (outcome != Outcome::OutOfMemory) cache.waitAfterFailure();
    destroy(translation);
    return nullptr;
  }
  if (translation->first == nullptr) translation->first = &kPlainProgram;
  cache.insert(translation, *machine.shader);
  return translation;
}

// Apart from selectProgram(), which has to save the fewer registers. Null when this run is plain.
[[gnu::noinline]] const Translation* findOrTranslate(Machine& machine) {
  TranslationCache* cache = machine.translations;
  if (cache == nullptr) cache = machine.translations = newCache(machine.memory);
  if (cache == nullptr) return nullptr;
  const Translation* found = cache->find(*machine.shader);
  if (found != nullptr) return found;
  const bool atOnce = machine.engineUse == EngineUse::AtOnce;
  if (!cache->isWorthTranslating(machine.shader, atOnce)) return nullptr;
  return translate(machine, *cache);
}

}  // namespace

const Record* selectProgram(Machine& machine) {
  machine.heldProgram = nullptr;
  const bool stopped = machine.runState == VM_RUN_STOPPING;  // a global could not be allocated
  if (stopped || machine.engineUse == EngineUse::Never) return &kPlainProgram;
  const Translation* translation =
      machine.translations == nullptr ? nullptr : machine.translations->recent();
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
  if (machine.translations != nullptr) destroy(machine.translations);
  machine.translations = nullptr;
  machine.heldProgram = nullptr;
}

}  // namespace shadermachine::engine
