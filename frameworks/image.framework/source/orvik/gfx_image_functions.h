#pragma once
/// @file
/// Functions on images that belong to no class.

#include "orvik/gfx_image.h"

namespace orvik {

/// What the module publishes under its interface id.
class ImageFunctionsInterface : public virtual Object {
    ORVIK_INTERFACE(ImageFunctionsInterface, "net.orvik.image.interface.imagefunctions");

public:
    virtual Result<ImageBaseRef> CreateSubImagePart(const ImageBaseRef& source, const DrawRectInt& rectangle) {
        (void)source, (void)rectangle;
        return Unbound();
    }
};

namespace ImageFunctions {
/// `ImageBaseInterface::CreateSubImagePart` of the source; the null pointer error without one.
ORVIK_API Result<ImageBaseRef> CreateSubImagePart(const ImageBaseRef& source, const DrawRectInt& rectangle);
}  // namespace ImageFunctions

}  // namespace orvik
