/* shadermachine: runs compiled shader programs on the CPU.
 *
 * This is the whole public interface: eight functions, the records they take and the table of
 * callbacks through which a running shader asks its host for what it cannot know. The header is
 * valid C99 and C++; it needs nothing but <stdint.h> and <stddef.h>.
 *
 * A host calls vmInitialize() once, creates one ShaderMachine per thread, runs shaders with
 * vmShaderMachineExecuteShader() and destroys the machines. Record layouts are ABI: field order,
 * widths and natural alignment never change within a major version, and the assertions at the end
 * of each header pin them. Every multi-byte field is little-endian, pointers are 64 bits.
 *
 * Threads: the library creates no threads. One machine is used by one thread at a time; different
 * machines may run at once on different threads.
 *
 * See docs/embedding.md for a guide and shadermachine/machine.h for the state of a machine as a
 * debugger or a callback may read it.
 */
#ifndef SHADERMACHINE_SHADERMACHINE_H
#define SHADERMACHINE_SHADERMACHINE_H

#include <stddef.h>
#include <stdint.h>

#define SHADERMACHINE_VERSION_MAJOR 1
#define SHADERMACHINE_VERSION_MINOR 0
#define SHADERMACHINE_VERSION_PATCH 0
#define SHADERMACHINE_VERSION_STRING                                              \
  SHADERMACHINE_DOTTED_(SHADERMACHINE_VERSION_MAJOR, SHADERMACHINE_VERSION_MINOR, \
                        SHADERMACHINE_VERSION_PATCH)
#define SHADERMACHINE_DOTTED_(major, minor, patch) SHADERMACHINE_QUOTED_(major, minor, patch)
#define SHADERMACHINE_QUOTED_(major, minor, patch) #major "." #minor "." #patch

#if defined(__cplusplus)
#define SHADERMACHINE_STATIC_ASSERT(name, condition) static_assert(condition, #name)
#else
#define SHADERMACHINE_STATIC_ASSERT(name, condition) \
  typedef char shadermachine_assert_##name[(condition) ? 1 : -1]
#endif

#if defined(SHADERMACHINE_BUILDING) && defined(__GNUC__)
#define SHADERMACHINE_API __attribute__((visibility("default")))
#else
#define SHADERMACHINE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------
 * Error codes
 * --------------------------------------------------------------------------------------------- */

/* How a call or a run ended. vmGetErrorString() gives the text of each code. Codes 7 and 14 are
 * kept for hosts that print them; nothing in the library raises them. */
typedef uint32_t VmError;

enum {
  VM_OK = 0,                        /* the entry function returned */
  VM_ERR_INVALID_HANDLE = 1,        /* null machine */
  VM_ERR_INVALID_SHADER = 2,        /* null shader or tables; operands beyond their limits */
  VM_ERR_INVALID_FUNCTION = 3,      /* CALL of a missing or bodiless function */
  VM_ERR_NEWER_COMPILER = 4,        /* record version is not 1 */
  VM_ERR_INVALID_ENTRY = 5,         /* entry index out of range, or null entry function */
  VM_ERR_ILLEGAL_INSTRUCTION = 6,   /* opcode byte 206 to 255 */
  VM_ERR_NO_BUILTIN_FUNCTION = 7,   /* not raised */
  VM_ERR_NO_BUILTIN_VARIABLE = 8,   /* LOAD_BUILTIN: unknown id, or the shader lacks its global */
  VM_ERR_OUT_OF_MEMORY = 9,         /* a block or the frame stack could not be allocated */
  VM_ERR_STACK_OVERFLOW = 10,       /* value stack (2,000 slots) or frame stack exhausted */
  VM_ERR_TIMEOUT = 11,              /* StartupInfo.timeout passed */
  VM_ERR_INDEX_OUT_OF_BOUNDS = 12,  /* element read outside its array, vector or matrix */
  VM_ERR_DISCARDED = 13,            /* DISCARD: the fragment delivers nothing */
  VM_ERR_OUTPUT_WRITE = 14,         /* not raised */
  VM_ERR_INDEX_STACK_OVERFLOW = 15, /* more than 256 pending indices */
  VM_ERR_ALREADY_RUNNING = 16,      /* the machine is inside a run (or one of its callbacks) */
  VM_ERR_NOT_IMPLEMENTED = 17,      /* reserved opcode, or built-in function without service */
  VM_ERR_HALTED = 18,               /* HALT: outputs are delivered, the shader is forgotten */
  VM_ERR_NO_STARTUP_INFO = 19,      /* null StartupInfo */
  VM_ERROR_COUNT = 20
};

