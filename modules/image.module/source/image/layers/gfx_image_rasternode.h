#pragma once
/// @file
/// What layers ask of a node beyond its public interface.

#include "orvik/gfx_image.h"

namespace orvik {

class PixelRaster;

/// A node that owns a pixel storage.
class RasterNode {
public:
    /// The node as a raster node; null for one without a storage of its own, such as a texture or a sub-image.
    static const RasterNode* From(const ImageBaseRef& node) {
        return dynamic_cast<const RasterNode*>(node.GetPointer());
    }

    /// False before `Init` and with the storage that only describes.
    virtual bool HasPixels() const = 0;
    /// The block of pixels of a normal storage, which outlives a change of the node; null for any other.
    virtual Ref<PixelRaster> GetRaster() const = 0;

protected:
    ~RasterNode() = default;
};

}  // namespace orvik
