// A ray-marched scene: spheres on a floor, soft shadows and a little fog.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

float sceneDistance(vec3 p) {
  float floorDistance = p.y + 0.5;
  vec3 cell = vec3(mod(p.x + 1.0, 2.0) - 1.0, p.y, mod(p.z + 1.0, 2.0) - 1.0);
  vec2 id = floor((p.xz + 1.0) / 2.0);
  float height = 0.35 * sin(u_time + id.x * 1.7 + id.y * 2.3);
  float ball = length(cell - vec3(0.0, height, 0.0)) - 0.45;
  return min(floorDistance, ball);
}

vec3 normalAt(vec3 p) {
  vec2 e = vec2(0.001, -0.001);
  return normalize(e.xyy * sceneDistance(p + e.xyy) + e.yyx * sceneDistance(p + e.yyx) +
                   e.yxy * sceneDistance(p + e.yxy) + e.xxx * sceneDistance(p + e.xxx));
}

float march(vec3 origin, vec3 direction) {
  float t = 0.05;
  for (int i = 0; i < 72; i++) {
    float d = sceneDistance(origin + direction * t);
    if (d < 0.001 * t || t > 14.0) break;
    t += d * 0.85;
  }
  return t;
}

float shadow(vec3 origin, vec3 direction) {
  float light = 1.0;
  float t = 0.05;
  for (int i = 0; i < 20; i++) {
    float d = sceneDistance(origin + direction * t);
    light = min(light, 8.0 * d / t);
    t += clamp(d, 0.05, 0.4);
  }
  return clamp(light, 0.0, 1.0);
}

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  vec3 origin = vec3(0.6 * sin(u_time * 0.3), 1.1, u_time * 0.4);
  vec3 direction = normalize(vec3(p.x, p.y - 0.35, 1.6));
  vec3 sun = normalize(vec3(0.6, 0.7, -0.3));
  vec3 sky = mix(vec3(0.85, 0.72, 0.6), vec3(0.25, 0.45, 0.75), clamp(direction.y * 2.0 + 0.3, 0.0, 1.0));
  float t = march(origin, direction);
  vec3 colour = sky;
  if (t < 14.0) {
    vec3 hit = origin + direction * t;
    vec3 n = normalAt(hit);
    vec2 id = floor((hit.xz + 1.0) / 2.0);
    vec3 base = hit.y < -0.47 ? vec3(0.35 + 0.15 * mod(floor(hit.x * 2.0) + floor(hit.z * 2.0), 2.0))
                               : 0.5 + 0.4 * cos(vec3(0.0, 2.0, 4.0) + id.x * 1.3 + id.y * 2.1);
    float diffuse = max(dot(n, sun), 0.0) * shadow(hit + n * 0.01, sun);
    float shine = pow(max(dot(reflect(direction, n), sun), 0.0), 32.0);
    colour = base * (0.25 + 0.9 * diffuse) + 0.5 * shine * diffuse;
    colour = mix(colour, sky, smoothstep(5.0, 14.0, t));
  }
  gl_FragColor = vec4(sqrt(colour), 1.0);
}
