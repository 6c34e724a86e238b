// Drifting clouds over a warm horizon: fractal value noise, lit by its own slope.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

float hash(vec2 p) { return fract(sin(dot(p, vec2(12.9898, 78.233))) * 437.585453); }

float noise(vec2 p) {
  vec2 cell = floor(p);
  vec2 f = fract(p);
  f = f * f * (3.0 - 2.0 * f);
  return mix(mix(hash(cell), hash(cell + vec2(1.0, 0.0)), f.x),
             mix(hash(cell + vec2(0.0, 1.0)), hash(cell + vec2(1.0, 1.0)), f.x), f.y);
}

float clouds(vec2 p) {
  const mat2 turn = mat2(0.8, 0.6, -0.6, 0.8);
  float sum = 0.0;
  float weight = 0.5;
  for (int i = 0; i < 6; i++) {
    sum += weight * noise(p);
    p = turn * p * 2.03 + 17.0;
    weight *= 0.5;
  }
  return sum;
}

void main() {
  vec2 p = gl_FragCoord.xy / u_resolution.y;
  vec2 drift = vec2(u_time * 0.06, u_time * 0.02);
  vec2 sky = vec2(p.x, p.y * 1.6) * 3.0;
  float density = clouds(sky + drift + 0.5 * clouds(sky * 1.7 - drift));
  float lit = clouds(sky + drift + vec2(0.08, 0.12));
  float cover = smoothstep(0.42, 0.75, density);
  vec3 blue = mix(vec3(0.95, 0.7, 0.5), vec3(0.2, 0.42, 0.8), smoothstep(0.0, 0.9, p.y));
  vec3 white = mix(vec3(1.0, 0.97, 0.92), vec3(0.55, 0.53, 0.6), clamp((lit - 0.35) * 2.2, 0.0, 1.0));
  gl_FragColor = vec4(mix(blue, white, cover), 1.0);
}
