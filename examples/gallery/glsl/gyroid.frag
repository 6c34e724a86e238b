#version 300 es
// A flight through a gyroid lattice, lit by the distance to its walls.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;
layout(location = 0) out vec4 colour;

struct Ray {
  vec3 origin;
  vec3 direction;
};

float lattice(vec3 p) {
  float wall = abs(dot(sin(p * 2.2), cos(p.yzx * 2.2))) / 2.2 - 0.12;
  return max(wall, 0.5 - length(p.xy)) * 0.6;
}

Ray cameraRay(vec2 p) {
  vec3 origin = vec3(0.2 * sin(u_time * 0.4), 0.0, u_time * 0.6);
  vec3 direction = normalize(vec3(p, 1.3));
  float roll = 0.3 * sin(u_time * 0.25);
  direction.xy = mat2(cos(roll), sin(roll), -sin(roll), cos(roll)) * direction.xy;
  return Ray(origin, direction);
}

void main() {
  Ray ray = cameraRay((2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y);
  float t = 0.1;
  int steps = 0;
  while (steps < 80 && t < 12.0) {
    float d = lattice(ray.origin + ray.direction * t);
    if (d < 0.002) break;
    t += d;
    steps++;
  }
  vec3 p = ray.origin + ray.direction * t;
  vec2 e = vec2(0.003, 0.0);
  vec3 n = normalize(vec3(lattice(p + e.xyy), lattice(p + e.yxy), lattice(p + e.yyx)) - lattice(p));
  float light = 0.5 + 0.5 * dot(n, normalize(vec3(0.4, 0.8, -0.5)));
  vec3 base = mix(vec3(0.9, 0.45, 0.25), vec3(0.25, 0.55, 0.8), 0.5 + 0.5 * sin(p.z * 0.8));
  float depth = exp(-0.28 * t);
  colour = vec4(base * light * depth + vec3(0.03, 0.02, 0.06) + 0.25 * float(steps) / 80.0 * vec3(0.5, 0.6, 1.0), 1.0);
}
