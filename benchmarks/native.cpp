#include "native.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace shadermachine::benchmarks {
namespace {

struct Vec3 {
  float x, y, z;
};

Vec3 vec3(const float* c) { return {c[0], c[1], c[2]}; }
Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator*(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
float dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
float length(Vec3 a) { return std::sqrt(dot(a, a)); }
Vec3 normalize(Vec3 a) { return a * (1.0f / length(a)); }
Vec3 mix(Vec3 a, Vec3 b, float t) { return a * (1.0f - t) + b * t; }
float clamp01(float x) { return std::min(std::max(x, 0.0f), 1.0f); }

float distanceTo(Vec3 p) {
  const Vec3 q = {std::max(std::fabs(p.x) - 0.6f, 0.0f), std::max(std::fabs(p.y) - 0.4f, 0.0f),
                  std::max(std::fabs(p.z) - 0.5f, 0.0f)};
  const float box = length(q) - 0.1f;
  const float sphere = length(p - Vec3{1.0f, 0.5f, -0.5f}) - 0.7f;
  return std::min(std::min(box, sphere), p.y + 1.0f);
}

float hash(int32_t x, int32_t y) {
  const auto mixed = [](int32_t h, int32_t divisor) { return h ^ (h / divisor); };
  const auto h = static_cast<int32_t>(static_cast<uint32_t>(x) * 374761393u +
                                      static_cast<uint32_t>(y) * 668265263u);
  const auto scrambled = static_cast<int32_t>(static_cast<uint32_t>(mixed(h, 8192)) * 1274126177u);
  return static_cast<float>(mixed(scrambled, 65536) & 0x00FFFFFF) / 16777216.0f;
}

float valueNoise(float x, float y) {
  const float fx = std::floor(x), fy = std::floor(y);
  const auto ix = static_cast<int32_t>(fx), iy = static_cast<int32_t>(fy);
  const float u = (x - fx) * (x - fx) * (3.0f - 2.0f * (x - fx));
  const float v = (y - fy) * (y - fy) * (3.0f - 2.0f * (y - fy));
  const float low = hash(ix, iy) * (1.0f - u) + hash(ix + 1, iy) * u;
  const float high = hash(ix, iy + 1) * (1.0f - u) + hash(ix + 1, iy + 1) * u;
  return low * (1.0f - v) + high * v;
}

}  // namespace

Inputs::Inputs() {
  for (int i = 0; i < 8; ++i) {
    const auto t = static_cast<float>(i);
    lights[i] = {{t - 3.5f, 2.0f, 0.5f * t}, {0.1f * t, 0.5f, 1.0f - 0.1f * t}, 1.0f + 0.2f * t};
  }
}

void nativeEmpty(const Inputs&, Color&) {}

void nativeMandelbrot(const Inputs& inputs, Color& color) {
  const float cx = inputs.coord[0], cy = inputs.coord[1];
  float x = 0.0f, y = 0.0f;
  int i = 0;
  do {
    const float xx = x * x, yy = y * y;
    if (!(xx + yy <= 4.0f)) break;
    y = x * y * 2.0f + cy;
    x = xx - yy + cx;
  } while (++i < 32);
  color = {static_cast<float>(i), x, y, 1.0f};
}

void nativePhong(const Inputs& inputs, Color& color) {
  const Vec3 p = vec3(inputs.position);
  const Vec3 n = normalize(vec3(inputs.normal));
  const Vec3 way = Vec3{4.0f, 6.0f, 5.0f} - p;
  const float distanceSquared = dot(way, way);
  const Vec3 toLight = normalize(way);
  const Vec3 toEye = normalize(Vec3{0.0f, 1.0f, 8.0f} - p);
  const float diffuse = std::max(dot(n, toLight), 0.0f);
  const Vec3 incident = toLight * -1.0f;
  const Vec3 mirrored = incident - n * (2.0f * dot(n, incident));
  const float specular = std::pow(std::max(dot(mirrored, toEye), 0.0f), 24.0f);
  const Vec3 base = mix({0.2f, 0.3f, 0.6f}, {0.9f, 0.6f, 0.3f}, n.y * 0.5f + 0.5f);
  const Vec3 lit = base * (diffuse * 30.0f / distanceSquared + 0.1f);
  color = {clamp01(lit.x + specular), clamp01(lit.y + specular), clamp01(lit.z + specular), 1.0f};
}

void nativeMarch(const Inputs& inputs, Color& color) {
  const Vec3 ray = normalize(vec3(inputs.direction));
  Vec3 p = {0.0f, 0.5f, -4.0f};
  float travelled = 0.0f;
  for (int i = 0; i < 32; ++i) {
    const float step = distanceTo(p);
    travelled += step;
    p = p + ray * step;
  }
  color = {p.x, p.y, p.z, travelled};
}

void nativeLights(const Inputs& inputs, Color& color) {
  const float* m = inputs.model;
  const float* v = inputs.position;
  const auto row = [m, v](int r) {
    return m[r] * v[0] + m[4 + r] * v[1] + m[8 + r] * v[2] + m[12 + r];
  };
  const Vec3 p = {row(0), row(1), row(2)};
  const Vec3 n = normalize(vec3(inputs.normal));
  Vec3 sum = {0.0f, 0.0f, 0.0f};
  for (const Light& light : inputs.lights) {
    const Vec3 toLight = vec3(light.position) - p;
    const float facing = std::max(dot(n, normalize(toLight)), 0.0f);
    sum = sum + vec3(light.color) * (light.radius * facing / (dot(toLight, toLight) + 1.0f));
  }
  color = {sum.x, sum.y, sum.z, 1.0f};
}

void nativeHashNoise(const Inputs& inputs, Color& color) {
  float x = inputs.coord[0], y = inputs.coord[1], amplitude = 0.5f, sum = 0.0f;
  for (int octave = 0; octave < 3; ++octave) {
    sum += valueNoise(x, y) * amplitude;
    amplitude *= 0.5f;
    x += x;
    y += y;
  }
  color.fill(sum);
}
}  // namespace shadermachine::benchmarks
