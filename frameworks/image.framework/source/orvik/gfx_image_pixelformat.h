#pragma once
/// @file
/// Pixel formats: immutable, shared descriptors of pixel layouts, and conversion between them.

#include "orvik/delegate.h"
#include "orvik/gfx_image_channels.h"
#include "orvik/registrybase.h"

namespace orvik {

class PixelFormatGroupInterface;
using PixelFormatGroup = Ref<PixelFormatGroupInterface>;
template <>
inline constexpr const char* kDataTypeName<PixelFormatGroup> = "orvik::PixelFormatGroup";

enum class CONVERTPIXELFLAGS : int32_t { NONE = 0, FORCECOLORPROFILECONVERSION = 1 };
enum class GETPIXELHANDLERFLAGS : int32_t {
    NONE = 0,
    FORCECOLORPROFILECONVERSION = 1,
    DEEPIMAGE = 2,
    DONTAPPLYMASK = 4,
};
enum class GETPIXELFLAGS : int32_t { NONE = 0, DEEPIMAGE = 2 };
enum class SETPIXELHANDLERFLAGS : int32_t { NONE = 0, FORCECOLORPROFILECONVERSION = 1, DEEPIMAGE = 2 };
enum class SETPIXELFLAGS : int32_t { NONE = 0, DEEPIMAGE = 2 };

/// True when `flags` holds all bits of `bit`.
template <class E>
requires std::is_enum_v<E>
constexpr Bool HasFlag(E flags, E bit) {
    return (static_cast<int>(flags) & static_cast<int>(bit)) == static_cast<int>(bit);
}

/// Converts `count` pixels from `src` to `dst`; 0 and below succeed and touch nothing. Holds its state by value, can be
/// called from any thread. An empty delegate means that there is no route.
using ConvertPixelFunc =
    Delegate<Result<void>(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS flags)>;

/// One pixel format. Methods stand in their fixed order.
class PixelFormatInterface : public virtual Object {
    ORVIK_INTERFACE(PixelFormatInterface, "net.orvik.image.interface.pixelformat");

public:
    /// Stores the group and the name; called once, at registration.
    virtual Result<void> Init(const PixelFormatGroup& group, const String& shortName) {
        (void)group, (void)shortName;
        return Unbound();
    }
    /// The channels in memory order.
    virtual Block<const ImageChannel> GetChannels() const { return Unbound(); }
    virtual PixelFormatGroup GetPixelFormatGroup() const { return Unbound(); }
    /// Zeroed memory of `height` lines, each `GetBytesPerLine(width, alignment)` bytes.
    virtual Result<BaseArray<std::byte>> CreatePix(Int width, Int height, Int alignment) const {
        (void)width, (void)height, (void)alignment;
        return Unbound();
    }
    virtual Int GetChannelCount() const { return Unbound(); }
    virtual ChannelOffsets GetChannelOffsets() const { return Unbound(); }
    virtual BITS GetBitsPerPixel() const { return Unbound(); }
    /// @param alignment  bytes, a power of two
    virtual Int GetBytesPerLine(Int width, Int alignment = 1) const {
        (void)width, (void)alignment;
        return Unbound();
    }
    /// Pixels that form one addressable unit: 1, or 2 where two pixels share chroma.
    virtual Int GetPackedPixelCount() const { return Unbound(); }
    virtual Bool HasAlpha() const { return Unbound(); }
    /// The one-channel alpha format of the same component type, and the index of the alpha channel in this format.
    /// Unsupported operation without alpha.
    virtual Result<std::pair<PixelFormat, Int>> GetAlphaPixelFormat() const { return Unbound(); }
    virtual ColorSpace GetColorSpace() const { return Unbound(); }
    /// The profile assumed for pixels of this format.
    virtual ColorProfile GetDefaultColorProfile() const { return Unbound(); }
    /// Finds, or builds and caches, the conversion from `srcFormat` into this format.
    ///
    /// @param srcOffsets, dstOffsets  where the channels lie, in bits
    /// @param srcProfile, dstProfile  may be null; when the colour spaces are equal and nothing is forced, the
    ///                                destination's profile takes on the source's
    /// @param isColorProfileConversion  true on entry forbids the variant with fixed offsets; set to true when the
    ///                                  result converts profiles
    /// Errors: "srcformat must not be nullptr.", "Recursion check", "No pixel conversion found from '@' to '@'",
    /// "Warning: Pixel conversion with different color spaces: @ != @ and incomplete color profiles: @ != @".
    virtual Result<ConvertPixelFunc> GetConvertPixelFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                         ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                                         ColorProfile* dstProfile, CONVERTPIXELFLAGS flags,
                                                         Bool& isColorProfileConversion) const {
        (void)srcFormat, (void)srcOffsets, (void)dstOffsets, (void)srcProfile, (void)dstProfile, (void)flags;
        (void)isColorProfileConversion;
        return Unbound();
    }
    /// Converts one run once; both lines carry their formats' default offsets.
    virtual Result<void> ConvertPixelFromSlow(const PixelLine& dst, Int count, const PixelLineConst& src,
                                              const PixelFormat& srcFormat, const ColorProfile* srcProfile,
                                              ColorProfile* dstProfile, CONVERTPIXELFLAGS flags) const {
        (void)dst, (void)count, (void)src, (void)srcFormat, (void)srcProfile, (void)dstProfile, (void)flags;
        return Unbound();
    }
    /// Compares channel by channel, unused ones excepted.
    /// @param tolerance  in 8-bit steps, negative counts as 0; shifted left by 8 for 16-bit and by 24 for 32-bit
    /// integers
    virtual Bool IsIdenticalPixel(const void* a, const void* b, Int tolerance) const {
        (void)a, (void)b, (void)tolerance;
        return Unbound();
    }
    /// One pixel as text.
    virtual String PixToString(const void* pixel) const {
        (void)pixel;
        return Unbound();
    }
    /// Direct conversion from a source format into this one; an empty delegate when the pair is not known.
    virtual Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                             ChannelOffsets dstOffsets, Bool defaultOffsets) const {
        (void)srcFormat, (void)srcOffsets, (void)dstOffsets, (void)defaultOffsets;
        return Unbound();
    }
    /// Direct conversion out of this format into a destination; an empty delegate when the pair is not known.
    virtual Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                           ChannelOffsets dstOffsets, Bool defaultOffsets) const {
        (void)dstFormat, (void)srcOffsets, (void)dstOffsets, (void)defaultOffsets;
        return Unbound();
    }
    /// For instance "RGBA::U8".
    virtual String GetShortName() const { return Unbound(); }

    /// Format id, for instance "net.orvik.image.pixelformat.rgba.u8".
    virtual Id GetId() const { return Unbound(); }
    String ToString() const { return FormatString("@", GetId()); }
};

