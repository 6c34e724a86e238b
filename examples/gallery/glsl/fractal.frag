// The Mandelbrot set near its seahorse valley, coloured by a smooth iteration count.
precision highp float;
uniform vec2 u_resolution;
uniform float u_time;

void main() {
  vec2 p = (2.0 * gl_FragCoord.xy - u_resolution) / u_resolution.y;
  float zoom = 0.006 + 0.003 * sin(u_time * 0.2);
  vec2 c = vec2(-0.74364, 0.13182) + p * zoom;
  vec2 z = vec2(0.0);
  float n = 0.0;
  for (int i = 0; i < 160; i++) {
    z = vec2(z.x * z.x - z.y * z.y, 2.0 * z.x * z.y) + c;
    if (dot(z, z) > 256.0) break;
    n += 1.0;
  }
  vec3 colour = vec3(0.02, 0.0, 0.05);
  if (n < 160.0) {
    float smoothCount = n - log2(log2(dot(z, z))) + 4.0;
    colour = 0.5 + 0.5 * cos(3.0 + smoothCount * 0.12 + vec3(0.0, 0.6, 1.1));
  }
  gl_FragColor = vec4(colour, 1.0);
}
