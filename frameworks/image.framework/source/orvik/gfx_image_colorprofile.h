#pragma once
/// @file
/// Colour spaces and colour profiles.

#include "orvik/datatype.h"
#include "orvik/errortypes.h"
#include "orvik/url.h"

namespace orvik {

class PixelFormatInterface;
using PixelFormat = Ref<PixelFormatInterface>;
class OiioProcessorInterface;
using OiioProcessor = Ref<OiioProcessorInterface>;
class ColorSpaceInterface;
using ColorSpace = Ref<ColorSpaceInterface>;
class ColorProfile;
class DataSerialize;

enum class COLORPROFILEINFO : int32_t { DESCRIPTION = 0, MANUFACTURER = 1, MODEL = 2, COPYRIGHT = 3 };
enum class COLORCONVERSIONINTENT : int32_t {
    PERCEPTUAL = 0,
    RELATIVE_COLORIMETRIC = 1,
    SATURATION = 2,
    ABSOLUTE_COLORIMETRIC = 3,
};
enum class COLORCONVERSIONFLAGS : int32_t { NONE = 0, BLACKPOINTCOMPENSATION = 1 };

namespace colorprofiles {
/// Ids of the built-in profiles.
inline constexpr Id kNone{"net.orvik.image.colorprofile.none"};
inline constexpr Id kSrgb{"net.orvik.image.colorprofile.srgb"};
inline constexpr Id kSgrey{"net.orvik.image.colorprofile.sgrey"};
inline constexpr Id kLinearRgb{"net.orvik.image.colorprofile.linear_rgb"};
inline constexpr Id kLinearGrey{"net.orvik.image.colorprofile.linear_grey"};
inline constexpr Id kCmykDefault{"net.orvik.image.colorprofile.cmykdefault"};
inline constexpr Id kYuvDefault{"net.orvik.image.colorprofile.yuvdefault"};

/// The built-in profile of an id; the empty profile for an unknown id or when it cannot be built.
ORVIK_API ColorProfile Get(const Id& id);
}  // namespace colorprofiles

/// The entry behind a `ColorProfile`: an ICC profile with its bytes. Profiles with equal bytes share one entry.
class ColorProfileInterface : public virtual Object {
    ORVIK_INTERFACE(ColorProfileInterface, "net.orvik.image.interface.colorprofile");

public:
    /// The bytes; a profile without stored bytes is serialised first. "no color profile" without a profile.
    virtual Result<Block<const std::byte>> WriteProfileToMemory() const { return Unbound(); }
    virtual Result<void> WriteProfileToFile(const Url& url) const {
        (void)url;
        return Unbound();
    }
    /// "no profile found" without a profile.
    virtual Result<String> GetInfo(COLORPROFILEINFO info) const {
        (void)info;
        return Unbound();
    }
    /// CRC-32C of the bytes.
    virtual uint32_t GetCrc() const { return Unbound(); }
    virtual Bool HasProfile() const { return Unbound(); }
    /// True when a transform for pixels of this format can be built: the colour spaces are equal.
    virtual Bool CheckCompatiblePixelFormat(const PixelFormat& format) const {
        (void)format;
        return Unbound();
    }
    virtual Bool IsMonitorProfileMode() const { return Unbound(); }
    virtual uint64_t GetHashCode() const { return Unbound(); }
    /// From the profile's signature: "RGB ", "GRAY", "CMYK", "YCbr"; empty for anything else.
    virtual ColorSpace GetColorSpace() const;
    virtual String ToString() const { return Unbound(); }
    virtual Result<void> SetMonitorProfileMode(Bool on) {
        (void)on;
        return Unbound();
    }
    /// The library's handle, for transforms; null without a profile.
    virtual void* GetLibraryHandle() const { return Unbound(); }
};

/// A value-like handle on an ICC profile. A default constructed one is the empty profile.
class ORVIK_API ColorProfile {
public:
    ColorProfile() = default;
    explicit ColorProfile(Ref<ColorProfileInterface> entry) : _entry(std::move(entry)) {}

