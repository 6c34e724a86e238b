// Every feature of the language that the compiler supports, as small programs with the value that
// they have to give; and what it refuses, with the message.
#include <gtest/gtest.h>
#include <shadermachine-tools/validator.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "glsl_run.h"

namespace shadermachine::test {
namespace {

struct Case {
  const char* name;
  const char* globals;
  const char* body;  // sets r
  std::array<float, 4> expected;
};

void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

class Glsl : public testing::TestWithParam<Case> {};

TEST_P(Glsl, givesTheExpectedValue) {
  const Case& test = GetParam();
  const Fragment result = runGlsl(withBody(test.body, test.globals));
  EXPECT_EQ(result.code, 0u);
  for (size_t i = 0; i < 4; ++i) {
    const float tolerance = 1e-6f * std::max(1.0f, std::abs(test.expected[i]));
    EXPECT_NEAR(result.colour[i], test.expected[i], tolerance) << "component " << i;
  }
}

std::string caseName(const testing::TestParamInfo<Case>& info) { return info.param.name; }

const Case kOperators[] = {
    {"scalarArithmetic",
     "",
     "r = vec4(two + 3.0, two - 3.0, two * 3.0, two / 4.0);",
     {5, -1, 6, 0.5f}},
    {"vectorAndScalar",
     "",
     "vec3 v = vec3(1.0, two, 4.0); r = vec4(v + two, 0.0) + vec4(two / v, 0.0) - vec4(two - v, "
     "1.0);",
     {4, 5, 8.5f, -1}},
    {"splatOperands",
     "",
     "vec3 v = two3 * vec3(two) + vec3(0.5) - vec3(1.0, 2.0, 3.0); r = vec4(v / vec3(0.5), max(v, "
     "vec3(2.0)).y);",
     {7, 5, 3, 2.5f}},
    {"negation", "", "ivec2 i = -ivec2(three, -2); r = vec4(-two, vec2(i), 0.0);", {-2, -3, 2, 0}},
    {"integerArithmetic",
     "",
     "int i = three; r = vec4(i / 2, -i / 2, i % 2, (-7) + i * 2);",
     {1, -1, 1, -1}},
    {"moduloOfNegatives",
     "",
     "int i = -three - 4; r = vec4(i % 3, ivec2(i, 7) % 4, i - i / 3 * 3);",
     {-1, -3, 3, -1}},
    {"bitOperations",
     "",
     "int i = three + 9; r = vec4(i & 10, i | 3, i ^ 5, ~i);",
     {8, 15, 9, -13}},
    {"shifts",
     "",
     "int i = -20; int n = three; r = vec4(i << 2, i >> n, i << n, 20 >> n);",
     {-80, -3, -160, 2}},
    {"shiftsOfVectors",
     "",
     "ivec2 a = ivec2(-three * 7, 21) >> 2; uvec2 b = uvec2(uint(-three), 21u) >> 28u; r = vec4(a, "
     "b "
     ">> 1);",
     {-6, 5, 7, 0}},
    {"shiftsByThirtyOne",
     "",
     "int n = three + 28; r = vec4(-1 >> n, 5 >> n, -8 >> 31, (1 << n) >> 31);",
     {-1, 0, -1, -1}},
    {"unsignedArithmetic",
     "",
     "uint u = uint(three) * 1000000007u * 3u; r = vec4(u / 1000000000u, u % 10u, u >> 30, u > "
     "5u);",
     {0, 1, 0, 1}},
    {"unsignedAboveSignedRange",
     "",
     "uint u = 4294967290u + uint(three); r = vec4(u / 1000000000u, u % 1000u, u >> 28, float(u) / "
     "1e9);",
     {4, 293, 15, 4.294967293f}},
    {"unsignedByUnsigned",
     "",
     "uint u = 4294967295u - uint(three); r = vec4(u / 3000000000u, u / 7u % 100u, u > 3u, "
     "uint(-1) / u);",
     {1, 56, 1, 1}},
    {"unsignedConversions",
     "",
     "uint u = uint(two * 1.5e9); r = vec4(u / 1000000u, float(uint(three)), int(u >> 31u), "
     "uvec2(3.7, 2.0).x);",
     {3000, 3, 1, 3}},
    {"comparisons",
     "",
     "r = vec4(two < 3.0, three >= 3, two3 == vec3(2.0), ivec2(three) != ivec2(3));",
     {1, 1, 1, 0}},
    {"componentComparisons",
     "",
     "bvec3 b = lessThan(vec3(1.0, 2.0, 3.0), two3); r = vec4(b, any(not(b)));",
     {1, 0, 0, 1}},
    {"componentEquality",
     "",
     "r = vec4(equal(ivec2(three, 2), ivec2(3)), notEqual(vec2(two), vec2(2.0, 1.0)));",
     {1, 0, 0, 1}},
    {"logic", "", "r = vec4(yes && two > 3.0, yes || two > 3.0, yes ^^ true, !yes);", {0, 1, 0, 0}},
    {"shortCircuit",
     "int calls = 0; bool touch() { calls++; return true; }",
     "bool a = !yes && touch(); bool b = yes || touch(); bool c = yes && touch(); r = vec4(calls, "
     "a, b, c);",
     {1, 0, 1, 1}},
    {"guardedIndex",
     "",
     "float a[2] = float[2](1.0, 2.0); int i = three; r = vec4(i < 2 && a[i] > 0.0);",
     {0, 0, 0, 0}},
    {"choice",
     "",
     "r = yes ? vec4(two) : vec4(three); r.x += two > 5.0 ? 1.0 : 10.0;",
     {12, 2, 2, 2}},
    {"incrementAndDecrement",
     "",
     "int i = three; int a = i++; int b = ++i; float f = two; float c = f--; r = vec4(a, b, c, "
     "--f);",
     {3, 5, 2, 0}},
    {"incrementOfParts",
     "",
     "ivec3 v = ivec3(1); v.y++; ++v.z; int a[2] = int[2](5, 6); int i = 0; a[i++]++; r = "
     "vec4(v.yz, a[0], i);",
     {2, 2, 6, 1}},
    {"compoundAssignments",
     "",
     "vec4 v = vec4(1.0, 2.0, 3.0, 4.0); v += two; v.xy *= 2.0; v.zw -= v.xy; v.x /= 3.0; r = v;",
     {2, 8, -1, -2}},
    {"compoundIntegers",
     "",
     "int i = three; i <<= 3; i |= 1; i %= 7; i ^= 2; ivec2 v = ivec2(9); v >>= 1; v &= 6; r = "
     "vec4(i, v, 0);",
     {6, 4, 4, 0}},
    {"assignmentsAsValues",
     "",
     "float a; float b; a = b = two; vec2 v; float c = v.y = a + 1.0; r = vec4(a, b, v.y, c);",
     {2, 2, 3, 3}},
    {"commaOperator",
     "",
     "float a = 1.0, b; for (int i = 0; i < 3; b = a, a += two, i++); r = vec4(a, b, 0.0, 0.0);",
     {7, 5, 0, 0}},
    {"conversions",
     "",
     "r = vec4(float(yes), int(two + 0.9), bool(three), float(bvec2(two, 0.0).y));",
     {1, 2, 1, 0}},
};
INSTANTIATE_TEST_SUITE_P(Operators, Glsl, testing::ValuesIn(kOperators), caseName);

const Case kValues[] = {
    {"vectorConstructors",
     "",
     "vec2 a = vec2(two, 5.0); r = vec4(a.yx, vec3(1, a).yz);",
     {5, 2, 2, 5}},
    {"truncatingConstructors",
     "",
     "vec4 v = vec4(1, 2, 3, 4); r = vec4(vec2(v), float(v.zw), ivec3(v).z);",
     {1, 2, 3, 3}},
    {"swizzles",
     "",
     "vec4 v = vec4(1, 2, 3, 4); v.wx = v.xy; r = v.abgr.stpq; r.yz = r.zy;",
     {1, 2, 3, 2}},
    {"swizzleOfSwizzle",
     "",
     "vec4 v = vec4(0.0); v.zyx.xy = vec2(1.0, 2.0); v.wzy.z = 7.0; r = v;",
     {0, 7, 1, 0}},
    {"dynamicComponents",
     "",
     "vec4 v = vec4(0.0); int i = three; v[i] = two; v[i - 1] += 4.0; r = vec4(v.zw, v[i], v[0]);",
     {4, 2, 2, 0}},
    {"matrixDiagonal", "", "mat3 m = mat3(two); r = vec4(m[0], m[2][2]);", {2, 0, 0, 2}},
    {"matrixColumns",
     "",
     "mat2 m = mat2(1, 2, 3, 4); int i = three - 2; m[i] *= two; m[0][i] = 9.0; r = vec4(m);",
     {1, 9, 6, 8}},
    {"matrixFromMatrix",
     "",
     "mat2 m = mat2(1, 2, 3, 4) * two; mat4 b = mat4(m); mat3 c = mat3(b); r = vec4(b[1].y, "
     "b[2].z, b[3].w, c[1][0]);",
     {8, 1, 1, 6}},
    {"matrixProducts",
     "",
     "mat2 m = mat2(1, 2, 3, 4); vec2 v = vec2(two, 1.0); r = vec4(m * v, v * m);",
     {5, 8, 4, 10}},
    {"matrixAndScalar",
     "",
     "mat3 m = mat3(1.0) * two + 1.0; m /= two; mat3 n = two * m; r = vec4(m[0], n[1].y);",
     {1.5f, 0.5f, 0.5f, 3}},
    {"matrixCompoundProduct",
     "",
     "mat2 m = mat2(1, 2, 3, 4); m *= mat2(0, 1, 1, 0); vec2 v = vec2(1, two); v *= m; r = vec4(v, "
     "m[0]);",
     {11, 5, 3, 4}},
    {"matrixFunctions",
     "",
     "mat3 m = mat3(2, 0, 1, 0, 4, 0, 0, 0, 8) / two * 2.0; mat3 i = inverse(m) * m; r = "
     "vec4(i[0].x, i[1].x, determinant(m), transpose(m)[2].x);",
     {1, 0, 64, 1}},
    {"bigInverse",
     "",
     "mat4 m = mat4(two); m[3] = vec4(1, 2, 3, 1); m[0].z = 0.5; r = inverse(m) * (m * vec4(1, 2, "
     "3, 4));",
     {1, 2, 3, 4}},
    {"arrays",
     "",
     "float a[3]; for (int i = 0; i < 3; i++) a[i] = float(i) * two; float b[3] = a; b[1] = 9.0; r "
     "= vec4(a[1], b[1], a[2], a.length());",
     {2, 9, 4, 3}},
    {"arrayConstructorsAndEquality",
     "",
     "float a[2] = float[](two, 3.0); r = vec4(a == float[2](2.0, 3.0), a != float[2](2.0, 4.0), "
     "a[1], 0.0);",
     {1, 1, 3, 0}},
    {"constantArrays",
     "const vec2 kTable[3] = vec2[3](vec2(1, 2), vec2(3, 4), vec2(5, 6));",
     "vec2 s = vec2(0.0); for (int i = 0; i < 3; i++) s += kTable[i]; r = vec4(s, kTable[three - "
     "1]);",
     {9, 12, 5, 6}},
    {"structures",
     "struct S { float a; vec2 b[2]; mat2 m; }; struct T { S s; int i; };",
     "T t = T(S(two, vec2[2](vec2(1), vec2(3)), mat2(4)), three); t.s.b[1].y = 7.0; t.s.m[1].x = "
     "5.0; T u = t; u.s.a = 0.0; S s = u.s; r = vec4(t.s.a, s.b[1], u.s.m[1].x);",
     {2, 3, 7, 5}},
    {"arraysOfStructures",
     "struct S { float a; vec2 b; };",
     "S s[2]; s[0] = S(1.0, vec2(2.0)); int i = three - 2; s[i].b.y = 5.0; s[i].a = s[0].b.x; S c "
     "= s[i]; r = vec4(c.a, c.b, s[0] == s[1]);",
     {2, 0, 5, 0}},
    {"localsThatAreConstant",
     "float f(const float t[3], int i) { vec2 half_ = vec2(0.5); return t[i] * half_.y; }",
     "float t[3] = float[3](2.0, 4.0, 6.0); float s = 0.0, k = 3.0, m; for (int i = 0; i < 3; i++) "
     "{ float w = 1.5; float never; if (i > 5) never = 9.0; s += never; if (i > 0) s += m; s += "
     "f(t, i) * w; m = 1.0; } k += two; r = vec4(s, k, m, "
     "t[three - 1]);",
     {11, 5, 1, 6}},
    {"constantStructures",
     "struct S { float a; vec2 b[2]; }; const S kS = S(1.0, vec2[2](vec2(2), vec2(3)));",
     "int i = three - 2; r = vec4(kS.a, kS.b[i], 0.0);",
     {1, 3, 3, 0}},
    {"choiceOfStructures",
     "struct S { float a; float b; };",
     "S s = yes ? S(two, 1.0) : S(3.0, 4.0); r = vec4(s.a, s.b, (yes ? s : S(5.0, 6.0)).b, 0.0);",
     {2, 1, 1, 0}},
    {"globalVariables",
     "float g = 1.5; vec2 h; float k = 3.0 * 2.0; void touch() { g += k; h.y += 1.0; }",
     "touch(); touch(); r = vec4(g, h, k);",
     {13.5f, 0, 2, 6}},
    {"globalArrays",
     "float g[3]; void touch(int i) { g[i] += 1.0; }",
     "touch(1); touch(three - 2); r = vec4(g[0], g[1], g[2], 0.0);",
     {0, 2, 0, 0}},
};
INSTANTIATE_TEST_SUITE_P(Values, Glsl, testing::ValuesIn(kValues), caseName);

// Longer than what is made part of the caller.
#define PADDING                                                                                \
  "vec4 pad(vec4 v) { v += v.yzwx; v -= v.wxyz * 2.0; v += v.yzwx; v -= v.wxyz * 2.0; "        \
  "v += v.yzwx; v -= v.wxyz * 2.0; v += v.yzwx; v -= v.wxyz * 2.0; v += v.yzwx; return v; }\n" \
  "float big(float x) { return x + 0.0 * (pad(vec4(x)).x + pad(vec4(x)).y); }\n"

const Case kFunctions[] = {
    {"inlined",
     "float f(float x, vec2 v) { x *= 2.0; return x + v.y; }",
     "float x = two; r = vec4(f(x, vec2(x)), x, f(1.0, vec2(3.0)), 0.0);",
     {6, 2, 5, 0}},
    {"earlyReturns",
     "float f(float x) { if (x > 1.0) return 5.0; for (int i = 0; i < 9; i++) { if (i == three) "
     "return 7.0; x += 1.0; } return x; }"
     "\nint g(int i) { while (true) { if (i > 4) return i; i++; } }",
     "r = vec4(f(two), f(0.0), f(1.0) + f(two), g(three));",
     {5, 7, 12, 5}},
    {"outputParameters",
     "void f(out float a, inout vec2 b, float c) { a = c; b.x += a; }",
     "vec4 v = vec4(1.0); vec2 b = vec2(2.0); f(v.w, b, two); f(v[three - 3], v.yz, 5.0); r = "
     "vec4(v.xyw, b.x);",
     {5, 6, 2, 4}},
    {"outputAliases",
     "void f(out float a, float b, inout float c) { a = 1.0; c += b; }",
     "float x = two; f(x, x, x); float y = two; float z = 3.0; f(y, z, z); r = vec4(x, y, z, 0.0);",
     {4, 1, 6, 0}},
    {"outputArrays",
     "void f(out float a[2], inout float b[2]) { a[0] = 1.0; a[1] = b[0]; b[1] = 9.0; }",
     "float a[2]; float b[2] = float[2](two, 3.0); f(a, b); r = vec4(a[0], a[1], b[0], b[1]);",
     {1, 2, 2, 9}},
    {"arrayParameters",
     "float f(float a[2], int i) { a[i] = 5.0; return a[0] + a[1]; } float g(const float a[2]) { "
     "return a[1]; }",
     "float a[2] = float[2](two, 3.0); r = vec4(f(a, 0), a[0], g(a), f(a, 1));",
     {8, 2, 3, 7}},
    {"arrayResults",
     "float[2] f(float x) { float a[2]; a[0] = x; a[1] = x * 2.0; return a; }",
     "float a[2] = f(two); r = vec4(a[0], a[1], f(3.0)[1], f(1.0)[three - 3]);",
     {2, 4, 6, 1}},
    {"structureParameters",
     "struct S { float a; vec2 b; }; S f(S s, inout S t) { s.a += 1.0; t.b = s.b; return s; }",
     "S s = S(two, vec2(3.0)); S t = S(0.0, vec2(0.0)); S u = f(s, t); r = vec4(s.a, u.a, t.b);",
     {2, 3, 3, 3}},
    {"calledLargeFunction",
     PADDING,
     "r = vec4(big(two), big(3.0) + big(1.0), 0.0, big(big(4.0)));",
     {2, 4, 0, 4}},
    {"calledWithOutputs",
     PADDING "float f(out float a, inout vec2 b, float c) { a = big(c); b.x += big(a) + big(a) * "
             "0.0; return big(c) + pad(vec4(0.0)).x; }",
     "vec4 v = vec4(1.0); float x; float q = f(v.w, v.yz, two) + f(x, v.xy, 1.0); r = vec4(v.xyw, "
     "q + x);",
     {2, 3, 2, 4}},
    {"calledWithAggregates",
     PADDING "struct S { float a; float b[3]; }; float g[3]; float f(S s, float a[3], inout float "
             "c[3]) { s.b[1] = big(8.0); g[0] = big(7.0); c[2] = a[0] + big(s.a); return "
             "pad(vec4(0.0)).x + s.b[1]; }",
     "S s = S(two, float[3](1.0, 2.0, 3.0)); float c[3] = s.b; g[0] = 5.0; float x = f(s, g, c); r "
     "= vec4(x, s.b[1], g[0], c[2]);",
     {8, 2, 7, 7}},
    {"builtinOutputs",
     "",
     "float whole; float part = modf(two + 1.25, whole); int e; float m = frexp(two * 3.0, e); r = "
     "vec4(whole, part, m, e);",
     {3, 0.25f, 0.75f, 3}},
    {"overloads",
     "float f(float x) { return x; } float f(vec2 x) { return x.y * 2.0; } float f(int x) { return "
     "9.0; }",
     "r = vec4(f(two), f(vec2(two)), f(three), 0.0);",
     {2, 4, 9, 0}},
};
INSTANTIATE_TEST_SUITE_P(Functions, Glsl, testing::ValuesIn(kFunctions), caseName);

const Case kControlFlow[] = {
    {"ifElse",
     "",
     "r = vec4(0.0); if (two > 1.0) r.x = 1.0; else r.x = 2.0; if (!yes) { r.y = 1.0; } else if "
     "(three == 3) r.y = 5.0; if (yes) {} else r.z = 1.0;",
     {1, 5, 0, 0}},
    {"conditionsOfJumps",
     "",
     "int n = 0; for (int i = 0; i < 10; i++) { if ((i > 2 && i < 5) || i == 7 || !(i < 9 || two > "
     "9.0)) n += 1 << i; } r = vec4(n, 0, 0, 0);",
     {664, 0, 0, 0}},
    {"loops",
     "",
     "int n = 0; for (int i = 0; i < 10; i++) { if (i == 2) continue; if (i == 5) break; n += i; } "
     "int k = 0; while (k < 7) k += three; int d = 0; do { d++; if (d == 2) continue; } while (d < "
     "4); r = vec4(n, k, d, 0);",
     {8, 9, 4, 0}},
    {"nestedLoops",
     "",
     "int n = 0; for (int i = 0; i < 4; i++) for (int j = i; j < 4; j++) { if (j == 3) break; n++; "
     "} r = vec4(n);",
     {6, 6, 6, 6}},
    {"switches",
     "int f(int i) { switch (i) { case 0: return 10; case 1: case 2: i += 20; break; case 3: i += "
     "1; default: i += 100; } return i; }",
     "r = vec4(f(three - 3), f(2), f(three), f(7));",
     {10, 22, 104, 107}},
    {"switchInLoop",
     "",
     "int n = 0; for (int i = 0; i < 6; i++) { switch (i) { case 1: continue; case 3: break; "
     "default: n += 10; } n++; } r = vec4(n);",
     {45, 45, 45, 45}},
    {"constantConditions",
     "",
     "r = vec4(1.0); if (false) r.x = 5.0; if (true) r.y = 6.0; for (;;) { r.z = true ? two : 0.0; "
     "break; } while (false) r.w = 9.0;",
     {1, 6, 2, 1}},
    {"returnFromMain",
     "",
     "r = vec4(1.0); if (yes) { r.x = two; return; } r.y = 9.0;",
     {2, 1, 1, 1}},
    {"outputsAreReset",
     "",
     "if (two < 1.0) r = vec4(1.0); r.x += 1.0; if (yes) return; r.y = 1.0;",
     {1, 0, 0, 0}},
};
INSTANTIATE_TEST_SUITE_P(ControlFlow, Glsl, testing::ValuesIn(kControlFlow), caseName);

const Case kBuiltins[] = {
    {"common",
     "",
     "r = vec4(abs(-two), sign(-two), floor(-two - 0.5), ceil(two + 0.5));",
     {2, -1, -3, 3}},
    {"fractions",
     "",
     "r = vec4(fract(two + 0.25), mod(-two, 5.0), mod(vec2(7.0, -1.0), two));",
     {0.25f, 3, 1, 1}},
    {"clampMixStep",
     "",
     "r = vec4(clamp(two, 0.0, 1.0), mix(1.0, two, 0.25), step(two, 1.0), clamp(two3, vec3(3.0), "
     "vec3(4.0)).y);",
     {1, 1.25f, 0, 3}},
    {"mixedForms",
     "",
     "vec3 v = vec3(0.5, 1.5, 2.5); r = vec4(min(v, 1.0).y, max(v, two).x, step(1.0, v).y, mix(v, "
     "two3, 0.5).z);",
     {1, 2, 1, 2.25f}},
    {"selectingMix",
     "",
     "r = vec4(mix(vec3(1.0), two3, bvec3(yes, false, true)), mix(1.0, 5.0, !yes));",
     {2, 1, 2, 1}},
    {"smoothstep",
     "",
     "float e = two; r = vec4(smoothstep(0.0, 4.0, two), smoothstep(4.0, 0.0, 1.0), smoothstep(e, "
     "4.0, 3.0), smoothstep(vec2(0.0), vec2(e), vec2(1.0)).x);",
     {0.5f, 0.84375f, 0.5f, 0.5f}},
    {"powers",
     "",
     "r = vec4(pow(two, 3.0), pow(-two, 2.0), exp2(two), pow(two3, vec3(2.0)).z);",
     {8, 4, 4, 4}},
    {"roots",
     "",
     "r = vec4(sqrt(two * 2.0), inversesqrt(two * 2.0), log2(two * 4.0), exp(log(two)));",
     {2, 0.5f, 3, 2}},
    {"angles",
     "",
     "r = vec4(radians(two * 90.0), degrees(3.14159265), atan(two, two), atan(0.0));",
     {3.14159265f, 180, 0.785398163f, 0}},
    {"hyperbolic",
     "",
     "r = vec4(sinh(two), cosh(two), tanh(two), asinh(sinh(two)));",
     {3.62686041f, 3.76219569f, 0.96402758f, 2}},
    {"geometric",
     "",
     "vec3 v = vec3(two, 0.0, 0.0); r = vec4(length(v), distance(v, vec3(0.0)), dot(v, v), "
     "cross(v, vec3(0, 1, 0)).z);",
     {2, 2, 4, 2}},
    {"reflections",
     "",
     "vec2 n = vec2(0.0, 1.0); vec2 i = vec2(1.0, -1.0) * two; r = vec4(reflect(i, n), "
     "faceforward(n, i, n).y, refract(vec2(0.0, -1.0), n, 1.0).y);",
     {2, 2, 1, -1}},
    {"rounding",
     "",
     "r = vec4(trunc(-two - 0.7), round(two + 0.4), roundEven(two + 0.5), roundEven(two + 1.5));",
     {-2, 2, 2, 4}},
    {"integerFunctions",
     "",
     "int i = -three; r = vec4(abs(i), max(i, 2), clamp(i, -2, 5), sign(i)); r.y += "
     "float(min(ivec2(i), 1).x);",
     {3, -1, -2, -1}},
    {"unsignedFunctions",
     "",
     "uint u = uint(-three); r = vec4(max(u, 5u) == u, min(u, 5u), clamp(u, 1u, 9u), 0u);",
     {1, 5, 9, 0}},
    {"classification",
     "",
     "float z = two - 2.0; r = vec4(isnan(z / z), isinf(1.0 / z), isnan(two), isinf(two));",
     {1, 1, 0, 0}},
    {"bitsOfFloats",
     "",
     "r = vec4(intBitsToFloat(floatBitsToInt(two)), floatBitsToUint(two) >> 23, "
     "intBitsToFloat(0x3f800000), 0.0);",
     {2, 128, 1, 0}},
    {"packing",
     "",
     "vec2 v = unpackUnorm2x16(packUnorm2x16(vec2(0.0, 1.0))); r = vec4(v, "
     "unpackSnorm2x16(packSnorm2x16(vec2(-1.0, 0.0)))); r.x += two - 2.0;",
     {0, 1, -1, 0}},
    {"halves",
     "",
     "vec2 v = unpackHalf2x16(packHalf2x16(vec2(two + 0.1, -1e-7))); r = vec4(v.x, v.y * 1e7, "
     "packHalf2x16(vec2(1e9, two)) == 0x40007c00u, unpackHalf2x16(0x7c00u).x > 1e30);",
     {2.099609375f, -1.1920929f, 1, 1}},
    {"signedBytes",
     "",
     "r = unpackSnorm4x8(packSnorm4x8(vec4(-1.0, 0.0, 1.0, two)));",
     {-1, 0, 1, 1}},
    {"bits",
     "",
     "uint u = uint(three) * 20u; r = vec4(findMSB(u), findLSB(u), bitCount(u), findMSB(-three));",
     {5, 2, 4, 1}},
    {"bitFields",
     "",
     "int i = three * 20; r = vec4(bitfieldExtract(i, 2, 3), bitfieldExtract(uint(i), 3, 9), "
     "bitfieldInsert(ivec2(three), ivec2(5), 4, 3).y, bitfieldReverse(three) >> 30);",
     {-1, 7, 83, -1}},
    {"carries",
     "",
     "uint c, b, t = uint(three); uint s = uaddCarry(4294967295u, t, c); uint d = usubBorrow(2u, "
     "t, "
     "b); r = vec4(s, c, d == 4294967295u, b);",
     {2, 1, 1, 1}},
    {"extendedProducts",
     "",
     "uint h, l; umulExtended(4294967295u, uint(three), h, l); int i, j; imulExtended(-three, 5, "
     "i, "
     "j); r = vec4(h, l == 4294967293u, i, j);",
     {2, 1, -1, -15}},
    {"outerProduct",
     "",
     "mat2 m = outerProduct(vec2(1.0, two), vec2(3.0, 4.0)); r = vec4(matrixCompMult(m, m));",
     {9, 36, 16, 64}},
    {"anyAndAll",
     "",
     "bvec2 b = bvec2(yes, false); r = vec4(any(b), all(b), not(b));",
     {1, 0, 0, 1}},
};
INSTANTIATE_TEST_SUITE_P(Builtins, Glsl, testing::ValuesIn(kBuiltins), caseName);

const Case kInputs[] = {
    {"builtinVariables",
     "",
     "r = vec4(gl_FragCoord.xy, gl_FrontFacing ? 1.0 : 0.0, gl_FragCoord.x);",
     {10.5f, 20.5f, 1, 10.5f}},
    {"varyings", "in vec2 two_varying;", "r = vec4(two_varying, two_varying);", {2, 2, 2, 2}},
    {"uniformArrays", "uniform vec3 twos[4];", "r = vec4(twos[three], twos[0].x);", {2, 2, 2, 2}},
    {"uniformBlocks",
     "uniform Block { vec2 twoA; float twoB; };",
     "r = vec4(twoA, twoB, 1.0);",
     {2, 2, 2, 1}},
    {"textures",
     "uniform sampler2D s; vec4 f(sampler2D t, vec2 p) { return texture(t, p); }",
     "r = vec4(f(s, vec2(0.25, 0.5)).xy, textureLod(s, vec2(0.0), two).w, texture(s, vec2(0.0), "
     "3.0).w);",
     {0.25f, 0.5f, 2, 3}},
    {"projectedTextures",
     "uniform sampler2D s;",
     "r = vec4(textureProj(s, vec3(1.0, 2.0, two)).xy, textureProj(s, vec4(1.0, 2.0, 9.0, "
     "4.0)).xy);",
     {0.5f, 1, 0.25f, 0.5f}},
    {"texels",
     "uniform sampler2D s;",
     "r = vec4(texelFetch(s, ivec2(three, 4), 1).xyz, textureSize(s, 0).x);",
     {3, 4, 1, 64}},
    {"textureOffsets",
     "uniform sampler2D s;",
     "r = vec4(textureOffset(s, vec2(0.5), ivec2(4, 7), two).xw, texelFetchOffset(s, ivec2(1), 0, "
     "ivec2(3, 4)).y, textureLodOffset(s, vec2(0.0), 5.0, ivec2(0, 4)).y + textureGradOffset(s, "
     "vec2(0.0), vec2(1.0), vec2(1.0), ivec2(-4)).x);",
     {0.5625f, 2, 5, 0.0625f}},
    {"samplerArrays",
     "uniform sampler2D s[2];",
     "r = texture(s[1], vec2(0.5, two));",
     {0.5f, 2, 0, -1}},
    {"solidTextures",
     "uniform samplerCube c; uniform highp sampler3D v;",
     "r = vec4(texture(c, two3).z, texture(v, vec3(1, 2, 3)).yz, 0.0);",
     {2, 2, 3, 0}},
};
INSTANTIATE_TEST_SUITE_P(Inputs, Glsl, testing::ValuesIn(kInputs), caseName);

TEST(GlslEntry, versionsAreTried) {
  const char* sources[] = {
      "void main() { gl_FragColor = vec4(1.0, 2.0, 3.0, 4.0); }",
      "varying vec2 v; void main() { float a[2] = float[2](1.0, 2.0); gl_FragColor = vec4(a[0], "
      "a[1], 3, 4); }",
      "out vec4 c; void main() { uint u = 1u; c = vec4(u, 2, 3, 4); }",
      "#version 130\nout vec4 c; void main() { c = vec4(1, 2, 3, 4); }",
      "#version 330 core\nlayout(location = 0) out vec4 c; void main() { c = vec4(1, 2, 3, 4); }",
      "#version 120\nvoid main() { gl_FragColor = vec4(1, 2, 3, 4) + gl_TexCoord[1]; }",
      "#ifdef GL_ES\nprecision mediump float;\n#endif\nvoid main() { gl_FragData[0] = vec4(1, 2, "
      "3, 4); }",
  };
  for (const char* source : sources) {
    EXPECT_EQ(runGlsl(source).colour, (std::array<float, 4>{1, 2, 3, 4})) << source;
  }
}

TEST(GlslEntry, imageShadersGetAnEntry) {
  const Fragment result =
      runGlsl("void mainImage(out vec4 c, in vec2 p) { c = vec4(p, iTime + iResolution.x, 0.0); }");
  EXPECT_EQ(result.colour, (std::array<float, 4>{10.5f, 20.5f, 0, 1}));
}

TEST(GlslEntry, initialValuesOfUniforms) {
  const std::vector<tools::NamedValue> values =
      tools::compileGlsl(
          "#version 120\nuniform vec2 a = vec2(1.5, 2.0); uniform int n = -3; uniform float unused "
          "= 1.0;\nvoid main() { gl_FragColor = vec4(a, n, a.x); }")
          .uniformValues;
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].name + values[1].name, "an");
  EXPECT_EQ(values[0].components, (std::vector<double>{1.5, 2}));
  EXPECT_EQ(values[1].components, (std::vector<double>{-3}));
}

