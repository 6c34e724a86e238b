// Drops on water, and what the mouse stirs: the buffer keeps the surface's height now and one step
// before, from frame to frame.
//
// Buffers are written as for glslViewer.
//
//     shadermachine view examples/gallery/glsl/ripples.frag
// render: --frame 150
#ifdef GL_ES
precision highp float;
#endif

uniform sampler2D u_doubleBuffer0;
uniform vec2 u_resolution;
uniform vec2 u_mouse;
uniform float u_time;

vec2 surface(vec2 offset) {
  return texture2D(u_doubleBuffer0, (gl_FragCoord.xy + offset) / u_resolution).xy;
}

#ifdef DOUBLE_BUFFER_0

float hash(float n) { return fract(sin(n) * 43758.5453); }

float drop(vec2 centre, float radius) {
  return smoothstep(radius, 0.0, length(gl_FragCoord.xy - centre));
}

void main() {
  vec2 here = surface(vec2(0.0));
  float around = surface(vec2(1.0, 0.0)).x + surface(vec2(-1.0, 0.0)).x +
                 surface(vec2(0.0, 1.0)).x + surface(vec2(0.0, -1.0)).x;
  float height = (0.5 * around - here.y) * 0.996;
  float beat = floor(u_time * 4.0);
  if (u_time * 4.0 - beat < 0.2) {
    height -= 0.25 * drop(u_resolution * vec2(hash(beat), hash(beat + 0.5)), 0.03 * u_resolution.y);
  }
  if (u_mouse.x > 0.0) height -= 0.1 * drop(u_mouse, 0.025 * u_resolution.y);
  gl_FragColor = vec4(height, here.x, 0.0, 1.0);
}

#else

void main() {
  vec2 slope = vec2(surface(vec2(1.0, 0.0)).x - surface(vec2(-1.0, 0.0)).x,
                    surface(vec2(0.0, 1.0)).x - surface(vec2(0.0, -1.0)).x);
  vec3 normal = normalize(vec3(-6.0 * slope, 1.0));
  vec3 light = normalize(vec3(0.4, 0.6, 0.7));
  vec2 uv = gl_FragCoord.xy / u_resolution + 0.08 * normal.xy;
  vec3 ground = mix(vec3(0.04, 0.26, 0.36), vec3(0.25, 0.7, 0.7), uv.y);
  ground *= 0.85 + 0.15 * step(0.5, fract(uv.x * 12.0)) * step(0.5, fract(uv.y * 8.0));
  float glint = pow(max(dot(reflect(-light, normal), vec3(0.0, 0.0, 1.0)), 0.0), 40.0);
  gl_FragColor = vec4(ground * (0.6 + 0.5 * dot(normal, light)) + glint, 1.0);
}

#endif
