// The translations of a machine, found again by what they were made from.
//
// What holds: every translation is in the list of use, most recent first, and in the bucket of its
// content; their memory, counted in the machine's, is at most the translations' share of it
// together, or there is only one. Addresses of records are hints: a record may have been freed, and
// another built in its place.
#pragma once

#include <array>

#include "engine/snapshot.h"
#include "engine/steps.h"
#include "machine/memory.h"

namespace shadermachine::engine {

// One shader's program for one machine: its records hold addresses of the machine's slots.
struct Translation {
  explicit Translation(size_t limit) : arena(limit) {}
  uint64_t bytes() const { return sizeof *this + arena.bytes(); }
  static constexpr size_t kMaxBytes = size_t{16} << 20;

  Translation* newer = nullptr;
  Translation* older = nullptr;
  Translation* nextInBucket = nullptr;
  uint64_t content = 0;  // a hash of the entry function's code
  Snapshot snapshot;
  form::Arena arena;
  const Record* first = nullptr;
};

// Null when memory is short.
Translation* newTranslation(const MachineMemory& memory);
void destroy(Translation* translation);

class TranslationCache {
 public:
  explicit TranslationCache(MachineMemory& memory) : memory_(memory) {}
  ~TranslationCache();
  TranslationCache(const TranslationCache&) = delete;
  TranslationCache& operator=(const TranslationCache&) = delete;

  // The one used last.
  const Translation* recent() const { return newest_; }
  // The shader's, or null. It becomes the one used last.
  const Translation* find(const CompiledShader& shader);
  // Takes the translation over, and drops those used longest ago while there are too many.
  void insert(Translation* translation, const CompiledShader& shader);
  // Whether a run of a shader without a translation should make one. Translating takes as long as
  // some plain runs, so nothing is translated in its first run.
  bool isWorthTranslating(const CompiledShader* shader, bool atOnce);
  // The shader is too large, or there was no time: it will be tried again after a while.
  void waitAfterFailure() { plainRunsLeft_ = kPlainRuns; }

 private:
  // A translation takes as long as some hundred plain runs of its shader. So many runs are plain
  // after one that replaced another, or came to nothing: shaders that take turns and do not fit
  // then cost no more than they would without the engine.
  static constexpr uint32_t kPlainRuns = 4096;
  static constexpr uint32_t kBuckets = 1024;

  static uint32_t bucketOf(uint64_t number);
  void use(Translation* translation);
  void unlink(Translation* translation);
  void dropOldest();

  Translation* newest_ = nullptr;
  Translation* oldest_ = nullptr;
  MachineMemory& memory_;
  uint64_t bytes_ = 0;
  uint32_t plainRunsLeft_ = 0;
  uint32_t asked_ = 0;  // how often isWorthTranslating() had to look
  std::array<Translation*, kBuckets> byContent_ = {};
  std::array<Translation*, kBuckets> byAddress_ = {};  // hints, of translations in the cache
  std::array<const CompiledShader*, kBuckets> met_ = {};
};

TranslationCache* newCache(MachineMemory& memory);  // null when memory is short
void destroy(TranslationCache* cache);

}  // namespace shadermachine::engine
