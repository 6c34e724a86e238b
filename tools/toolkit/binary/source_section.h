// The section that says where a shader comes from.
#pragma once

#include <shadermachine-tools/source_map.h>

#include "binary/bytes.h"

namespace shadermachine::tools::binary {

// Without the texts of the files.
void writeSources(ByteWriter& bytes, const SourceMap& sources);
// Keeps to the invariants of the map: bytes that do not are not good.
void readSources(ByteReader& bytes, SourceMap& sources);

}  // namespace shadermachine::tools::binary
