#include "fuzz/scale_sources.h"

#include <array>
#include <string_view>

namespace shadermachine::fuzz {
namespace {

// Long enough for square times to show: assembling a byte takes far less than compiling one.
constexpr size_t kMostAssemblyBytes = size_t{1} << 20;
constexpr size_t kMostGlslBytes = size_t{1} << 18;

// The second part and the fourth stand many times each, the fourth counting downwards. In all of
// them $i is the number of the repetition, $j the next, $n the last of the second part, $s a size,
// $x an index, $d a small number.
using Pattern = std::array<std::string_view, 5>;

constexpr Pattern kAssembly[] = {
    {"", ".function f$i\nCALL $j\nRETURN\n.end\n", ".function f\nRETURN\n.end\n", "", ""},
    {"", ".function f$i\nPUSH_EMPTY\nCALL $j\nRETURN_VALUE\n.end\n",
     ".function f\nPUSH_0\nRETURN_VALUE\n.end\n", "", ""},
    {".function f\n.local float a[$s]\n", "PUSH_0\n", "CALL 0\nRETURN\n.end\n", "", ""},
    {".global float g[$s]\n.function f\n.local float a[$s]\n.local float b[$s]\n",
     "LOAD_LOCAL a\nSTORE_LOCAL a\n", "LOAD_GLOBAL g\nSTORE_GLOBAL g\n",
     "LOAD_LOCAL a\nLOAD_LOCAL b\nEQ_AGG\nPOP\nLOAD_GLOBAL g\nMAKE_UNIQUE\nPOP_RELEASE\n",
     "RETURN\n.end\n"},
    {".function f\n.local float a[4096]\n.local float b[4096]\n", "LOAD_LOCAL a\nSTORE_LOCAL b\n",
     "LOAD_LOCAL a\nLOAD_LOCAL b\nEQ_AGG\nPOP\n", "LOAD_LOCAL b\nSTORE_LOCAL a\n",
     "RETURN\n.end\n"},
    {".global int i host\n.global vec4 v\n.output0 v\n.function f\n.local mat4 m[3]\n"
     ".local vec4 w[$d]\n",
     "LOAD_GLOBAL i\nCTOR_VEC4_A 1\nPUSH_U32 $x\nSTORE_GLOBAL_ELEM v, 1\n",
     "LOAD_GLOBAL v\nLOAD_GLOBAL i\nPUSH_1\nSTORE_LOCAL_ELEM m, 2\n",
     "LOAD_GLOBAL v\nPUSH_U32 $x\nLOAD_GLOBAL i\nSTORE_LOCAL_ELEM w, 2\nLOAD_GLOBAL i\n"
     "STORE_LOCAL_ELEM_IMM w, $d, $d\nPUSH_INDEX_IMM $d\nLOAD_LOCAL w\nARRAY_ELEMENT vec4\n"
     "STORE_GLOBAL v\n",
     "RETURN\n.end\n"},
    {".struct S0\n.member float x\n.end\n", ".struct S$j\n.member S$i a[$d]\n.end\n",
     ".global S$n g host\n.function f\nLOAD_GLOBAL g\nSTRUCT_FIELD S$n, a\nPOP_RELEASE\n", "NOP\n",
     "RETURN\n.end\n"},
    {".struct E size 0\n.end\n.struct F\n.member E e[$s]\n.end\n", ".global E e$i[$s] host\n",
     ".function f\n", ".local F f$i[$s]\n", "RETURN\n.end\n"},
    {".function f\n", "WRONG $i\n", "", ".local wrong l$i[$s]\n", ".end\n"},
    {".function f\n", "PUSH_0\n", "", "PUSH_1\nJUMP_IF_FALSE +0\n", "HALT\n.end\n"},
    {".function f\n", "L$i:\n", "PUSH_0\nJUMP_IF_FALSE L0\n", "PUSH_1\nJUMP_IF_FALSE L0\n",
     "JUMP L0\n.end\n"},
    {"", ".global float g$i[$s] host\n", ".function f\n", ".local mat4 l$i[$d]\n",
     "RETURN\n.end\n"},
    {".global float g host\n.function f\n", "LOAD_GLOBAL g\nSIN 1\n", "DUP\nPOP\n", "ADD_F 1\n",
     "RETURN\n.end\n"},
    {".function f\n", "PUSH_INDEX_IMM $d\n", "PUSH_0\n", "CTOR_MAT4 1\nCOS 16\nINVERSE_SQRT 16\n",
     "RETURN\n.end\n"},
    {".function g(float x)\n", "LOAD_LOCAL x\nSTORE_LOCAL x\n",
     "RETURN\n.end\n.function f\nPUSH_0\n", "CALL g\n", "RETURN\n.end\n.entry f\n"},
    {".function f\n", ".variable \"$i\", \"\", gone\n", "NOP\n", ".end_variable \"$i\"\n",
     "RETURN\n.end\n"},
    {"", ".struct structure_of_number_$i null\n", ".function f(float x",
     ", structure_of_numbers_$i y$i", ")\n.end\n"},
};

constexpr Pattern kGlsl[] = {
    {"float f0(float x) { return x; }\n", "float f$j(float x) { return f$i(x) + 1.0; }\n",
     "void main() { gl_FragColor = vec4(f$n(1.0));", "", "}"},
    {"float g; void f0() {}\n", "void f$j() { g += float($i); f$i(); }\n", "void main() { f$n();",
     "f$i();", "gl_FragColor = vec4(g); }"},
    {"uniform float x; void main() { gl_FragColor = vec4(", "(", "x", ")", "); }"},
    {"uniform float x; void main() { gl_FragColor = vec4(x", "+x", "", "*$d.0", "); }"},
    {"uniform float x; void main() { gl_FragColor = vec4(", "sin(", "x", ")", "); }"},
    {"uniform float x; void main() { gl_FragColor = vec4((x", ", x", "), (x", ", x + x",
     "), x); }"},
    {"uniform float x; void main() { float y = x;", "if (y > $d.0) { y += x;", "", "}",
     "gl_FragColor = vec4(y); }"},
    {"uniform float x; void main() { float y = x;", "for (int i$i = 0; i$i < $d; ++i$i) { y += x;",
     "", "}", "gl_FragColor = vec4(y); }"},
    {"struct S0 { float x; };\n", "struct S$j { S$i a[$d]; };\n", "void main() { S$n s; S$n t = s;",
     "", "gl_FragColor = vec4(float(s == t)); }"},
    {"#version 330\nuniform int x; out vec4 c; void main() { int y = x; switch (x) {",
     "case $i:", "y++;", "", "} c = vec4(y); }"},
    {"#version 330\nuniform float x; out vec4 c; void main() { float y = x, z; float a[] = "
     "float[](x",
     ",z", "", ",y++", "); c = vec4(a[0]); }"},
    {"#version 330\nuniform float x; out vec4 c; float f(float p", ", float p$i",
     ") { return p; } void main() { float y = x; c = vec4(f(y", ",y", ")); }"},
    {"#version 330\nout vec4 c; uniform B { float x", ", x$i", "; }; void main() { c = vec4(x);",
     "{", "}}"},
    {"struct S0 { float x; };\n", "struct S$j { S$i a, b; };\n", "void main() { S$n s;", "S$i s$i;",
     "gl_FragColor = vec4(float(s == s)); }"},
    {"struct S0 { float x; };\n", "struct S$j { S$i a; }; S$j s$j;\n", "void main() {",
     "s$j = s$j;", "gl_FragColor = vec4(float(s$n == s$n)); }"},
    {"uniform int i; uniform float x; float g[$s]; void main() { vec4 v = vec4(x); mat4 m = "
     "mat4(x); vec3 a[$d + 1];",
     "v[i + $x] = x; m[i * $x][$x + i] = x;", "", "a[$x * i][i] = x; g[i] += a[i].y;",
     "gl_FragColor = v + m[1] * a[0].x + g[0]; }"},
    {"uniform float x; void main() { float y = x;", "{ float a$i[$s]; a$i[0] = y; y += a$i[0]; }",
     "", "", "gl_FragColor = vec4(y); }"},
    {"", "uniform vec4 u$i[$s];\n", "void main() { gl_FragColor = u0[0]", "+ u$i[$d]", "; }"},
    {"#define M0 x +\n", "#define M$j M$i M$i\n",
     "uniform float x; void main() { gl_FragColor = vec4(M$n x); ", "x;", "}"},
    {"void main() { const float a = 1.0", "+ 1.0", "; float b = a;", "b += a;",
     "gl_FragColor = vec4(b); }"},
};

uint32_t largeNumber(Choices& choices, uint32_t mostBits) {
  const uint32_t bits = choices.below(mostBits + 1);
  return (uint32_t{1} << bits) - 1 + choices.below(3);
}

// Any count of bits, a pattern of components, or something between.
int32_t anyIndex(Choices& choices) {
  const auto number = static_cast<int32_t>(largeNumber(choices, 31));
  switch (choices.below(4)) {
    case 0:
      return number;
    case 1:
      return -number;
    case 2:
      return -static_cast<int32_t>(choices.between(0, 5) << 8 | choices.below(256));
    default:
      return static_cast<int32_t>(choices.below(6)) - 1;
  }
}

class Expansion {
 public:
  Expansion(Choices& choices, size_t mostBytes) : choices_(choices), mostBytes_(mostBytes) {}

