#pragma once
/// @file
/// Component types and image channels.

#include "orvik/gfx_basictypes.h"
#include "orvik/gfx_image_colorprofile.h"

namespace orvik {

using Pix8u = uint8_t;
using Pix8s = int8_t;
using Pix16u = uint16_t;
using Pix16s = int16_t;
using Pix32u = uint32_t;
using Pix32s = int32_t;
/// IEEE 754 binary16 in a 16-bit word.
struct Pix16f {
    uint16_t bits = 0;
    bool operator==(const Pix16f&) const = default;
};
using Pix32f = float;
using Pix64f = double;

template <>
inline constexpr const char* kDataTypeName<Pix16f> = "orvik::Pix16f";
namespace datatypes {
inline constexpr Id kPix16f{"net.orvik.image.pix16f"};
}  // namespace datatypes

/// The nine component types in the order of every table of the pixel model. `None` marks channels whose values are no
/// whole components (packed, shared-exponent, chroma-subsampled and indexed pixels).
enum class ComponentType : uint8_t { U8, S8, U16, S16, U32, S32, F16, F32, F64, None };
inline constexpr int kComponentTypeCount = 9;

/// Width in bits: 8, 16, 32 or 64; 0 for None.
constexpr int GetComponentBits(ComponentType type) {
    constexpr int kBits[] = {8, 8, 16, 16, 32, 32, 16, 32, 64, 0};
    return kBits[static_cast<int>(type)];
}
/// "U8", "S8", ... "F64"; "" for None.
constexpr const char* GetComponentName(ComponentType type) {
    constexpr const char* kNames[] = {"U8", "S8", "U16", "S16", "U32", "S32", "F16", "F32", "F64", ""};
    return kNames[static_cast<int>(type)];
}

/// The component type of a data type, or None.
ORVIK_API ComponentType ComponentTypeOf(const DataType* type) noexcept;
/// The data type of a component type, or null for None.
ORVIK_API const DataType* DataTypeOf(ComponentType type) noexcept;

class ImageChannelTypeInterface;
using ImageChannelType = Ref<ImageChannelTypeInterface>;
template <>
inline constexpr const char* kDataTypeName<ImageChannelType> = "orvik::ImageChannelType";
class ImageChannelInterface;
using ImageChannel = Ref<ImageChannelInterface>;
template <>
inline constexpr const char* kDataTypeName<ImageChannel> = "orvik::ImageChannel";

inline constexpr Id kImageChannelTypeRegistry{"net.orvik.image.registry.imagechanneltypes"};

/// One channel: a type combined with a component type. One object exists per combination, so channels are compared by
/// identity.
class ImageChannelInterface : public virtual Object {
    ORVIK_INTERFACE(ImageChannelInterface, "net.orvik.image.interface.imagechannel");

public:
    virtual BITS GetChannelBits() const { return Unbound(); }
    virtual ImageChannelType GetChannelType() const;
    /// Data type of the component; null for an empty handle.
    virtual const DataType* GetDataType() const { return Unbound(); }
    /// Compares one component at each address; see `PixelFormatInterface::IsIdenticalPixel`.
    virtual Bool IsIdenticalComponent(const void* a, const void* b, Int tolerance) const {
        (void)a, (void)b, (void)tolerance;
        return Unbound();
    }
    /// The component type; None for channels of packed and special formats.
    virtual ComponentType GetComponentType() const {
        return IsAbsent() ? ComponentType::None : ComponentType(Unbound());
    }
};

/// What a channel means. One published object a type.
class ImageChannelTypeInterface : public virtual Object {
    ORVIK_INTERFACE(ImageChannelTypeInterface, "net.orvik.image.interface.imagechanneltype");

public:
    /// What a destination channel gets when a conversion has no source for it: the low 8 bits, as a U8 component.
    virtual uint32_t GetDefaultFillValue() const { return Unbound(); }
    /// The colour space of the type; empty for types that are no colour.
    virtual ColorSpace GetColorSpace() const { return Unbound(); }
    /// The shared channel of this type with a component type; illegal argument for a type out of the nine.
    virtual Result<ImageChannel> GetChannel(const DataType* dataType) const {
        (void)dataType;
        return Unbound();
    }
    virtual Id GetId() const { return Unbound(); }
    String ToString() const { return FormatString("@", GetId()); }
};
inline ImageChannelType ImageChannelInterface::GetChannelType() const { return Unbound(); }

/// Ids of the channel types: "net.orvik.image.imagechanneltype." and the name.
namespace channeltypes {
inline constexpr Id kRed{"net.orvik.image.imagechanneltype.red"};
inline constexpr Id kGreen{"net.orvik.image.imagechanneltype.green"};
inline constexpr Id kBlue{"net.orvik.image.imagechanneltype.blue"};
inline constexpr Id kAlpha{"net.orvik.image.imagechanneltype.alpha"};
inline constexpr Id kGrey{"net.orvik.image.imagechanneltype.grey"};
inline constexpr Id kUnknown{"net.orvik.image.imagechanneltype.unknown"};
inline constexpr Id kUnused{"net.orvik.image.imagechanneltype.unused"};
inline constexpr Id kDepth{"net.orvik.image.imagechanneltype.depth"};
inline constexpr Id kDepthBack{"net.orvik.image.imagechanneltype.depthback"};

/// The published type of an id.
ORVIK_API ImageChannelType Get(const Id& id);
/// The channel of a type id and component type; the empty reference for an unknown id or None.
ORVIK_API ImageChannel GetChannel(const Id& typeId, ComponentType component);
}  // namespace channeltypes

}  // namespace orvik
