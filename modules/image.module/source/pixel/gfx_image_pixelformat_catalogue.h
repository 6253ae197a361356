#pragma once
/// @file
/// The catalogue of fixed pixel formats: one table from which ids, names, channels and registrations result.

#include <string_view>

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

/// One hexadecimal digit for each channel, the lowest digit is the first channel in memory: 0 red, 1 green, 2 blue, 3
/// to 6 the inks cyan, magenta, yellow and black, 7 a channel without a meaning of its own, A alpha, B grey, F unused.
using ChannelOrderCode = uint32_t;

constexpr int GetDigit(ChannelOrderCode code, int channel) { return static_cast<int>(code >> (4 * channel)) & 15; }
/// @return the first channel with that digit, or 15 when the code has none
constexpr int FindDigit(ChannelOrderCode code, int channelCount, int digit) {
    for (int i = 0; i < channelCount; ++i) {
        if (GetDigit(code, i) == digit)
            return i;
    }
    return 15;
}

enum class PixelFormatFamily : uint8_t {
    RGB,
    RGBA,
    ARGB,
    RGBX,
    XRGB,
    BGR,
    BGRA,
    ABGR,
    BGRX,
    ALPHA,
    GREY,
    AGREY,
    GREYA,
    CMYK,
    ACMYK,
    CMYK_INV,
    ACMYK_INV,
    YUV,
    INDEXED,
};
inline constexpr int kPixelFormatFamilyCount = 19;

struct FamilyRow {
    const char* name;  ///< as it stands in class ids and short names; in lower case in format ids
    ChannelOrderCode order;
    uint8_t channelCount;        ///< a leading digit 0 (red) cannot be seen in the code
    Id colorSpace;               ///< empty for the indexed family, which takes that of its table
    const char* text;            ///< one pixel as text
    ChannelOrderCode textOrder;  ///< which channels the text takes
    bool inverted = false;       ///< inks stored as 1 - value
};

enum class FormatKind : uint8_t {
    Components,  ///< whole components, converted directly among each other
    Inks,        ///< whole components of a subtractive space
    Packed,      ///< channels of a 16-bit word
    SharedExponent,
    SharedChroma,
    Indexed,
};

struct FormatRow {
    PixelFormatFamily family;
    const char* variant;  ///< as `FamilyRow::name`
    FormatKind kind;
    ComponentType component;  ///< None unless the kind has whole components
    /// Packed: widths of the channels in the family's order, one digit each, the highest bits first. Indexed: the
    /// width.
    uint32_t packing = 0;
};

/// Families in the order of their registration.
const FamilyRow& GetFamilyRow(PixelFormatFamily family);
/// Formats family by family.
Block<const FormatRow> GetFormatRows();

/// "net.orvik.image.pixelformat.rgba.u8"
Result<Id> MakeFormatId(const FormatRow& row);
/// "net.orvik.image.class.pixelformat.RGBA.U8"
Result<Id> MakeFormatClassId(const FormatRow& row);
/// "RGBA::U8"
Result<String> MakeFormatShortName(const FormatRow& row);
/// "net.orvik.image.pixelformat.rgbagroup"
Result<Id> MakeGroupId(const FamilyRow& row);
/// "net.orvik.image.registry.rgba"
Result<Id> MakeGroupRegistryId(const FamilyRow& row);

/// The channel type of a digit; an empty id for a digit without a meaning.
Id GetChannelTypeOfDigit(int digit, bool inverted);

/// Creates an unregistered instance of a row's class.
Result<ObjectRef> CreateFixedPixelFormat(const FormatRow& row);
Result<ObjectRef> CreateDynamicPixelFormat();

/// Channel list to format; also what the alpha formats come from.
Result<void> RegisterDynamicPixelFormats(Publisher& publisher);

inline constexpr Id kPixelFormatBaseClass{"net.orvik.image.class.pixelformatbase"};
inline constexpr Id kPixelFormatDynamicClass{"net.orvik.image.class.pixelformatdynamic"};

/// A group knows its registry, nothing else.
class PixelFormatGroupImpl final : public virtual PixelFormatGroupInterface {
public:
    PixelFormatGroupImpl(const Id& id, const Id& registry) : _id(id), _registry(registry) {}
    Result<BaseArray<PixelFormat>> GetEntries() const override;
    Id GetId() const override { return _id; }

private:
    Id _id, _registry;
};
/// Publishes a group and enters it into the registry of groups.
Result<PixelFormatGroup> RegisterPixelFormatGroup(Publisher& publisher, const Id& id, const Id& registry);

}  // namespace orvik
