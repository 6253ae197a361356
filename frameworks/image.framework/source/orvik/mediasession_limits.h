#pragma once
/// @file
/// The process-wide bound on a single decoded buffer: what keeps a header of sixty bytes from asking for the machine.

#include "orvik/datatype.h"

namespace orvik {

/// Largest single buffer of decoded pixels, in bytes. Half of the machine's memory unless it was set.
ORVIK_API Int GetDecodeBufferLimit() noexcept;

/// For all importers and storages of the process. What needs more fails as out of memory.
/// @param bytes  the new bound; 0 and below restore the default
ORVIK_API void SetDecodeBufferLimit(Int bytes) noexcept;

}  // namespace orvik
