// Operations without an instruction of their own, written in GLSL and compiled like the source's
// functions where they are used. Unsigned integers are handled as the int words that they are.
#pragma once

namespace shadermachine::tools::glsl {

extern const char* const kLibrarySource;

}  // namespace shadermachine::tools::glsl
