#pragma once
/// @file
/// Small pictures of nodes, for the report.

#include "orvik/gfx_image.h"

namespace orvik::cli {

/// Longest side of a small picture in pixels; smaller nodes keep their size.
inline constexpr Int kThumbnailSize = 192;

/// The pixels of a node, with its alpha, averaged down; in sRGB where the node has a profile.
/// @param layers  null for the node's own pixels, else what is composited
/// @return the bytes of a PNG file; nothing for a node without pixels
/// Errors: those of reading the node, converting its pixels and memory.
Result<BaseArray<std::byte>> MakeThumbnail(const ImageBaseRef& node, const LayerSet& layers);

}  // namespace orvik::cli
