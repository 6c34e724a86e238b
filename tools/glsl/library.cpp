#include "library.h"

namespace shadermachine::tools::glsl {

const char* const kLibrarySource = R"(#version 330 core

// Overloads for vectors, component by component.
#define EACH1(T, V, f) \
  V##2 f(V##2 a) { return V##2(f(a.x), f(a.y)); } \
  V##3 f(V##3 a) { return V##3(f(a.x), f(a.y), f(a.z)); } \
  V##4 f(V##4 a) { return V##4(f(a.x), f(a.y), f(a.z), f(a.w)); }
#define EACH2(V, W, f) \
  V##2 f(V##2 a, W##2 b) { return V##2(f(a.x, b.x), f(a.y, b.y)); } \
  V##3 f(V##3 a, W##3 b) { return V##3(f(a.x, b.x), f(a.y, b.y), f(a.z, b.z)); } \
  V##4 f(V##4 a, W##4 b) { \
    return V##4(f(a.x, b.x), f(a.y, b.y), f(a.z, b.z), f(a.w, b.w)); }
#define EACH2S(V, S, f) \
  V##2 f(V##2 a, S b) { return V##2(f(a.x, b), f(a.y, b)); } \
  V##3 f(V##3 a, S b) { return V##3(f(a.x, b), f(a.y, b), f(a.z, b)); } \
  V##4 f(V##4 a, S b) { return V##4(f(a.x, b), f(a.y, b), f(a.z, b), f(a.w, b)); }

// Division of the words as unsigned numbers: halve, divide, double, correct.
int imod(int a, int b) { return a - a / b * b; }
ivec2 imod(ivec2 a, ivec2 b) { return a - a / b * b; }
ivec3 imod(ivec3 a, ivec3 b) { return a - a / b * b; }
ivec4 imod(ivec4 a, ivec4 b) { return a - a / b * b; }

bool unsigned_less(int a, int b) { return (a ^ (-2147483647 - 1)) < (b ^ (-2147483647 - 1)); }

int udiv(int a, int b) {
  if (a >= 0 && b > 0) return a / b;
  if (b < 0) return unsigned_less(a, b) ? 0 : 1;
  int half_a = (a & 2147483647) / 2 + 1073741824;
  int quotient = half_a / b * 2;
  int rest = a - quotient * b;
  return unsigned_less(rest, b) ? quotient : quotient + 1;
}
EACH2(ivec, ivec, udiv)
int umod(int a, int b) { return a - udiv(a, b) * b; }
EACH2(ivec, ivec, umod)

int power_of_two(int n) {
  const int kPowers[32] = int[32](
      1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384, 32768, 65536, 131072,
      262144, 524288, 1048576, 2097152, 4194304, 8388608, 16777216, 33554432, 67108864, 134217728,
      268435456, 536870912, 1073741824, -2147483647 - 1);
  return kPowers[n & 31];
}
int ishl(int a, int n) { return a * power_of_two(n); }
EACH2(ivec, ivec, ishl)
int ishr(int a, int n) {
  if ((n & 31) == 31) return a < 0 ? -1 : 0;
  int divisor = power_of_two(n);
  return a >= 0 ? a / divisor : ~(~a / divisor);
}
EACH2(ivec, ivec, ishr)
int ushr(int a, int n) {
  if (a >= 0) return (n & 31) == 31 ? 0 : a / power_of_two(n);
  if ((n & 31) == 0) return a;
  if ((n & 31) == 31) return 1;
  return (a & 2147483647) / power_of_two(n) + power_of_two(31 - (n & 31));
}
EACH2(ivec, ivec, ushr)

// The halves and their sum are exact but for the sum's rounding.
#define TO_FLOAT(V, T) V uint_to_float(T a) { \
  return V((a & -65536) / 65536 & 65535) * 65536.0 + V(a & 65535); \
}
TO_FLOAT(float, int)
TO_FLOAT(vec2, ivec2)
TO_FLOAT(vec3, ivec3)
TO_FLOAT(vec4, ivec4)
int float_to_uint(float a) {
  return a < 2147483648.0 ? int(a) : int(a - 2147483648.0) + (-2147483647 - 1);
}
ivec2 float_to_uint(vec2 a) { return ivec2(float_to_uint(a.x), float_to_uint(a.y)); }
ivec3 float_to_uint(vec3 a) { return ivec3(float_to_uint(a.xy), float_to_uint(a.z)); }
ivec4 float_to_uint(vec4 a) { return ivec4(float_to_uint(a.xy), float_to_uint(a.zw)); }

