#pragma once
/// @file
/// The raster layer.

#include "gfx_imageimpl.h"

namespace orvik {

/// A raster node that may stand below an image: as layer, mask or alpha.
class ImageRasterLayerImpl : public virtual ImageLayerInterface, public ImageImpl {
public:
    /// Takes layers as layers and masks. An alpha belongs to an image.
    Result<void> AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                             const ImageBaseRef& predecessor) override;
};

}  // namespace orvik
