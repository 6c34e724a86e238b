#include "source.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <optional>
#include <set>
#include <unordered_map>

namespace shadermachine::tools::glsl {
namespace {

constexpr std::string_view kBlanks = " \t\v\f";

// Comments become blanks, so that places stay where they are.
std::string withoutComments(std::string text) {
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] != '/' || (text[i + 1] != '/' && text[i + 1] != '*')) continue;
    const bool isLine = text[i + 1] == '/';
    const size_t found = isLine ? text.find('\n', i) : text.find("*/", i + 2);
    const size_t end = found == std::string::npos ? text.size() : isLine ? found : found + 2;
    for (; i < end; ++i) {
      if (text[i] != '\n') text[i] = ' ';
    }
    --i;
  }
  return text;
}

// Line ends of all systems become "\n".
std::string withPlainLineEnds(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') {
      plain += text[i];
    } else if (i + 1 == text.size() || text[i + 1] != '\n') {
      plain += '\n';
    }
  }
  return plain;
}

int lineOf(std::string_view text, size_t place) {
  return 1 +
         static_cast<int>(std::count(text.begin(), text.begin() + static_cast<long>(place), '\n'));
}

// Takes the first #version out of the text.
void takeVersion(Source& source) {
  const std::string bare = withoutComments(source.text);
  for (size_t start = 0, end = 0; start < bare.size(); start = end + 1) {
    end = std::min(bare.find('\n', start), bare.size());
    const std::string line = bare.substr(start, end - start);
    const std::vector<std::string_view> tokens = tokensOf(line);
    if (tokens.size() < 3 || tokens[0] != "#" || tokens[1] != "version") continue;
    std::from_chars(tokens[2].data(), tokens[2].data() + tokens[2].size(), source.version);
    source.versionDirective = line;
    source.versionLine = lineOf(bare, start);
    std::fill_n(source.text.begin() + static_cast<long>(start), end - start, ' ');
    return;
  }
}

using Tokens = std::vector<std::string_view>;

// What includes itself again has no effect, or it has one each time.
bool isReadOnce(std::string_view text) {
  const std::vector<std::string_view> tokens = tokensOf(text);
  return tokens.size() > 1 && tokens[0] == "#" && (tokens[1] == "pragma" || tokens[1] == "ifndef");
}

// Counts what a text's macros grow to. A macro is not replaced inside of its own replacement.
class Expansion {
 public:
  explicit Expansion(const GlslOptions& options) : options_(options) {}

  void count(const std::string& name, std::string text) {
    const size_t before = expanded_;
    // Macros keep views of their tokens for as long as they are defined: the text must stay, and in
    // a deque it stays where it is.
    texts_.push_back(withoutComments(std::move(text)));
    countLines(name, texts_.back());
    result_.tokens[name] += expanded_ - before;
  }
  // By a name that a directive gives, if it is found.
  void include(const std::string& name, const std::string& includer) {
    std::optional<GlslInclude> found;
    if (options_.include && ++depth_ <= kMaxIncludeDepth && result_.problem.empty()) {
      found = options_.include(name, includer);
    }
    if (found && (!isReadOnce(found->text) || readOnce_.insert(found->path).second)) {
      bytes_ += found->text.size();
      if (bytes_ > kMaxIncludedBytes) result_.problem = "what is included is longer than 4 MiB";
      count(found->path, std::move(found->text));
    }
    --depth_;
  }

  Expanded take() { return std::move(result_); }

 private:
  void countLines(const std::string& name, std::string_view text) {
    for (size_t start = 0, end = 0; start < text.size(); start = end + 1) {
      end = text.find('\n', start);
      // A directive goes on in the next line behind a backslash.
      while (end != std::string::npos && end > 0 && text[end - 1] == '\\') {
        end = text.find('\n', end + 1);
      }
      end = std::min(end, text.size());
      const Tokens line = tokensOf(text.substr(start, end - start));
      if (line.empty() || line[0] != "#") {
        pending_.insert(pending_.end(), line.begin(), line.end());
      } else if (line.size() > 2 && line[1] == "include") {
        expandPending();
        const std::string_view rest = text.substr(start, end - start);
        const size_t open = rest.find_first_of("\"<");
        const size_t close = rest.find_first_of("\">", open + 1);
        if (open != std::string::npos && close != std::string::npos) {
          include(std::string(rest.substr(open + 1, close - open - 1)), name);
        }
      } else if (line.size() > 2 && (line[1] == "define" || line[1] == "undef")) {
        expandPending();
        macros_.erase(line[2]);
        if (line[1] == "define") define(text.substr(start, end - start), line);
      }
    }
    expandPending();
  }

