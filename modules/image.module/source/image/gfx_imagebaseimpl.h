#pragma once
/// @file
/// What all image nodes inherit.

#include "session/mediasession_baseimpl.h"

#include "orvik/gfx_image.h"

namespace orvik {

/// Size, format, place in the tree and the region observable. Without pixels: line and component access are not
/// implemented here.
class ImageBaseImpl : public virtual ImageBaseInterface, public MediaBaseImpl {
public:
    ~ImageBaseImpl() override;
    /// Asks the host for an observable. A host without that service leaves the node with the plain list of delegates
    /// behind `ObservableRegionChanged`.
    Result<void> Construct();

    Result<void> InitBase(Int width, Int height, const PixelFormat& format, ITYPE type) override;
    /// Places the child; what may hang where is decided by the overriding classes, see `CheckChild`.
    Result<void> AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                             const ImageBaseRef& predecessor) override;
    Int GetWidth() const override { return _width; }
    Int GetHeight() const override { return _height; }
    Int GetChannelCount() const override { return _format->GetChannelCount(); }
    PixelFormat GetPixelFormat() const override { return _format; }
    void FreePixelHandler(GetPixelHandlerStruct& handler) override { handler.Free(); }
    void FreePixelHandler(SetPixelHandlerStruct& handler) override { (void)handler.Free(); }  // no result to return
    /// Not guarded: the sub-images of a node are made on one thread.
    Result<ImageBaseRef> CreateSubImagePart(const DrawRectInt& rectangle) override;
    RegionObservable* ObservableRegionChanged() override;
    /// The host's observable; null where the host has none.
    const ImageRegionObservableRef& GetHostObservable() const { return _hostObservable; }

protected:
    /// Illegal argument, without text, unless `branch` is one of `branches` and the child implements interface I.
    template <class I>
    static Result<void> CheckChild(IMAGEHIERARCHY branch, std::initializer_list<IMAGEHIERARCHY> branches,
                                   const ImageBaseRef& child) {
        if (std::find(branches.begin(), branches.end(), branch) == branches.end() || !child)
            return IllegalArgumentError();
        if (!Cast<I>(child))
            return IllegalArgumentError();
        return {};
    }
    /// Notifies the observers of this node of a region that changed.
    Result<void> NotifyRegionChanged(const UpdateRegion& region);

private:
    struct HashOfRectangle {
        uint64_t operator()(const DrawRectInt& rectangle) const;
    };

    Int _width = 0, _height = 0;
    PixelFormat _format;
    HashMap<DrawRectInt, ImageBaseRef, HashOfRectangle> _subImages;
    ImageRegionObservableRef _hostObservable;
    RegionObservable _observable;  ///< used only where the host has none
};

}  // namespace orvik
