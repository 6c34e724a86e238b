// Numbers and texts as the bytes of a binary file, and back.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "binary/format.h"

namespace shadermachine::tools::binary {

class ByteWriter {
 public:
  template <class T>
  void number(T value) {
    char bytes[sizeof value];
    // The format's order of bytes is the machine's own, which it insists on (machine.h).
    std::memcpy(bytes, &value, sizeof value);
    text_.append(bytes, sizeof value);
  }
  void text(const char* value) {
    if (value == nullptr) {
      number(kNull);
      return;
    }
    const size_t length = std::strlen(value);
    number(static_cast<uint32_t>(length));
    text_.append(value, length);
  }
  void raw(std::string_view bytes) { text_.append(bytes); }
  void section(std::string_view tag, const ByteWriter& content) {
    raw(tag);
    number(static_cast<uint32_t>(content.text_.size()));
    raw(content.text_);
  }
  std::string take() && { return std::move(text_); }

 private:
  std::string text_;
};

// Takes numbers and texts from the front of some bytes. Past the end everything is 0 and empty, and
// isGood() says so; loops over counts that the bytes claim must ask it.
class ByteReader {
 public:
  explicit ByteReader(std::string_view bytes) : rest_(bytes) {}

  bool isGood() const { return isGood_; }
  bool isAtEnd() const { return rest_.empty(); }
  void spoil() { isGood_ = false; }

  std::string_view take(size_t count) {
    if (count > rest_.size()) {
      isGood_ = false;
      rest_ = {};
      return {};
    }
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }
  template <class T>
  T number() {
    T value = {};
    const std::string_view bytes = take(sizeof value);
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }
  // Names end at their first NUL wherever they are used, so none may be inside.
  std::optional<std::string_view> text() {
    const auto length = number<uint32_t>();
    if (length == kNull) return std::nullopt;
    const std::string_view text = take(length);
    isGood_ = isGood_ && text.find('\0') == std::string_view::npos;
    return text;
  }
  // A text that must be there.
  std::string string() {
    const std::optional<std::string_view> read = text();
    isGood_ = isGood_ && read.has_value();
    return std::string(read.value_or(""));
  }
  bool flag() {
    const auto value = number<uint8_t>();
    isGood_ = isGood_ && value <= 1;
    return value == 1;
  }

 private:
  std::string_view rest_;
  bool isGood_ = true;
};

}  // namespace shadermachine::tools::binary