  struct Macro {
    bool isFunction = false;
    bool isActive = false;
    Tokens parameters;
    Tokens body;
  };
  static constexpr unsigned kMaxNesting = 200;

  // What stands between two definitions; calls of macros may extend over several lines.
  void expandPending() {
    expand(pending_, 0, [this](std::string_view token) { take(token); });
    pending_.clear();
  }

  void define(std::string_view text, const Tokens& line) {
    Macro macro;
    size_t next = 3;
    const char* afterName = line[2].data() + line[2].size();
    macro.isFunction = afterName < text.data() + text.size() && *afterName == '(';
    if (macro.isFunction) {
      for (++next; next < line.size() && line[next] != ")"; ++next) {
        if (line[next] != ",") macro.parameters.push_back(line[next]);
      }
      ++next;
    }
    for (; next < line.size(); ++next) {
      if (line[next] != "\\") macro.body.push_back(line[next]);
    }
    macros_[line[2]] = std::move(macro);
  }

  Macro* find(std::string_view name) {
    const auto place = macros_.find(name);
    return place == macros_.end() ? nullptr : &place->second;
  }

  template <class Take>
  void expand(const Tokens& tokens, unsigned depth, const Take& take) {
    if (depth > kMaxNesting) result_.problem = "macros are nested too deeply";
    for (size_t i = 0; i < tokens.size() && result_.problem.empty(); ++i) {
      // Counts what is looked at, not what comes out: a macro that grows into nothing takes time as
      // well.
      if (++expanded_ > kMaxExpandedTokens) result_.problem = "macros make the source too long";
      Macro* macro = isWordCharacter(tokens[i][0]) ? find(tokens[i]) : nullptr;
      const bool isCall = i + 1 < tokens.size() && tokens[i + 1] == "(";
      if (macro == nullptr || macro->isActive || (macro->isFunction && !isCall)) {
        take(tokens[i]);
        continue;
      }
      std::vector<Tokens> arguments;
      if (macro->isFunction) i = readArguments(tokens, i + 2, depth, arguments);
      const Tokens replaced = replacement(*macro, arguments);
      // As the language has it, which also ends the recursion of a macro that names itself.
      macro->isActive = true;
      expand(replaced, depth + 1, take);
      macro->isActive = false;
    }
  }

  // From behind the opening bracket; returns where the closing one is.
  size_t readArguments(const Tokens& tokens, size_t i, unsigned depth,
                       std::vector<Tokens>& arguments) {
    Tokens argument;
    const auto finish = [&] {
      Tokens whole;
      expand(argument, depth + 1, [&whole](std::string_view token) { whole.push_back(token); });
      arguments.push_back(std::move(whole));
      argument.clear();
    };
    unsigned open = 0;
    for (; i < tokens.size(); ++i) {
      if (open == 0 && tokens[i] == ")") break;
      if (open == 0 && tokens[i] == ",") {
        finish();
        continue;
      }
      if (tokens[i] == "(") ++open;
      if (tokens[i] == ")") --open;
      argument.push_back(tokens[i]);
    }
    finish();
    return i;
  }

  Tokens replacement(const Macro& macro, const std::vector<Tokens>& arguments) {
    Tokens result;
    for (const std::string_view token : macro.body) {
      const auto place = std::ranges::find(macro.parameters, token);
      const auto number = static_cast<size_t>(place - macro.parameters.begin());
      if (number >= arguments.size()) {
        result.push_back(token);
      } else {
        result.insert(result.end(), arguments[number].begin(), arguments[number].end());
      }
      // One macro may repeat a long argument often, before any of it is counted.
      if (result.size() > kMaxExpandedTokens) {
        result_.problem = "macros make the source too long";
        break;
      }
    }
    return result;
  }

