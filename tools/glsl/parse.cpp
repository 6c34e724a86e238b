// From source text to a tree: versions, precision and entries that people leave out.
#include <glslang/Public/ResourceLimits.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <mutex>
#include <optional>

#include "program.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr EShMessages kMessages =
    static_cast<EShMessages>(EShMsgRelaxedErrors | EShMsgSuppressWarnings | EShMsgCascadingErrors);

constexpr const char* kDefaultPrecision = "precision highp float; precision highp int; ";
constexpr const char* kModernOutput = "out vec4 pixelColour; ";

// A way to read the source.
struct Attempt {
  int version;
  std::string head;      // goes first: the version, unless the source names it
  std::string preamble;  // goes after the version
};

bool isWordCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// Words and single other characters, without white space.
std::vector<std::string_view> tokensOf(std::string_view source) {
  std::vector<std::string_view> tokens;
  for (size_t i = 0; i < source.size();) {
    size_t end = i + 1;
    while (isWordCharacter(source[i]) && end < source.size() && isWordCharacter(source[end])) ++end;
    if (std::string_view(" \t\r\n\v\f").find(source[i]) == std::string_view::npos) {
      tokens.push_back(source.substr(i, end - i));
    }
    i = end;
  }
  return tokens;
}

// The number in the source's #version, or 0.
int versionOf(const std::vector<std::string_view>& tokens) {
  for (size_t i = 0; i + 2 < tokens.size(); ++i) {
    if (tokens[i] != "#" || tokens[i + 1] != "version") continue;
    int version = 0;
    std::from_chars(tokens[i + 2].begin(), tokens[i + 2].end(), version);
    return version;
  }
  return 0;
}

bool definesFunction(const std::vector<std::string_view>& tokens, std::string_view name) {
  for (size_t i = 0; i + 2 < tokens.size(); ++i) {
    if (tokens[i] == "void" && tokens[i + 1] == name && tokens[i + 2] == "(") return true;
  }
  return false;
}

// With a type, and perhaps a precision, between.
bool declaresUniform(const std::vector<std::string_view>& tokens, std::string_view name) {
  for (size_t i = 2; i < tokens.size(); ++i) {
    if (tokens[i] != name) continue;
    if (tokens[i - 2] == "uniform" || (i > 2 && tokens[i - 3] == "uniform")) return true;
  }
  return false;
}

// Inputs of shaders that are written as mainImage() alone, where the source does not declare them.
std::string imageInputs(const std::vector<std::string_view>& tokens) {
  static constexpr std::array<std::pair<const char*, const char*>, 14> kInputs = {{
      {"vec3", "iResolution"},
      {"float", "iTime"},
      {"float", "iTimeDelta"},
      {"float", "iFrameRate"},
      {"float", "iGlobalTime"},
      {"int", "iFrame"},
      {"vec4", "iMouse"},
      {"vec4", "iDate"},
      {"float[4]", "iChannelTime"},
      {"vec3[4]", "iChannelResolution"},
      {"sampler2D", "iChannel0"},
      {"sampler2D", "iChannel1"},
      {"sampler2D", "iChannel2"},
      {"sampler2D", "iChannel3"},
  }};
  std::string declarations;
  for (const auto& [type, name] : kInputs) {
    if (declaresUniform(tokens, name)) continue;
    const std::string_view text = type;
    const size_t bracket = std::min(text.find('['), text.size());
    declarations += "uniform " + std::string(text.substr(0, bracket)) + " " + name +
                    std::string(text.substr(bracket)) + "; ";
  }
  return declarations;
}

bool hasModernOutputs(int version) { return version >= 130; }

std::string imageEntry(int version) {
  const char* output = hasModernOutputs(version) ? "pixelColour" : "gl_FragColor";
  return std::string("\nvoid main() { vec4 colour = vec4(0.0, 0.0, 0.0, 1.0); ") +
         "mainImage(colour, gl_FragCoord.xy); " + output + " = vec4(colour.rgb, 1.0); }\n";
}