int abs(int a) { return a < 0 ? -a : a; }
EACH1(int, ivec, abs)
int sign(int a) { return a > 0 ? 1 : a < 0 ? -1 : 0; }
EACH1(int, ivec, sign)
int min(int a, int b) { return a < b ? a : b; }
EACH2(ivec, ivec, min)
EACH2S(ivec, int, min)
int max(int a, int b) { return a > b ? a : b; }
EACH2(ivec, ivec, max)
EACH2S(ivec, int, max)
int umin(int a, int b) { return unsigned_less(a, b) ? a : b; }
EACH2(ivec, ivec, umin)
EACH2S(ivec, int, umin)
int umax(int a, int b) { return unsigned_less(b, a) ? a : b; }
EACH2(ivec, ivec, umax)
EACH2S(ivec, int, umax)
#define CLAMP(T, S, name, lower, upper) T name(T a, S b, S c) { return upper(lower(a, b), c); }
CLAMP(int, int, clamp, max, min)
CLAMP(ivec2, ivec2, clamp, max, min)
CLAMP(ivec3, ivec3, clamp, max, min)
CLAMP(ivec4, ivec4, clamp, max, min)
CLAMP(ivec2, int, clamp, max, min)
CLAMP(ivec3, int, clamp, max, min)
CLAMP(ivec4, int, clamp, max, min)
CLAMP(int, int, uclamp, umax, umin)
CLAMP(ivec2, ivec2, uclamp, umax, umin)
CLAMP(ivec3, ivec3, uclamp, umax, umin)
CLAMP(ivec4, ivec4, uclamp, umax, umin)
CLAMP(ivec2, int, uclamp, umax, umin)
CLAMP(ivec3, int, uclamp, umax, umin)
CLAMP(ivec4, int, uclamp, umax, umin)

float select(float a, float b, bool c) { return c ? b : a; }
vec2 select(vec2 a, vec2 b, bvec2 c) { return vec2(c.x ? b.x : a.x, c.y ? b.y : a.y); }
vec3 select(vec3 a, vec3 b, bvec3 c) {
  return vec3(c.x ? b.x : a.x, c.y ? b.y : a.y, c.z ? b.z : a.z);
}
vec4 select(vec4 a, vec4 b, bvec4 c) {
  return vec4(c.x ? b.x : a.x, c.y ? b.y : a.y, c.z ? b.z : a.z, c.w ? b.w : a.w);
}

#define SMOOTH(V, E) V smoothstep(E low, E high, V x) { \
  V t = clamp((x - low) / (high - low), 0.0, 1.0); \
  return t * t * (3.0 - 2.0 * t); \
}
SMOOTH(float, float)
SMOOTH(vec2, float)
SMOOTH(vec3, float)
SMOOTH(vec4, float)
SMOOTH(vec2, vec2)
SMOOTH(vec3, vec3)
SMOOTH(vec4, vec4)

#define FLOATS(DEFINE) DEFINE(float) DEFINE(vec2) DEFINE(vec3) DEFINE(vec4)
#define HYPERBOLIC(V) \
  V sinh(V x) { return 0.5 * (exp(x) - exp(-x)); } \
  V cosh(V x) { return 0.5 * (exp(x) + exp(-x)); } \
  V tanh(V x) { V e = exp(-2.0 * abs(x)); return sign(x) * ((1.0 - e) / (1.0 + e)); } \
  V asinh(V x) { return sign(x) * log(abs(x) + sqrt(x * x + 1.0)); } \
  V acosh(V x) { return log(x + sqrt(x * x - 1.0)); } \
  V atanh(V x) { return 0.5 * log((1.0 + x) / (1.0 - x)); }
FLOATS(HYPERBOLIC)
#define ROUNDING(V) \
  V trunc(V x) { return sign(x) * floor(abs(x)); } \
  V round(V x) { return floor(x + 0.5); } \
  V round_even(V x) { V r = floor(x + 0.5); V tie = step(1.0, r - x + 0.5) * mod(r, 2.0); return r - tie; } \
  V modf(V x, out V whole) { whole = sign(x) * floor(abs(x)); return x - whole; } \
  V fma(V a, V b, V c) { return a * b + c; }
FLOATS(ROUNDING)

bool isinf(float x) { return abs(x) > 3.4028234e38; }
bvec2 isinf(vec2 x) { return greaterThan(abs(x), vec2(3.4028234e38)); }
bvec3 isinf(vec3 x) { return greaterThan(abs(x), vec3(3.4028234e38)); }
bvec4 isinf(vec4 x) { return greaterThan(abs(x), vec4(3.4028234e38)); }

