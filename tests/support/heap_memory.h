// Memory that the process has allocated, to the byte. What is resident would say less: the kernel
// counts it approximately, and a heap keeps what is freed.
#pragma once

#include <malloc.h>

namespace shadermachine::tests {

inline long heapBytes() {
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<long>(heap.uordblks + heap.hblkhd);
}

}  // namespace shadermachine::tests
