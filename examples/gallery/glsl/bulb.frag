#version 300 es
// A power-eight bulb, ray-marched with a distance estimate and coloured by its orbit.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;
out vec4 colour;

float bulb(vec3 p, out float trap) {
  vec3 z = p;
  float scale = 1.0;
  float r = length(z);
  trap = r;
  for (int i = 0; i < 4; i++) {
    if (r > 2.0) break;
    float theta = atan(length(z.xz), z.y) * 8.0;
    float phi = atan(z.x, z.z) * 8.0;
    float r2 = r * r, r4 = r2 * r2;
    scale = scale * 8.0 * r4 * r2 * r + 1.0;
    z = r4 * r4 * vec3(sin(theta) * sin(phi), cos(theta), sin(theta) * cos(phi)) + p;
    r = length(z);
    trap = min(trap, r);
  }
  return 0.5 * log(r) * r / scale;
}

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  float angle = u_time * 0.3;
  mat2 turn = mat2(cos(angle), -sin(angle), sin(angle), cos(angle));
  vec3 origin = vec3(0.0, 0.5, -2.6);
  vec3 direction = normalize(vec3(p, 2.1) - vec3(0.0, 0.4, 0.0));
  origin.xz = turn * origin.xz;
  direction.xz = turn * direction.xz;
  float t = 0.0, trap = 1.0, glow = 0.0;
  bool hit = false;
  for (int i = 0; i < 64; i++) {
    float d = bulb(origin + direction * t, trap);
    glow += 0.012;
    if (d < 0.0015) { hit = true; break; }
    t += d;
    if (t > 5.0) break;
  }
  vec3 result = vec3(0.04, 0.05, 0.09) + 0.4 * glow * vec3(0.4, 0.5, 0.9);
  if (hit) {
    vec3 place = origin + direction * t;
    float unused;
    vec2 e = vec2(0.002, 0.0);
    vec3 n = normalize(vec3(bulb(place + e.xyy, unused) - bulb(place - e.xyy, unused),
                            bulb(place + e.yxy, unused) - bulb(place - e.yxy, unused),
                            bulb(place + e.yyx, unused) - bulb(place - e.yyx, unused)));
    vec3 base = 0.5 + 0.5 * cos(vec3(0.3, 1.3, 2.2) + 5.0 * trap);
    result = base * (0.25 + 0.75 * max(dot(n, normalize(vec3(0.5, 0.8, -0.6))), 0.0)) * (1.2 - 0.8 * glow);
  }
  colour = vec4(sqrt(max(result, 0.0)), 1.0);
}
