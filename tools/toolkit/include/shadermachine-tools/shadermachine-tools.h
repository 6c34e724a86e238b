/* The tools for C: build, assemble, compile, validate, disassemble, read and write shaders. Valid
 * C99 and C++.
 *
 * The library behind it is C++: link its runtime too (with CMake's shadermachine::tools, mark the
 * program's linker language CXX). C++ programs find more in the other headers of this folder.
 *
 * No function keeps anything but what it returns; all may be called from several threads at once.
 */
#ifndef SHADERMACHINE_TOOLS_H
#define SHADERMACHINE_TOOLS_H

#include <shadermachine/shadermachine.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Gets one message at a time, without a final newline; the text is valid during the call only.
 * Messages about a place in a source have three lines: "file:line:column: error: ...", the line of
 * the source, and a caret below the place. */
typedef void (*VmToolsMessageCallback)(const char* message, void* userData);

/* A record and what it lacks. The names may be null. */
typedef struct VmToolsView {
  const CompiledShader* shader;
  uint32_t structCount; /* entries of shader->structTypes */
  uint32_t codeSize;    /* bytes at shader->code */
  const char* const* functionNames;
  const char* const* structNames;
  const void* sources; /* what the tools know about where code comes from; for messages */
} VmToolsView;

/* A shader made by one of the functions below; owns its record and everything that points to. */
typedef struct VmToolsShader VmToolsShader;

/* A value that the source gives a host variable; the host is to use it where it has no other. All
 * components in declaration order: columns of matrices, elements of arrays, members of structures.
 */
typedef struct VmToolsValue {
  const char* name;
  const double* components;
  size_t componentCount;
} VmToolsValue;

/* Version of the library that is linked, as SHADERMACHINE_VERSION_STRING is that of the header. */
const char* vmToolsVersion(void);

/* Assembles `length` bytes of text. Returns null after reporting what is wrong with it. fileName is
 * for messages only. The callback may be null. */
VmToolsShader* vmToolsAssemble(const char* text, size_t length, const char* fileName,
                               VmToolsMessageCallback callback, void* userData);

/* The same for GLSL; docs/glsl.md lists what is supported. Only in the library of
 * shadermachine::glsl, which builds without glslang do not have. */
VmToolsShader* vmToolsCompileGlsl(const char* text, size_t length, const char* fileName,
                                  VmToolsMessageCallback callback, void* userData);

/* Reads a binary file's bytes, which may be anyone's: nothing else is promised of the shader than
 * that the validator can look at it. Returns null after reporting what is wrong. */
VmToolsShader* vmToolsReadBinary(const void* bytes, size_t length, VmToolsMessageCallback callback,
                                 void* userData);

/* Returns the bytes of a binary file for vmToolsFreeText() and their number; null when memory is
 * short. */
char* vmToolsWriteBinary(const VmToolsView* view, size_t* length);

/* What the shader consists of, valid until it is freed. */
VmToolsView vmToolsShaderView(const VmToolsShader* shader);

/* The values that came with the shader, valid until it is freed; null name from the last one on. */
VmToolsValue vmToolsShaderValue(const VmToolsShader* shader, size_t index);

/* Null is accepted. No machine may hold the record any more. */
void vmToolsFreeShader(VmToolsShader* shader);

/* Reports errors and warnings, with file, line and column where the view knows its sources. Returns
 * the number of errors, so 0 for a shader that is safe to run on a host that keeps to the
 * documented contract. Also not 0 when memory is short. */
size_t vmToolsValidate(const VmToolsView* view, VmToolsMessageCallback callback, void* userData);

/* Returns assembly text for vmToolsFreeText(); null when memory is short. annotate: not 0 to add
 * offsets, bytes and stack depths as comments. */
char* vmToolsDisassemble(const VmToolsView* view, int annotate);

/* Null is accepted. */
void vmToolsFreeText(char* text);

/* Where the last run of a machine ended, to be asked before its next one: "Array index out of
 * bounds. (function main, offset 12, VEC_ELEMENT)". Returns the length of the whole text, of which
 * at most capacity - 1 characters and a NUL are written. */
size_t vmToolsDescribeFailure(const ShaderMachine* machine, const VmToolsView* view, VmError error,
                              char* text, size_t capacity);

/* ------------------------------------------------------------------------------------------------
 * Building shaders
 *
 * Ids of functions, globals, locals and labels count from 0; -1 stands for what could not be made,
 * and is refused wherever an id is taken. vmToolsBuild() reports the first thing that went wrong,
 * so nothing else needs to be looked at in between.
 * --------------------------------------------------------------------------------------------- */

typedef struct VmToolsBuilder VmToolsBuilder;

/* A variable, parameter or member; count is 0 for what is no array. */
typedef struct VmToolsVariable {
  const char* name;
  TypeCode type;
  uint16_t flags;
  uint32_t count;
} VmToolsVariable;

/* Null when memory is short. */
VmToolsBuilder* vmToolsCreateBuilder(void);
/* Returns the type code of a structure. */
int32_t vmToolsAddStruct(VmToolsBuilder* builder, const char* name, const VmToolsVariable* members,
                         size_t memberCount);
int32_t vmToolsAddGlobal(VmToolsBuilder* builder, const VmToolsVariable* variable);
int32_t vmToolsAddFunction(VmToolsBuilder* builder, const char* name);
/* All parameters of a function come before its first local; both are numbered together. */
int32_t vmToolsAddParam(VmToolsBuilder* builder, int32_t function, const VmToolsVariable* variable);
int32_t vmToolsAddLocal(VmToolsBuilder* builder, int32_t function, const VmToolsVariable* variable);
/* A place in the code of a function, for jumps; bound to where the code has come so far. */
int32_t vmToolsAddLabel(VmToolsBuilder* builder, int32_t function);
void vmToolsBindLabel(VmToolsBuilder* builder, int32_t function, int32_t label);
/* An instruction: its operands in the order of docs/opcodes.md, without the lengths of lists. Jumps
 * take a label instead. */
void vmToolsEmit(VmToolsBuilder* builder, int32_t function, uint8_t opcode, const int64_t* operands,
                 size_t operandCount);
void vmToolsEmitJump(VmToolsBuilder* builder, int32_t function, uint8_t opcode, int32_t label);
/* The shortest instruction that pushes the number. */
void vmToolsPushFloat(VmToolsBuilder* builder, int32_t function, float value);
/* Outputs, entry function and everything else the record can be bound to, none of it being so at
 * first; tables, their counts and the code are set by vmToolsBuild(). */
CompiledShader* vmToolsBuilderRecord(VmToolsBuilder* builder);
/* Frees the builder in any case; null is accepted. Returns null after reporting what went wrong. */
VmToolsShader* vmToolsBuild(VmToolsBuilder* builder, VmToolsMessageCallback callback,
                            void* userData);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* SHADERMACHINE_TOOLS_H */
