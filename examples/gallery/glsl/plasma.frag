// Interfering sines folded through a spiral.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  float radius = length(p);
  float angle = atan(p.y, p.x);
  float wave = sin(8.0 * radius - u_time * 2.0 + 3.0 * angle) + sin(p.x * 5.0 + u_time) +
               sin(p.y * 7.0 - u_time * 0.7) + cos(length(p - vec2(0.6, 0.3)) * 9.0);
  vec3 colour = 0.5 + 0.5 * sin(vec3(0.0, 2.1, 4.2) + wave * 0.8 + 0.6);
  colour = mix(colour, colour * colour * vec3(0.9, 0.5, 0.8) + 0.1, 0.7);
  gl_FragColor = vec4(colour * (1.2 - 0.35 * radius), 1.0);
}
