// What the engine makes of a shader, as text: for people who want to look inside, and for tests.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <string>

namespace shadermachine::tools {

enum class Stage {
  BuiltForm,  // as it comes from the bytecode
  Form,       // after the passes
  Records,    // chosen for it
  Batch,      // records of batches; in builds that have them
};

// For a host that has the callbacks of `render`. Says which functions are left to the plain
// handlers; instructions that are, and calls, stand in the listing as "plain". The shader must be
// valid.
std::string shaderListing(const ShaderView& view, Stage stage);

}  // namespace shadermachine::tools