/// A family of formats.
class PixelFormatGroupInterface : public virtual Object {
    ORVIK_INTERFACE(PixelFormatGroupInterface, "net.orvik.image.interface.pixelformatgroup");

public:
    /// The formats of the group's registry, in their order.
    virtual Result<BaseArray<PixelFormat>> GetEntries() const { return Unbound(); }
    virtual Id GetId() const { return Unbound(); }
    String ToString() const { return FormatString("@", GetId()); }
};

/// A format made at run time from a list of channels.
class PixelFormatDynamicInterface : public virtual PixelFormatInterface {
    ORVIK_INTERFACE(PixelFormatDynamicInterface, "net.orvik.image.interface.pixelformatdynamic");

public:
    /// "PixelFormat belongs to two different color spaces: @, @" when the channel's space contradicts the others.
    virtual Result<void> AddChannel(const ImageChannel& channel) {
        (void)channel;
        return Unbound();
    }
};
using PixelFormatDynamic = Ref<PixelFormatDynamicInterface>;
template <>
inline constexpr const char* kDataTypeName<PixelFormatDynamic> = "orvik::PixelFormatDynamic";

/// A format whose pixels are indices into a colour table of its own.
///
/// The published instances ("net.orvik.image.pixelformat.indexed.u8bit" and so on) say how indices lie and have no
/// table; each picture gets an instance with its own colours. A codec makes one and describes its stream with it:
/// ```cpp
/// const PixelFormatIndexedColor format = TRY(PixelFormats::CreateIndexed(4, rgb, entryCount));
/// for (Int i = 0; i < entryCount; ++i)
///     TRY(format->SetIndex(i, rgb, entries + 3 * i));     // pixels of any format that converts into the table's
/// TRY(streamFormat.Set(mediaformat::kPixelFormat, format));
/// ```
/// Rows of a file go into pixels unchanged: indices of less than a byte stand with their most significant bit first,
/// those of 16 bits are little-endian words. No index leads outside the table, which is padded with zeros to all that
/// the bits can say. Instances share their id and are told apart by identity; a conversion takes the colours of the
/// moment when it was asked for. The table is filled before the format is handed on: after that, any thread reads it.
/// To read colours back, cast a pixel format to this interface. `Clone` makes an instance with a copy of the table.
class PixelFormatIndexedColorInterface : public virtual PixelFormatInterface {
    ORVIK_INTERFACE(PixelFormatIndexedColorInterface, "net.orvik.image.interface.pixelformatindexedcolor");

public:
    /// Makes a table of `count` entries, all zero, whose colours have format `entryFormat`. It replaces an earlier one.
    /// Illegal argument for no entries or more than the bits can count, and for an entry format of parts of bytes, of
    /// shared chroma or of indices; illegal state for a published instance.
    virtual Result<void> InitColorTable(const PixelFormat& entryFormat, Int count) {
        (void)entryFormat, (void)count;
        return Unbound();
    }
    virtual PixelFormat GetColorTablePixelFormat() const { return Unbound(); }
    /// The entries that `InitColorTable` was asked for; 0 without a table.
    virtual Int GetColorTableSize() const { return Unbound(); }
    /// Sets entry `index` from one pixel of `format`; illegal argument outside the table.
    virtual Result<void> SetIndex(Int index, const PixelFormat& format, const void* pixel) {
        (void)index, (void)format, (void)pixel;
        return Unbound();
    }
    /// Reads entry `index` as one pixel of `format`; illegal argument outside the table.
    virtual Result<void> GetIndex(Int index, const PixelFormat& format, void* pixel) const {
        (void)index, (void)format, (void)pixel;
        return Unbound();
    }
};
using PixelFormatIndexedColor = Ref<PixelFormatIndexedColorInterface>;
template <>
inline constexpr const char* kDataTypeName<PixelFormatIndexedColor> = "orvik::PixelFormatIndexedColor";

