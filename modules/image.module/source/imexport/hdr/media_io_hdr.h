#pragma once
/// @file
/// Radiance HDR: pixels of three mantissas and a shared exponent.
///
/// A file is lines of text, the last of which gives the size, and rows of pixels. A row is either flat, four bytes per
/// pixel, or a four-byte head followed by its red, green, blue and exponent planes in runs.

#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"

namespace orvik {

namespace hdr {

inline constexpr Id kFormat{"net.orvik.fileformat.imagehdr"};
inline constexpr Id kPixelFormat{"net.orvik.image.pixelformat.rgb.rgbe"};

inline constexpr std::string_view kProgramMark = "#?";
inline constexpr std::string_view kFormatLine = "FORMAT=32-bit_rle_rgbe";

inline constexpr Int kPixelBytes = 4, kPlanes = 4;

/// A row in runs begins with two bytes of this value, then its width, high byte first.
inline constexpr uint8_t kRunsMark = 2;
inline constexpr Int kRowHeadBytes = 4;
/// Widths that the head can hold. Narrower rows may be in runs too, but are not worth it.
inline constexpr Int kMinRunsWidth = 8, kMaxRunsWidth = 0x7FFF;

/// A code up to this counts literals; above it, the excess counts repetitions of one byte.
inline constexpr uint8_t kMaxLiterals = 128;
inline constexpr Int kMaxRun = 127;

}  // namespace hdr

Result<Bool> DetectHdr(const Url& url, const InputStreamRef& stream);
Result<ObjectRef> MakeHdrImporter();
Result<ObjectRef> MakeHdrExporter();

}  // namespace orvik