    /// Reads the whole file, then as `OpenProfileFromMemory`.
    static Result<ColorProfile> OpenProfileFromFile(const Url& url);
    /// Copies the bytes. Errors: "mem is nullptr", "found invalid magic number in color profile.",
    /// "cmsOpenProfileFromMem failed.". Every variant of sRGB comes back as the built-in sRGB profile.
    static Result<ColorProfile> OpenProfileFromMemory(Block<const std::byte> bytes);

    /// Samples a colour processor into a profile with the description "\"NAME\". Baked by Orvik OIIO.". The first error
    /// of the processor comes back unchanged.
    static Result<ColorProfile> BakeFromProcessor(const OiioProcessor& processor);

    Result<Block<const std::byte>> WriteProfileToMemory() const;
    Result<void> WriteProfileToFile(const Url& url) const;
    Result<String> GetInfo(COLORPROFILEINFO info) const;
    uint32_t GetCrc() const { return _entry->GetCrc(); }
    Bool HasProfile() const { return _entry->HasProfile(); }
    Bool CheckCompatiblePixelFormat(const PixelFormat& format) const;
    Bool IsMonitorProfileMode() const { return _entry->IsMonitorProfileMode(); }
    uint64_t GetHashCode() const { return _entry->GetHashCode(); }
    ColorSpace GetColorSpace() const;
    Result<void> SetMonitorProfileMode(Bool on) { return _entry->SetMonitorProfileMode(on); }
    /// The description, or "<<no profile>>".
    String ToString() const;
    /// One field "_profile": the bytes, none for the empty profile. Read bytes are opened as by
    /// `OpenProfileFromMemory`; after an error the profile is unchanged.
    Result<void> DescribeIO(DataSerialize& io);

    /// Same entry, or equal bytes. Two empty profiles are equal.
    Bool IsEqual(const ColorProfile& other) const;
    friend bool operator==(const ColorProfile& a, const ColorProfile& b) { return a.IsEqual(b); }
    const Ref<ColorProfileInterface>& GetEntry() const { return _entry; }

private:
    Ref<ColorProfileInterface> _entry;
};

/// What the module publishes as "net.orvik.image.interface.colorprofiles": opens profiles and hands out built-in ones.
class ColorProfilesInterface : public virtual Object {
    ORVIK_INTERFACE(ColorProfilesInterface, "net.orvik.image.interface.colorprofiles");

public:
    virtual Result<ColorProfile> OpenProfileFromMemory(Block<const std::byte> bytes) {
        (void)bytes;
        return Unbound();
    }
    virtual Result<ColorProfile> GetBuiltIn(const Id& id) {
        (void)id;
        return Unbound();
    }
    virtual Result<ColorProfile> BakeProfile(const OiioProcessor& processor) {
        (void)processor;
        return Unbound();
    }
};

/// Says what the numbers of a pixel mean in the broadest terms. Compared by identity.
class ColorSpaceInterface : public virtual Object {
    ORVIK_INTERFACE(ColorSpaceInterface, "net.orvik.image.interface.colorspace");

public:
    /// What integer pixels of this space are assumed to have; an empty handle gives the empty profile.
    virtual ColorProfile GetDefaultNonlinearColorProfile() const { return Unbound(); }
    /// What float pixels of this space are assumed to have.
    virtual ColorProfile GetDefaultLinearColorProfile() const { return Unbound(); }
    virtual Id GetId() const { return Unbound(); }
    String ToString() const { return FormatString("@", GetId()); }
};
inline ColorSpace ColorProfileInterface::GetColorSpace() const { return Unbound(); }

inline constexpr Id kColorSpaceRegistry{"net.orvik.image.registry.colorspaces"};
namespace colorspaces {
inline constexpr Id kRgb{"net.orvik.image.colorspace.rgb"};
inline constexpr Id kGrey{"net.orvik.image.colorspace.grey"};
inline constexpr Id kCmyk{"net.orvik.image.colorspace.cmyk"};
inline constexpr Id kYuv{"net.orvik.image.colorspace.yuv"};
inline constexpr Id kAlpha{"net.orvik.image.colorspace.alpha"};
/// The published space of an id.
ORVIK_API ColorSpace Get(const Id& id);
}  // namespace colorspaces

template <>
inline constexpr const char* kDataTypeName<ColorProfile> = "orvik::ColorProfile";
template <>
inline constexpr const char* kDataTypeName<ColorSpace> = "orvik::ColorSpace";

}  // namespace orvik
