#include "image/gfx_imageimpl.h"

#include <mutex>

#include "image/layers/gfx_image_compositor.h"
#include "storage/gfx_image_storage_normal.h"

namespace orvik {

Result<void> ImageImpl::Init(Int width, Int height, const ClassRef& storage, const PixelFormat& format,
                             Block<const std::byte> defaultColor) {
    ImagePixelStorageRef old;
    {
        const std::lock_guard guard(_lock);
        std::swap(old, _storePixels);
    }
    old = nullptr;  // its memory goes before the new one is asked for
    const ClassRef storageClass = storage.IsEmpty() ? ClassRef(storageclasses::kNormal) : storage;
    ImagePixelStorageRef fresh = TRY(storageClass.Create<ImagePixelStorageInterface>());
    TRY(fresh->Init(width, height, format, defaultColor));
    TRY(InitBase(width, height, format, ITYPE::IMAGE));
    const std::lock_guard guard(_lock);
    _storePixels = std::move(fresh);
    return {};
}

Result<void> ImageImpl::AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child, const ImageBaseRef& predecessor) {
    TRY(CheckChild<ImageLayerInterface>(
        branch, {IMAGEHIERARCHY::ALPHA, IMAGEHIERARCHY::LAYER, IMAGEHIERARCHY::DEEPIMAGEDATA}, child));
    return ImageBaseImpl::AddChildren(branch, child, predecessor);
}

ImageImpl::Pixels ImageImpl::GetPixels() const {
    const std::lock_guard guard(_lock);
    return {_storePixels, Get(image::kColorProfile, ColorProfile())};
}

Result<GetPixelHandlerStruct> ImageImpl::GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                         const ColorProfile& profile, GETPIXELHANDLERFLAGS flags,
                                                         const LayerSet& layers) {
    if (layers) {
        const PixelRequest request{format, offsets.empty() ? format->GetChannelOffsets() : offsets, profile, flags};
        return GetSelectedPixelHandler(ImageBaseRef(this), request, layers);
    }
    const Pixels pixels = GetPixels();
    return pixels.storage->GetPixelHandler(format, offsets, pixels.profile, profile, flags);
}

Result<SetPixelHandlerStruct> ImageImpl::SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                         const ColorProfile& profile, SETPIXELHANDLERFLAGS flags) {
    const Pixels pixels = GetPixels();
    const RegionDelegate changed = [self = Ref<ImageImpl>(this)](const UpdateRegion& region) {
        return self->NotifyRegionChanged(region);
    };
    return pixels.storage->SetPixelHandler(format, offsets, pixels.profile, profile, flags, changed);
}

void ImageImpl::FreePixelHandler(GetPixelHandlerStruct& handler) {
    if (const Pixels pixels = GetPixels(); pixels.storage)
        pixels.storage->FreePixelHandler(handler);
    handler.Free();
}

void ImageImpl::FreePixelHandler(SetPixelHandlerStruct& handler) {
    if (const Pixels pixels = GetPixels(); pixels.storage)
        pixels.storage->FreePixelHandler(handler);
    (void)handler.Free();  // no result to return; after the storage there is nothing left to do
}

Result<void> ImageImpl::GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                                     GETPIXELFLAGS flags) {
    return GetPixels().storage->GetComponent(channel, span, destination, stride, flags);
}

Result<void> ImageImpl::SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                                     SETPIXELFLAGS flags) {
    return GetPixels().storage->SetComponent(channel, span, source, stride, flags);
}

Result<void> ImageImpl::DescribeIO(DataSerialize& io) {
    ImagePixelStorageRef storage = GetPixels().storage;
    String storageClass;
    if (storage && !io.IsReading())
        storageClass = TRY(String::Create(storage->GetClassId().GetText()));
    TRY(io.Field("_storePixels", storageClass));
    if (io.IsReading()) {
        storage = nullptr;
        if (!storageClass.IsEmpty()) {
            const Id id = TRY(Id::Create(storageClass.GetText()));
            storage = TRY(ClassRef(id).Create<ImagePixelStorageInterface>());
        }
    }
    if (storage) {
        const auto described = Cast<DataDescriptionObjectInterface>(storage);
        if (!described)
            return FunctionNotImplementedError();
        TRY(described->DescribeIO(io));
    }
    if (!io.IsReading())
        return {};
    if (storage) {
        const ITYPE type = Get(image::kType, ITYPE::IMAGE);  // a layer that is read stays one
        TRY(InitBase(storage->GetWidth(), storage->GetHeight(), storage->GetPixelFormat(), type));
    }
    const std::lock_guard guard(_lock);
    std::swap(_storePixels, storage);  // the old one goes when the lock is open again
    return {};
}

bool ImageImpl::HasPixels() const {
    const std::lock_guard guard(_lock);
    return _storePixels && _storePixels->GetClassId() != storageclasses::kNoData;
}

Ref<PixelRaster> ImageImpl::GetRaster() const {
    const std::lock_guard guard(_lock);
    const auto* normal = dynamic_cast<const ImagePixelStorageNormal*>(_storePixels.GetPointer());
    return normal ? normal->GetRaster() : Ref<PixelRaster>();
}

}  // namespace orvik
