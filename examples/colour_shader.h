/* A shader made by hand: what a compiler would make of
 *     in vec2 position;  out vec4 colour;
 *     void main() { colour = vec4(position, 0.5, 1.0); }
 */
#include <shadermachine/opcodes.h>
#include <shadermachine/shadermachine.h>

enum { COLOUR, POSITION, GLOBAL_COUNT };

/* 16-bit operand and float literal, little-endian as the bytecode wants them. */
#define U16(value) (value) & 0xff, (value) >> 8
#define HALF 0, 0, 0, 0x3f

/* clang-format off */
static const uint8_t code[] = {
    VM_OP_LOAD_GLOBAL,  U16(POSITION),   /* asks the host for the position */
    VM_OP_PUSH_U32,     HALF,            /* blue */
    VM_OP_PUSH_1_F,                      /* alpha */
    VM_OP_CTOR_VEC4_A,  U16(3), 2, 1, 1, /* of three operands with 2, 1 and 1 components */
    VM_OP_STORE_GLOBAL, U16(COLOUR),
    VM_OP_RETURN,
};
/* clang-format on */

static const VarInfo globals[GLOBAL_COUNT] = {
    {.type = VM_TYPE_VEC4, .byteSize = 16, .name = "colour"},
    {.type = VM_TYPE_VEC2, .flags = VM_VAR_HOST_0, .byteSize = 8, .name = "position"},
};

static const ShaderFunction entry = {.codeLength = sizeof code};
static const ShaderFunction* const functions[] = {&entry};

static CompiledShader makeShader(void) {
  CompiledShader shader = VM_COMPILED_SHADER_INIT; /* bound to nothing ... */
  shader.functionCount = 1;
  shader.functions = functions;
  shader.code = code;
  shader.globalCount = GLOBAL_COUNT;
  shader.globals = globals;
  shader.outputGlobal0 = COLOUR; /* ... except its colour */
  return shader;
}
