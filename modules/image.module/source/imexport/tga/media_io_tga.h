#pragma once
/// @file
/// TGA: grey, packed, true-colour and colour-mapped pictures, plain or in run-length packets.
///
/// A file is an 18-byte header, a free text (the id), an optional colour map, the pixels in one sequence, and an
/// optional footer that identifies the newer version of the format. Numbers are little endian.

#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"

namespace orvik {

namespace tga {

inline constexpr Id kFormat{"net.orvik.fileformat.imagetga"};
inline constexpr Id kStreamClass{"net.orvik.image.class.mediastreamimagelayertgaimport"};

enum class ImageType : uint8_t {
    Mapped = 1,
    TrueColor = 2,
    Grey = 3,
    MappedRuns = 9,
    TrueColorRuns = 10,
    GreyRuns = 11,
};
/// Bit of the image type that marks run-length packets.
inline constexpr uint8_t kRuns = 8;

/// Bits of the image descriptor.
inline constexpr uint8_t kRightToLeft = 0x10, kTopToBottom = 0x20;

/// Footer signature, in mixed case here; the terminating zero is part of it.
inline constexpr char kSignature[] = "TRUEVISION-XfileHelper.";

}  // namespace tga

Result<Bool> DetectTga(const Url& url, const InputStreamRef& stream);
Result<ObjectRef> MakeTgaImporter();
Result<ObjectRef> MakeTgaExporter();
/// The class of the streams.
Result<void> PublishTgaParts(Publisher& publisher);

}  // namespace orvik