/* ------------------------------------------------------------------------------------------------
 * Type codes
 * --------------------------------------------------------------------------------------------- */

/* Type of a variable, member or element. A code of 0 or more is an index into
 * CompiledShader.structTypes; the negative codes are the basic types. Every component is 32 bits.
 * The machine moves words of the -99 and -100 families alike; calling the first integer and the
 * second boolean is the convention of this project's tools. */
typedef int16_t TypeCode;

enum {
  VM_TYPE_BOOL = -100,
  VM_TYPE_INT = -99,
  VM_TYPE_FLOAT = -98,
  VM_TYPE_VEC2 = -97,
  VM_TYPE_VEC3 = -96,
  VM_TYPE_VEC4 = -95,
  VM_TYPE_IVEC2 = -94,
  VM_TYPE_IVEC3 = -93,
  VM_TYPE_IVEC4 = -92,
  VM_TYPE_BVEC2 = -91,
  VM_TYPE_BVEC3 = -90,
  VM_TYPE_BVEC4 = -89,
  VM_TYPE_MAT2 = -88,      /* columns one after another: 4 floats */
  VM_TYPE_MAT3 = -87,      /* 9 floats, no padding */
  VM_TYPE_MAT4 = -86,      /* 16 floats */
  VM_TYPE_SAMPLER_0 = -85, /* eight sampler kinds, each an opaque 8-byte value of the host's */
  VM_TYPE_SAMPLER_1 = -84,
  VM_TYPE_SAMPLER_2 = -83,
  VM_TYPE_SAMPLER_3 = -82,
  VM_TYPE_SAMPLER_4 = -81,
  VM_TYPE_SAMPLER_5 = -80,
  VM_TYPE_SAMPLER_6 = -79,
  VM_TYPE_SAMPLER_7 = -78
};

/* ------------------------------------------------------------------------------------------------
 * Compiled shader
 *
 * Produced by a compiler (or by hand) and owned by the caller. The library never changes or frees
 * any of it, and trusts everything that vmCompiledShaderVerify() does not check. It must stay valid
 * and unchanged while a machine holds it: from the start of a run until that machine runs another
 * shader, ends a run with a code other than 0, or is destroyed. Fields named `reserved…` are not
 * read.
 * --------------------------------------------------------------------------------------------- */

/* A variable (global or local) or a structure member; 32 bytes. A variable whose type is negative
 * and whose count is 0 is basic and lives inline in a value slot; every other (structure or array)
 * lives in a reference-counted block of byteSize bytes. */
typedef struct VarInfo {
  TypeCode type;
  uint16_t flags;        /* VM_VAR_HOST bits: LOAD_GLOBAL asks the host for the value */
  uint32_t count;        /* array length; 0 for a variable that is not an array */
  uint32_t byteSize;     /* of the whole variable: all elements of an array */
  uint32_t memberOffset; /* members only: byte offset in the structure, packed without gaps */
  const char* name;      /* NUL-terminated; may be null for a variable nobody looks up */
  uint64_t reserved24;
} VarInfo;

/* Either bit of VarInfo.flags makes a global a host variable. The other bits are free for the
 * compiler and can be searched with vmCompiledShaderGetVarId(). */
enum { VM_VAR_HOST_0 = 1, VM_VAR_HOST_1 = 2, VM_VAR_HOST = 3 };

typedef struct StructInfo {
  uint64_t reserved0;
  uint32_t size; /* bytes of one value; at least the sum of the members' byteSize */
  uint16_t memberCount;
  const VarInfo* members;
} StructInfo;

typedef struct ShaderFunction {
  uint16_t reserved0;
  uint16_t paramCount;   /* the first locals are the parameters */
  uint16_t localCount;   /* parameters included */
  const VarInfo* locals; /* localCount entries in slot order; may be null when there are none */
  uint64_t reserved16;
  uint32_t codeOffset; /* first instruction, in bytes from CompiledShader.code */
  uint32_t codeLength; /* bytes; 0 marks a function without a body, which CALL refuses */
} ShaderFunction;

