#pragma once
/// @file
/// BMP, the Windows bitmap, in all generations of its header.
///
/// A file is a 14-byte file header, an info header whose first word is its own size and so identifies the generation,
/// optional colour masks or palette, and bottom-up rows, each padded to a multiple of four bytes. Numbers are little
/// endian. 300 dpi count as 11808 pixels per metre.

#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"

namespace orvik {

namespace bmp {

inline constexpr Id kFormat{"net.orvik.fileformat.imagebmp"};
inline constexpr uint16_t kMagic = 0x4D42;  ///< "BM"
inline constexpr Int kFileHeaderSize = 14;

/// Sizes of the info header.
inline constexpr uint32_t kCoreHeaderSize = 12;
inline constexpr uint32_t kV3Size = 40, kV3MaskSize = 56, kV4Size = 108, kV5Size = 124;
inline constexpr Int kEndpointsSize = 36;

/// Values of the colour space type.
inline constexpr uint32_t kSpaceSrgb = 0x73524742;      ///< "sRGB"
inline constexpr uint32_t kSpaceEmbedded = 0x4D424544;  ///< "MBED"

enum class Compression : uint32_t { Rgb = 0, Rle8 = 1, Rle4 = 2, BitFields = 3 };

/// Bytes of one padded row, or -1 on overflow.
constexpr Int RowBytes(Int width, Int bitCount) {
    Int bits = 0;
    return __builtin_mul_overflow(width, bitCount, &bits) || bits > INT64_MAX - 31 ? -1 : (bits + 31) / 32 * 4;
}

}  // namespace bmp

Result<Bool> DetectBmp(const Url& url, const InputStreamRef& stream);
Result<ObjectRef> MakeBmpImporter();
Result<ObjectRef> MakeBmpExporter();

}  // namespace orvik