TEST(GlslEntry, depthAndDiscard) {
  const Fragment deep = runGlsl(withBody("r = vec4(1.0); gl_FragDepth = two / 8.0;"));
  EXPECT_EQ(deep.depth, 0.25f);
  const Fragment gone =
      runGlsl(withBody("float a[2]; a[0] = two; if (a[0] > 1.0) discard; r = vec4(1.0);"));
  EXPECT_EQ(gone.code, static_cast<uint32_t>(VM_ERR_DISCARDED));
  EXPECT_EQ(gone.colour[0], -1);
}

TEST(GlslGallery, everyShaderValidatesAndRuns) {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(SHADERMACHINE_GLSL_GALLERY)) {
    std::ifstream file(entry.path());
    const std::string source{std::istreambuf_iterator<char>(file), {}};
    SCOPED_TRACE(entry.path());
    const Fragment result = runGlsl(source);
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.colour[3], 1.0f);
    ++count;
  }
  EXPECT_GE(count, 10u);
}

TEST(GlslDerivatives, areReported) {
  const std::string source = withBody("r = vec4(dFdx(two), dFdy(two3).x, fwidth(two), 1.0);");
  const tools::GlslResult compiled = tools::compileGlsl(source);
  ASSERT_TRUE(compiled.shader);
  EXPECT_TRUE(compiled.usesDerivatives);
  EXPECT_TRUE(tools::validate(compiled.shader->view()).valid());
  EXPECT_FALSE(tools::compileGlsl(withBody("r = vec4(two);")).usesDerivatives);
}

