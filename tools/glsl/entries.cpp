#include "entries.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <regex>

#include "source.h"

namespace shadermachine::tools::glsl {
namespace {

// Inputs, where the source does not declare them. Arrays have their length behind the type.
struct Input {
  const char* type;
  const char* name;
};

constexpr std::array kImageInputs = {
    Input{"vec3", "iResolution"},
    Input{"float", "iTime"},
    Input{"float", "iTimeDelta"},
    Input{"float", "iFrameRate"},
    Input{"float", "iSampleRate"},
    Input{"float", "iGlobalTime"},
    Input{"int", "iFrame"},
    Input{"vec4", "iMouse"},
    Input{"vec4", "iDate"},
    Input{"float[4]", "iChannelTime"},
    Input{"vec3[4]", "iChannelResolution"},
    Input{"sampler2D", "iChannel0"},
    Input{"sampler2D", "iChannel1"},
    Input{"sampler2D", "iChannel2"},
    Input{"sampler2D", "iChannel3"},
};

constexpr std::array kTransitionInputs = {
    Input{"float", "progress"},
    Input{"float", "ratio"},
    Input{"sampler2D", "from"},
    Input{"sampler2D", "to"},
};

template <size_t n>
std::string declarations(const std::array<Input, n>& inputs,
                         const std::vector<std::string_view>& tokens) {
  std::string text;
  for (const Input& input : inputs) {
    if (declaresUniform(tokens, input.name)) continue;
    const std::string_view type = input.type;
    const size_t bracket = std::min(type.find('['), type.size());
    text += "uniform " + std::string(type.substr(0, bracket)) + " " + input.name +
            std::string(type.substr(bracket)) + "; ";
  }
  return text;
}

bool hasModernOutputs(int version) { return version >= 130; }

Surroundings imageSurroundings(const std::vector<std::string_view>& tokens, int version,
                               bool isBuffer) {
  const bool isModern = hasModernOutputs(version);
  const std::string output = isModern ? "pixelColour" : "gl_FragColor";
  return {Entry::Image,
          declarations(kImageInputs, tokens) + (isModern ? "out vec4 pixelColour; " : ""),
          "\nvoid main() { vec4 colour = vec4(0.0, 0.0, 0.0, 1.0); mainImage(colour, "
          "gl_FragCoord.xy); " +
              output + (isBuffer ? " = colour; }\n" : " = vec4(colour.rgb, 1.0); }\n")};
}

Surroundings transitionSurroundings(const std::vector<std::string_view>& tokens, int version) {
  const bool isModern = hasModernOutputs(version);
  const std::string lookUp = isModern ? "texture" : "texture2D";
  std::string before = declarations(kTransitionInputs, tokens);
  before += isModern ? "in vec2 _uv; out vec4 pixelColour; " : "varying vec2 _uv; ";
  before += "vec4 getFromColor(vec2 uv) { return " + lookUp + "(from, uv); } ";
  before += "vec4 getToColor(vec2 uv) { return " + lookUp + "(to, uv); } ";
  return {Entry::Transition, before,
          std::string("\nvoid main() { ") + (isModern ? "pixelColour" : "gl_FragColor") +
              " = transition(_uv); }\n"};
}

}  // namespace

Surroundings surroundingsOf(const std::vector<std::string_view>& tokens, int version,
                            bool isBuffer) {
  if (definesFunction(tokens, "void", "main")) return {Entry::Main, "", "\n"};
  if (definesFunction(tokens, "void", "mainImage")) {
    return imageSurroundings(tokens, version, isBuffer);
  }
  if (definesFunction(tokens, "vec4", "transition")) return transitionSurroundings(tokens, version);
  return {Entry::Main, "", "\n"};
}

std::vector<NamedValue> valuesInComments(const std::string& text) {
  static const std::regex kUniform(
      R"(uniform[ \t]+\w+[ \t]+(\w+)[ \t]*;?[ \t]*/[/*][ \t]*=[ \t]*([^;\n*]+))");
  static const std::regex kNumber(R"([-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?)");
  // std::regex recurses with every character that it matches: it gets no more than people write.
  constexpr long kMostCharacters = 1000;
  std::vector<NamedValue> values;
  for (size_t at = text.find("uniform"); at != std::string::npos; at = text.find("uniform", at)) {
    const auto first = text.begin() + static_cast<long>(at);
    const auto last = first + std::min(text.end() - first, kMostCharacters);
    std::smatch match;
    if (!std::regex_search(first, last, match, kUniform, std::regex_constants::match_continuous)) {
      ++at;
      continue;
    }
    at += static_cast<size_t>(match.length());
    NamedValue value{match[1], {}};
    std::string numbers = match[2];
    numbers.erase(0, numbers.find('(') == std::string::npos ? 0 : numbers.find('('));
    if (numbers.starts_with("true")) value.components.push_back(1);
    if (numbers.starts_with("false")) value.components.push_back(0);
    for (auto number = std::sregex_iterator(numbers.begin(), numbers.end(), kNumber);
         number != std::sregex_iterator(); ++number) {
      value.components.push_back(std::strtod(number->str().c_str(), nullptr));
    }
    if (!value.components.empty()) values.push_back(std::move(value));
  }
  return values;
}

}  // namespace shadermachine::tools::glsl