// A source that leaves out its version is written for any of three; precisions are often missing.
std::vector<Attempt> attemptsFor(int version, const std::string& inputs) {
  const auto preamble = [&](int assumed) {
    return inputs.empty() || !hasModernOutputs(assumed) ? inputs : inputs + kModernOutput;
  };
  if (version != 0) {
    const std::string own = preamble(version);
    const bool isDesktop = version != 100 && version != 300 && version != 310 && version != 320;
    if (isDesktop) return {{version, "", own}};
    return {{version, "", own}, {version, "", kDefaultPrecision + own}};
  }
  return {{100, "#version 100\n", preamble(100)},
          {100, "#version 100\n", kDefaultPrecision + preamble(100)},
          {120, "#version 120\n", preamble(120)},
          {300, "#version 300 es\n", kDefaultPrecision + preamble(300)}};
}

// The source around the preamble, which must come after its #version.
struct Source {
  std::string head;  // up to the line of its #version
  std::string text;
};

Source splitAtVersion(std::string text, int version) {
  if (version == 0) return {"", std::move(text)};
  const size_t end = text.find('\n', text.find("version"));
  if (end == std::string::npos) return {"", std::move(text)};
  return {text.substr(0, end + 1), text.substr(end + 1)};
}

std::unique_ptr<glslang::TShader> parseAs(const Attempt& attempt, const Source& source,
                                          const std::string& entry, Diagnostics& diagnostics) {
  const std::array<std::string, 4> parts = {attempt.head + source.head, attempt.preamble + "\n",
                                            source.text, entry};
  std::array<const char*, parts.size()> texts;
  std::array<int, parts.size()> lengths;
  for (size_t i = 0; i < parts.size(); ++i) {
    texts[i] = parts[i].c_str();
    lengths[i] = static_cast<int>(parts[i].size());
  }
  auto shader = std::make_unique<glslang::TShader>(EShLangFragment);
  shader->setStringsWithLengths(texts.data(), lengths.data(), static_cast<int>(parts.size()));
  diagnostics.setFirstLine(2, std::count(source.head.begin(), source.head.end(), '\n'));
  if (shader->parse(GetDefaultResources(), attempt.version, false, kMessages)) {
    return shader;
  }
  diagnostics.addLog(shader->getInfoLog());
  return nullptr;
}

// The compiler works through the tree recursively.
bool isTooDeep(glslang::TShader& shader, Diagnostics& diagnostics) {
  constexpr unsigned kMaxDepth = 1500;
  const TIntermNode* root = shader.getIntermediate()->getTreeRoot();
  const TIntermNode* deep = root != nullptr ? deeperThan(*root, kMaxDepth) : nullptr;
  if (deep != nullptr) diagnostics.add(Unsupported(deep->getLoc(), "nested too deeply"));
  return deep != nullptr;
}

}  // namespace

std::unique_ptr<Program> Program::parse(std::string_view text, Diagnostics& diagnostics) {
  static std::once_flag initialized;
  std::call_once(initialized, [] { glslang::InitializeProcess(); });
  const std::string whole(text);
  const std::vector<std::string_view> tokens = tokensOf(whole);
  const int version = versionOf(tokens);
  const bool isImage = !definesFunction(tokens, "main") && definesFunction(tokens, "mainImage");
  const std::string inputs = isImage ? imageInputs(tokens) : "";
  const Source source = splitAtVersion(whole, version);

  // When none succeeds, the attempt with the fewest errors is likely the language that was meant.
  std::optional<Diagnostics> fewest;
  for (const Attempt& attempt : attemptsFor(version, inputs)) {
    Diagnostics errors = diagnostics;
    const std::string entry = isImage ? imageEntry(attempt.version) : "";
    auto shader = parseAs(attempt, source, entry, errors);
    if (shader != nullptr) {
      diagnostics = std::move(errors);
      if (isTooDeep(*shader, diagnostics)) return nullptr;
      const glslang::TIntermediate& tree = *shader->getIntermediate();
      if (tree.getOriginUpperLeft() || tree.getPixelCenterInteger()) {
        diagnostics.add(
            Unsupported(TSourceLoc(), "redeclared origins of gl_FragCoord are not supported"));
        return nullptr;
      }
      return std::unique_ptr<Program>(new Program(std::move(shader)));
    }
    if (!fewest || errors.count() < fewest->count()) fewest = std::move(errors);
  }
  diagnostics = std::move(*fewest);
  return nullptr;
}

}  // namespace shadermachine::tools::glsl