typedef struct CompiledShader {
  uint16_t version;    /* must be 1 */
  uint16_t entryIndex; /* the function a run starts with */
  uint16_t functionCount;
  const ShaderFunction* const* functions; /* functionCount pointers; an entry may be null */
  uint64_t reserved16;
  const StructInfo* const* structTypes; /* indexed by non-negative type codes */
  uint64_t reserved32;
  const uint8_t* code; /* bytecode of all functions */
  uint16_t globalCount;
  const VarInfo* globals;     /* global g lives in value slot g */
  uint16_t hostFunctionCount; /* size of the range that starts at hostFunctionBase */
  uint32_t hostStructMode;    /* 6: CALL of hostFunctionA passes the first word of a block */
  int32_t builtinGlobals[26]; /* globals behind built-in variables 397 to 450; -1 for none */
  int32_t outputGlobal0;      /* global delivered through HostCallbacks.output0; -1 for none */
  int32_t outputGlobal1;      /* global whose component 0 goes to output1; -1 for none */
  int32_t hostFunctionA;      /* function that HostCallbacks.overrideA may take over; -1 */
  int32_t hostFunctionBase;   /* first function served by HostCallbacks.hostFunction; -1 */
  int32_t hostFunctionB;      /* function that HostCallbacks.overrideB may take over; -1 */
  int32_t hostFunctionAType;  /* type of the caller's local handed to overrideA; -1 for none */
  int32_t builtinGlobal300;   /* globals behind built-in variables 300, 303 and 304; -1 */
  int32_t builtinGlobal303;
  int32_t builtinGlobal304;
} CompiledShader;

/* Initial value of every record that is filled by hand, in C and C++: version 1, and bound to
 * nothing. A record of zeros is a trap: in it function 0 is the host's to take over and global 0 is
 * the colour, the depth and every built-in variable, since "none" is -1.
 *   CompiledShader shader = VM_COMPILED_SHADER_INIT; */
#define VM_COMPILED_SHADER_INIT                               \
  {                                                           \
    1, 0, 0, NULL, 0, NULL, 0, NULL, 0, NULL, 0, 0,           \
        {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  \
         -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}, \
        -1, -1, -1, -1, -1, -1, -1, -1, -1                    \
  }

/* ------------------------------------------------------------------------------------------------
 * Records passed to callbacks
 *
 * They live on the library's side for the duration of the call only. Pointers called "inline area"
 * address the 64-byte value of a stack slot: component i is the 32-bit word at byte 4i.
 * --------------------------------------------------------------------------------------------- */

/* LOAD_GLOBAL of a host variable. The host writes the value (varInfo->byteSize bytes) to data: the
 * pushed slot's inline area for a basic variable, the global's own block for an aggregate. */
typedef struct HostVariableRequest {
  void* data;
  const VarInfo* varInfo;
  uint32_t index;  /* of the global */
  uint32_t count;  /* varInfo->count */
  int32_t element; /* top of the index stack, -1 when it is empty */
  uint64_t userData;
} HostVariableRequest;

/* CALL of a function in the host range: S2, S1 and S0 are the caller's top three slots, S0 on top.
 * Results go wherever the host and its compiler agreed, through a and b. */
typedef struct HostFunctionRequest {
  void* a;          /* inline area of S2 */
  void* b;          /* inline area of S1 */
  int32_t function; /* called index minus hostFunctionBase */
  void* args;       /* data of S0's block; null when S0 holds none */
  uint64_t userData;
} HostFunctionRequest;

/* Slot 53: CALL of hostFunctionA and built-in functions 275 and 278. */
typedef struct HostOverrideRequestA {
  uint32_t word;
  void* value;        /* inline area */
  const void* record; /* a structure's data, or null */
  uint64_t userData;
} HostOverrideRequestA;

/* Slot 56: CALL of hostFunctionB and built-in function 276. */
typedef struct HostOverrideRequestB {
  const void* record; /* a structure's data */
  uint32_t mode;      /* 2 from CALL, 1 from built-in function 276 */
  uint64_t userData;
} HostOverrideRequestB;

/* Texture look-ups (slots 50 and 51). */
typedef struct LookupRequest {
  void* result;     /* inline area; the host writes the result's components here */
  uint64_t sampler; /* the shader's sampler value, copied before the call */
  float* coords;    /* coordinate components */
  uint32_t kind;    /* bits 2 to 4 of the instruction's form byte: 0 to 7 */
  uint32_t param;   /* 16 for HOST_LOOKUP_1, 0 for HOST_LOOKUP_2 */
  uint32_t extra;   /* raw word of the third argument when hasExtra is 1, else 0 */
  uint32_t hasExtra;
  uint64_t userData;
} LookupRequest;