/// What the module publishes as "net.orvik.image.interface.pixelformats".
class PixelFormatsInterface : public virtual Object {
    ORVIK_INTERFACE(PixelFormatsInterface, "net.orvik.image.interface.pixelformats");

public:
    virtual Result<PixelFormat> FindOrCreatePixelFormat(Block<const ImageChannel> channels) {
        (void)channels;
        return Unbound();
    }
    /// The format made at run time that an id describes, see `PixelFormats::Get`. Illegal argument "Illegal pixel
    /// format: @." for an id that describes none.
    virtual Result<PixelFormat> FindOrCreatePixelFormatById(const Id& id) {
        (void)id;
        return Unbound();
    }
};

/// Registry of the groups; each group has a registry of its formats.
inline constexpr Id kPixelFormatRegistry{"net.orvik.image.registry.pixelformats"};

namespace PixelFormats {
/// The published format of an id, for instance "net.orvik.image.pixelformat.rgba.u8"; unresolved for an unknown one.
/// Every format is also a published object under its id. The id of a format made at run time lists its channels, for
/// instance "net.orvik.image.pixelformat.red.u8_depth.f32", so that the format is found where it has not been made yet.
ORVIK_API PixelFormat Get(const Id& id);
/// The shared format with exactly these channels: a fixed one where the catalogue has it, else one made at run time,
/// which then stands in the registry "net.orvik.image.registry.dynamic".
/// "FindOrCreatePixelFormat() needs at least 1 channel." for an empty list. Failures are remembered too.
ORVIK_API Result<PixelFormat> FindOrCreatePixelFormat(Block<const ImageChannel> channels);
/// A new indexed format with a table of `count` entries, all zero, of `entryFormat`.
/// @param width  bits of an index: 1 to 8, or 16; illegal argument else. Other errors as `InitColorTable`.
ORVIK_API Result<PixelFormatIndexedColor> CreateIndexed(Int width, const PixelFormat& entryFormat, Int count);
/// Every registered format, group by group in the order of registration: those of the module, then those made at run
/// time.
ORVIK_API Result<BaseArray<PixelFormat>> GetAll();
}  // namespace PixelFormats

