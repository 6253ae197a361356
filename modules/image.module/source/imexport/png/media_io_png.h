#pragma once
/// @file
/// PNG, by libpng.

#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"

namespace orvik {

namespace png {
inline constexpr Id kFormat{"net.orvik.fileformat.imagepng"};
inline constexpr Id kStreamClass{"net.orvik.image.class.mediastreamimagedataimportpng"};
inline constexpr Id kModuleInfo{"net.orvik.moduleinfo.libpng"};
inline constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
}  // namespace png

Result<Bool> DetectPng(const Url& url, const InputStreamRef& stream);
Result<ObjectRef> MakePngImporter();
Result<ObjectRef> MakePngExporter();
/// The class of the image stream, and the information about the library.
Result<void> PublishPngParts(Publisher& publisher);

}  // namespace orvik