  void add(std::string_view part, uint32_t i) {
    for (size_t at = 0; at < part.size(); ++at) {
      if (part[at] == '$') {
        text_ += number(part[++at], i);
      } else {
        text_ += part[at];
      }
    }
  }
  void repeat(std::string_view part, uint32_t count, bool isUpwards) {
    for (uint32_t i = 0; i < count && !part.empty() && text_.size() < mostBytes_; ++i) {
      add(part, isUpwards ? i : count - 1 - i);
      if (isUpwards) last_ = i + 1;
    }
  }
  std::string take() { return std::move(text_); }
  uint32_t last() const { return last_; }

 private:
  std::string number(char kind, uint32_t i) {
    switch (kind) {
      case 'i':
        return std::to_string(i);
      case 'j':
        return std::to_string(i + 1);
      case 'n':
        return std::to_string(last_);
      case 's':
        return std::to_string(uint64_t{largeNumber(choices_, 31)} + 1);
      case 'x':
        return std::to_string(anyIndex(choices_));
      default:
        return std::to_string(choices_.between(1, 4));
    }
  }

  Choices& choices_;
  size_t mostBytes_;
  uint32_t last_ = 0;
  std::string text_;
};

}  // namespace

ScaleSource scaleSource(Choices& choices, bool withGlsl, uint32_t divisor) {
  const bool isGlsl = withGlsl && choices.below(2) != 0;
  const Pattern& pattern = isGlsl ? choices.of(kGlsl) : choices.of(kAssembly);
  const uint32_t upwards = largeNumber(choices, 17) / divisor;
  // Brackets close as often as they open, but for once in a while.
  const bool isLopsided = choices.oneIn(2);
  const uint32_t downwards = isLopsided ? largeNumber(choices, 14) / divisor : 0;
  Expansion expansion(choices, (isGlsl ? kMostGlslBytes : kMostAssemblyBytes) / divisor);
  expansion.add(pattern[0], 0);
  expansion.repeat(pattern[1], upwards, true);
  const uint32_t done = expansion.last();
  expansion.add(pattern[2], done);
  expansion.repeat(pattern[3], isLopsided ? downwards : done, false);
  expansion.add(pattern[4], done);
  return {expansion.take(), isGlsl};
}

}  // namespace shadermachine::fuzz