/* Built-in function 267. */
typedef struct HostCallRequest267 {
  void* a; /* inline area of S2 */
  void* b; /* inline area of S1 */
  uint32_t word;
  void* block; /* data of S0's block */
  uint64_t userData;
} HostCallRequest267;

/* Built-in functions 293 and 298. */
typedef struct HostCallRequest293 {
  void* a; /* inline area of S1 */
  void* b; /* inline area of S0 */
  uint64_t userData;
} HostCallRequest293;

/* Built-in functions 294, 295 and 296; the result slot is the one behind a. */
typedef struct HostCallRequest294 {
  void* a; /* inline area of S3 */
  void* b; /* inline area of S2 */
  uint32_t word1;
  uint32_t word0;
  uint64_t userData;
} HostCallRequest294;

/* Built-in function 297; the result slot is the one behind a. */
typedef struct HostCallRequest297 {
  void* a; /* inline area of S4 */
  void* b; /* inline area of S3 */
  uint32_t word2;
  uint32_t word1;
  uint32_t word0;
  uint64_t userData;
} HostCallRequest297;

/* ------------------------------------------------------------------------------------------------
 * Host callbacks
 *
 * Any slot may be null: the library then skips the call and the instruction still completes. Only
 * the result of overrideA is used. Calls are synchronous, on the thread that runs the machine. A
 * callback must not run or destroy the machine that called it: running it gives
 * VM_ERR_ALREADY_RUNNING, destroying it does nothing. Callbacks must return (no longjmp, no C++
 * exception through the library).
 * --------------------------------------------------------------------------------------------- */

/* Fills a built-in variable (or transforms a value in place, slots 47 to 49). data: the bytes to
 * fill; count: number of elements; index: top of the index stack or -1. */
typedef void (*VmBuiltinCallback)(void* data, uint32_t count, int32_t index, uint64_t userData);
typedef void (*VmOutput0Callback)(const void* inlineArea, uint64_t userData);
typedef void (*VmOutput1Callback)(float component0, uint64_t userData);
typedef void (*VmLookupCallback)(const LookupRequest* request);
typedef void (*VmHostVariableCallback)(const HostVariableRequest* request);
typedef uint32_t (*VmOverrideACallback)(const HostOverrideRequestA* request);
typedef void (*VmHostFunctionCallback)(const HostFunctionRequest* request);
/* output: 12 bytes, three 32-bit components, zero before the call. */
typedef void (*VmOverrideBCallback)(void* output, const HostOverrideRequestB* request);
typedef void (*VmCall267Callback)(const HostCallRequest267* request);
typedef void (*VmCall293Callback)(const HostCallRequest293* request);
typedef void (*VmCall294Callback)(const HostCallRequest294* request);
typedef void (*VmCall297Callback)(const HostCallRequest297* request);

/* 80 function pointers, 640 bytes; the number in each comment is the slot. builtinN answers
 * LOAD_BUILTIN N. */
