// An endless tunnel of tiles, written as mainImage() alone.
float tile(vec2 p) {
  vec2 q = abs(fract(p) - 0.5);
  return smoothstep(0.48, 0.42, max(q.x, q.y));
}

void mainImage(out vec4 fragColor, in vec2 fragCoord) {
  vec2 p = (2.0 * fragCoord - iResolution.xy) / iResolution.y;
  float radius = pow(pow(abs(p.x), 6.0) + pow(abs(p.y), 6.0), 1.0 / 6.0);
  vec2 wall = vec2(0.6 / radius + iTime, atan(p.y, p.x) / 3.14159265 * 4.0);
  vec3 colour = 0.5 + 0.5 * cos(vec3(0.0, 0.8, 1.7) + floor(wall.x * 2.0) * 0.9 + floor(wall.y * 2.0) * 0.4);
  colour *= 0.25 + 0.75 * tile(wall * 2.0);
  fragColor = vec4(colour * min(radius * 1.4, 1.0), 1.0);
}