float frexp(float x, out int exponent) {
  if (x == 0.0) { exponent = 0; return x; }
  int bits = floatBitsToInt(x);
  int stored = ushr(bits, 23) & 255;
  exponent = stored - 126;
  return intBitsToFloat((bits & -2139095041) | 1056964608);
}
float ldexp(float x, int exponent) { return x * exp2(float(exponent)); }

mat3 to_mat3(mat2 m) { return mat3(vec3(m[0], 0.0), vec3(m[1], 0.0), vec3(0.0, 0.0, 1.0)); }
mat4 to_mat4(mat2 m) {
  return mat4(vec4(m[0], 0.0, 0.0), vec4(m[1], 0.0, 0.0), vec4(0.0, 0.0, 1.0, 0.0),
              vec4(0.0, 0.0, 0.0, 1.0));
}
mat4 to_mat4(mat3 m) {
  return mat4(vec4(m[0], 0.0), vec4(m[1], 0.0), vec4(m[2], 0.0), vec4(0.0, 0.0, 0.0, 1.0));
}
mat2 outer_product(vec2 a, vec2 b) { return mat2(a * b.x, a * b.y); }
mat3 outer_product(vec3 a, vec3 b) { return mat3(a * b.x, a * b.y, a * b.z); }
mat4 outer_product(vec4 a, vec4 b) { return mat4(a * b.x, a * b.y, a * b.z, a * b.w); }
mat2 transpose(mat2 m) { return mat2(m[0][0], m[1][0], m[0][1], m[1][1]); }
mat3 transpose(mat3 m) {
  return mat3(m[0][0], m[1][0], m[2][0], m[0][1], m[1][1], m[2][1], m[0][2], m[1][2], m[2][2]);
}
mat4 transpose(mat4 m) {
  return mat4(m[0][0], m[1][0], m[2][0], m[3][0], m[0][1], m[1][1], m[2][1], m[3][1],
              m[0][2], m[1][2], m[2][2], m[3][2], m[0][3], m[1][3], m[2][3], m[3][3]);
}
float determinant(mat2 m) { return m[0][0] * m[1][1] - m[1][0] * m[0][1]; }
float determinant(mat3 m) { return dot(m[0], cross(m[1], m[2])); }
mat2 inverse(mat2 m) {
  return mat2(m[1][1], -m[0][1], -m[1][0], m[0][0]) / determinant(m);
}
mat3 inverse(mat3 m) {
  vec3 a = cross(m[1], m[2]);
  return transpose(mat3(a, cross(m[2], m[0]), cross(m[0], m[1]))) / dot(m[0], a);
}
// Products of two rows of columns 0 and 1 (a) and of columns 2 and 3 (b).
mat4 inverse(mat4 m) {
  float a0 = m[0][0] * m[1][1] - m[0][1] * m[1][0];
  float a1 = m[0][0] * m[1][2] - m[0][2] * m[1][0];
  float a2 = m[0][0] * m[1][3] - m[0][3] * m[1][0];
  float a3 = m[0][1] * m[1][2] - m[0][2] * m[1][1];
  float a4 = m[0][1] * m[1][3] - m[0][3] * m[1][1];
  float a5 = m[0][2] * m[1][3] - m[0][3] * m[1][2];
  float b0 = m[2][0] * m[3][1] - m[2][1] * m[3][0];
  float b1 = m[2][0] * m[3][2] - m[2][2] * m[3][0];
  float b2 = m[2][0] * m[3][3] - m[2][3] * m[3][0];
  float b3 = m[2][1] * m[3][2] - m[2][2] * m[3][1];
  float b4 = m[2][1] * m[3][3] - m[2][3] * m[3][1];
  float b5 = m[2][2] * m[3][3] - m[2][3] * m[3][2];
  float d = a0 * b5 - a1 * b4 + a2 * b3 + a3 * b2 - a4 * b1 + a5 * b0;
  return mat4(m[1][1] * b5 - m[1][2] * b4 + m[1][3] * b3, m[0][2] * b4 - m[0][1] * b5 - m[0][3] * b3,
              m[3][1] * a5 - m[3][2] * a4 + m[3][3] * a3, m[2][2] * a4 - m[2][1] * a5 - m[2][3] * a3,
              m[1][2] * b2 - m[1][0] * b5 - m[1][3] * b1, m[0][0] * b5 - m[0][2] * b2 + m[0][3] * b1,
              m[3][2] * a2 - m[3][0] * a5 - m[3][3] * a1, m[2][0] * a5 - m[2][2] * a2 + m[2][3] * a1,
              m[1][0] * b4 - m[1][1] * b2 + m[1][3] * b0, m[0][1] * b2 - m[0][0] * b4 - m[0][3] * b0,
              m[3][0] * a4 - m[3][1] * a2 + m[3][3] * a0, m[2][1] * a2 - m[2][0] * a4 - m[2][3] * a0,
              m[1][1] * b1 - m[1][0] * b3 - m[1][2] * b0, m[0][0] * b3 - m[0][1] * b1 + m[0][2] * b0,
              m[3][1] * a1 - m[3][0] * a3 - m[3][2] * a0, m[2][0] * a3 - m[2][1] * a1 + m[2][2] * a0)
         / d;
}
float determinant(mat4 m) {
  float a = m[0][0] * m[1][1] - m[0][1] * m[1][0], b = m[0][0] * m[1][2] - m[0][2] * m[1][0];
  float c = m[0][0] * m[1][3] - m[0][3] * m[1][0], d = m[0][1] * m[1][2] - m[0][2] * m[1][1];
  float e = m[0][1] * m[1][3] - m[0][3] * m[1][1], f = m[0][2] * m[1][3] - m[0][3] * m[1][2];
  return a * (m[2][2] * m[3][3] - m[2][3] * m[3][2]) - b * (m[2][1] * m[3][3] - m[2][3] * m[3][1]) +
         c * (m[2][1] * m[3][2] - m[2][2] * m[3][1]) + d * (m[2][0] * m[3][3] - m[2][3] * m[3][0]) -
         e * (m[2][0] * m[3][2] - m[2][2] * m[3][0]) + f * (m[2][0] * m[3][1] - m[2][1] * m[3][0]);
}

