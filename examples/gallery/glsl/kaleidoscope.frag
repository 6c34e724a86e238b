#version 300 es
// Folded space: a handful of mirrors that repeat a ring of petals.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;
out vec4 colour;

const vec3 kPalette[4] = vec3[4](vec3(0.98, 0.75, 0.35), vec3(0.9, 0.35, 0.4), vec3(0.35, 0.3, 0.7),
                                 vec3(0.2, 0.65, 0.7));

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  float sector = 3.14159265 / 5.0;
  float angle = mod(atan(p.y, p.x) + u_time * 0.1, 2.0 * sector) - sector;
  p = length(p) * vec2(cos(angle), abs(sin(angle)));
  vec3 sum = vec3(0.05, 0.04, 0.09);
  for (int i = 0; i < 7; i++) {
    p = abs(p) - vec2(0.42, 0.16 + 0.05 * sin(u_time * 0.5));
    float turn = 0.6 + 0.1 * float(i);
    p = mat2(cos(turn), sin(turn), -sin(turn), cos(turn)) * p * 1.25;
    float ring = abs(length(p) - 0.35);
    int index = i - i / 4 * 4;
    sum += kPalette[index] * 0.022 / (ring + 0.03);
  }
  colour = vec4(1.0 - exp(-sum * 0.7), 1.0);
}
