#include "fuzz/glsl_mutation.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "glsl/glsl_source.h"
#include "support/text_cases.h"

namespace shadermachine::fuzz {
namespace {

using Tokens = std::vector<std::string>;

enum class Kind : uint8_t { Word, Number, Space, Other };

Kind kindOf(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (std::isdigit(byte) != 0) return Kind::Number;
  if (std::isalpha(byte) != 0 || c == '_') return Kind::Word;
  return std::isspace(byte) != 0 ? Kind::Space : Kind::Other;
}

// Words, numbers, runs of space; of all others each byte alone.
Tokens tokensOf(const std::string& source) {
  Tokens tokens;
  Kind before = Kind::Other;
  for (const char c : source) {
    const Kind kind = kindOf(c);
    const bool goesOn = before != Kind::Other &&
                        (kind == before || (before == Kind::Word && kind == Kind::Number) ||
                         (before == Kind::Number && c == '.'));
    if (goesOn) {
      tokens.back() += c;
    } else {
      tokens.emplace_back(1, c);
      before = kind;
    }
  }
  return tokens;
}

class Mutation {
 public:
  Mutation(const std::vector<std::string>& others, std::minstd_rand& random)
      : others_(others), random_(random) {}

  size_t below(size_t count) { return count == 0 ? 0 : random_() % count; }

  void change(Tokens& tokens) {
    if (tokens.empty()) return;
    size_t at = below(tokens.size());
    if (kindOf(tokens[at][0]) == Kind::Space) at = (at + 1) % tokens.size();
    const auto place = tokens.begin() + static_cast<ptrdiff_t>(at);
    switch (below(8)) {
      case 0:
        tokens.erase(place);
        break;
      case 1:
        std::swap(*place, tokens[below(tokens.size())]);
        break;
      case 2:
        *place = number();
        break;
      case 3:
        insertPiece(tokens, at, tokens);
        break;
      case 4:
        insertPiece(tokens, at, tokensOf(others_[below(others_.size())]));
        break;
      default:
        *place = alike(*place, below(4) != 0 ? tokens : tokensOf(others_[below(others_.size())]));
    }
  }

  void changeByte(std::string& text) {
    if (!text.empty()) text[below(text.size())] = static_cast<char>(random_());
  }

 private:
  std::string number() {
    constexpr const char* kNumbers[] = {"0",   "1",    "-1",         "3",          "4.0",
                                        "0.0", "1e38", "2147483647", "-1252",      "65536",
                                        "i",   "two",  "three",      "4294967295", "(-513)"};
    return kNumbers[below(std::size(kNumbers))];
  }

  // A token of the same kind; the same one if none is found soon.
  std::string alike(const std::string& token, const Tokens& from) {
    for (int attempt = 0; attempt < 20 && !from.empty(); ++attempt) {
      const std::string& other = from[below(from.size())];
      if (kindOf(other[0]) == kindOf(token[0])) return other;
    }
    return token;
  }

  static bool isEnd(const std::string& token) {
    return token == ";" || token == "{" || token == "}";
  }

  // Behind the next end of a statement or block, or its beginning.
  static size_t afterEnd(const Tokens& tokens, size_t at) {
    while (at < tokens.size() && !isEnd(tokens[at])) ++at;
    return std::min(at + 1, tokens.size());
  }

  // Behind the whole statement, structure or function that begins there.
  static size_t afterWhole(const Tokens& tokens, size_t at) {
    for (int depth = 0; at < tokens.size(); ++at) {
      if (tokens[at] == "{") ++depth;
      if (tokens[at] == "}" && --depth < 0) return at;
      if (depth > 0 || !isEnd(tokens[at])) continue;
      const bool goesOn = at + 1 < tokens.size() && tokens[at + 1] == ";";
      return at + (goesOn ? 2 : 1);
    }
    return at;
  }

  void insertPiece(Tokens& tokens, size_t at, const Tokens& from) {
    const size_t first = afterEnd(from, below(from.size()));
    const size_t last = afterWhole(from, first);
    const Tokens piece(from.begin() + static_cast<ptrdiff_t>(first),
                       from.begin() + static_cast<ptrdiff_t>(last));
    const auto place = tokens.begin() + static_cast<ptrdiff_t>(afterEnd(tokens, at));
    tokens.insert(place, piece.begin(), piece.end());
  }

  const std::vector<std::string>& others_;
  std::minstd_rand& random_;
};

}  // namespace

std::vector<std::string> readGlslSources() {
  std::vector<std::string> sources;
  for (const auto& entry : std::filesystem::directory_iterator(FUZZ_GLSL_GALLERY)) {
    if (entry.path().extension() == ".frag") {
      sources.push_back(tests::readFile(entry.path().string()));
    }
  }
  for (const tests::TextCase& test : tests::readCases(FUZZ_GLSL_CASES)) {
    sources.push_back(test::withBody(test.body, test.own));
  }
  for (const tests::TextCase& test : tests::readCases(FUZZ_GLSL_SOURCES)) {
    sources.push_back(test.body);
  }
  std::ranges::sort(sources);
  return sources;
}

std::string mutateGlsl(const std::string& source, const std::vector<std::string>& others,
                       std::minstd_rand& random) {
  Mutation mutation(others, random);
  const bool isNew = source.empty() || mutation.below(16) == 0;
  Tokens tokens = tokensOf(isNew ? others[mutation.below(others.size())] : source);
  for (size_t changes = mutation.below(3) == 0 ? 3 : 1; changes > 0; --changes) {
    mutation.change(tokens);
  }
  std::string text;
  for (const std::string& token : tokens) text += token;
  if (mutation.below(16) == 0) mutation.changeByte(text);
  return text;
}

}  // namespace shadermachine::fuzz
