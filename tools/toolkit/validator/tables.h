// Concern: the record and its tables agree with themselves and with the host contract.
#pragma once

#include "diagnostics.h"

namespace shadermachine::tools {

void checkTables(const ShaderView& view, Diagnostics& diagnostics);

}  // namespace shadermachine::tools
