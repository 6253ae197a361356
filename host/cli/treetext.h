#pragma once
/// @file
/// What is in a picture, as a tree for people.

#include "description.h"

namespace orvik::cli {

/// A line for the picture, one for each node, and one more for the metadata of a node that has some;
/// then a line for each entry of the Exif data.
std::string Draw(const Json& picture, const FileFormat& format);

}  // namespace orvik::cli
