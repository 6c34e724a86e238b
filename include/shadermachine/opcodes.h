/* Numbers of the instructions, for whoever writes or reads bytecode. Valid C99 and C++.
 *
 * Generated from src/instructions/opcodes.def, do not edit: build the target generate-reference.
 *
 * The comments say what each instruction does: T is the top slot, A and B the two top
 * slots with B on top, X, Y and Z the three top slots with Z on top, Sk the slot k below
 * the top; i runs over the components 0 to n-1; stop(c) ends the run with error c.
 * docs/opcodes.md adds operands and stack effects.
 */
#ifndef SHADERMACHINE_OPCODES_H
#define SHADERMACHINE_OPCODES_H

/* clang-format off */

typedef enum VmOpcode {
  /* Stack and variables */
  VM_OP_NOP                   =   0, /* nothing */
  VM_OP_LOAD_LOCAL            =   1, /* push local (share its block) */
  VM_OP_LOAD_GLOBAL           =   2, /* push global (share its block); a host variable is filled by callback 52 */
  VM_OP_LOAD_BUILTIN          =   3, /* push built-in variable; stop(8) if it does not exist */
  VM_OP_STORE_LOCAL           =   4, /* local = T (takes a block nobody else holds, else copies it) */
  VM_OP_STORE_LOCAL_ELEM      =   5, /* local[S0][S1]..[S(n-1)] = Sn; pops n + 1 */
  VM_OP_STORE_LOCAL_ELEM_IMM  =   6, /* local[path] = T */
  VM_OP_STORE_GLOBAL          =   7, /* global = T (takes a block nobody else holds, else copies it) */
  VM_OP_STORE_GLOBAL_ELEM     =   8, /* global[S0][S1]..[S(n-1)] = Sn; pops n + 1 */
  VM_OP_STORE_GLOBAL_ELEM_IMM =   9, /* global[path] = T */
  VM_OP_RESERVED_10           =  10, /* stop(17) */
  VM_OP_STORE_LOCAL_KEEP      =  11, /* local = T; T stays (a block nobody else holds is shared with the local) */
  VM_OP_POP                   =  12, /* drop T without release */
  VM_OP_POP_N                 =  13, /* drop the n top slots without release */
  VM_OP_POP_RELEASE           =  14, /* release T's block; drop T */
  VM_OP_PUSH_EMPTY            =  15, /* push an unwritten slot */
  VM_OP_PUSH_U8               =  16, /* push the zero-extended byte */
  VM_OP_PUSH_U32              =  17, /* push the word */
  VM_OP_PUSH_U32_2            =  18, /* push the word */
  VM_OP_PUSH_ZERO4            =  19, /* push (0, 0, 0, 0) */
  VM_OP_PUSH_ONE4_F           =  20, /* push (1.0, 1.0, 1.0, 1.0) */
  VM_OP_PUSH_0                =  21, /* push 0 */
  VM_OP_PUSH_1                =  22, /* push 1 */
  VM_OP_PUSH_2                =  23, /* push 2 */
  VM_OP_PUSH_3                =  24, /* push 3 */
  VM_OP_PUSH_4                =  25, /* push 4 */
  VM_OP_PUSH_5                =  26, /* push 5 */
  VM_OP_PUSH_6                =  27, /* push 6 */
  VM_OP_PUSH_7                =  28, /* push 7 */
  VM_OP_PUSH_8                =  29, /* push 8 */
  VM_OP_PUSH_9                =  30, /* push 9 */
  VM_OP_PUSH_0_F              =  31, /* push 0.0 */
  VM_OP_PUSH_1_F              =  32, /* push 1.0 */
  VM_OP_DUP                   =  33, /* push a raw copy of T; adds no reference */
  VM_OP_SWAP                  =  34, /* exchange A and B */
  VM_OP_MAKE_UNIQUE           =  35, /* give T a copy of its block if others hold it too */

  /* Control flow */
  VM_OP_CALL                  =  36, /* call function; its parameters are the top slots and stay there, its result goes below them */
  VM_OP_CALL_BUILTIN          =  37, /* let the host run a built-in function; stop(17) for an id without service */
  VM_OP_JUMP_IF_FALSE         =  38, /* if T[0] is the word 0: pc += offset; pop */
  VM_OP_JUMP                  =  39, /* pc += offset */
  VM_OP_RETURN                =  40, /* release the function's own aggregate locals; leave the frame (frame 0: stop(0)) */
  VM_OP_RETURN_VALUE          =  41, /* move T into the slot below the locals; leave as RETURN */
  VM_OP_RETURN_VALUE_2        =  42, /* as RETURN_VALUE */
  VM_OP_DISCARD               =  43, /* stop(13) */
  VM_OP_HALT                  =  44, /* stop(18) */
  VM_OP_NOP_45                =  45, /* nothing */
  VM_OP_NOP_46                =  46, /* nothing */

  /* Index stack */
  VM_OP_PUSH_INDEX            =  47, /* push T[0] onto the index stack; pop */
  VM_OP_PUSH_INDEX_IMM        =  48, /* push the byte onto the index stack */
  VM_OP_NOP_49                =  49, /* nothing */
  VM_OP_NOP_50                =  50, /* nothing */
  VM_OP_NOP_51                =  51, /* nothing */

  /* Constructors of inline values */
  VM_OP_CTOR_VEC2_A           =  52, /* vec2 from n operands (one scalar: splat); pops n, pushes 1; n = 0: nothing */
  VM_OP_CTOR_VEC3_A           =  53, /* vec3 from n operands (one scalar: splat); pops n, pushes 1; n = 0: nothing */
  VM_OP_CTOR_VEC4_A           =  54, /* vec4 from n operands (one scalar: splat); pops n, pushes 1; n = 0: nothing */
  VM_OP_CTOR_VEC2_B           =  55, /* as CTOR_VEC2_A */
  VM_OP_CTOR_VEC3_B           =  56, /* as CTOR_VEC3_A */
  VM_OP_CTOR_VEC4_B           =  57, /* as CTOR_VEC4_A */
  VM_OP_CTOR_VEC2_C           =  58, /* as CTOR_VEC2_A */
  VM_OP_CTOR_VEC3_C           =  59, /* as CTOR_VEC3_A */
  VM_OP_CTOR_VEC4_C           =  60, /* as CTOR_VEC4_A */
  VM_OP_CTOR_MAT2             =  61, /* mat2 from n operands (one scalar: diagonal; one matrix: its upper-left block); pops n, pushes 1; n = 0: nothing */
  VM_OP_CTOR_MAT3             =  62, /* mat3 likewise */
  VM_OP_CTOR_MAT4             =  63, /* mat4 likewise */

  /* Constructors of aggregates */
  VM_OP_CTOR_STRUCT           =  64, /* new block from one operand per member; pops memberCount */
  VM_OP_CTOR_ARRAY            =  65, /* new block from n elements; pops n */

  /* Conversions */
  VM_OP_INT_TO_BOOL           =  66, /* T[i] = T[i] != 0 ? 1 : 0 */
  VM_OP_FLOAT_TO_BOOL         =  67, /* T[i] = T[i] != 0.0 ? 1 : 0 */
  VM_OP_BOOL_TO_FLOAT         =  68, /* T[i] = T[i] != 0 ? 1.0 : 0.0 */
  VM_OP_INT_TO_FLOAT          =  69, /* T[i] = float(T[i]) */
  VM_OP_FLOAT_TO_INT          =  70, /* T[i] = int(T[i]), toward zero; 0x80000000 for NaN and what does not fit */
  VM_OP_BOOL_TO_INT           =  71, /* T[i] = T[i] != 0 ? 1 : 0 */

  /* Scalar logic */
  VM_OP_LOGICAL_AND_B         =  72, /* A[0] = A[0] && B[0] */
  VM_OP_LOGICAL_OR_B          =  73, /* A[0] = A[0] || B[0] */
  VM_OP_LOGICAL_XOR_B         =  74, /* A[0] = !A[0] != !B[0] */

  /* Component arithmetic */
  VM_OP_ADD_I                 =  75, /* A[i] = A[i] + B[i], integers */
  VM_OP_ADD_F                 =  76, /* A[i] = A[i] + B[i] */
  VM_OP_ADD_VS_F              =  77, /* A[i] = A[i] + B[0] */
  VM_OP_ADD_SV_F              =  78, /* A[i] = A[0] + B[i] */
  VM_OP_SUB_I                 =  79, /* A[i] = A[i] - B[i], integers */
  VM_OP_SUB_F                 =  80, /* A[i] = A[i] - B[i] */
  VM_OP_SUB_VS_F              =  81, /* A[i] = A[i] - B[0] */
  VM_OP_SUB_SV_F              =  82, /* A[i] = A[0] - B[i] */
  VM_OP_DIV_I                 =  83, /* A[i] = A[i] / B[i], integers; 0 for a zero divisor */
  VM_OP_DIV_F                 =  84, /* A[i] = A[i] / B[i] */
  VM_OP_DIV_VS_F              =  85, /* A[i] = A[i] * (1.0 / B[0]) */
  VM_OP_DIV_SV_F              =  86, /* A[i] = A[0] / B[i] */
  VM_OP_MUL_I                 =  87, /* A[i] = A[i] * B[i], integers */
  VM_OP_MUL_F                 =  88, /* A[i] = A[i] * B[i] */

  /* Matrix and vector products */
  VM_OP_MUL_MAT_MAT           =  89, /* A[c*n+r] = sum over k of A[k*n+r] * B[c*n+k] */
  VM_OP_MUL_VEC_MAT           =  90, /* A[c] = sum over k of A[k] * B[c*n+k] */
  VM_OP_MUL_MAT_VEC           =  91, /* A[r] = sum over k of A[k*n+r] * B[k] */

  /* Whole-value comparison */
  VM_OP_EQ_I                  =  92, /* A[0] = all A[i] == B[i], words */
  VM_OP_EQ_B                  =  93, /* A[0] = all A[i] == B[i], words */
  VM_OP_EQ_F                  =  94, /* A[0] = all A[i] == B[i] */
  VM_OP_EQ_AGG                =  95, /* A[0] = A's bytes == B's bytes; release both */
  VM_OP_NE_I                  =  96, /* A[0] = any A[i] != B[i], words */
  VM_OP_NE_B                  =  97, /* A[0] = any A[i] != B[i], words */
  VM_OP_NE_F                  =  98, /* A[0] = any A[i] != B[i] */
  VM_OP_NE_AGG                =  99, /* A[0] = A's bytes != B's bytes; release both */

  /* Scalar ordering */
  VM_OP_LT_I                  = 100, /* A[0] = A[0] < B[0], integers */
  VM_OP_LT_F                  = 101, /* A[0] = A[0] < B[0] */
  VM_OP_GT_I                  = 102, /* A[0] = A[0] > B[0], integers */
  VM_OP_GT_F                  = 103, /* A[0] = A[0] > B[0] */
  VM_OP_LE_I                  = 104, /* A[0] = A[0] <= B[0], integers */
  VM_OP_LE_F                  = 105, /* A[0] = A[0] <= B[0] */
  VM_OP_GE_I                  = 106, /* A[0] = A[0] >= B[0], integers */
  VM_OP_GE_F                  = 107, /* A[0] = A[0] >= B[0] */

  /* Parts of values */
  VM_OP_SWIZZLE               = 108, /* T = (T[m0], .. T[m(n-1)]), mi = bits 2i, 2i+1 of the mask */
  VM_OP_SWIZZLE_2             = 109, /* as SWIZZLE */
  VM_OP_SWIZZLE_3             = 110, /* as SWIZZLE */
  VM_OP_STRUCT_FIELD          = 111, /* T = member of T's structure */
  VM_OP_VEC_ELEMENT           = 112, /* T[0] = T[index]; pop the index; stop(12) unless index < n */
  VM_OP_VEC_ELEMENT_2         = 113, /* as VEC_ELEMENT */
  VM_OP_VEC_ELEMENT_3         = 114, /* as VEC_ELEMENT */
  VM_OP_MAT_COLUMN            = 115, /* T = column [index] of T; pop the index; stop(12) unless index < n */
  VM_OP_ARRAY_ELEMENT         = 116, /* T = element [index] of T's array; pop the index; stop(12) if out of range */
  VM_OP_LOAD_LOCAL_COMPONENT  = 117, /* push local[component]; stop(12) unless component < bound */
  VM_OP_LOGICAL_NOT_B         = 118, /* T[0] = T[0] == 0 ? 1 : 0 */

  /* Component arithmetic, one operand */
  VM_OP_NEG_I                 = 119, /* T[i] = -T[i], integers */
  VM_OP_NEG_F                 = 120, /* T[i] = 0.0 - T[i] */
  VM_OP_INC_I                 = 121, /* T[i] = T[i] + 1, integers */
  VM_OP_INC_F                 = 122, /* T[i] = T[i] + 1.0 */
  VM_OP_DEC_I                 = 123, /* T[i] = T[i] - 1, integers */
  VM_OP_DEC_F                 = 124, /* T[i] = T[i] - 1.0 */

  /* Angles and trigonometry */
  VM_OP_RADIANS               = 125, /* T[i] = T[i] * 0.0174532924 */
  VM_OP_DEGREES               = 126, /* T[i] = T[i] * 57.2957802 */
  VM_OP_SIN                   = 127, /* T[i] = sinf(T[i]) */
  VM_OP_COS                   = 128, /* T[i] = cosf(T[i]) */
  VM_OP_TAN                   = 129, /* T[i] = tanf(T[i]) */
  VM_OP_ASIN                  = 130, /* T[i] = asinf(T[i]) */
  VM_OP_ACOS                  = 131, /* T[i] = acosf(T[i]) */
  VM_OP_ATAN                  = 132, /* T[i] = atanf(T[i]) */
  VM_OP_ATAN2                 = 133, /* A[i] = atan2f(A[i], B[i]) */

  /* Exponential functions */
  VM_OP_POW                   = 134, /* A[i] = powf(A[i], B[i]) */
  VM_OP_EXP                   = 135, /* T[i] = expf(T[i]) */
  VM_OP_LOG                   = 136, /* T[i] = logf(T[i]) */
  VM_OP_EXP2                  = 137, /* T[i] = exp2f(T[i]) */
  VM_OP_LOG2                  = 138, /* T[i] = logf(T[i]) * 1.44269502 */
  VM_OP_SQRT                  = 139, /* T[i] = sqrt(T[i]) */
  VM_OP_INVERSE_SQRT          = 140, /* T[i] = 1.0 / sqrt(T[i]) */

  /* Common functions */
  VM_OP_ABS                   = 141, /* T[i] = T[i] with its sign bit cleared */
  VM_OP_SIGN                  = 142, /* T[i] = T[i] > 0 ? 1.0 : T[i] < 0 ? -1.0 : 0.0 */
  VM_OP_FLOOR                 = 143, /* T[i] = floor(T[i]), never -0.0 */
  VM_OP_CEIL                  = 144, /* T[i] = ceil(T[i]), never -0.0 */
  VM_OP_FRACT                 = 145, /* T[i] = T[i] - floor(T[i]) */
  VM_OP_MOD_VS                = 146, /* A[i] = A[i] - floor(A[i] / B[0]) * B[0] */
  VM_OP_MOD                   = 147, /* A[i] = A[i] - floor(A[i] / B[i]) * B[i] */
  VM_OP_MIN_VS                = 148, /* A[i] = A[i] < B[0] ? A[i] : B[0] */
  VM_OP_MIN                   = 149, /* A[i] = A[i] < B[i] ? A[i] : B[i] */
  VM_OP_MAX_VS                = 150, /* A[i] = A[i] > B[0] ? A[i] : B[0] */
  VM_OP_MAX                   = 151, /* A[i] = A[i] > B[i] ? A[i] : B[i] */
  VM_OP_CLAMP_VSS             = 152, /* m = X[i] > Y[0] ? X[i] : Y[0]; X[i] = m < Z[0] ? m : Z[0] */
  VM_OP_CLAMP                 = 153, /* m = X[i] > Y[i] ? X[i] : Y[i]; X[i] = m < Z[i] ? m : Z[i] */
  VM_OP_MIX_VVS               = 154, /* X[i] = X[i] * (1.0 - Z[0]) + Y[i] * Z[0] */
  VM_OP_MIX                   = 155, /* X[i] = X[i] * (1.0 - Z[i]) + Y[i] * Z[i] */
  VM_OP_STEP_SV               = 156, /* A[i] = A[0] > B[i] ? 0.0 : 1.0 */
  VM_OP_STEP                  = 157, /* A[i] = A[i] > B[i] ? 0.0 : 1.0 */
  VM_OP_SMOOTHSTEP_SSV        = 158, /* t = (Z[i] - X[0]) * (1.0 / (Y[0] - X[0])), at least 0.0, at most 1.0; X[i] = X[0] >= Z[i] ? 0.0 : Z[i] >= Y[0] ? 1.0 : (t * t) * (3.0 - t * 2.0) */
  VM_OP_SMOOTHSTEP            = 159, /* t = (Z[i] - X[i]) / (Y[i] - X[i]), at least 0.0, at most 1.0; X[i] = X[i] >= Z[i] ? 0.0 : Z[i] >= Y[i] ? 1.0 : (t * t) * (3.0 - t * 2.0) */

  /* Geometric functions */
  VM_OP_LENGTH                = 160, /* T[0] = sqrt(sum T[i]^2) */
  VM_OP_DISTANCE              = 161, /* A[0] = sqrt(sum (A[i] - B[i])^2) */
  VM_OP_DOT                   = 162, /* A[0] = sum A[i] * B[i] */
  VM_OP_CROSS                 = 163, /* A = (A[1] * B[2] - B[1] * A[2], A[2] * B[0] - B[2] * A[0], A[0] * B[1] - B[0] * A[1]) */
  VM_OP_NORMALIZE             = 164, /* T[i] = T[i] * (1.0 / sqrt(sum T[k]^2)) */
  VM_OP_FACEFORWARD           = 165, /* X kept if dot(Z, Y) < 0, else X[i] = 0.0 - X[i] */
  VM_OP_REFLECT               = 166, /* d = dot(B, A); A[i] = A[i] - B[i] * (d + d) */
  VM_OP_REFRACT               = 167, /* e = Z[0]; d = dot(X, Y); k = 1.0 - (e * e) * (1.0 - d * d); X[i] = k < 0 ? 0.0 : X[i] * e - Y[i] * (e * d + sqrt(k)) */
  VM_OP_COMP_MUL_F            = 168, /* A[i] = A[i] * B[i] */

  /* Vector relational functions */
  VM_OP_LESS_THAN_I           = 169, /* A[i] = A[i] < B[i], integers */
  VM_OP_LESS_THAN_F           = 170, /* A[i] = A[i] < B[i] */
  VM_OP_LESS_EQUAL_I          = 171, /* A[i] = A[i] <= B[i], integers */
  VM_OP_LESS_EQUAL_F          = 172, /* A[i] = A[i] <= B[i] */
  VM_OP_GREATER_THAN_I        = 173, /* A[i] = A[i] > B[i], integers */
  VM_OP_GREATER_THAN_F        = 174, /* A[i] = A[i] > B[i] */
  VM_OP_GREATER_EQUAL_I       = 175, /* A[i] = A[i] >= B[i], integers */
  VM_OP_GREATER_EQUAL_F       = 176, /* A[i] = A[i] >= B[i] */
  VM_OP_EQUAL_I               = 177, /* A[i] = A[i] == B[i], words */
  VM_OP_EQUAL_B               = 178, /* A[i] = A[i] == B[i], words */
  VM_OP_EQUAL_F               = 179, /* A[i] = A[i] == B[i] */
  VM_OP_NOT_EQUAL_I           = 180, /* A[i] = A[i] != B[i], words */
  VM_OP_NOT_EQUAL_B           = 181, /* A[i] = A[i] != B[i], words */
  VM_OP_NOT_EQUAL_F           = 182, /* A[i] = A[i] != B[i] */
  VM_OP_ANY_B                 = 183, /* T[0] = any T[i] != 0 */
  VM_OP_ALL_B                 = 184, /* T[0] = all T[i] != 0 */
  VM_OP_NOT_B                 = 185, /* T[i] = T[i] == 0 ? 1 : 0 */

  /* Host-served functions and noise */
  VM_OP_HOST_UNARY_1          = 186, /* callback 47 transforms T in place; the operand is the number of components, which the machine skips */
  VM_OP_HOST_UNARY_2          = 187, /* callback 48 transforms T in place; the operand is the number of components, which the machine skips */
  VM_OP_HOST_UNARY_3          = 188, /* callback 49 transforms T in place; the operand is the number of components, which the machine skips */
  VM_OP_NOISE1                = 189, /* T[0] = noise of T[0..n-1] */
  VM_OP_NOISE2                = 190, /* T[0..1] = noise of T[0..n-1], every component the same */
  VM_OP_NOISE3                = 191, /* T[0..2] = noise of T[0..n-1], every component the same */
  VM_OP_NOISE4                = 192, /* T[0..3] = noise of T[0..n-1], every component the same */
  VM_OP_HOST_LOOKUP_1         = 193, /* callback 50 samples: form bits 5-6 = 2: (sampler, coords), 3: (sampler, coords, extra) -> result; 0, 1: nothing */
  VM_OP_HOST_LOOKUP_2         = 194, /* callback 51 samples likewise */

  /* Reserved and bitwise */
  VM_OP_RESERVED_195          = 195, /* stop(17) */
  VM_OP_RESERVED_196          = 196, /* stop(17) */
  VM_OP_RESERVED_197          = 197, /* stop(17) */
  VM_OP_RESERVED_198          = 198, /* stop(17) */
  VM_OP_RESERVED_199          = 199, /* stop(17) */
  VM_OP_RESERVED_200          = 200, /* stop(17) */
  VM_OP_RESERVED_201          = 201, /* stop(17) */
  VM_OP_BIT_OR                = 202, /* A[i] = A[i] | B[i] */
  VM_OP_BIT_XOR               = 203, /* A[i] = A[i] ^ B[i] */
  VM_OP_BIT_AND               = 204, /* A[i] = A[i] & B[i] */
  VM_OP_BIT_NOT               = 205, /* T[i] = ~T[i] */

  VM_OPCODE_COUNT = 206
} VmOpcode;

/* clang-format on */

#endif /* SHADERMACHINE_OPCODES_H */