  void take(std::string_view token) {
    constexpr std::string_view kOperators = "-+*/%&|^<>=?![~,";
    if (token == ";" || token == "{" || token == "}") operators_ = 0;
    if (token == "struct" && ++structures_ > kMaxStructures)
      result_.problem = "too many structures";
    if (token == "{" && ++blockDepth_ > kMaxBlockDepth) {
      result_.problem = "blocks are nested too deeply";
    }
    // Conditional directives are not followed: more may close than open.
    if (token == "}" && blockDepth_ > 0) --blockDepth_;
    if (token == "case" && ++cases_ > kMaxCases) result_.problem = "too many cases";
    // The points of numbers do not make trees deeper; others follow a name or a closing bracket.
    const bool isMember = token == "." && isBehindValue_;
    isBehindValue_ = token[0] >= 'A' || token == ")";
    const bool isOperator = isMember || kOperators.find(token[0]) != std::string_view::npos;
    if (isOperator && ++operators_ > kMaxOperators) {
      result_.problem = "a statement has too many operators";
    }
  }

  std::unordered_map<std::string_view, Macro> macros_;
  Tokens pending_;
  size_t expanded_ = 0;
  size_t operators_ = 0;
  size_t structures_ = 0;
  size_t cases_ = 0;
  size_t blockDepth_ = 0;
  bool isBehindValue_ = false;
  const GlslOptions& options_;
  std::deque<std::string> texts_;  // what tokens point into
  std::set<std::string> readOnce_;
  size_t bytes_ = 0;
  unsigned depth_ = 0;
  Expanded result_;
};

}  // namespace

std::vector<std::string_view> tokensOf(std::string_view text) {
  std::vector<std::string_view> tokens;
  for (size_t i = 0; i < text.size();) {
    size_t end = i + 1;
    while (isWordCharacter(text[i]) && end < text.size() && isWordCharacter(text[end])) ++end;
    if (kBlanks.find(text[i]) == std::string_view::npos && text[i] != '\n') {
      tokens.push_back(text.substr(i, end - i));
    }
    i = end;
  }
  return tokens;
}

Expanded expanded(const Source& source, const GlslOptions& options) {
  Expansion expansion(options);
  std::string definitions;
  for (std::string definition : options.defines) {
    std::ranges::replace(definition, '=', ' ');
    definitions += "#define " + definition + "\n";
  }
  expansion.count("", std::move(definitions));
  const bool isImage = source.text.find("mainImage") != std::string::npos;
  if (isImage) expansion.include(kCommonFile, options.fileName);
  expansion.count(options.fileName, source.text);
  return expansion.take();
}

bool readSource(std::string_view text, Source& source, Diagnostics& diagnostics) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  const auto refuse = [&](int line, const char* reason) {
    TSourceLoc where{};
    where.line = line;
    diagnostics.add(Unsupported(where, reason));
    return false;
  };
  if (text.size() > kMaxSourceBytes) return refuse(0, "the source is longer than 1 MiB");
  const size_t zero = text.find('\0');
  if (zero != std::string_view::npos) return refuse(lineOf(text, zero), "a NUL byte in the source");
  source.text = withPlainLineEnds(text);
  source.lines = lineOf(source.text, source.text.size());
  if (source.text.ends_with('\n')) --source.lines;
  takeVersion(source);
  return true;
}

bool definesFunction(const std::vector<std::string_view>& tokens, std::string_view type,
                     std::string_view name) {
  for (size_t i = 0; i + 2 < tokens.size(); ++i) {
    if (tokens[i] == type && tokens[i + 1] == name && tokens[i + 2] == "(") return true;
  }
  return false;
}

bool declaresUniform(const std::vector<std::string_view>& tokens, std::string_view name) {
  for (size_t i = 2; i < tokens.size(); ++i) {
    if (tokens[i] != name) continue;
    if (tokens[i - 2] == "uniform" || (i > 2 && tokens[i - 3] == "uniform")) return true;
  }
  return false;
}

}  // namespace shadermachine::tools::glsl