typedef struct HostCallbacks {
  VmOutput0Callback output0;             /* 0: end of a run; inline area of outputGlobal0 */
  VmOutput1Callback output1;             /* 1: end of a run; component 0 of outputGlobal1 */
  VmBuiltinCallback builtin417;          /* 2 */
  VmBuiltinCallback builtin416;          /* 3: indexed */
  VmBuiltinCallback builtin382to395[14]; /* 4 to 17: indexed */
  VmBuiltinCallback builtin397;          /* 18: 18 to 42 fill the data of a global's block */
  VmBuiltinCallback builtin399;          /* 19 */
  VmBuiltinCallback builtin401;          /* 20 */
  VmBuiltinCallback builtin402;          /* 21 */
  VmBuiltinCallback builtin405;          /* 22 */
  VmBuiltinCallback builtin407;          /* 23 */
  VmBuiltinCallback builtin408;          /* 24 */
  VmBuiltinCallback builtin411;          /* 25 */
  VmBuiltinCallback builtin432to435[4];  /* 26 to 29: whole array, count is its length */
  VmBuiltinCallback builtin436to439[4];  /* 30 to 33: whole array */
  VmBuiltinCallback builtin440to448[9];  /* 34 to 42: whole array */
  VmBuiltinCallback builtin412;          /* 43 */
  VmBuiltinCallback builtin413;          /* 44 */
  VmBuiltinCallback builtin450;          /* 45: whole array */
  VmBuiltinCallback builtin415;          /* 46: indexed */
  VmBuiltinCallback hostUnary[3];        /* 47 to 49: HOST_UNARY_1 to 3, value in place */
  VmLookupCallback lookup[2];            /* 50, 51: HOST_LOOKUP_1 and 2; 50 also function 277 */
  VmHostVariableCallback hostVariable;   /* 52: LOAD_GLOBAL of a host variable */
  VmOverrideACallback overrideA;         /* 53: CALL hostFunctionA; functions 275 and 278 */
  VmHostFunctionCallback hostFunction;   /* 54: CALL in the host function range */
  VmCall267Callback call267;             /* 55: CALL_BUILTIN 267 */
  VmOverrideBCallback overrideB;         /* 56: CALL hostFunctionB; function 276 */
  VmBuiltinCallback builtin259;          /* 57 */
  VmBuiltinCallback builtin260;          /* 58 */
  VmBuiltinCallback builtin261;          /* 59 */
  VmBuiltinCallback builtin262;          /* 60 */
  VmBuiltinCallback builtin279;          /* 61 */
  VmBuiltinCallback builtin263;          /* 62 */
  VmBuiltinCallback builtin264;          /* 63 */
  VmBuiltinCallback builtin265;          /* 64 */
  VmBuiltinCallback builtin266;          /* 65 */
  VmBuiltinCallback builtin280;          /* 66 */
  VmBuiltinCallback builtin283;          /* 67 */
  VmBuiltinCallback builtin284;          /* 68 */
  VmBuiltinCallback builtin300;          /* 69: data of builtinGlobal300's block, index -1 */
  VmBuiltinCallback builtin301;          /* 70 */
  VmBuiltinCallback builtin302;          /* 71 */
  VmBuiltinCallback builtin303;          /* 72: whole array */
  VmBuiltinCallback builtin304;          /* 73: whole array */
  VmCall293Callback call293;             /* 74 */
  VmCall294Callback call294to296[3];     /* 75 to 77 */
  VmCall297Callback call297;             /* 78 */
  VmCall293Callback call298;             /* 79 */
} HostCallbacks;

/* ------------------------------------------------------------------------------------------------
 * Functions
 * --------------------------------------------------------------------------------------------- */

/* Runs shaders; one per thread. Opaque here, laid open for reading in shadermachine/machine.h. */
typedef struct ShaderMachine ShaderMachine;

typedef struct MachineCreateInfo {
  const HostCallbacks* callbacks; /* copied into the machine; may be null */
} MachineCreateInfo;

/* Handed to every run. */
typedef struct StartupInfo {
  uint64_t userData;   /* passed to every callback of the run */
  uint32_t builtin258; /* value of built-in variable 258 for this run */
  uint32_t timeout;    /* milliseconds until the run ends with VM_ERR_TIMEOUT; 0: no limit */
  uint32_t reserved16; /* not read */
  uint32_t builtin281;
  uint32_t builtin282;
  uint32_t builtin285;
} StartupInfo;

/* Builds the process-wide noise tables. Call once before any machine runs; further and concurrent
 * calls wait and change nothing. Without it noise instructions give the values of a flat noise
 * field. Always returns VM_OK; a later call tries again when memory was short. */
SHADERMACHINE_API VmError vmInitialize(void);

/* Counterpart of vmInitialize(); does nothing and returns VM_OK. The noise tables are freed when
 * the library is unloaded. */
SHADERMACHINE_API VmError vmFinalize(void);

/* Checks, in this order: shader or its functions null (VM_ERR_INVALID_SHADER), version not 1
 * (VM_ERR_NEWER_COMPILER), entryIndex not below functionCount (VM_ERR_INVALID_ENTRY). Reads nothing
 * else; the validator of the toolkit looks at all the rest. */
SHADERMACHINE_API VmError vmCompiledShaderVerify(const CompiledShader* shader);

/* Returns a new machine (about 154 KiB), owned by the caller, or null when memory is short. info
 * and info->callbacks may be null; the callback table is copied. */
SHADERMACHINE_API ShaderMachine* vmShaderMachineCreate(const MachineCreateInfo* info);

/* Frees a machine and everything it holds. Null is accepted. Called from one of the machine's own
 * callbacks it does nothing. Always returns VM_OK. */
SHADERMACHINE_API VmError vmShaderMachineDestroy(ShaderMachine* machine);

