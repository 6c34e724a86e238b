// A calm sea at sunset: layered waves, Fresnel reflection of the sky and a path of light.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

vec3 skyColour(vec3 d, vec3 sun) {
  float height = clamp(d.y, 0.0, 1.0);
  vec3 colour = mix(vec3(1.0, 0.55, 0.3), vec3(0.15, 0.25, 0.5), sqrt(height));
  float towards = max(dot(d, sun), 0.0);
  return colour + vec3(1.0, 0.7, 0.4) * (0.35 * pow(towards, 16.0) + 1.5 * pow(towards, 600.0));
}

vec2 waveSlope(vec2 p) {
  vec2 slope = vec2(0.0);
  vec2 direction = vec2(0.8, 0.6);
  float frequency = 1.3;
  float amplitude = 0.16;
  for (int i = 0; i < 7; i++) {
    float phase = dot(p, direction) * frequency + u_time * (1.0 + 0.2 * float(i));
    slope += direction * amplitude * cos(phase);
    direction = vec2(direction.x * 0.36 - direction.y * 0.93, direction.x * 0.93 + direction.y * 0.36);
    frequency *= 1.7;
    amplitude *= 0.72;
  }
  return slope;
}

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  vec3 direction = normalize(vec3(p.x, p.y + 0.1, 1.5));
  vec3 sun = normalize(vec3(0.15, 0.16, 1.0));
  vec3 colour = skyColour(direction, sun);
  if (direction.y < 0.0) {
    float t = 1.0 / -direction.y;
    vec2 place = direction.xz * t * 3.0;
    vec2 slope = waveSlope(place) / (1.0 + 0.15 * t);
    vec3 n = normalize(vec3(-slope.x, 1.0, -slope.y));
    vec3 mirrored = reflect(direction, n);
    mirrored.y = abs(mirrored.y);
    float fresnel = 0.03 + 0.97 * pow(1.0 - max(dot(n, -direction), 0.0), 5.0);
    vec3 deep = vec3(0.02, 0.09, 0.13);
    colour = mix(deep, skyColour(mirrored, sun), clamp(fresnel, 0.0, 1.0));
    colour = mix(colour, vec3(0.95, 0.6, 0.4), smoothstep(10.0, 60.0, t) * 0.5);
  }
  gl_FragColor = vec4(colour / (0.6 + colour) * 1.25, 1.0);
}
