// What every system does in its own way: system_posix.cpp and system_windows.cpp.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace shadermachine::tools {

// Standard streams carry bytes; to be called first.
void useBinaryStreams();
bool isTerminal(std::FILE* stream);
// Of the terminal behind standard error; 0 where that is none.
size_t terminalColumns();
// That the machine has; 0 where it cannot be told.
double memoryBytes();
// Whether standard output is a pipe that nobody reads from.
bool readerIsGone();

// A device, a pipe and the like: written into, never replaced.
bool isSpecialFile(const std::string& path);
bool mayWrite(const std::string& path);
// A new file in the folder of the target, with the permissions of the file that it will replace, if
// there is one. Null, with errno set, where none can be made.
std::FILE* createBeside(const std::string& target, std::string& name);
// The file that goes away with the program when a signal ends it; empty: none.
void setUnfinished(const std::string& path);

}  // namespace shadermachine::tools
