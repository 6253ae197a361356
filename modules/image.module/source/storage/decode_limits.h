#pragma once
/// @file
/// The check for every buffer whose size comes from a file.

#include "orvik/errortypes.h"
#include "orvik/mediasession_limits.h"

namespace orvik {

/// Out of memory for a buffer above the bound, and for a negative size.
inline Result<void> CheckDecodeBuffer(Int bytes) {
    if (bytes < 0 || bytes > GetDecodeBufferLimit())
        return OutOfMemoryError();
    return {};
}

}  // namespace orvik
