#pragma once
/// @file
/// The contents of a picture as JSON, from which the text tree, the JSON output and the HTML report are made.

#include "json.h"
#include "picture.h"

namespace orvik::cli {

inline constexpr std::string_view kImageKeyPrefix = "net.orvik.image.";

/// The children of all branches, in the order of the branches.
Result<BaseArray<ImageBaseRef>> GetAllChildren(const ImageBaseRef& node);

/// How a layer acts on those below it, in words: "multiply", "50 %", "hidden". Nothing for a plain node.
std::vector<std::string> LookWords(const Json& node);
/// False for a folder, and for a file of sound only.
bool HasPixels(const Json& node);
/// True for a layer that is switched off.
bool IsHidden(const Json& node);

/// Type, name, size, id of the pixel format, profile, metadata, and the children in the same way. An illegal state for
/// a tree deeper than 256 levels.
Result<Json> DescribeNode(const ImageBaseRef& node, int depth = 1);
/// The images, and under "exif" the entries of the Exif data.
/// @param file  the name that the user gave
Result<Json> Describe(const std::string& file, const Picture& picture);

/// "layer", "image".
std::string TypeText(const Json& node);
/// "320 x 200".
std::string SizeText(const Json& node);
/// "rgba.u8".
std::string FormatText(const Json& node);
/// Numbers with six digits.
std::string ValueText(const Json& value);
/// The metadata that no other text of the node shows, as key without its prefix, and value.
std::vector<std::pair<std::string, std::string>> OtherMetadata(const Json& node);

}  // namespace orvik::cli
