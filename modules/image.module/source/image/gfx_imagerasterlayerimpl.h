#pragma once
/// @file
/// The raster layer.

#include "image/gfx_imageimpl.h"

namespace orvik {

/// A raster node that may stand below an image: as layer, mask or alpha.
class ImageRasterLayerImpl : public virtual ImageLayerInterface, public ImageImpl {
public:
    /// Takes layers as layers and masks. An alpha belongs to an image.
    Result<void> AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                             const ImageBaseRef& predecessor) override {
        TRY(CheckChild<ImageLayerInterface>(branch, {IMAGEHIERARCHY::LAYER, IMAGEHIERARCHY::MASK}, child));
        // Past the image's own check, which this class replaces.
        // NOLINTNEXTLINE(bugprone-parent-virtual-call)
        return ImageBaseImpl::AddChildren(branch, child, predecessor);
    }
};

}  // namespace orvik
