// Whether the C library is one for which c_library.h has been proven right.
#pragma once

namespace shadermachine::batch {

extern const bool cLibraryIsProven;

}  // namespace shadermachine::batch
