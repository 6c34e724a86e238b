#version 300 es
// A map: lines of equal height and a slanted grid, kept one pixel wide by derivatives.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;
out vec4 colour;

float height(vec2 p) {
  float h = 0.0;
  float scale = 1.0;
  for (int i = 0; i < 4; ++i) {
    h += scale * sin(p.x + 0.7 * sin(p.y + 0.3 * u_time)) * cos(p.y - 0.4 * u_time);
    p = mat2(1.6, 1.2, -1.2, 1.6) * p + 2.3;
    scale *= 0.5;
  }
  return h;
}

// 1 on the whole numbers, 0 from so many pixels beside them.
float line(float x, float pixels) {
  float distance = abs(fract(x - 0.5) - 0.5) / fwidth(x);
  return 1.0 - smoothstep(0.3 * pixels, pixels, distance);
}

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  float h = height(p * 1.8);
  vec3 slope = normalize(vec3(-dFdx(h), -dFdy(h), 3.0 / u_resolution.y));
  vec3 low = mix(vec3(0.07, 0.21, 0.33), vec3(0.22, 0.47, 0.43), smoothstep(-1.6, 0.0, h));
  vec3 land = mix(low, vec3(0.93, 0.85, 0.62), smoothstep(0.0, 1.4, h));
  land *= 0.55 + 0.5 * max(dot(slope, normalize(vec3(-0.6, 0.6, 0.8))), 0.0);
  vec2 grid = mat2(0.94, 0.34, -0.34, 0.94) * p * 2.5;
  float ink = 0.55 * line(h * 5.0, 1.2) + 0.4 * line(h, 2.2);
  land = mix(land, vec3(0.08, 0.06, 0.05), ink);
  land = mix(land, vec3(0.95), 0.3 * max(line(grid.x, 1.0), line(grid.y, 1.0)));
  colour = vec4(sqrt(land), 1.0);
}
