/* The essentials of the tools for C: assemble, validate and disassemble shaders. Valid C99 and C++.
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

/* A shader made by the assembler; owns its record and everything that points to. */
typedef struct VmToolsShader VmToolsShader;

/* Assembles `length` bytes of text. Returns null after reporting what is wrong with it. fileName is
 * for messages only. The callback may be null. */
VmToolsShader* vmToolsAssemble(const char* text, size_t length, const char* fileName,
                               VmToolsMessageCallback callback, void* userData);

/* What the shader consists of, valid until it is freed. */
VmToolsView vmToolsShaderView(const VmToolsShader* shader);

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

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* SHADERMACHINE_TOOLS_H */
