#pragma once
/// @file
/// What the storages share: the memory layout of a raster, span checks, and the creation of line handlers.

#include "orvik/gfx_image_storage.h"

namespace orvik {

/// One raster: its size, its format and, when allocated, its pixels in one block without any padding. Handlers hold the
/// raster that they were made for, so that a storage can be given another size while they are in use.
///
/// The channels of a pixel lie together, or each in a plane of its own, one plane behind the other. Conversions see the
/// difference only in two numbers: where the channels start, and how far apart pixels are.
class PixelRaster : public Object {
public:
    /// Describes a raster whose channels lie together, and allocates no pixels.
    /// Errors: illegal argument for a null format or a negative size, out of memory when a line cannot be counted.
    static Result<Ref<PixelRaster>> Create(Int width, Int height, const PixelFormat& format);
    /// As `Create`, with one plane a channel. Further errors: "ImagePixelStoragePlanes doesn't work with pixel format:
    /// @." unless all channels are equally wide, illegal argument when there is not a single byte.
    static Result<Ref<PixelRaster>> CreatePlanes(Int width, Int height, const PixelFormat& format);
    /// Zeroed pixels. Out of memory also when the block would exceed the bound on decoded buffers.
    Result<void> AllocatePixels();
    /// Takes pixels that came from elsewhere; illegal argument unless there are exactly as many bytes as are needed.
    Result<void> AdoptPixels(BaseArray<std::byte> pixels);

    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    /// Of the whole pixels, or of one plane.
    Int GetBytesPerLine() const { return _bytesPerLine; }
    Int GetChannelCount() const { return _channelCount; }
    /// From one pixel to the next: the bits of a pixel, or with planes those of a channel.
    BITS GetPixelDistance() const { return _pixelDistance; }
    const PixelFormat& GetFormat() const { return _format; }
    /// Start bit of each channel and, last, the bits per pixel; with planes the start bit of each plane and their
    /// total.
    ChannelOffsets GetChannelOffsets() const { return _channelOffsets.ToBlock(); }
    Block<std::byte> GetPixels() { return _data.ToBlock(); }
    Block<const std::byte> GetPixels() const { return _data.ToBlock(); }
    BaseArray<std::byte>& GetData() { return _data; }

    /// Illegal argument, without text, for a span that is not inside the raster.
    Result<void> CheckSpan(const PixelSpan& span, const SourceLocation& where = SourceLocation::current()) const {
        if (span.x < 0 || span.y < 0 || span.count < 0 || span.y >= _height || span.x > _width - span.count)
            return IllegalArgumentError(where);
        return {};
    }
    /// The run that starts at a pixel. Only after `CheckSpan`, on an allocated raster.
    PixelLine GetLine(Int x, Int y) {
        const Int bit = x * _pixelDistance.GetBits();
        return {_data.GetFirst() + y * _bytesPerLine + (bit >> 3), _pixelDistance, static_cast<int>(bit & 7)};
    }

private:
    Result<Int> CountBytes() const;
    /// Counts the bytes of a line from the distance between pixels.
    Result<void> SetPixelDistance(BITS distance);

    Int _width = 0, _height = 0;
    Int _bytesPerLine = 0;
    Int _channelCount = 0;
    Int _planeCount = 1;
    BITS _pixelDistance;
    BaseArray<BITS> _channelOffsets;  ///< a copy: a format made at run time can still grow
    PixelFormat _format;
    BaseArray<std::byte> _data;
};

/// Size, format and line access of a storage that has a raster. Storages whose pixels lie elsewhere bring line access
/// of their own and keep the description.
class ImagePixelStorageRasterBase : public ImagePixelStorageInterface {
public:
    Int GetWidth() const override { return _width; }
    Int GetHeight() const override { return _height; }
    Int GetChannelCount() const override { return _raster ? _raster->GetChannelCount() : 0; }
    PixelFormat GetPixelFormat() const override { return _raster ? _raster->GetFormat() : PixelFormat(); }
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& storedProfile, const ColorProfile& profile,
                                                  GETPIXELHANDLERFLAGS flags) override;
    Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& storedProfile, const ColorProfile& profile,
                                                  SETPIXELHANDLERFLAGS flags, const RegionDelegate& region) override;
    void FreePixelHandler(GetPixelHandlerStruct& handler) override { handler.Free(); }
    void FreePixelHandler(SetPixelHandlerStruct& handler) override { (void)handler.Free(); }  // no result to return

protected:
    /// Takes on size and raster, and lets the pixels of before go first: two blocks would be the peak. A null format or
    /// a negative size changes nothing but, for the former, the size. After out of memory the storage is as new.
    /// @param describe  `PixelRaster::Create` or `PixelRaster::CreatePlanes`
    Result<void> InitRaster(Int width, Int height, const PixelFormat& format,
                            Result<Ref<PixelRaster>> (*describe)(Int, Int, const PixelFormat&), bool allocate);
    /// The conversion of the stored pixels into a caller's format.
    /// @param convertsProfiles  optional; set to whether colours change
    Result<ConvertPixelFunc> MakeReadConversion(const PixelFormat& format, ChannelOffsets offsets,
                                                const ColorProfile& storedProfile, const ColorProfile& profile,
                                                CONVERTPIXELFLAGS flags, bool* convertsProfiles = nullptr) const;
    /// The conversion of a caller's pixels into the stored format.
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
