#pragma once
/// @file
/// The service behind `ExifStaticInterface`, on libexif.

#include "orvik/exif.h"

namespace orvik {

/// Publishes the service under its interface id. The caller owns what it opens; the dictionary is made at each
/// call of `GetExifDictionary`.
///
/// The dictionary holds the entries of the picture, of its exposure, its place and its interoperability, but not those
/// of a thumbnail. A single whole number is an Int, a single fraction a Float, everything else a String: several
/// numbers with blanks between them. Entries without a name, without a value or with opaque bytes (maker notes) are
/// left out, and so are fractions over 0. Damaged data give what can be read of them.
ORVIK_API Result<void> PublishExif(Publisher& publisher);

}  // namespace orvik