int bit_count(int a) {
  a -= int(uint(a) >> 1u) & 1431655765;
  a = (a & 858993459) + (int(uint(a) >> 2u) & 858993459);
  return (a + a / 16 & 252645135) * 16843009 / 16777216;
}
EACH1(int, ivec, bit_count)
// The place of the top bit of a positive number is the exponent of what remains without its second
// bit, which could round up.
int exponent_of(int a) { return floatBitsToInt(float(a & ~(a / 2))) / 8388608 - 127; }
int find_lsb(int a) { return a == 0 ? -1 : (a & -a) < 0 ? 31 : exponent_of(a & -a); }
EACH1(int, ivec, find_lsb)
int bitfield_reverse(int a) {
  a = (int(uint(a) >> 1u) & 1431655765) | (a & 1431655765) * 2;
  a = (int(uint(a) >> 2u) & 858993459) | (a & 858993459) * 4;
  a = (int(uint(a) >> 4u) & 252645135) | (a & 252645135) * 16;
  a = (int(uint(a) >> 8u) & 16711935) | (a & 16711935) * 256;
  return int(uint(a) >> 16u) | a * 65536;
}
EACH1(int, ivec, bitfield_reverse)

int ufind_msb(int a) { return a < 0 ? 31 : a == 0 ? -1 : exponent_of(a); }
EACH1(int, ivec, ufind_msb)
int find_msb(int a) { return ufind_msb(a < 0 ? ~a : a); }
EACH1(int, ivec, find_msb)
#define EACH_FIELD(f) \
  ivec2 f(ivec2 a, int b, int c) { return ivec2(f(a.x, b, c), f(a.y, b, c)); } \
  ivec3 f(ivec3 a, int b, int c) { return ivec3(f(a.xy, b, c), f(a.z, b, c)); } \
  ivec4 f(ivec4 a, int b, int c) { return ivec4(f(a.xy, b, c), f(a.zw, b, c)); }
int bitfield_extract(int a, int first, int bits) {
  return bits == 0 ? 0 : ishr(ishl(a, 32 - first - bits), 32 - bits);
}
EACH_FIELD(bitfield_extract)
int ubitfield_extract(int a, int first, int bits) {
  return bits == 0 ? 0 : ushr(ishl(a, 32 - first - bits), 32 - bits);
}
EACH_FIELD(ubitfield_extract)
int bitfield_insert(int a, int b, int first, int bits) {
  if (bits == 0) return a;
  int mask = ishl(ushr(-1, 32 - bits), first);
  return (a & ~mask) | (ishl(b, first) & mask);
}
ivec2 bitfield_insert(ivec2 a, ivec2 b, int c, int d) {
  return ivec2(bitfield_insert(a.x, b.x, c, d), bitfield_insert(a.y, b.y, c, d));
}
ivec3 bitfield_insert(ivec3 a, ivec3 b, int c, int d) {
  return ivec3(bitfield_insert(a.xy, b.xy, c, d), bitfield_insert(a.z, b.z, c, d));
}
ivec4 bitfield_insert(ivec4 a, ivec4 b, int c, int d) {
  return ivec4(bitfield_insert(a.xy, b.xy, c, d), bitfield_insert(a.zw, b.zw, c, d));
}

