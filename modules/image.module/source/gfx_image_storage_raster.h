#pragma once
/// @file
/// What the storages share: how one raster lies in memory, span checks, and the making of line handlers.

#include "orvik/gfx_image_storage.h"

namespace orvik {

/// One raster: its size, its format and, when allocated, its pixels in one block without any padding. Handlers hold the
/// raster that they were made for, so that a storage can be given another size while they are in use.
class PixelRaster : public Object {
public:
    /// Describes a raster and allocates no pixels.
    /// Errors: illegal argument for a null format or a negative size, out of memory when a line cannot be counted.
    static Result<Ref<PixelRaster>> Create(Int width, Int height, const PixelFormat& format);
    /// Zeroed pixels. Out of memory also when the block would exceed the bound on decoded buffers.
    Result<void> AllocatePixels();

    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    Int GetBytesPerLine() const { return _bytesPerLine; }
    Int GetChannelCount() const { return _channelCount; }
    BITS GetBitsPerPixel() const { return _bitsPerPixel; }
    const PixelFormat& GetFormat() const { return _format; }
    /// Start bit of each channel and, last, the bits per pixel.
    ChannelOffsets GetChannelOffsets() const { return _channelOffsets.ToBlock(); }
    Block<std::byte> GetPixels() { return _data.ToBlock(); }
    Block<const std::byte> GetPixels() const { return _data.ToBlock(); }

    /// Illegal argument, without text, for a span that is not inside the raster.
    Result<void> CheckSpan(const PixelSpan& span, const SourceLocation& where = SourceLocation::current()) const {
        if (span.x < 0 || span.y < 0 || span.count < 0 || span.y >= _height || span.x > _width - span.count)
            return IllegalArgumentError(where);
        return {};
    }
    /// The run that starts at a pixel. Only after `CheckSpan`, on an allocated raster.
    PixelLine GetLine(Int x, Int y) {
        const Int bit = x * _bitsPerPixel.GetBits();
        return {_data.GetFirst() + y * _bytesPerLine + (bit >> 3), _bitsPerPixel, static_cast<int>(bit & 7)};
    }

private:
    Int _width = 0, _height = 0;
    Int _bytesPerLine = 0;
    Int _channelCount = 0;
    BITS _bitsPerPixel;
    BaseArray<BITS> _channelOffsets;  ///< a copy: a format made at run time can still grow
    PixelFormat _format;
    BaseArray<std::byte> _data;
};

/// Size, format and handlers of the storages whose pixels lie in one raster or nowhere.
class ImagePixelStorageRasterBase : public ImagePixelStorageInterface {
public:
    Int GetWidth() const override { return _width; }
    Int GetHeight() const override { return _height; }
    Int GetChannelCount() const override { return _raster ? _raster->GetChannelCount() : 0; }
    PixelFormat GetPixelFormat() const override { return _raster ? _raster->GetFormat() : PixelFormat(); }
    void FreePixelHandler(GetPixelHandlerStruct& handler) override { handler.Free(); }
    void FreePixelHandler(SetPixelHandlerStruct& handler) override { (void)handler.Free(); }  // nobody to tell

protected:
    /// The conversion of what lies here into a caller's format.
    Result<ConvertPixelFunc> MakeReadConversion(const PixelFormat& format, ChannelOffsets offsets,
                                                const ColorProfile& storedProfile, const ColorProfile& profile,
                                                CONVERTPIXELFLAGS flags) const;
    /// The conversion of a caller's pixels into what lies here.
    Result<ConvertPixelFunc> MakeWriteConversion(const PixelFormat& format, ChannelOffsets offsets,
                                                 const ColorProfile& storedProfile, const ColorProfile& profile,
                                                 CONVERTPIXELFLAGS flags) const;

    Int _width = 0, _height = 0;
    Ref<PixelRaster> _raster;
};

/// The one flag that handlers and conversions have in common.
template <class E>
constexpr CONVERTPIXELFLAGS ToConvertFlags(E flags) {
    return HasFlag(flags, E::FORCECOLORPROFILECONVERSION) ? CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION
                                                          : CONVERTPIXELFLAGS::NONE;
}

}  // namespace orvik
