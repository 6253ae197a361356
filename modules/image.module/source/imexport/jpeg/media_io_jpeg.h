#pragma once
/// @file
/// JPEG, by libjpeg: pictures in grey, RGB and inks, with colour profile, Exif data, and the further pictures of
/// Multi-Picture files.

#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"

namespace orvik {

namespace jpeg {
inline constexpr Id kFormat{"net.orvik.fileformat.imagejpg"};
inline constexpr Id kStreamClass{"net.orvik.image.class.mediastreamimagelayerjpgimport"};
inline constexpr Id kExifStreamClass{"net.orvik.image.class.mediastreamexifdatajpg"};
inline constexpr Id kModuleInfo{"net.orvik.moduleinfo.jpeglib"};
}  // namespace jpeg

Result<Bool> DetectJpeg(const Url& url, const InputStreamRef& stream);
Result<ObjectRef> MakeJpegImporter();
Result<ObjectRef> MakeJpegExporter();
/// The classes of the streams, and the information about the library.
Result<void> PublishJpegParts(Publisher& publisher);

}  // namespace orvik
