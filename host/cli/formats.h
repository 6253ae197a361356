#pragma once
/// @file
/// File formats and pixel formats by the names that a user gives them.

#include "orvik/mediasession_output.h"

namespace orvik::cli {

std::string ToLower(std::string_view asciiText);

/// By format id, short name or suffix, in any case, a suffix also with its dot; common second suffixes too ("tiff",
/// "pct", "aif", "cur"). Null when there is none.
MediaSessionFileFormatHandler FindFormat(std::string_view name);

/// The start of the ids of pixel formats, which texts for people leave out.
inline constexpr std::string_view kPixelFormatPrefix = "net.orvik.image.pixelformat.";

/// By id, by the id without its prefix ("rgb.u8") or by short name ("RGB::U8"), in any case.
/// Errors are illegal argument errors with a text for the user.
Result<PixelFormat> FindPixelFormat(std::string_view name);

}  // namespace orvik::cli
