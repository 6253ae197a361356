#pragma once
/// @file
/// The contents of a picture as a text tree.

#include "description.h"

namespace orvik::cli {

/// A line for the picture, one for each node, one more for a node with metadata, and one for each Exif entry.
std::string Draw(const Json& picture, const FileFormat& format);

}  // namespace orvik::cli
