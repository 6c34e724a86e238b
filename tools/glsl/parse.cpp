// From source text to a tree: versions, precision and entries that people leave out.
#include <glslang/Public/ResourceLimits.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <regex>

#include "program.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr EShMessages kMessages =
    static_cast<EShMessages>(EShMsgRelaxedErrors | EShMsgSuppressWarnings);

constexpr const char* kDefaultPrecision = "precision highp float; precision highp int; ";
constexpr const char* kModernOutput = "out vec4 pixelColour; ";

// A way to read the source.
struct Attempt {
  int version;
  std::string head;      // goes first: the version, unless the source names it
  std::string preamble;  // goes after the version
};

int versionOf(const std::string& source) {
  static const std::regex kVersion("(^|\n)[ \t]*#[ \t]*version[ \t]+([0-9]+)");
  std::smatch match;
  return std::regex_search(source, match, kVersion) ? std::atoi(match[2].str().c_str()) : 0;
}

bool definesFunction(const std::string& source, const std::string& name) {
  return std::regex_search(source, std::regex("\\bvoid\\s+" + name + "\\s*\\("));
}

// Inputs of shaders that are written as mainImage() alone, where the source does not declare them.
std::string imageInputs(const std::string& source) {
  static constexpr std::array<std::pair<const char*, const char*>, 12> kInputs = {{
      {"vec3", "iResolution"},
      {"float", "iTime"},
      {"float", "iTimeDelta"},
      {"float", "iFrameRate"},
      {"float", "iGlobalTime"},
      {"int", "iFrame"},
      {"vec4", "iMouse"},
      {"vec4", "iDate"},
      {"sampler2D", "iChannel0"},
      {"sampler2D", "iChannel1"},
      {"sampler2D", "iChannel2"},
      {"sampler2D", "iChannel3"},
  }};
  std::string declarations;
  for (const auto& [type, name] : kInputs) {
    const std::regex declared(std::string("uniform\\s+(\\w+\\s+)?\\w+\\s+") + name + "\\b");
    if (std::regex_search(source, declared)) continue;
    declarations += std::string("uniform ") + type + " " + name + "; ";
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

}  // namespace

std::unique_ptr<Program> Program::parse(std::string_view text, Diagnostics& diagnostics) {
  static std::once_flag initialized;
  std::call_once(initialized, [] { glslang::InitializeProcess(); });
  const std::string whole(text);
  const int version = versionOf(whole);
  const bool isImage = !definesFunction(whole, "main") && definesFunction(whole, "mainImage");
  const std::string inputs = isImage ? imageInputs(whole) : "";
  const Source source = splitAtVersion(whole, version);

  // When none succeeds, the attempt with the fewest errors is likely the language that was meant.
  std::optional<Diagnostics> fewest;
  for (const Attempt& attempt : attemptsFor(version, inputs)) {
    Diagnostics errors = diagnostics;
    const std::string entry = isImage ? imageEntry(attempt.version) : "";
    auto shader = parseAs(attempt, source, entry, errors);
    if (shader != nullptr) {
      diagnostics = std::move(errors);
      return std::unique_ptr<Program>(new Program(std::move(shader)));
    }
    if (!fewest || errors.count() < fewest->count()) fewest = std::move(errors);
  }
  diagnostics = std::move(*fewest);
  return nullptr;
}

}  // namespace shadermachine::tools::glsl
