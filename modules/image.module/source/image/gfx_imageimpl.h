#pragma once
/// @file
/// The raster node.

#include "image/gfx_imagebaseimpl.h"
#include "image/layers/gfx_image_rasternode.h"

#include "orvik/lockservices.h"

namespace orvik {

/// Passes line access on to its pixel storage, with its own colour profile as that of the stored pixels. Handlers of
/// one node may be made on several threads; `Init` and metadata belong to one thread.
class ImageImpl : public virtual ImageInterface, public ImageBaseImpl, public RasterNode {
public:
    Result<void> Init(Int width, Int height, const ClassRef& storage, const PixelFormat& format,
                      Block<const std::byte> defaultColor) override;
    /// Takes layers as alphas, layers and deep image data.
    Result<void> AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                             const ImageBaseRef& predecessor) override;
    /// With a layer set the handler reads what the set picks below this node, composited where that is more than one
    /// layer or needs blending; the node's own pixels where it picks nothing that has any. Illegal argument for an
    /// alpha or mask that is not there.
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& profile, GETPIXELHANDLERFLAGS flags,
                                                  const LayerSet& layers) override;
    Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& profile, SETPIXELHANDLERFLAGS flags) override;
    void FreePixelHandler(GetPixelHandlerStruct& handler) override;
    void FreePixelHandler(SetPixelHandlerStruct& handler) override;
    Result<void> GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                              GETPIXELFLAGS flags) override;
    Result<void> SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                              SETPIXELFLAGS flags) override;

    /// The storage is what is serialised: the id of its class, nothing without one, then its own fields. Reading gives
    /// the node the storage's size and format. Function not implemented for a storage that cannot be serialised.
    Result<void> DescribeIO(DataSerialize& io) override;

    bool HasPixels() const override;
    Ref<PixelRaster> GetRaster() const override;

private:
    struct Pixels {
        ImagePixelStorageRef storage;
        ColorProfile profile;
    };
    /// A snapshot of the storage and the profile of its pixels.
    Pixels GetPixels() const;

    mutable SpinLock _lock;
    ImagePixelStorageRef _storePixels;
};

}  // namespace orvik
