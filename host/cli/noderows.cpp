#include "noderows.h"

#include "picture.h"

namespace orvik::cli {

Result<NodeRows::Reader> NodeRows::Reader::Create(const ImageBaseRef& image, const RowsWish& wish) {
    Reader reader;
    reader._handler = TRY(image->GetPixelHandler(wish.format, wish.format->GetChannelOffsets(), wish.profile,
                                                 GETPIXELHANDLERFLAGS::NONE, wish.layers));
    reader._image = image;
    return reader;
}

NodeRows::Reader& NodeRows::Reader::operator=(Reader&& other) noexcept {
    std::swap(_image, other._image);
    std::swap(_handler, other._handler);
    return *this;
}

NodeRows::Reader::~Reader() {
    if (_handler)
        _image->FreePixelHandler(_handler);
}

Result<NodeRows> NodeRows::Create(const ImageBaseRef& node, const RowsWish& wish) {
    NodeRows rows;
    rows._format = rows._meeting = wish.format;
    rows._width = node->GetWidth();
    rows._height = node->GetHeight();
    if (rows._width == 0 || rows._height == 0)
        return rows;  // nothing to read, and nothing that bounds the other side
    const ImageBaseRef alpha = wish.layers ? ImageBaseRef() : FindAlpha(node);
    if (alpha && wish.format->HasAlpha())
        TRY(rows.OpenAlpha(node, alpha));
    RowsWish colours = wish;
    colours.format = rows._meeting;
    rows._colours = TRY(Reader::Create(node, colours));
    TRY(rows._row.Resize(rows._meeting->GetBytesPerLine(rows._width)));
    if (rows._meeting != rows._format)
        TRY(rows._packed.Resize(rows._format->GetBytesPerLine(rows._width)));
    return rows;
}

Result<void> NodeRows::OpenAlpha(const ImageBaseRef& node, const ImageBaseRef& alpha) {
    if (alpha->GetWidth() != _width || alpha->GetHeight() != _height)
        return IllegalStateError("the alpha is @ x @, its image @ x @", alpha->GetWidth(), alpha->GetHeight(),
                                 node->GetWidth(), node->GetHeight());
    const auto channels = _format->GetChannels();
    if (channels.empty() || channels[0]->GetComponentType() == ComponentType::None)
        _meeting = PixelFormats::Get(pixelformats::kRgbaF32);
    const auto [alphaFormat, alphaIndex] = TRY(_meeting->GetAlphaPixelFormat());
    _alphaStart = _meeting->GetChannelOffsets()[static_cast<size_t>(alphaIndex)].GetBytes();
    RowsWish wish;
    wish.format = alphaFormat;
    _alpha = TRY(Reader::Create(alpha, wish));
    return {};
}

Result<Block<const std::byte>> NodeRows::Read(Int y) {
    const BITS stride = _meeting->GetBitsPerPixel();
    TRY(_colours.Read(y, _width, {_row.GetFirst(), stride}));
    if (_alpha)
        TRY(_alpha.Read(y, _width, {_row.GetFirst() + _alphaStart, stride}));
    if (_meeting == _format)
        return Block<const std::byte>(_row.ToBlock());
    TRY(_format->ConvertPixelFromSlow({_packed.GetFirst(), _format->GetBitsPerPixel()}, _width,
                                      {_row.GetFirst(), stride}, _meeting, nullptr, nullptr, CONVERTPIXELFLAGS::NONE));
    return Block<const std::byte>(_packed.ToBlock());
}

}  // namespace orvik::cli
