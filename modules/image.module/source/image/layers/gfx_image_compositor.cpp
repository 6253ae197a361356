// Composites layers into one picture.

#include "image/layers/gfx_image_compositor.h"

#include <cstring>

#include "image/layers/gfx_image_compositor_rgba8.h"
#include "pixel/blend/gfx_image_pixelblend_block.h"

namespace orvik {
namespace {

/// Everything between a layer and the caller's line fits the stack-sized buffers of a run, however wide the image is.
constexpr Int kRunPixels = 64;
constexpr size_t kLargestWorkingPixel = 4 * sizeof(double);

/// Formats in which layers and masks are read and blended.
struct WorkingFormats {
    PixelFormat pixels;    ///< RGBA of floats or doubles
    PixelFormat alpha;     ///< one component of the same type
    PixelFormat grey;      ///< for masks that have no alpha: their grey is what counts
    ColorProfile profile;  ///< of the pixels
    BITS pixelStride, maskStride;

    /// The owner's profile when it describes such pixels; else the caller's, so that layers in other inks meet there.
    static WorkingFormats Find(const ImageBaseRef& owner, const PixelRequest& request) {
        WorkingFormats formats;
        formats.pixels = ImagePixelBlendInterface::GetOptimalPixelFormat({&request.format, 1});
        const bool doubles = formats.pixels == PixelFormats::Get(pixelformats::kRgbaF64);
        formats.alpha = PixelFormats::Get(doubles ? pixelformats::kAlphaF64 : pixelformats::kAlphaF32);
        formats.grey = PixelFormats::Get(doubles ? pixelformats::kGreyF64 : pixelformats::kGreyF32);
        formats.pixelStride = formats.pixels->GetBitsPerPixel();
        formats.maskStride = formats.alpha->GetBitsPerPixel();
        formats.profile = owner->Get(image::kColorProfile, ColorProfile());
        const auto fits = [&](const ColorProfile& profile) {
            return profile.HasProfile() && profile.CheckCompatiblePixelFormat(formats.pixels);
        };
        if (!fits(formats.profile) && fits(request.profile))
            formats.profile = request.profile;
        return formats;
    }
};

/// Absent and unreadable count as 1, and so does what is not a number.
Float GetOpacity(const ImageBaseRef& layer) {
    const Float opacity = layer->Get(image::kLayerOpacity, 1.0);
    return opacity >= 0 ? std::min(opacity, 1.0) : opacity < 0 ? 0.0 : 1.0;
}

/// Calls `visit(mask)` for the masks of a node that take effect.
template <class Visit>
Result<void> ForEachMask(const ImageBaseRef& node, GETPIXELHANDLERFLAGS flags, const Visit& visit) {
    if (HasFlag(flags, GETPIXELHANDLERFLAGS::DONTAPPLYMASK))
        return {};
    for (const HierarchyObjectRef& child : node->GetChildren(static_cast<Int>(IMAGEHIERARCHY::MASK))) {
        const auto mask = Cast<ImageBaseInterface>(child);
        if (!mask || !IsLayerEnabled(mask))
            continue;
        // A mask without area is its default colour everywhere, if it has one.
        const bool isEmpty = mask->GetWidth() <= 0 || mask->GetHeight() <= 0;
        if (isEmpty ? mask->Has(image::kLayerMaskDefColor.GetId()) : HasOwnPixels(mask))
            TRY(visit(mask));
    }
    return {};
}

bool HasMask(const ImageBaseRef& node, GETPIXELHANDLERFLAGS flags) {
    bool has = false;
    (void)ForEachMask(node, flags, [&](const ImageBaseRef&) -> Result<void> {  // this visitor does not fail
        has = true;
        return {};
    });
    return has;
}

class LayerCompositor : public Object {
public:
    static Result<Ref<LayerCompositor>> Create(const ImageBaseRef& owner, Block<const ImageBaseRef> layers,
                                               const PixelRequest& request);

    Result<void> Read(const PixelSpan& span, const PixelLine& dst);

    LayerCompositor() = default;

private:
    struct Layer {
        NodeReader reader;
        Placement placement;
        BlendPixelHandlerRef blend;
        Float opacity = 1;
        Int firstMask = 0, endMask = 0;  ///< its own among all masks
    };
    struct Mask {
        NodeReader reader;
        Placement placement;
        BlendPixelHandlerRef apply;
        alignas(8) std::byte outside[sizeof(double)] = {};  ///< one component: its value where it does not lie
    };

    Result<void> AddLayer(const ImageBaseRef& node, GETPIXELHANDLERFLAGS flags);
    Result<void> AddMask(const ImageBaseRef& node);
    Result<void> TryStack(Block<const ImageBaseRef> nodes);
    Result<void> Compose(const PixelSpan& run);
    /// Reads a layer with its masks. @param dst  of the overlap's first pixel
    Result<void> ReadLayer(const Layer& layer, const PixelSpan& run, const Placement::Overlap& overlap,
                           const PixelLine& dst);
    Result<void> ApplyMasks(Int first, Int end, const PixelSpan& run, const PixelLine& pixels);
    PixelLine At(std::byte* buffer, Int pixel) const {
        return {buffer + pixel * _working.pixelStride.GetBytes(), _working.pixelStride};
    }

