#include "assembly/lexer.h"

#include <string>

#include "assembly/literals.h"

namespace shadermachine::tools::assembly {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

class Lexer {
 public:
  Lexer(std::string_view source, Diagnostics& diagnostics)
      : source_(source), diagnostics_(diagnostics) {}

  std::vector<Token> run() {
    // Editors of some systems begin every file with a byte order mark.
    if (source_.starts_with("\xEF\xBB\xBF")) position_ = 3;
    while (position_ < source_.size() && !diagnostics_.isFull()) scan();
    tokens_.push_back({TokenKind::EndOfFile, source_.substr(source_.size())});
    return std::move(tokens_);
  }

 private:
  // Past the end a NUL, at which names and numbers stop by themselves. Strings and stray characters
  // may hold one and look at the size.
  char peek(size_t distance = 0) const {
    const size_t at = position_ + distance;
    return at < source_.size() ? source_[at] : '\0';
  }

  void scan() {
    const char c = peek();
    if (c == ' ' || c == '\t' || c == '\r') {
      ++position_;
    } else if (c == '\n') {
      push(TokenKind::EndOfLine, 1);
    } else if (c == ';') {
      while (position_ < source_.size() && peek() != '\n') ++position_;
    } else if (isNameStart(c)) {
      push(TokenKind::Word, nameLength(0));
    } else if (c == '.' && isNameStart(peek(1))) {
      push(TokenKind::DotWord, 1 + nameLength(1));
    } else if (isNumberStart()) {
      scanNumber();
    } else if (c == '"') {
      scanString();
    } else if (std::string_view(",:()[]").find(c) != std::string_view::npos) {
      push(TokenKind::Punctuation, 1);
    } else {
      refuse();
    }
  }

  void push(TokenKind kind, size_t length, int64_t number = 0) {
    tokens_.push_back({kind, source_.substr(position_, length), number});
    position_ += length;
  }

  size_t nameLength(size_t from) const {
    size_t length = 0;
    while (isNamePart(peek(from + length))) ++length;
    return length;
  }

  bool isNumberStart() const {
    const size_t sign = peek() == '+' || peek() == '-';
    const char c = peek(sign);
    return isDigit(c) || (c == '.' && isDigit(peek(sign + 1))) || (sign != 0 && isNameStart(c));
  }

  // Everything that looks glued together, so that a malformed number is one error.
  size_t numberLength() const {
    const size_t sign = peek() == '+' || peek() == '-';
    const bool isHex = peek(sign) == '0' && (peek(sign + 1) | 0x20) == 'x';
    size_t length = sign;
    while (true) {
      const char c = peek(length);
      const bool isExponentSign =
          !isHex && length > sign && (c == '+' || c == '-') && (peek(length - 1) | 0x20) == 'e';
      if (!isNamePart(c) && c != '.' && !isExponentSign) return length;
      ++length;
    }
  }

  void scanNumber() {
    const size_t length = numberLength();
    const std::string_view text = source_.substr(position_, length);
    const Number number = parseNumber(text);
    // A malformed number is a token all the same: its line has its error and is parsed on.
    if (number.error) diagnostics_.error(text, number.error + (" " + quoted(text)));
    push(number.isFloat ? TokenKind::Float : TokenKind::Integer, length, number.value);
  }

  void scanString() {
    size_t length = 1;
    while (peek(length) != '"') {
      // A quote behind a backslash closes nothing; a line end closes the line even there.
      if (peek(length) == '\\' && peek(length + 1) != '\n') ++length;
      if (position_ + length >= source_.size() || peek(length) == '\n') {
        diagnostics_.error(source_.substr(position_, 1), "string without closing quote");
        position_ += length < source_.size() - position_ ? length : source_.size() - position_;
        return;
      }
      ++length;
    }
    push(TokenKind::String, length + 1);
  }

  // One error for a run of such characters.
  void refuse() {
    const size_t start = position_;
    const auto byte = static_cast<unsigned char>(peek());
    while (position_ < source_.size() && isStray(peek())) ++position_;
    // A printable character that begins no token is no stray, but has to be passed.
    if (position_ == start) ++position_;
    std::string what = "unexpected character";
    if (byte < ' ' || byte >= 127) what += " with code " + std::to_string(byte);
    diagnostics_.error(source_.substr(start, position_ - start), what);
  }

  static bool isStray(char c) {
    return static_cast<unsigned char>(c) >= 127 || (c < ' ' && c != '\n' && c != '\t' && c != '\r');
  }

  std::string_view source_;
  Diagnostics& diagnostics_;
  size_t position_ = 0;
  std::vector<Token> tokens_;
};

}  // namespace

std::vector<Token> tokenize(std::string_view source, Diagnostics& diagnostics) {
  return Lexer(source, diagnostics).run();
}

}  // namespace shadermachine::tools::assembly
