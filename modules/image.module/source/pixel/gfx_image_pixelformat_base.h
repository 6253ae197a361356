#pragma once
/// @file
/// What all pixel formats have in common: memory of lines, the search for conversions, and the cache of those found.

#include <thread>

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

/// What a cached conversion is known by. A key for a lookup only looks at the caller's arrays; the key in the cache
/// owns copies.
class ConversionKey {
public:
    ConversionKey(const Id& srcId, ChannelOffsets srcOffsets, ChannelOffsets dstOffsets, bool defaultOffsets)
        : _srcId(srcId), _srcOffsets(srcOffsets), _dstOffsets(dstOffsets), _defaultOffsets(defaultOffsets) {}
    Result<ConversionKey> Copy() const;
    uint64_t GetHashCode() const;
    bool operator==(const ConversionKey& other) const;

private:
    Id _srcId;
    ChannelOffsets _srcOffsets, _dstOffsets;
    BaseArray<BITS> _owned;
    bool _defaultOffsets;
};

/// The base of every pixel format class; also published by itself.
class PixelFormatBase : public virtual PixelFormatInterface {
public:
    Result<void> Init(const PixelFormatGroup& group, const String& shortName) override;
    PixelFormatGroup GetPixelFormatGroup() const override { return _group; }
    Result<BaseArray<std::byte>> CreatePix(Int width, Int height, Int alignment) const override;
    BITS GetBitsPerPixel() const override;
    Int GetBytesPerLine(Int width, Int alignment) const override;
    Int GetPackedPixelCount() const override { return 1; }
    Bool HasAlpha() const override { return false; }
    Result<std::pair<PixelFormat, Int>> GetAlphaPixelFormat() const override;
    ColorSpace GetColorSpace() const override;
    ColorProfile GetDefaultColorProfile() const override { return colorprofiles::Get(colorprofiles::kNone); }
    Result<ConvertPixelFunc> GetConvertPixelFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                 ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                                 ColorProfile* dstProfile, CONVERTPIXELFLAGS flags,
                                                 Bool& isColorProfileConversion) const override;
    Result<void> ConvertPixelFromSlow(const PixelLine& dst, Int count, const PixelLineConst& src,
                                      const PixelFormat& srcFormat, const ColorProfile* srcProfile,
                                      ColorProfile* dstProfile, CONVERTPIXELFLAGS flags) const override;
    /// The bases know no partner.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override;
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                   ChannelOffsets dstOffsets, Bool defaultOffsets) const override;
    String GetShortName() const override { return _shortName; }

protected:
    /// This format as a handle.
    PixelFormat GetSelf() const { return PixelFormat(const_cast<PixelFormatBase*>(this)); }

    PixelFormatGroup _group;
    String _shortName;

private:
    /// One (thread, source) pair that is searching for a route into this format.
    struct Search {
        std::thread::id thread;
        const PixelFormatInterface* source;
        bool operator==(const Search&) const = default;
    };
    class SearchScope;

    /// @return the transform, or an empty delegate when the pixels are converted without profiles
    Result<ConvertPixelFunc> ConvertByProfiles(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                               ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                               ColorProfile* dstProfile, CONVERTPIXELFLAGS flags) const;
    Result<ConvertPixelFunc> FindRoute(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                       ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                       ColorProfile* dstProfile, CONVERTPIXELFLAGS flags, bool defaultOffsets,
                                       bool& isColorProfileConversion) const;

    mutable SpinLock _lock;  ///< over the two below; never held while a route is built
    mutable HashMap<ConversionKey, ConvertPixelFunc> _conversions;
    mutable BaseArray<Search> _searches;
};

}  // namespace orvik
