#pragma once
/// @file
/// Sub-images: read-only views of a rectangle of another node.

#include "image/gfx_imagebaseimpl.h"

namespace orvik {

/// What a node asks of the sub-images that it keeps.
class ImageSubImagePartInterface : public virtual ImageBaseInterface {
    ORVIK_INTERFACE(ImageSubImagePartInterface, "net.orvik.image.interface.imagesubimagepart");

public:
    /// Takes on type and format of the parent, and the size of the rectangle.
    /// Errors: illegal argument, without text, for a rectangle that ends beyond the parent or has a negative size; that
    /// of reading "net.orvik.image.type" from the parent.
    virtual Result<void> Init(const ImageBaseRef& parent, const DrawRectInt& rectangle) {
        (void)parent, (void)rectangle;
        return Unbound();
    }
    /// Starts to observe which regions of the parent change.
    virtual Result<void> ObserveParent(const ImageRegionObservableRef& observable) {
        (void)observable;
        return Unbound();
    }
    /// A region of the parent has changed: notifies the observers of the sub-image of the part that lies inside it, in
    /// its own coordinates.
    virtual void OnParentRegionDirty(const UpdateRegion& region) { (void)region; }
    /// The parent goes.
    virtual void DisconnectFromParent() {}
};

/// Has no pixels: its handlers are those of the parent with shifted coordinates. A handler keeps the parent alive, the
/// sub-image does not. It cannot be written to, nor read by components.
class ImageSubImagePartImpl : public virtual ImageSubImagePartInterface,
                              public ImageBaseImpl,
                              public ImageRegionObserverInterface {
public:
    Result<void> Init(const ImageBaseRef& parent, const DrawRectInt& rectangle) override;
    Result<void> ObserveParent(const ImageRegionObservableRef& observable) override;
    void OnParentRegionDirty(const UpdateRegion& region) override;
    void DisconnectFromParent() override { _registration = nullptr; }
    void OnRegionDirty(const UpdateRegion& region) override { OnParentRegionDirty(region); }

    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& profile, GETPIXELHANDLERFLAGS flags,
                                                  const LayerSet& layers) override;

private:
    WeakRef<ImageBaseInterface> _parent;
    DrawRectInt _rectangle;
    ImageRegionRegistrationRef _registration;
};

}  // namespace orvik
