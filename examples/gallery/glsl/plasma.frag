// Interfering sines, bent by one another and coloured by a smooth palette.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

void main() {
  vec2 p = 2.2 * (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  for (int i = 1; i <= 4; ++i) {
    float k = float(i);
    p += 0.55 / k * sin(k * p.yx * vec2(1.3, 1.7) + vec2(0.6, 2.1) * k + 0.4 * u_time);
  }
  float height = 0.5 + 0.5 * sin(p.x + 0.7 * sin(1.4 * p.y));
  vec3 colour = 0.5 + 0.5 * cos(6.2832 * (0.55 * height + vec3(0.55, 0.68, 0.8)));
  float crest = smoothstep(0.82, 1.0, sin(5.0 * p.y + 2.0 * height));
  gl_FragColor = vec4(mix(colour * (0.35 + 0.65 * height), vec3(1.0, 0.93, 0.8), 0.45 * crest), 1.0);
}
