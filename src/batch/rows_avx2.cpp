// Compiled for processors with AVX2.

#define SHADERMACHINE_TARGET avx2
#define SHADERMACHINE_VECTOR_BYTES 32
#include "batch/row_functions.h"

namespace shadermachine::batch {

extern const RowFunctions kAvx2Rows;
const RowFunctions kAvx2Rows = avx2::kRowFunctions;

}  // namespace shadermachine::batch
