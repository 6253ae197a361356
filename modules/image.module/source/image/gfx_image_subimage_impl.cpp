#include "image/gfx_image_subimage_impl.h"

namespace orvik {
namespace {

/// True when [start, start + length) ends inside [0, limit) or before it, and its length makes sense.
bool EndsInside(Int start, Int length, Int limit) {
    Int end = 0;
    return length >= 0 && !__builtin_add_overflow(start, length, &end) && end <= limit;
}

/// The handler of the parent, given back to it with the last copy of the closure that reads through it.
class ParentHandler : public Object {
public:
    ParentHandler(ImageBaseRef parent, GetPixelHandlerStruct handler)
        : _parent(std::move(parent)), _handler(std::move(handler)) {}
    ~ParentHandler() override { _parent->FreePixelHandler(_handler); }
    Result<void> Read(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags) const {
        return _handler.read(span, dst, flags);
    }

private:
    ImageBaseRef _parent;
    GetPixelHandlerStruct _handler;
};

struct ShiftedReader {
    Ref<ParentHandler> parent;
    DrawRectInt rectangle;

    /// To the left a span is tested behind the shift only: pixels of the parent left of the rectangle can be read.
    Result<void> operator()(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags) const {
        Int x = 0;
        if (__builtin_add_overflow(span.x, rectangle.position.x, &x) || x < 0 || span.count < 0 ||
            span.x > rectangle.size.width - span.count || span.y < 0 || span.y >= rectangle.size.height)
            return IllegalArgumentError();
        return parent->Read({x, span.y + rectangle.position.y, span.count}, dst, flags);
    }
};

}  // namespace

Result<void> ImageSubImagePartImpl::Init(const ImageBaseRef& parent, const DrawRectInt& rectangle) {
    if (!EndsInside(rectangle.position.x, rectangle.size.width, parent->GetWidth()) ||
        !EndsInside(rectangle.position.y, rectangle.size.height, parent->GetHeight()))
        return IllegalArgumentError();
    _parent = parent;
    _rectangle = rectangle;
    const ITYPE type = TRY(parent->Get(image::kType));
    return InitBase(rectangle.size.width, rectangle.size.height, parent->GetPixelFormat(), type);
}

Result<void> ImageSubImagePartImpl::ObserveParent(const ImageRegionObservableRef& observable) {
    _registration = TRY(observable->RegisterObserver(ImageRegionObserverRef(this)));
    return {};
}

void ImageSubImagePartImpl::OnParentRegionDirty(const UpdateRegion& region) {
    if (!_parent.Get() || region.width <= 0 || region.height <= 0)
        return;
    // Cut in the parent's coordinates, where the ends of the rectangle are known to be in range.
    const auto end = [](Int start, Int length) {
        Int sum = 0;
        return __builtin_add_overflow(start, length, &sum) ? std::numeric_limits<Int>::max() : sum;
    };
    const Int left = std::max(region.x, _rectangle.position.x), top = std::max(region.y, _rectangle.position.y);
    const Int right = std::min(end(region.x, region.width), _rectangle.position.x + _rectangle.size.width);
    const Int bottom = std::min(end(region.y, region.height), _rectangle.position.y + _rectangle.size.height);
    if (left >= right || top >= bottom)
        return;
    // An observer's error has no way up from here; the parent's own observers have run.
    (void)NotifyRegionChanged({left - _rectangle.position.x, top - _rectangle.position.y, right - left, bottom - top});
}

Result<GetPixelHandlerStruct> ImageSubImagePartImpl::GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                                     const ColorProfile& profile,
                                                                     GETPIXELHANDLERFLAGS flags,
                                                                     const LayerSet& layers) {
    const ImageBaseRef parent = _parent.Get();
    if (!parent)
        return IllegalStateError("Subimage reference to original image lost.");
    GetPixelHandlerStruct inner = TRY(parent->GetPixelHandler(format, offsets, profile, flags, layers));
    Result<Ref<ParentHandler>> shared = NewObj<ParentHandler>(parent, inner);
    if (!shared) {
        parent->FreePixelHandler(inner);
        return std::move(shared).TakeError();
    }
    GetPixelHandlerStruct handler;
    handler.read = TRY(ReadLineFunc::Create(ShiftedReader{std::move(shared).TakeValue(), _rectangle}));
    return handler;
}

}  // namespace orvik
