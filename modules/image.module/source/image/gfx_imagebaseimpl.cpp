#include "image/gfx_imagebaseimpl.h"

#include "image/gfx_image_subimage_impl.h"

namespace orvik {

ImageBaseImpl::~ImageBaseImpl() {
    if (_hostObservable) {
        _hostObservable->Disconnect(false);
        _hostObservable->Disconnect(true);
    }
    for (const auto& entry : _subImages)
        Cast<ImageSubImagePartInterface>(entry.value)->DisconnectFromParent();
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

uint64_t ImageBaseImpl::HashOfRectangle::operator()(const DrawRectInt& rectangle) const {
    uint64_t hash = 0;
    for (const Int word : {rectangle.position.x, rectangle.position.y, rectangle.size.width, rectangle.size.height})
        hash = HashPointerBits(static_cast<uint64_t>(word)) + hash * 0x9E3779B97F4A7C15;
    return HashPointerBits(hash);
}

Result<ImageBaseRef> ImageBaseImpl::CreateSubImagePart(const DrawRectInt& rectangle) {
    if (rectangle == DrawRectInt{{0, 0}, {GetWidth(), GetHeight()}})
        return ImageBaseRef(this);
    if (const ImageBaseRef* known = _subImages.Find(rectangle))
        return *known;
    const auto part = TRY(ClassRef(imageclasses::kSubImagePart).Create<ImageSubImagePartInterface>());
    TRY(part->Init(ImageBaseRef(this), rectangle));
    if (_hostObservable)
        TRY(part->ObserveParent(_hostObservable));
    TRY(_subImages.Set(rectangle, part));
    return ImageBaseRef(part);
}

RegionObservable* ImageBaseImpl::ObservableRegionChanged() {
    return _hostObservable ? _hostObservable->GetObservable() : &_observable;
}

Result<void> ImageBaseImpl::NotifyRegionChanged(const UpdateRegion& region) {
    if (_hostObservable)
        return _hostObservable->MarkDirty(this, region);
    Result<void> notified = _observable.Notify(this, region);
    // The host's service would notify the sub-images. An observer may create more of them during this.
    BaseArray<ImageBaseRef> parts;
    for (const auto& entry : _subImages)
        TRY(parts.Append(entry.value));
    for (const ImageBaseRef& part : parts)
        Cast<ImageSubImagePartInterface>(part)->OnParentRegionDirty(region);
    return notified;
}

}  // namespace orvik
