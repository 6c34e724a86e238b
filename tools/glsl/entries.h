// Entries and inputs of sources that are written without: mainImage() and transition().
#pragma once

#include <shadermachine-tools/host_inputs.h>

#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools::glsl {

enum class Entry { Main, Image, Transition };

// What goes around a source.
struct Surroundings {
  Entry kind = Entry::Main;
  std::string before;
  std::string after;
};

// From what the preprocessor leaves of the source, which is read as this version. Pictures of
// mainImage() are opaque, buffers are not.
Surroundings surroundingsOf(const std::vector<std::string_view>& tokens, int version,
                            bool isBuffer);

// The values in comments behind uniforms, as transitions have them: "uniform float x; // = 0.5".
std::vector<NamedValue> valuesInComments(const std::string& text);

}  // namespace shadermachine::tools::glsl
