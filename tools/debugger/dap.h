// The debugger behind the Debug Adapter Protocol, for editors.
#pragma once

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "debugger/fragment_run.h"

namespace shadermachine::tools {

// What a client asks for; what it leaves out is what the command line says.
struct DapLaunch {
  std::string program;
  std::vector<uint32_t> pixel;  // x, y
  std::string size;
  std::optional<float> time;
  std::vector<std::string> textures;  // "name=file.png"
  std::vector<std::string> values;    // "name=1,2"
};

// Makes the run that is to be debugged; it must live until the next call. Throws std::exception
// with a text for people.
using DapLauncher = std::function<FragmentRun&(const DapLaunch&)>;

// Talks until the client says goodbye, closes the pipe or says something that is no message. False
// in the last case.
bool serveDap(std::FILE* input, std::FILE* output, uint32_t timeoutMilliseconds,
              const DapLauncher& launch);

}  // namespace shadermachine::tools
