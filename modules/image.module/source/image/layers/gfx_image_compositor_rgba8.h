#pragma once
/// @file
/// The short way for the commonest pictures: layers of RGBA bytes, all in the normal mode.

#include "image/layers/gfx_image_compositor_rgba8_kernels.h"
#include "image/layers/gfx_image_placement.h"
#include "storage/gfx_image_storage_raster.h"

namespace orvik {

/// Composes RGBA bytes straight out of the layers' storages. Pixels stay in registers from the bottom to the top, with
/// the very arithmetic of the way through floats, so that the bytes are the same.
class Rgba8Stack {
public:
    /// Takes the layers, the bottom first, if they all lie in normal storages as RGBA bytes and have a mode that lays
    /// one over the other. Their masks are the caller's to look at, and so are profiles.
    /// @return false when there is a layer that must go the long way; only out of memory is an error
    Result<bool> Init(Block<const ImageBaseRef> layers, Block<const Float> opacities);

    /// @param span  in the picture
    /// @param dst   RGBA bytes without gaps
    void Read(const PixelSpan& span, uint8_t* dst);

private:
    struct Layer {
        Ref<PixelRaster> raster;
        Placement placement;
        float opacity;
    };
    BaseArray<Layer> _layers;
    bool _takesBottomStraight = false;
    pixel::Rgba8Kernel _kernel = nullptr;
    BaseArray<pixel::Rgba8Front> _fronts;  ///< the layers of a part of a line, remade for each
};

}  // namespace orvik
