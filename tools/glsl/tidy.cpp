#include "tidy.h"

#include <cctype>
#include <regex>
#include <utility>
#include <vector>

namespace shadermachine::tools::glsl {
namespace {

// std::regex recurses with every character. Messages are short enough: glslang cuts its own to
// little more than a thousand characters.
using Replacements = std::vector<std::pair<std::regex, const char*>>;

std::string replaced(std::string text, const Replacements& replacements) {
  for (const auto& [pattern, with] : replacements) text = std::regex_replace(text, pattern, with);
  return text;
}

// " temp highp 3-component vector of float" is a vec3.
std::string withTypes(const std::string& text) {
  static const Replacements kTypes = {
      {std::regex(R"((\d)-component vector of float)"), "vec$1"},
      {std::regex(R"((\d)-component vector of int)"), "ivec$1"},
      {std::regex(R"((\d)-component vector of uint)"), "uvec$1"},
      {std::regex(R"((\d)-component vector of bool)"), "bvec$1"},
      {std::regex(R"((\d)X\1 matrix of float)"), "mat$1"},
      {std::regex(R"((\d)X(\d) matrix of float)"), "mat$1x$2"},
      {std::regex(R"((\d+)-element array of ([^']+))"), "$2[$1]"},
      {std::regex(
           R"('[^']*?((?:[iub]?vec\d|mat\d(?:x\d)?|float|int|uint|bool)(?:\[\d+\])?)[^']*')"),
       "'$1'"},
      {std::regex(R"(structure\{[^}]*\} )"), ""},
  };
  return replaced(text, kTypes);
}

// Names that the grammar gives to words of the language.
std::string withWords(const std::string& text) {
  static const Replacements kWords = {
      {std::regex(R"(\bIDENTIFIER\b)"), "a name"},
      {std::regex(R"(\bTYPE_NAME\b)"), "the name of a type"},
      {std::regex(R"(\$end\b|\bend of file\b)"), "the end of the source"},
      {std::regex(R"(\bSEMICOLON\b)"), "';'"},
      {std::regex(R"(\bCOMMA\b)"), "','"},
      {std::regex(R"(\bCOLON\b)"), "':'"},
      {std::regex(R"(\bEQUAL\b)"), "'='"},
      {std::regex(R"(\bDOT\b)"), "'.'"},
      {std::regex(R"(\bLEFT_PAREN\b)"), "'('"},
      {std::regex(R"(\bRIGHT_PAREN\b)"), "')'"},
      {std::regex(R"(\bLEFT_BRACE\b)"), "'{'"},
      {std::regex(R"(\bRIGHT_BRACE\b)"), "'}'"},
      {std::regex(R"(\bLEFT_BRACKET\b)"), "'['"},
      {std::regex(R"(\bRIGHT_BRACKET\b)"), "']'"},
      {std::regex(R"(\bPLUS\b)"), "'+'"},
      {std::regex(R"(\bDASH\b)"), "'-'"},
      {std::regex(R"(\bSTAR\b)"), "'*'"},
      {std::regex(R"(\bSLASH\b)"), "'/'"},
      {std::regex(R"(\bINTCONSTANT\b|\bUINTCONSTANT\b|\bFLOATCONSTANT\b)"), "a number"},
      {std::regex(R"(, expecting )"), ", expected "},
  };
  std::string result = replaced(text, kWords);
  // What is left in capitals is a keyword.
  static const std::regex kKeyword(R"(\b[A-Z][A-Z0-9_]+\b)");
  for (std::smatch match; std::regex_search(result, match, kKeyword);) {
    std::string keyword = match.str();
    for (char& c : keyword) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    result = match.prefix().str() + "'" + keyword + "'" + match.suffix().str();
  }
  return result;
}

std::string trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return std::string(text);
}

bool isOperatorName(std::string_view word) {
  return word == "assign" || word == "constructor" || word == "return" || word == "=" ||
         word == "expression" || word == "limitations";
}

}  // namespace

TidyMessage tidied(std::string_view message) {
  const size_t end = message.find("' : ");
  if (!message.starts_with('\'') || end == std::string_view::npos) {
    return {trimmed(message), ""};
  }
  const std::string word(message.substr(1, end - 1));
  const std::string reason = withTypes(trimmed(message.substr(end + 4)));
  if (reason.starts_with("syntax error")) return {withWords(reason), word};
  if (reason == "undeclared identifier" || reason == "redefinition" ||
      reason == "no matching overloaded function found" || reason.starts_with("Reserved word")) {
    const std::string what =
        reason.starts_with("no matching") ? "no function takes these arguments:" : reason;
    return {what + " '" + word + "'", word};
  }
  if (word.empty() || isOperatorName(word)) return {reason, ""};
  return {"'" + word + "': " + reason, word};
}

}  // namespace shadermachine::tools::glsl
