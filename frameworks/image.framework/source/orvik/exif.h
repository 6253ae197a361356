#pragma once
/// @file
/// The host's service that reads the Exif data of pictures.

#include "orvik/datadictionary.h"
#include "orvik/registrybase.h"

namespace orvik {

/// Exif data of a picture.
class ExifInterface : public virtual Object {
    ORVIK_INTERFACE(ExifInterface, "net.orvik.image.interface.exif");

public:
    /// The entries that describe the picture, by name of their tag, for instance "Model": String, Int or Float.
    virtual Result<DataDictionary> GetExifDictionary() const { return Unbound(); }
};
using ExifRef = Ref<ExifInterface>;
template <>
inline constexpr const char* kDataTypeName<ExifRef> = "orvik::ExifRef";

/// Opens Exif data. Published by the host under its interface id; without it, importers leave Exif data out.
class ExifStaticInterface : public virtual Object {
    ORVIK_INTERFACE(ExifStaticInterface, "net.orvik.image.interface.exifstatic");

public:
    /// @param block  the Exif data, with or without the six bytes "Exif", zero, zero in front
    virtual Result<ExifRef> OpenFromMemory(Block<const std::byte> block) const {
        (void)block;
        return Unbound();
    }
    /// Reads the first Exif data of a JPEG file.
    virtual Result<ExifRef> OpenJpgFromUrl(const Url& url) const {
        (void)url;
        return Unbound();
    }
};

}  // namespace orvik
