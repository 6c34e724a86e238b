#include "engine/translation_cache.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace shadermachine::engine {
namespace {

constexpr uint64_t kSpread = 0x9E3779B97F4A7C15;

// Of words all over the entry function, in time that long code does not lengthen.
uint64_t contentOf(const CompiledShader& shader) {
  const ShaderFunction& entry = *shader.functions[shader.entryIndex];
  uint64_t hash = entry.codeLength + (uint64_t{shader.globalCount} << 32) +
                  (uint64_t{shader.functionCount} << 48);
  constexpr uint32_t kMaxWords = 256;
  constexpr uint32_t kWordBytes = sizeof hash;
  const uint32_t step = (entry.codeLength / kWordBytes / kMaxWords + 1) * kWordBytes;
  for (uint32_t at = 0; at < entry.codeLength; at += step) {
    uint64_t word = 0;
    const size_t left = entry.codeLength - at;
    std::memcpy(&word, shader.code + entry.codeOffset + at, std::min(left, sizeof word));
    hash = (hash ^ word) * kSpread;
    hash ^= hash >> 32;
  }
  return hash;
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

uint32_t TranslationCache::bucketOf(uint64_t number) {
  // Addresses differ in a few bits, often by the same number.
  number *= kSpread;
  number = (number ^ number >> 32) * kSpread;
  return static_cast<uint32_t>(number >> 32) % kBuckets;
}

const Translation* TranslationCache::find(const CompiledShader& shader) {
  Translation*& hint = byAddress_[bucketOf(reinterpret_cast<uintptr_t>(&shader))];
  Translation* found = hint;
  if (found == nullptr || !found->snapshot.matches(shader)) {
    const uint64_t content = contentOf(shader);
    found = byContent_[bucketOf(content)];
    while (found != nullptr && (found->content != content || !found->snapshot.matches(shader))) {
      found = found->nextInBucket;
    }
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
  Translation** link = &byContent_[bucketOf(dropped->content)];
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
  translation->content = contentOf(shader);
  Translation*& bucket = byContent_[bucketOf(translation->content)];
  translation->nextInBucket = bucket;
  bucket = translation;
  byAddress_[bucketOf(reinterpret_cast<uintptr_t>(&shader))] = translation;
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
  // Shaders that share a bucket and take turns would never be met again: after a while others share
  // one. Until then some thousands of shaders can take turns twice.
  const uint64_t turn = asked_++ / (4 * kBuckets);
  const CompiledShader*& met = met_[bucketOf(reinterpret_cast<uintptr_t>(shader) + turn)];
  if (atOnce || met == shader) return true;
  met = shader;
  return false;
}

}  // namespace shadermachine::engine
