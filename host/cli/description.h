#pragma once
/// @file
/// What is in a picture, as JSON: the text tree, the JSON output and the HTML report all draw this.

#include "json.h"
#include "picture.h"

namespace orvik::cli {

inline constexpr std::string_view kImageKeyPrefix = "net.orvik.image.";

/// The children of all branches, in the order of the branches.
Result<BaseArray<ImageBaseRef>> GetAllChildren(const ImageBaseRef& node);

/// What a layer does to those below it, in words: "multiply", "50 %", "hidden". Nothing for a plain node.
std::vector<std::string> LookWords(const Json& node);
/// True for a layer that is switched off.
bool IsHidden(const Json& node);

/// Type, name, size, pixel format, profile, metadata, and the children the same way. "rgba.u8" and so on stand under
/// their full ids. An illegal state for a tree deeper than 256 levels.
Result<Json> DescribeNode(const ImageBaseRef& node, int depth = 1);
/// The images, and under "exif" what the Exif data say.
/// @param file  the name that the user gave
Result<Json> Describe(const std::string& file, const Picture& picture);

/// "layer", "image".
std::string TypeText(const Json& node);
/// "320 x 200".
std::string SizeText(const Json& node);
/// "rgba.u8".
std::string FormatText(const Json& node);
/// Six digits of a number are enough for a person.
std::string ValueText(const Json& value);
/// The metadata that no other text of the node tells, as key without its prefix, and value.
std::vector<std::pair<std::string, std::string>> OtherMetadata(const Json& node);

}  // namespace orvik::cli
