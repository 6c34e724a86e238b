// Layered hills in the mist at dawn.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

float ridge(float x, float seed) {
  float height = 0.0;
  float amplitude = 0.5;
  for (int i = 0; i < 6; i++) {
    height += amplitude * sin(x + seed * 3.7 + 1.3 * float(i)) * cos(x * 0.63 - seed);
    x = x * 1.93 + 1.7;
    amplitude *= 0.47;
  }
  return height;
}

void main() {
  vec2 p = gl_FragCoord.xy / u_resolution.y;
  float wide = u_resolution.x / u_resolution.y;
  vec3 colour = mix(vec3(0.98, 0.78, 0.6), vec3(0.45, 0.6, 0.8), smoothstep(0.35, 1.0, p.y));
  float sun = length(p - vec2(wide * 0.68, 0.72));
  colour += vec3(0.5, 0.35, 0.2) * exp(-5.0 * sun) + smoothstep(0.075, 0.07, sun) * vec3(0.4, 0.35, 0.25);
  for (int i = 0; i < 6; i++) {
    float layer = float(i);
    float base = 0.62 - 0.1 * layer;
    float height = base + (0.1 + 0.015 * layer) * ridge(p.x * (2.0 + 0.5 * layer) + u_time * 0.02 * (layer + 1.0), layer);
    vec3 tone = mix(vec3(0.72, 0.62, 0.66), vec3(0.06, 0.13, 0.17), layer / 5.0);
    tone = mix(tone, vec3(0.9, 0.75, 0.66), 0.5 * clamp((height - p.y) * 3.0, 0.0, 1.0) * (1.0 - layer / 6.0));
    colour = mix(colour, tone, smoothstep(0.004, -0.004, p.y - height));
  }
  gl_FragColor = vec4(colour, 1.0);
}
