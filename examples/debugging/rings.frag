// Coloured rings. One pixel of the picture is wrong; docs/debugging.md finds out why.
precision highp float;
uniform vec2 u_resolution;

float ring(float distance) {
  return 0.5 + 0.5 * cos(distance * 40.0);
}

vec3 shade(vec2 p) {
  float d = length(p);
  vec2 direction = p / d;
  vec3 colour = vec3(0.5 + 0.5 * direction, 1.0);
  return colour * ring(d);
}

void main() {
  vec2 p = (gl_FragCoord.xy - 0.5 * u_resolution) / u_resolution.y;
  gl_FragColor = vec4(shade(p), 1.0);
}