int add_carry(int a, int b, out int carry) {
  carry = unsigned_less(a + b, a) ? 1 : 0;
  return a + b;
}
int sub_borrow(int a, int b, out int borrow) {
  borrow = unsigned_less(a, b) ? 1 : 0;
  return a - b;
}
// From products of the halves.
void umul_extended(int a, int b, out int high, out int low) {
  low = a * b;
  int middle = ushr(a, 16) * (b & 65535) + ushr((a & 65535) * (b & 65535), 16);
  int cross_part = (a & 65535) * ushr(b, 16) + (middle & 65535);
  high = ushr(a, 16) * ushr(b, 16) + ushr(middle, 16) + ushr(cross_part, 16);
}
void imul_extended(int a, int b, out int high, out int low) {
  umul_extended(a, b, high, low);
  high -= (a < 0 ? b : 0) + (b < 0 ? a : 0);
}

// Rounds to the nearest half float, ties to even.
int to_half(float x) {
  int sign = ushr(floatBitsToInt(x), 16) & 32768;
  float size = abs(x);
  if (x != x) return sign | 32256;
  if (size >= 65520.0) return sign | 31744;
  if (size < 6.103515625e-5) return sign | int(round_even(size * 16777216.0));
  int bits = floatBitsToInt(size);
  return sign | (ushr(bits + 4095 + (ushr(bits, 13) & 1), 13) - 114688);
}
float from_half(int h) {
  int exponent = ushr(h, 10) & 31;
  int sign = (h & 32768) * 65536;
  if (exponent == 31) return intBitsToFloat(sign | 2139095040 | (h & 1023) * 8192);
  if (exponent > 0) return intBitsToFloat(sign | ((h & 32767) + 114688) * 8192);
  float size = float(h & 1023) * 5.9604644775390625e-8;
  return sign != 0 ? -size : size;
}
int pack_half2x16(vec2 v) { return to_half(v.x) | to_half(v.y) * 65536; }
vec2 unpack_half2x16(int p) { return vec2(from_half(p & 65535), from_half(ushr(p, 16))); }
int to_signed_8(float x) { return int(floor(clamp(x, -1.0, 1.0) * 127.0 + 0.5)) & 255; }
int pack_snorm4x8(vec4 v) {
  return to_signed_8(v.x) | to_signed_8(v.y) * 256 | to_signed_8(v.z) * 65536 |
         to_signed_8(v.w) * 16777216;
}
vec4 unpack_snorm4x8(int p) {
  return clamp(vec4(ishr(p * 16777216, 24), ishr(p * 65536, 24), ishr(p * 256, 24), ishr(p, 24)) /
                   127.0, -1.0, 1.0);
}

int to_16(float x, float scale) { return int(floor(x * scale + 0.5)) & 65535; }
int to_8(float x) { return int(floor(clamp(x, 0.0, 1.0) * 255.0 + 0.5)); }
int pack_unorm2x16(vec2 v) {
  v = clamp(v, 0.0, 1.0);
  return to_16(v.x, 65535.0) | to_16(v.y, 65535.0) * 65536;
}
int pack_snorm2x16(vec2 v) {
  v = clamp(v, -1.0, 1.0);
  return to_16(v.x, 32767.0) | to_16(v.y, 32767.0) * 65536;
}
vec2 unpack_unorm2x16(int p) { return vec2(p & 65535, ushr(p, 16)) / 65535.0; }
vec2 unpack_snorm2x16(int p) {
  return clamp(vec2(ishr(p * 65536, 16), ishr(p, 16)) / 32767.0, -1.0, 1.0);
}
int pack_unorm4x8(vec4 v) {
  return to_8(v.x) | to_8(v.y) * 256 | to_8(v.z) * 65536 | to_8(v.w) * 16777216;
}
vec4 unpack_unorm4x8(int p) {
  return vec4(p & 255, ushr(p, 8) & 255, ushr(p, 16) & 255, ushr(p, 24)) / 255.0;
}

void main() {}
)";

}  // namespace shadermachine::tools::glsl
