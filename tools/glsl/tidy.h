// glslang's messages in the words of people.
#pragma once

#include <string>
#include <string_view>

namespace shadermachine::tools::glsl {

struct TidyMessage {
  std::string text;
  std::string word;  // of the source, that the message is about; may be empty
};

// "'x' : undeclared identifier" becomes "undeclared identifier 'x'" about x.
TidyMessage tidied(std::string_view message);

}  // namespace shadermachine::tools::glsl
