#pragma once
/// @file
/// The base of formats that keep a list of channels.

#include "pixel/gfx_image_pixelformat_base.h"

namespace orvik {

class PixelFormatChannels : public PixelFormatBase {
public:
    Block<const ImageChannel> GetChannels() const override { return _channels.ToBlock(); }
    Int GetChannelCount() const override { return _channels.GetCount(); }
    ChannelOffsets GetChannelOffsets() const override { return _offsets.ToBlock(); }
    Bool HasAlpha() const override { return _alphaIndex >= 0; }
    Result<std::pair<PixelFormat, Int>> GetAlphaPixelFormat() const override;
    ColorSpace GetColorSpace() const override { return _colorSpace; }
    ColorProfile GetDefaultColorProfile() const override;
    Bool IsIdenticalPixel(const void* a, const void* b, Int tolerance) const override;
    /// Knows this format itself: whole pixels are copied.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override;

protected:
    /// Appends a channel behind the others. Its place counts in whole channels; packed formats set places of their own.
    Result<void> AppendChannel(const ImageChannel& channel);
    bool HasOwnOffsets(ChannelOffsets srcOffsets, ChannelOffsets dstOffsets) const;

    BaseArray<ImageChannel> _channels;
    BaseArray<Id> _types;
    BaseArray<ComponentType> _components;
    BaseArray<BITS> _offsets;  ///< one more than channels
    ColorSpace _colorSpace;
    int _alphaIndex = -1;
};

}  // namespace orvik
