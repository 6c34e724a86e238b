// Memory of a translation: freed at once, never an exception. After a failed allocation every
// further one fails too, and the translation is given up.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace shadermachine::form {

class Arena {
 public:
  explicit Arena(size_t limit) : limit_(limit) {}
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  ~Arena() { release(); }

  bool failed() const { return failed_; }
  size_t bytes() const { return used_; }
  // Why it failed: the limit, not a lack of memory.
  bool isFull() const { return full_; }

  // Zeroed, pointers too; null when memory is short or the arena's limit is reached.
  template <class T>
  T* allocate(size_t count = 1) {
    static_assert(std::is_trivially_destructible_v<T>);
    return static_cast<T*>(allocateBytes(count, sizeof(T)));  // NOLINT(bugprone-sizeof-expression)
  }

  void release() {
    while (first_ != nullptr) {
      Chunk* next = first_->next;
      std::free(first_);
      first_ = next;
    }
    used_ = 0;
    failed_ = full_ = false;
  }

 private:
  struct alignas(16) Chunk {
    Chunk* next;
    size_t free;  // bytes left at the end
    size_t size;
  };

  void* allocateBytes(size_t count, size_t size) {
    if (failed_) return nullptr;
    if (count > limit_ / (size == 0 ? 1 : size)) return fill();
    const size_t bytes = (count * size + 15) & ~size_t{15};
    if ((first_ == nullptr || first_->free < bytes) && !addChunk(bytes)) return nullptr;
    char* end = reinterpret_cast<char*>(first_ + 1) + first_->size;
    void* result = end - first_->free;
    first_->free -= bytes;
    return result;
  }

  void* fill() {
    failed_ = full_ = true;
    return nullptr;
  }

  bool addChunk(size_t bytes) {
    constexpr size_t kChunkBytes = 16384;
    const size_t size = bytes > kChunkBytes ? bytes : kChunkBytes;
    if (used_ + size > limit_) return fill() != nullptr;
    auto* chunk = static_cast<Chunk*>(std::calloc(1, sizeof(Chunk) + size));
    if (chunk == nullptr) {
      failed_ = true;
      return false;
    }
    *chunk = {first_, size, size};
    first_ = chunk;
    used_ += size;
    return true;
  }

  size_t limit_;
  size_t used_ = 0;
  Chunk* first_ = nullptr;
  bool failed_ = false;
  bool full_ = false;
};

// A growing array of plain values on the heap.
template <class T>
class Array {
 public:
  static_assert(std::is_trivially_copyable_v<T>);
  Array() = default;
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array() { std::free(items_); }

  uint32_t size() const { return size_; }
  bool failed() const { return failed_; }
  T* data() { return items_; }
  // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.UndefReturn): i < size(), so there are items
  T& operator[](uint32_t i) { return items_[i]; }
  // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.UndefReturn)
  const T& operator[](uint32_t i) const { return items_[i]; }
  T& back() { return items_[size_ - 1]; }
  void clear() { size_ = 0; }
  void removeLast() { --size_; }

  // False when memory is short; the array then keeps what it had.
  bool append(const T& item) {
    if (size_ == capacity_ && !grow()) return false;
    std::memcpy(static_cast<void*>(&items_[size_++]), &item, sizeof(T));
    return true;
  }

 private:
  bool grow() {
    const uint32_t capacity = capacity_ == 0 ? 64 : capacity_ * 2;
    void* grown = std::realloc(static_cast<void*>(items_), capacity * sizeof(T));
    if (grown == nullptr) {
      failed_ = true;
      return false;
    }
    items_ = static_cast<T*>(grown);
    capacity_ = capacity;
    return true;
  }

  T* items_ = nullptr;
  uint32_t size_ = 0;
  uint32_t capacity_ = 0;
  bool failed_ = false;
};

}  // namespace shadermachine::form
