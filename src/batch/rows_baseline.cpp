// For every processor of the platform: 16-byte vectors.

#define SHADERMACHINE_VECTOR_BYTES 16
#include "batch/row_functions.h"

namespace shadermachine::batch {

extern const RowFunctions kBaselineRows;
const RowFunctions kBaselineRows = baseline::kRowFunctions;

}  // namespace shadermachine::batch