/// Ids of the formats that code asks for by name.
namespace pixelformats {
inline constexpr Id kRgbU8{"net.orvik.image.pixelformat.rgb.u8"};
inline constexpr Id kRgbU16{"net.orvik.image.pixelformat.rgb.u16"};
inline constexpr Id kRgbF32{"net.orvik.image.pixelformat.rgb.f32"};
inline constexpr Id kRgbaU8{"net.orvik.image.pixelformat.rgba.u8"};
inline constexpr Id kRgbaU16{"net.orvik.image.pixelformat.rgba.u16"};
inline constexpr Id kRgbaF32{"net.orvik.image.pixelformat.rgba.f32"};
inline constexpr Id kRgbaF64{"net.orvik.image.pixelformat.rgba.f64"};
inline constexpr Id kBgrU8{"net.orvik.image.pixelformat.bgr.u8"};
inline constexpr Id kBgraU8{"net.orvik.image.pixelformat.bgra.u8"};
inline constexpr Id kGreyU8{"net.orvik.image.pixelformat.grey.u8"};
inline constexpr Id kGreyU16{"net.orvik.image.pixelformat.grey.u16"};
inline constexpr Id kGreyaU8{"net.orvik.image.pixelformat.greya.u8"};
inline constexpr Id kGreyaU16{"net.orvik.image.pixelformat.greya.u16"};
inline constexpr Id kAlphaU8{"net.orvik.image.pixelformat.alpha.u8"};
inline constexpr Id kAlphaU16{"net.orvik.image.pixelformat.alpha.u16"};
inline constexpr Id kAlphaF32{"net.orvik.image.pixelformat.alpha.f32"};
inline constexpr Id kAlphaF64{"net.orvik.image.pixelformat.alpha.f64"};
inline constexpr Id kGreyF32{"net.orvik.image.pixelformat.grey.f32"};
inline constexpr Id kGreyF64{"net.orvik.image.pixelformat.grey.f64"};
inline constexpr Id kIndexedU1{"net.orvik.image.pixelformat.indexed.u1bit"};
inline constexpr Id kIndexedU2{"net.orvik.image.pixelformat.indexed.u2bit"};
inline constexpr Id kIndexedU4{"net.orvik.image.pixelformat.indexed.u4bit"};
inline constexpr Id kIndexedU8{"net.orvik.image.pixelformat.indexed.u8bit"};
inline constexpr Id kIndexedU16{"net.orvik.image.pixelformat.indexed.u16bit"};
}  // namespace pixelformats

template <>
inline constexpr const char* kDataTypeName<PixelFormat> = "orvik::PixelFormat";

}  // namespace orvik