    Canvas _canvas;
    WorkingFormats _working;
    BaseArray<Layer> _layers;  ///< the bottom first
    BaseArray<Mask> _masks;    ///< those of the layers, in their order, then those of the whole
    Int _firstCommonMask = 0;
    Rgba8Stack _stack;
    bool _usesStack = false;  ///< for lines without gaps
    ConvertPixelFunc _write;
    CONVERTPIXELFLAGS _writeFlags = CONVERTPIXELFLAGS::NONE;
    alignas(64) std::byte _accumulator[kRunPixels * kLargestWorkingPixel];
    alignas(64) std::byte _layerRun[kRunPixels * kLargestWorkingPixel];
    alignas(64) std::byte _maskRun[kRunPixels * sizeof(double)];
};

Result<Ref<LayerCompositor>> LayerCompositor::Create(const ImageBaseRef& owner, Block<const ImageBaseRef> layers,
                                                     const PixelRequest& request) {
    Ref<LayerCompositor> made = TRY(NewObj<LayerCompositor>());
    made->_canvas = Canvas(owner);
    made->_working = WorkingFormats::Find(owner, request);
    TRY(made->_layers.Reserve(static_cast<Int>(layers.size())));
    for (const ImageBaseRef& layer : layers)
        TRY(made->AddLayer(layer, request.flags));
    made->_firstCommonMask = made->_masks.GetCount();
    TRY(ForEachMask(owner, request.flags, [&](const ImageBaseRef& mask) { return made->AddMask(mask); }));

    const WorkingFormats& working = made->_working;
    ColorProfile wanted = request.profile;
    bool convertsProfiles = false;
    if (HasFlag(request.flags, GETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION))
        made->_writeFlags = CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION;
    made->_write = TRY(request.format->GetConvertPixelFunc(
        working.pixels, working.pixels->GetChannelOffsets(), request.offsets,
        working.profile.HasProfile() ? &working.profile : nullptr, &wanted, made->_writeFlags, convertsProfiles));
    if (!convertsProfiles && pixel::IsPlainFormat(request.format, request.offsets, pixelformats::kRgbaU8))
        TRY(made->TryStack(layers));
    return made;
}

Result<void> LayerCompositor::TryStack(Block<const ImageBaseRef> nodes) {
    if (!_masks.IsEmpty())
        return {};
    BaseArray<Float> opacities;
    for (const Layer& layer : _layers)
        TRY(opacities.Append(layer.opacity));
    _usesStack = TRY(_stack.Init(nodes, opacities.ToBlock()));
    return {};
}

Result<void> LayerCompositor::AddLayer(const ImageBaseRef& node, GETPIXELHANDLERFLAGS flags) {
    const ChannelOffsets offsets = _working.pixels->GetChannelOffsets();
    const bool keepsMasks = HasFlag(flags, GETPIXELHANDLERFLAGS::DONTAPPLYMASK);
    Layer layer;
    layer.reader =
        TRY(NodeReader::Create(node, {_working.pixels, offsets, _working.profile,
                                      keepsMasks ? GETPIXELHANDLERFLAGS::DONTAPPLYMASK : GETPIXELHANDLERFLAGS::NONE}));
    layer.placement = Placement(node);
    layer.opacity = GetOpacity(node);
    layer.blend = TRY(GetLayerBlendMode(node)->GetBlendPixelHandler(_working.pixels, offsets, _working.pixels, offsets,
                                                                    layer.opacity));
    layer.firstMask = _masks.GetCount();
    TRY(ForEachMask(node, flags, [&](const ImageBaseRef& mask) { return AddMask(mask); }));
    layer.endMask = _masks.GetCount();
    return _layers.Append(std::move(layer));
}

Result<void> LayerCompositor::AddMask(const ImageBaseRef& node) {
    const ChannelOffsets offsets = _working.pixels->GetChannelOffsets();
    const PixelFormat& format = node->GetPixelFormat()->HasAlpha() ? _working.alpha : _working.grey;
    const ChannelOffsets maskOffsets = format->GetChannelOffsets();
    Mask mask;
    if (HasOwnPixels(node))
        mask.reader = TRY(NodeReader::Create(node, {format, maskOffsets, ColorProfile(), GETPIXELHANDLERFLAGS::NONE}));
    mask.placement = Placement(node);
    mask.apply = TRY(
        blendmodes::Get(blendmodes::kApplyAlpha)
            ->GetBlendPixelHandler(_working.pixels, offsets, _working.alpha, _working.alpha->GetChannelOffsets(), 1.0));
    const uint8_t color = GetMaskDefaultColor(node);
    TRY(format->ConvertPixelFromSlow({mask.outside, _working.maskStride}, 1, {&color, BITS(8)}, GetMaskByteFormat(node),
                                     nullptr, nullptr, CONVERTPIXELFLAGS::NONE));
    return _masks.Append(std::move(mask));
}

Result<void> LayerCompositor::Read(const PixelSpan& span, const PixelLine& dst) {
    const PixelSpan placed = TRY(_canvas.Locate(span));
    if (_usesStack && dst.stride == BITS(32) && dst.phase == 0) {
        _stack.Read(placed, static_cast<uint8_t*>(dst.data));
        return {};
    }
    for (Int done = 0; done < span.count; done += kRunPixels) {
        const Int count = std::min(kRunPixels, span.count - done);
        TRY(Compose({placed.x + done, placed.y, count}));
        TRY(_write(pixel::AdvanceLine(dst, done), count, At(_accumulator, 0), _writeFlags));
    }
    return {};
}

Result<void> LayerCompositor::Compose(const PixelSpan& run) {
    Int next = 0;
    const auto clear = [&] {
        std::memset(_accumulator, 0, static_cast<size_t>((_working.pixelStride * run.count).GetBytes()));
    };
    if (!_layers.IsEmpty() && _layers[0].opacity == 1.0) {
        // A bottom layer at full opacity is read unchanged, whatever its blend mode.
        const Placement::Overlap overlap = _layers[0].placement.Clip(run);
        if (overlap.count < run.count)
            clear();
        TRY(ReadLayer(_layers[0], run, overlap, At(_accumulator, overlap.skip)));
        next = 1;
    } else {
        clear();
    }
    for (; next < _layers.GetCount(); ++next) {
        const Layer& layer = _layers[next];
        const Placement::Overlap overlap = layer.placement.Clip(run);
        if (overlap.count == 0)
            continue;  // transparent here, so what is below stays as it is
        const PixelLine front = At(_layerRun, 0), back = At(_accumulator, overlap.skip);
        TRY(ReadLayer(layer, run, overlap, front));
        TRY(layer.blend(back, back, front, overlap.count, BLENDPIXELFLAGS::NONE));
    }
    return ApplyMasks(_firstCommonMask, _masks.GetCount(), run, At(_accumulator, 0));
}

Result<void> LayerCompositor::ReadLayer(const Layer& layer, const PixelSpan& run, const Placement::Overlap& overlap,
                                        const PixelLine& dst) {
    if (overlap.count == 0)
        return {};
    TRY(layer.reader.Read(overlap.local, dst, GETPIXELFLAGS::NONE));
    return ApplyMasks(layer.firstMask, layer.endMask, {run.x + overlap.skip, run.y, overlap.count}, dst);
}

Result<void> LayerCompositor::ApplyMasks(Int first, Int end, const PixelSpan& run, const PixelLine& pixels) {
    const auto maskBytes = static_cast<size_t>(_working.maskStride.GetBytes());
    const PixelLine maskLine{_maskRun, _working.maskStride};
    for (Int i = first; i < end; ++i) {
        const Mask& mask = _masks[i];
        const Placement::Overlap overlap = mask.placement.Clip(run);
        if (overlap.count < run.count) {
            for (Int pixel = 0; pixel < run.count; ++pixel)
                std::memcpy(_maskRun + static_cast<size_t>(pixel) * maskBytes, mask.outside, maskBytes);
        }
        if (overlap.count > 0)
            TRY(mask.reader.Read(overlap.local, pixel::AdvanceLine(maskLine, overlap.skip), GETPIXELFLAGS::NONE));
        TRY(mask.apply(pixels, pixels, maskLine, run.count, BLENDPIXELFLAGS::NONE));
    }
    return {};
}

struct ReadComposite {
    Ref<LayerCompositor> compositor;
    Result<void> operator()(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS) const {
        return compositor->Read(span, dst);
    }
};

/// Two pixels that share a chroma cannot be parted where a layer begins; only whole lines of them are read directly.
bool IsReadDirectly(const ImageBaseRef& owner, const ImageBaseRef& layer, const PixelRequest& request) {
    return GetOpacity(layer) == 1.0 && !HasMask(layer, request.flags) && !HasMask(owner, request.flags) &&
           (request.format->GetPackedPixelCount() <= 1 || Canvas(owner).IsCoveredBy(layer));
}

}  // namespace

Result<GetPixelHandlerStruct> GetSelectedPixelHandler(const ImageBaseRef& owner, const PixelRequest& request,
                                                      const LayerSet& layers) {
    const LayerSelection selection = TRY(SelectLayers(owner, layers));
    switch (selection.kind) {
        case LayerSelection::Kind::OwnPixels:
            return owner->GetPixelHandler(request.format, request.offsets, request.profile, request.flags, LayerSet());
        case LayerSelection::Kind::SingleNode:
            return GetPlacedPixelHandler(owner, selection.nodes[0], request);
        case LayerSelection::Kind::Layers:
            break;
    }
    if (selection.nodes.GetCount() == 1 && IsReadDirectly(owner, selection.nodes[0], request))
        return GetPlacedPixelHandler(owner, selection.nodes[0], request);
    const Ref<LayerCompositor> compositor = TRY(LayerCompositor::Create(owner, selection.nodes.ToBlock(), request));
    GetPixelHandlerStruct handler;
    handler.read = ReadComposite{compositor};
    return handler;
}

}  // namespace orvik
