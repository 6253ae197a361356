#include "gfx_imagebaseimpl.h"

namespace orvik {

ImageBaseImpl::~ImageBaseImpl() {
    if (_hostObservable) {
        _hostObservable->Disconnect(false);
        _hostObservable->Disconnect(true);
    }
}

Result<void> ImageBaseImpl::Construct() {
    const auto service =
        FindPublished<ImageRegionObservableHandlerInterface>(ImageRegionObservableHandlerInterface::kInterfaceId);
    if (service)
        _hostObservable = TRY(service->Create("_ObservableRegionChanged"));
    return {};
}

Result<void> ImageBaseImpl::InitBase(Int width, Int height, const PixelFormat& format, ITYPE type) {
    _width = width;
    _height = height;
    _format = format;
    TRY(Set(image::kType, type));
    if (_hostObservable)
        TRY(_hostObservable->ResizeImage(width, height));
    return {};
}

Result<void> ImageBaseImpl::AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                                        const ImageBaseRef& predecessor) {
    return AddChild(static_cast<Int>(branch), child, predecessor);
}

Result<ImageBaseRef> ImageBaseImpl::CreateSubImagePart(const DrawRectInt& rectangle) {
    if (rectangle == DrawRectInt{{0, 0}, {GetWidth(), GetHeight()}})
        return ImageBaseRef(this);
    return Unbound();
}

RegionObservable* ImageBaseImpl::ObservableRegionChanged() {
    return _hostObservable ? _hostObservable->GetObservable() : &_observable;
}

Result<void> ImageBaseImpl::NotifyRegionChanged(const UpdateRegion& region) {
    if (_hostObservable)
        return _hostObservable->MarkDirty(this, region);
    return _observable.Notify(this, region);
}

}  // namespace orvik