struct Refusal {
  const char* source;
  const char* message;
};

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

TEST(GlslErrors, monstersAreRefused) {
  const std::string deep = "void main() { float x; gl_FragColor = vec4(x" + repeated("-x", 20000);
  EXPECT_EQ(glslErrors(deep + "); }"), "a.frag:1: error: nested too deeply\n");
  std::string wide = "float f0(float x) { return x; }\n";
  for (int i = 1; i < 40; ++i) {
    const std::string call = "f" + std::to_string(i - 1) + "(x)";
    wide += "float f" + std::to_string(i) + "(float x) { return " + call + "+" + call + "+" + call +
            "; }\n";
  }
  EXPECT_EQ(glslErrors(wide + "void main() { gl_FragColor = vec4(f39(1.0)); }"), "");
}

TEST(GlslErrors, nameFileLineAndReason) {
  const Refusal refusals[] = {
      {"void main() {\n  gl_FragColor = vec4(x);\n}",
       "a.frag:2: error: 'x' : undeclared identifier"},
      {"precision highp float;\nvoid f() { }\n", "a.frag: error: main() is missing"},
      {"#version 300 es\nprecision highp float;\nout vec4 c;\nvoid main() {\n  mat2x3 m = "
       "mat2x3(1.0);\n  c = vec4(m[0].x);\n}",
       "a.frag:5: error: non-square matrices are not supported"},
      {"#version 400\nout vec4 c;\nvoid main() { double d = 1.0; c = vec4(d); }",
       "type double is not supported"},
      {"#version 300 es\nprecision highp float;\nlayout(location = 0) out vec4 a;\nlayout(location "
       "= 1) out vec4 b;\nvoid main() {\n  a = vec4(0.0);\n  b = vec4(1.0);\n}",
       "a.frag:7: error: output b: a shader has one colour output"},
      {"void main() {\n  gl_FragData[1] = vec4(1.0);\n}", "only gl_FragData[0] is supported"},
      {"#version 300 es\nprecision highp float;\nout vec4 c;\nuniform highp sampler2DArray "
       "s;\nvoid main() {\n  c = texture(s, vec3(0.0));\n}",
       "a.frag:6: error: samplers of type"},
      {"#version 110\nvoid main() {\n  gl_FragColor = 1;\n}", "a.frag:3: error: 'assign'"},
      {"#version 150\nlayout(origin_upper_left) in vec4 gl_FragCoord;\nout vec4 c;\nvoid main() { "
       "c "
       "= gl_FragCoord; }",
       "a.frag: error: redeclared origins of gl_FragCoord are not supported"},
      {"#version 300 es\nprecision highp float;\nuniform highp sampler3D s;\nout vec4 c;\nvoid "
       "main() {\n  c = textureOffset(s, vec3(0.0), ivec3(1));\n}",
       "a.frag:6: error: offsets are supported in 2D textures only"},
      {"#version 430\nbuffer B { float x; };\nout vec4 c;\nvoid main() {\n  c = vec4(x);\n}",
       "a.frag:5: error: storage buffers are not supported"},
      {"float f(float x);\nvoid main() {\n  gl_FragColor = vec4(f(1.0));\n}",
       "a.frag:3: error: function f() has no body"},
      {"float f(float x);\nfloat g(float x) { return f(x); }\nfloat f(float x) { return g(x); "
       "}\nvoid main() { gl_FragColor = vec4(f(1.0)); }",
       "recursion through f()"},
  };
  for (const Refusal& refusal : refusals) {
    EXPECT_NE(glslErrors(refusal.source).find(refusal.message), std::string::npos)
        << refusal.message << "\n"
        << glslErrors(refusal.source);
  }
}

}  // namespace
}  // namespace shadermachine::test
