#if __has_include("machine/machine.h")
#error "the internal headers are in reach"
#endif
typedef int nothing;
