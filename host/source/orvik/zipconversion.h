#pragma once
/// @file
/// The host's deflate and inflate, on zlib.

#include "orvik/streamconversion.h"

namespace orvik {

/// Publishes the factories `streamconversions::kZipEncoder` and `kZipDecoder`.
ORVIK_API Result<void> PublishZipConversions(Publisher& publisher);

}  // namespace orvik
