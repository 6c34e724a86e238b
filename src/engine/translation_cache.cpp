#include "engine/translation_cache.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace shadermachine::engine {
namespace {

constexpr uint64_t kSpread = 0x9E3779B97F4A7C15;

uint32_t bucketOf(const CompiledShader* shader) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(shader) * kSpread >> 56);
}

// A glance at the shader: what differs between most, in constant time.
uint32_t contentBucket(const CompiledShader& shader) {
  const ShaderFunction& entry = *shader.functions[shader.entryIndex];
  uint64_t hash = entry.codeLength + (uint64_t{shader.globalCount} << 32) +
                  (uint64_t{shader.functionCount} << 48);
  const uint8_t* code = shader.code + entry.codeOffset;
  constexpr uint32_t kLooks = 16;
  const uint32_t step = entry.codeLength / kLooks + 1;
  for (uint32_t i = 0; i < entry.codeLength; i += step) hash = (hash ^ code[i]) * kSpread;
  return static_cast<uint32_t>(hash >> 56);
}

template <class T, class Argument>
T* make(Argument&& argument) {
  void* memory = std::malloc(sizeof(T));
  if (memory == nullptr) return nullptr;
  return std::construct_at(static_cast<T*>(memory), std::forward<Argument>(argument));
}

template <class T>
void unmake(T* object) {
  std::destroy_at(object);
  std::free(object);
}

}  // namespace

Translation* newTranslation(const MachineMemory& memory) {
  const uint64_t share = memoryForTranslations(memory);
  const uint64_t records = share < sizeof(Translation) ? 0 : share - sizeof(Translation);
  return make<Translation>(std::min<uint64_t>(records, Translation::kMaxBytes));
}

void destroy(Translation* translation) { unmake(translation); }

TranslationCache* newCache(MachineMemory& memory) { return make<TranslationCache>(memory); }
void destroy(TranslationCache* cache) { unmake(cache); }

TranslationCache::~TranslationCache() {
  memory_.inUse -= bytes_;
  while (newest_ != nullptr) {
    Translation* older = newest_->older;
    engine::destroy(newest_);
    newest_ = older;
  }
}

void TranslationCache::unlink(Translation* translation) {
  (translation->newer == nullptr ? newest_ : translation->newer->older) = translation->older;
  (translation->older == nullptr ? oldest_ : translation->older->newer) = translation->newer;
}

void TranslationCache::use(Translation* translation) {
  translation->newer = nullptr;
  translation->older = newest_;
  (newest_ == nullptr ? oldest_ : newest_->newer) = translation;
  newest_ = translation;
}

const Translation* TranslationCache::find(const CompiledShader& shader) {
  Translation*& hint = byAddress_[bucketOf(&shader)];
  Translation* found = hint;
  if (found == nullptr || !found->snapshot.matches(shader)) {
    found = byContent_[contentBucket(shader)];
    while (found != nullptr && !found->snapshot.matches(shader)) found = found->nextInBucket;
    if (found == nullptr) return nullptr;
    hint = found;
  }
  unlink(found);
  use(found);
  return found;
}

void TranslationCache::dropOldest() {
  Translation* dropped = oldest_;
  unlink(dropped);
  Translation** link = &byContent_[dropped->bucket];
  while (*link != dropped) link = &(*link)->nextInBucket;
  *link = dropped->nextInBucket;
  for (Translation*& hint : byAddress_) {
    if (hint == dropped) hint = nullptr;
  }
  bytes_ -= dropped->bytes();
  memory_.inUse -= dropped->bytes();
  engine::destroy(dropped);
}

void TranslationCache::insert(Translation* translation, const CompiledShader& shader) {
  use(translation);
  translation->bucket = contentBucket(shader);
  translation->nextInBucket = byContent_[translation->bucket];
  byContent_[translation->bucket] = translation;
  byAddress_[bucketOf(&shader)] = translation;
  bytes_ += translation->bytes();
  memory_.inUse += translation->bytes();
  while (bytes_ > memoryForTranslations(memory_) && oldest_ != translation) {
    dropOldest();
    plainRunsLeft_ = kPlainRuns;
  }
}

bool TranslationCache::isWorthTranslating(const CompiledShader* shader, bool atOnce) {
  if (plainRunsLeft_ != 0) {
    --plainRunsLeft_;
    return false;
  }
  const CompiledShader*& met = met_[bucketOf(shader)];
  if (atOnce || met == shader) return true;
  met = shader;
  return false;
}

}  // namespace shadermachine::engine
