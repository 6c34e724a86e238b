// Moving cells with glowing borders: distance to the two nearest points.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

vec2 hash2(vec2 p) {
  return fract(sin(vec2(dot(p, vec2(12.71, 31.17)), dot(p, vec2(26.95, 18.33)))) * 437.5853);
}

void main() {
  vec2 p = gl_FragCoord.xy / u_resolution.y * 5.0;
  vec2 cell = floor(p);
  vec2 f = fract(p);
  float nearest = 8.0;
  float second = 8.0;
  vec2 owner = vec2(0.0);
  for (int y = -1; y <= 1; y++) {
    for (int x = -1; x <= 1; x++) {
      vec2 neighbour = vec2(float(x), float(y));
      vec2 random = hash2(cell + neighbour);
      vec2 point = neighbour + 0.5 + 0.4 * sin(u_time + 6.2831 * random) - f;
      float d = dot(point, point);
      if (d < nearest) {
        second = nearest;
        nearest = d;
        owner = random;
      } else if (d < second) {
        second = d;
      }
    }
  }
  float border = sqrt(second) - sqrt(nearest);
  vec3 colour = 0.55 + 0.35 * cos(vec3(0.0, 1.5, 3.0) + 6.28 * owner.x + owner.y * 2.0);
  colour *= 1.0 - 0.6 * sqrt(nearest);
  colour = mix(vec3(1.0, 0.9, 0.6), colour, smoothstep(0.02, 0.1, border));
  gl_FragColor = vec4(colour, 1.0);
}
