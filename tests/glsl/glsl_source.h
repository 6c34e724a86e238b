// Whole sources from the bodies that the cases have.
#pragma once

#include <string>

namespace shadermachine::test {

// A complete ES 3.10 shader with this body of main(), whose result is `r`.
inline std::string withBody(const std::string& body, const std::string& globals = "") {
  return "#version 310 es\nprecision highp float; precision highp int;\n"
         "uniform float two; uniform vec3 two3; uniform int three; uniform bool yes;\n"
         "out vec4 r;\n" +
         globals + "\nvoid main() {\n" + body + "\n}\n";
}

}  // namespace shadermachine::test
