// Compiled for processors with AVX512.

#define SHADERMACHINE_TARGET avx512
#define SHADERMACHINE_VECTOR_BYTES 64
#include "batch/row_functions.h"

namespace shadermachine::batch {

extern const RowFunctions kAvx512Rows;
const RowFunctions kAvx512Rows = avx512::kRowFunctions;

}  // namespace shadermachine::batch
