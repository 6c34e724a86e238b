// Splits assembly text into tokens.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "assembly/diagnostics.h"

namespace shadermachine::tools::assembly {

enum class TokenKind : uint8_t {
  Word,         // name or mnemonic
  DotWord,      // directive or swizzle
  Integer,      // number: its value
  Float,        // number: its bit pattern
  String,       // with its quotes
  Punctuation,  // one of , : ( ) [ ]
  EndOfLine,
  EndOfFile,
};

struct Token {
  TokenKind kind = TokenKind::EndOfFile;
  std::string_view text;  // part of the source
  int64_t number = 0;

  bool is(TokenKind wanted) const { return kind == wanted; }
  bool is(char punctuation) const {
    return kind == TokenKind::Punctuation && text[0] == punctuation;
  }
  bool endsLine() const { return kind == TokenKind::EndOfLine || kind == TokenKind::EndOfFile; }
};

// The last token is EndOfFile. What forms no token is reported and left out.
std::vector<Token> tokenize(std::string_view source, Diagnostics& diagnostics);

}  // namespace shadermachine::tools::assembly
