#include "batch/c_library_check.h"

#include <cstring>

#if defined(__GLIBC__)
#include <gnu/libc-version.h>
#endif

namespace shadermachine::batch {
namespace {

bool isProven() {
#if defined(__GLIBC__) && defined(__x86_64__)
  return std::strcmp(gnu_get_libc_version(), "2.36") == 0;
#else
  return false;
#endif
}

}  // namespace

const bool cLibraryIsProven = isProven();

}  // namespace shadermachine::batch
