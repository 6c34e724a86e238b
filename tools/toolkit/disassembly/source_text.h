// The directives that write a source map down.
#pragma once

#include <shadermachine-tools/source_map.h>

#include <map>
#include <string>
#include <vector>

#include "disassembly/names.h"

namespace shadermachine::tools::disassembly {

// Knows nothing when the map is null. Positions in the assembly text that the record was made from
// are left out: the new text has its own.
class SourceText {
 public:
  SourceText(const SourceMap* map, const RecordHandles& handles);

  // The lines outside of functions.
  std::string outside() const;
  // The line at the head of a function; may be empty.
  std::string signature(size_t function) const;
  // What stands before the instructions at these offsets.
  std::map<uint32_t, std::string> lines(size_t function, const Handles& locals) const;

 private:
  const SourceFunction* function(size_t index) const;
  std::string position(const SourceRow& row) const;
  std::string variable(const SourceVariable& variable, const Handles* locals) const;

  const SourceMap* map_;
  const RecordHandles& handles_;
  std::vector<uint32_t> numbers_;  // of the files in the text; 0: the listing
};

}  // namespace shadermachine::tools::disassembly
