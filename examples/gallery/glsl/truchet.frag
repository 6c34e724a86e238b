#version 300 es
// Woven arcs on a grid whose turns come from an integer hash.
precision highp float;
precision highp int;
uniform vec2 u_resolution;
uniform float u_time;
out vec4 colour;

uint hash(uvec2 p) {
  uint h = p.x * 374761393u + p.y * 668265263u;
  h = (h ^ (h >> 13u)) * 1274126177u;
  return h ^ (h >> 16u);
}

void main() {
  vec2 p = gl_FragCoord.xy / u_resolution.y * 9.0 + vec2(u_time * 0.3, 40.0);
  vec2 cell = floor(p);
  vec2 f = fract(p);
  uint turn = hash(uvec2(cell)) & 1u;
  if (turn == 1u) f.x = 1.0 - f.x;
  float a = abs(length(f) - 0.5);
  float b = abs(length(f - 1.0) - 0.5);
  float d = min(a, b);
  float around = a < b ? atan(f.y, f.x) : atan(1.0 - f.y, 1.0 - f.x);
  float stripes = 0.5 + 0.5 * sin(around * 12.0 + u_time * 3.0 * (turn == 1u ? 1.0 : -1.0));
  vec3 ground = mix(vec3(0.09, 0.1, 0.17), vec3(0.14, 0.17, 0.26), f.y);
  vec3 band = mix(vec3(0.95, 0.6, 0.25), vec3(0.85, 0.25, 0.35), stripes) * (1.2 - 3.5 * d);
  float edge = smoothstep(0.17, 0.15, d);
  colour = vec4(mix(ground * smoothstep(0.1, 0.35, d), band, edge), 1.0);
}
