// Compiles GLSL and renders it with the installed libraries.
#include <shadermachine-tools/glsl.h>
#include <shadermachine-tools/renderer.h>

using namespace shadermachine::tools;

int main() {
  const GlslResult result = compileGlsl("void main() { gl_FragColor = gl_FragCoord; }");
  if (!result.shader || compileGlsl("void main() { x; }").shader) return 1;
  Renderer renderer(result.shader->view());
  const RenderResult picture = renderer.render({.frame = {.width = 2, .height = 1}});
  return picture.colour.pixel(1, 0)[0] == 1.5f ? 0 : 1;
}