/* Runs the shader's entry function once and returns how the run ended. Arguments are checked in
 * this order, with nothing changed on failure: machine null (VM_ERR_INVALID_HANDLE), machine
 * running (VM_ERR_ALREADY_RUNNING), startup null (VM_ERR_NO_STARTUP_INFO), then as
 * vmCompiledShaderVerify(); a null entry function gives VM_ERR_INVALID_ENTRY.
 *
 * After VM_OK and VM_ERR_HALTED the outputs have been delivered through slots 0 and 1. After VM_OK
 * the machine keeps the shader's globals for its next run of the same record; after any other code
 * it forgets the shader and the next run starts from fresh globals. The machine is idle and usable
 * after every code. */
SHADERMACHINE_API VmError vmShaderMachineExecuteShader(ShaderMachine* machine,
                                                       const CompiledShader* shader,
                                                       const StartupInfo* startup);

/* Index of the first global whose flags share a bit with mask and whose name equals name; -1 when
 * nothing matches or an argument or the table is null. flags is widened as a signed 16-bit value,
 * so bit 15 matches every mask bit from 15 upward. */
SHADERMACHINE_API int32_t vmCompiledShaderGetVarId(const CompiledShader* shader, const char* name,
                                                   int32_t mask);

/* Static text of a code; "Unknown error." from VM_ERROR_COUNT upward. Never null. */
SHADERMACHINE_API const char* vmGetErrorString(uint32_t code);

#ifdef __cplusplus
} /* extern "C" */
#endif

SHADERMACHINE_STATIC_ASSERT(var_info_size, sizeof(VarInfo) == 32);
SHADERMACHINE_STATIC_ASSERT(var_info_name, offsetof(VarInfo, name) == 16);
SHADERMACHINE_STATIC_ASSERT(struct_info_size, sizeof(StructInfo) == 24);
SHADERMACHINE_STATIC_ASSERT(struct_info_members, offsetof(StructInfo, members) == 16);
SHADERMACHINE_STATIC_ASSERT(function_size, sizeof(ShaderFunction) == 32);
SHADERMACHINE_STATIC_ASSERT(function_code, offsetof(ShaderFunction, codeOffset) == 24);
SHADERMACHINE_STATIC_ASSERT(shader_size, sizeof(CompiledShader) == 216);
SHADERMACHINE_STATIC_ASSERT(shader_code, offsetof(CompiledShader, code) == 40);
SHADERMACHINE_STATIC_ASSERT(shader_builtins, offsetof(CompiledShader, builtinGlobals) == 72);
SHADERMACHINE_STATIC_ASSERT(shader_output0, offsetof(CompiledShader, outputGlobal0) == 176);
SHADERMACHINE_STATIC_ASSERT(shader_last, offsetof(CompiledShader, builtinGlobal304) == 208);
SHADERMACHINE_STATIC_ASSERT(host_variable_size, sizeof(HostVariableRequest) == 40);
SHADERMACHINE_STATIC_ASSERT(host_function_size, sizeof(HostFunctionRequest) == 40);
SHADERMACHINE_STATIC_ASSERT(override_a_size, sizeof(HostOverrideRequestA) == 32);
SHADERMACHINE_STATIC_ASSERT(override_b_size, sizeof(HostOverrideRequestB) == 24);
SHADERMACHINE_STATIC_ASSERT(lookup_size, sizeof(LookupRequest) == 48);
SHADERMACHINE_STATIC_ASSERT(lookup_kind, offsetof(LookupRequest, kind) == 24);
SHADERMACHINE_STATIC_ASSERT(call_267_size, sizeof(HostCallRequest267) == 40);
SHADERMACHINE_STATIC_ASSERT(call_293_size, sizeof(HostCallRequest293) == 24);
SHADERMACHINE_STATIC_ASSERT(call_294_size, sizeof(HostCallRequest294) == 32);
SHADERMACHINE_STATIC_ASSERT(call_297_size, sizeof(HostCallRequest297) == 40);
SHADERMACHINE_STATIC_ASSERT(callbacks_size, sizeof(HostCallbacks) == 640);
SHADERMACHINE_STATIC_ASSERT(callbacks_unary, offsetof(HostCallbacks, hostUnary) == 8 * 47);
SHADERMACHINE_STATIC_ASSERT(callbacks_variable, offsetof(HostCallbacks, hostVariable) == 8 * 52);
SHADERMACHINE_STATIC_ASSERT(callbacks_last, offsetof(HostCallbacks, call298) == 8 * 79);
SHADERMACHINE_STATIC_ASSERT(startup_size, sizeof(StartupInfo) == 32);
SHADERMACHINE_STATIC_ASSERT(startup_last, offsetof(StartupInfo, builtin285) == 28);

#endif /* SHADERMACHINE_SHADERMACHINE_H */
