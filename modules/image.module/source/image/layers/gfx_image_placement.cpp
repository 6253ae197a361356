#include "image/layers/gfx_image_placement.h"

#include "pixel/blend/gfx_image_pixelblend_block.h"

namespace orvik {
namespace {

Int ReadCoordinate(const ImageBaseRef& node, const Key<Int>& key) {
    return std::clamp(node->Get(key, 0), -Placement::kFarthest, Placement::kFarthest);
}

/// Reads one node and fills the picture around it.
class PlacedReader : public Object {
public:
    PlacedReader(const Canvas& canvas, const Placement& placement, NodeReader node, ConvertPixelFunc fill)
        : _canvas(canvas), _placement(placement), _node(std::move(node)), _fill(std::move(fill)) {}

    void SetFillColor(uint8_t value) { _fillPixel[0] = std::byte(value); }

    Result<void> Read(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags) const {
        const PixelSpan placed = TRY(_canvas.Locate(span));
        const Placement::Overlap overlap = _placement.Clip(placed);
        const Int behind = overlap.skip + overlap.count;
        if (overlap.count == 0)
            return Fill(dst, span.count);
        TRY(Fill(dst, overlap.skip));
        TRY(_node.Read(overlap.local, Advance(dst, overlap.skip), flags));
        return Fill(Advance(dst, behind), span.count - behind);
    }

private:
    /// Any number of pixels, also where they end inside a byte.
    static PixelLine Advance(const PixelLine& line, Int pixels) {
        const Int bit = line.phase + pixels * line.stride.GetBits();
        return {static_cast<std::byte*>(line.data) + (bit >> 3), line.stride, static_cast<int>(bit & 7)};
    }
    Result<void> Fill(const PixelLine& dst, Int count) const {
        return count > 0 ? _fill(dst, count, {_fillPixel, BITS(0)}, CONVERTPIXELFLAGS::NONE) : Result<void>();
    }

    Canvas _canvas;
    Placement _placement;
    NodeReader _node;
    ConvertPixelFunc _fill;                     ///< from the format of `_fillPixel`, which stands for every pixel
    alignas(16) std::byte _fillPixel[16] = {};  ///< transparent black of four floats, or a mask's one byte
};

struct ReadPlaced {
    Ref<PlacedReader> reader;
    Result<void> operator()(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags) const {
        return reader->Read(span, dst, flags);
    }
};

}  // namespace

Result<NodeReader> NodeReader::Create(const ImageBaseRef& node, const PixelRequest& request) {
    NodeReader reader;
    reader._node = node;
    reader._handler =
        TRY(node->GetPixelHandler(request.format, request.offsets, request.profile, request.flags, LayerSet()));
    if (!reader._handler)
        return UnexpectedError("A node has given an empty handler.");
    return reader;
}

Placement::Placement(const ImageBaseRef& node)
    : _x(ReadCoordinate(node, image::kLayerBoundingBoxX)),
      _y(ReadCoordinate(node, image::kLayerBoundingBoxY)),
      _width(node->GetWidth()),
      _height(node->GetHeight()) {}

Placement::Overlap Placement::Clip(const PixelSpan& span) const {
    const Int x = span.x - _x, y = span.y - _y;
    if (y < 0 || y >= _height)
        return {};
    const Int begin = std::max<Int>(x, 0), end = std::min(x + span.count, _width);
    if (begin >= end)
        return {};
    return {begin - x, end - begin, {begin, y, end - begin}};
}

Canvas::Canvas(const ImageBaseRef& owner)
    : _width(std::min(owner->GetWidth(), Placement::kFarthest)),
      _height(std::min(owner->GetHeight(), Placement::kFarthest)) {
    if (Cast<ImageLayerInterface>(owner)) {
        const Placement placement(owner);
        _x = placement.GetX();
        _y = placement.GetY();
    }
}

Result<PixelSpan> Canvas::Locate(const PixelSpan& span) const {
    if (span.x < 0 || span.y < 0 || span.count < 0 || span.y >= _height || span.x > _width - span.count)
        return IllegalArgumentError();
    return PixelSpan{span.x + _x, span.y + _y, span.count};
}

bool Canvas::IsCoveredBy(const ImageBaseRef& node) const {
    const Placement placement(node);
    return placement.GetX() == _x && placement.GetY() == _y && node->GetWidth() == _width &&
           node->GetHeight() == _height;
}

Result<GetPixelHandlerStruct> GetPlacedPixelHandler(const ImageBaseRef& owner, const ImageBaseRef& node,
                                                    const PixelRequest& request) {
    NodeReader inner = TRY(NodeReader::Create(node, request));
    const Canvas canvas(owner);
    if (canvas.IsCoveredBy(node))
        return inner.Detach();
    const bool isMask = node->GetBranch() == static_cast<Int>(IMAGEHIERARCHY::MASK);
    const PixelFormat fillFormat = isMask ? GetMaskByteFormat(node) : PixelFormats::Get(pixelformats::kRgbaF32);
    ConvertPixelFunc fill =
        TRY(pixel::FindBlendConversion(request.format, request.offsets, fillFormat, fillFormat->GetChannelOffsets()));
    const Ref<PlacedReader> reader =
        TRY(NewObj<PlacedReader>(canvas, Placement(node), std::move(inner), std::move(fill)));
    if (isMask)
        reader->SetFillColor(GetMaskDefaultColor(node));
    GetPixelHandlerStruct handler;
    handler.read = ReadPlaced{reader};
    return handler;
}

uint8_t GetMaskDefaultColor(const ImageBaseRef& mask) {
    return static_cast<uint8_t>(std::clamp<Int>(mask->Get(image::kLayerMaskDefColor, 0), 0, 255));
}

PixelFormat GetMaskByteFormat(const ImageBaseRef& mask) {
    return PixelFormats::Get(mask->GetPixelFormat()->HasAlpha() ? pixelformats::kAlphaU8 : pixelformats::kGreyU8);
}

}  // namespace orvik
