// The work of the benchmark shaders in plain C++, compiled like any release code.
#pragma once

#include <array>

namespace shadermachine::benchmarks {

// What a fragment is given and gives. Both sides of every comparison read the same inputs.
struct Light {
  float position[3];
  float color[3];
  float radius;
};

struct Inputs {
  float coord[2] = {-0.1f, 0.65f};
  float position[3] = {0.3f, 0.7f, 1.1f};
  float normal[3] = {0.2f, 0.9f, 0.4f};
  float direction[3] = {0.1f, -0.15f, 1.0f};
  float model[16] = {0.8f, 0.6f, 0.0f, 0.0f, -0.6f, 0.8f, 0.0f, 0.0f,
                     0.0f, 0.0f, 1.0f, 0.0f, 0.5f,  0.2f, 0.1f, 1.0f};
  Light lights[8] = {};

  Inputs();
};

using Color = std::array<float, 4>;
using NativeShader = void (*)(const Inputs& inputs, Color& color);

void nativeEmpty(const Inputs& inputs, Color& color);
void nativeMandelbrot(const Inputs& inputs, Color& color);
void nativePhong(const Inputs& inputs, Color& color);
void nativeMarch(const Inputs& inputs, Color& color);
void nativeLights(const Inputs& inputs, Color& color);
void nativeHashNoise(const Inputs& inputs, Color& color);
void nativeNoise(const Inputs& inputs, Color& color);

}  // namespace shadermachine::benchmarks
