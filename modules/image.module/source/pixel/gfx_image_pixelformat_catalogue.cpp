#include "pixel/gfx_image_pixelformat_catalogue.h"

#include <utility>

#include "base/registration.h"
#include "pixel/gfx_image_pixelformat_base.h"

namespace orvik {
namespace {

using enum PixelFormatFamily;
using enum FormatKind;

constexpr Id kNoColorSpace{};
constexpr const char* kAlphaFirstText = "A @ R @ G @ B @";
constexpr const char* kColorText = "R @ G @ B @";
constexpr const char* kGreyAlphaText = "A @{*} Grey @{*}";

constexpr FamilyRow kFamilies[kPixelFormatFamilyCount] = {
    // name       order    channels  space               text             arguments of the text
    {"RGB", 0x210, 3, colorspaces::kRgb, kColorText, 0x210},
    {"RGBA", 0xA210, 4, colorspaces::kRgb, kAlphaFirstText, 0x210A},
    {"ARGB", 0x210A, 4, colorspaces::kRgb, kAlphaFirstText, 0x210A},
    {"RGBX", 0xF210, 4, colorspaces::kRgb, kColorText, 0x210},
    {"XRGB", 0x210F, 4, colorspaces::kRgb, kColorText, 0x210},
    {"BGR", 0x012, 3, colorspaces::kRgb, kColorText, 0x210},
    {"BGRA", 0xA012, 4, colorspaces::kRgb, kAlphaFirstText, 0x210A},
    {"ABGR", 0x012A, 4, colorspaces::kRgb, kAlphaFirstText, 0x210A},
    {"BGRX", 0xF012, 4, colorspaces::kRgb, kColorText, 0x210},
    {"ALPHA", 0xA, 1, colorspaces::kAlpha, "A @", 0xA},
    {"GREY", 0xB, 1, colorspaces::kGrey, "Grey @", 0xB},
    {"AGREY", 0xBA, 2, colorspaces::kGrey, kGreyAlphaText, 0xBA},
    {"GREYA", 0xAB, 2, colorspaces::kGrey, kGreyAlphaText, 0xBA},
    {"CMYK", 0x6543, 4, colorspaces::kCmyk, "C @ M @ Y @ K @", 0x6543},
    {"ACMYK", 0xA6543, 5, colorspaces::kCmyk, "C @ M @ Y @ K @ A @", 0xA6543},
    {"CMYK_INV", 0x6543, 4, colorspaces::kCmyk, "iC @ iM @ iY @ iK @", 0x6543, true},
    {"ACMYK_INV", 0xA6543, 5, colorspaces::kCmyk, "iC @ iM @ iY @ iK @ iA @", 0xA6543, true},
    {"YUV", 0x777, 3, colorspaces::kYuv, "Y @ U @ Y @ V @", 0x777},
    {"Indexed", 0x7, 1, kNoColorSpace, "Index @", 0x7},
};

constexpr auto U8 = ComponentType::U8, U16 = ComponentType::U16, U32 = ComponentType::U32, S32 = ComponentType::S32,
               F16 = ComponentType::F16, F32 = ComponentType::F32, F64 = ComponentType::F64, None = ComponentType::None;

constexpr FormatRow kFormats[] = {
    {RGB, "U8", Components, U8},
    {RGB, "U16", Components, U16},
    {RGB, "U32", Components, U32},
    {RGB, "S32", Components, S32},
    {RGB, "F16", Components, F16},
    {RGB, "F32", Components, F32},
    {RGB, "F64", Components, F64},
    {RGB, "U565", Packed, None, 0x565},
    {RGB, "U555", Packed, None, 0x555},
    {RGB, "U444", Packed, None, 0x444},
    {RGB, "RGBE", SharedExponent, None},
    {RGBA, "U8", Components, U8},
    {RGBA, "U16", Components, U16},
    {RGBA, "U32", Components, U32},
    {RGBA, "S32", Components, S32},
    {RGBA, "F16", Components, F16},
    {RGBA, "F32", Components, F32},
    {RGBA, "F64", Components, F64},
    {ARGB, "U8", Components, U8},
    {ARGB, "U16", Components, U16},
    {ARGB, "F32", Components, F32},
    {ARGB, "F64", Components, F64},
    {ARGB, "U1555", Packed, None, 0x1555},
    {ARGB, "U4444", Packed, None, 0x4444},
    {RGBX, "U8", Components, U8},
    {XRGB, "U8", Components, U8},
    {BGR, "U8", Components, U8},
    {BGR, "U16", Components, U16},
    {BGR, "F32", Components, F32},
    {BGR, "U565", Packed, None, 0x565},
    {BGR, "U555", Packed, None, 0x555},
    {BGR, "U444", Packed, None, 0x444},
    {BGRA, "U8", Components, U8},
    {BGRA, "U16", Components, U16},
    {BGRA, "F16", Components, F16},
    {BGRA, "F32", Components, F32},
    {ABGR, "U8", Components, U8},
    {ABGR, "U1555", Packed, None, 0x1555},
    {ABGR, "U4444", Packed, None, 0x4444},
    {BGRX, "U8", Components, U8},
    {ALPHA, "U8", Components, U8},
    {ALPHA, "U16", Components, U16},
    {ALPHA, "F16", Components, F16},
    {ALPHA, "F32", Components, F32},
    {ALPHA, "F64", Components, F64},
    {GREY, "U8", Components, U8},
    {GREY, "U16", Components, U16},
    {GREY, "F16", Components, F16},
    {GREY, "F32", Components, F32},
    {GREY, "F64", Components, F64},
    {AGREY, "U8", Components, U8},
    {AGREY, "U16", Components, U16},
    {AGREY, "F16", Components, F16},
    {AGREY, "F32", Components, F32},
    {AGREY, "F64", Components, F64},
    {GREYA, "U8", Components, U8},
    {GREYA, "U16", Components, U16},
    {GREYA, "F16", Components, F16},
    {GREYA, "F32", Components, F32},
    {GREYA, "F64", Components, F64},
    {CMYK, "U8", Inks, U8},
    {CMYK, "U16", Inks, U16},
    {CMYK, "F32", Inks, F32},
    {ACMYK, "U8", Inks, U8},
    {ACMYK, "U16", Inks, U16},
    {ACMYK, "F32", Inks, F32},
    {CMYK_INV, "U8", Inks, U8},
    {CMYK_INV, "U16", Inks, U16},
    {CMYK_INV, "F32", Inks, F32},
    {ACMYK_INV, "U8", Inks, U8},
    {ACMYK_INV, "U16", Inks, U16},
    {ACMYK_INV, "F32", Inks, F32},
    {YUV, "I422A", SharedChroma, None},
    {YUV, "I422B", SharedChroma, None},
    {INDEXED, "u1bit", Indexed, None, 1},
    {INDEXED, "u2bit", Indexed, None, 2},
    {INDEXED, "u3bit", Indexed, None, 3},
    {INDEXED, "u4bit", Indexed, None, 4},
    {INDEXED, "u5bit", Indexed, None, 5},
    {INDEXED, "u6bit", Indexed, None, 6},
    {INDEXED, "u7bit", Indexed, None, 7},
    {INDEXED, "u8bit", Indexed, None, 8},
    {INDEXED, "u16bit", Indexed, None, 16},
};
constexpr size_t kFormatCount = std::size(kFormats);

template <size_t Row>
Result<ObjectRef> CreateRow() {
    return CreateFixedPixelFormat(kFormats[Row]);
}
template <size_t... Row>
constexpr std::array<CreateFunction, kFormatCount> MakeCreateFunctions(std::index_sequence<Row...>) {
    return {&CreateRow<Row>...};
}
constexpr auto kCreateFunctions = MakeCreateFunctions(std::make_index_sequence<kFormatCount>());

/// Text that found no memory is empty, and an empty id would be refused for another reason.
Result<Id> MakeId(const String& text) {
    if (text.IsEmpty())
        return OutOfMemoryError();
    return Id::Create(text.GetText());
}

Result<void> RegisterFormat(Publisher& publisher, const FormatRow& row, CreateFunction create,
                            const PixelFormatGroup& group, const Id& groupRegistry) {
    const Id classId = TRY(MakeFormatClassId(row));
    TRY(publisher.PublishClass(classId, create));
    const PixelFormat format = TRY(ClassRef(classId).Create<PixelFormatInterface>());
    const String shortName = TRY(MakeFormatShortName(row));
    TRY(format->Init(group, shortName));
    TRY(publisher.PublishObject(format->GetId(), format));
    TRY(publisher.AddToRegistry(groupRegistry, format->GetId(), format));
    return {};
}

}  // namespace

const FamilyRow& GetFamilyRow(PixelFormatFamily family) { return kFamilies[static_cast<int>(family)]; }
Block<const FormatRow> GetFormatRows() { return kFormats; }

Result<Id> MakeFormatId(const FormatRow& row) {
    return MakeId(
        FormatString("net.orvik.image.pixelformat.@.@", GetFamilyRow(row.family).name, row.variant).ToLower());
}
Result<Id> MakeFormatClassId(const FormatRow& row) {
    return MakeId(FormatString("net.orvik.image.class.pixelformat.@.@", GetFamilyRow(row.family).name, row.variant));
}
Result<String> MakeFormatShortName(const FormatRow& row) {
    const String name = FormatString("@::@", GetFamilyRow(row.family).name, row.variant);
    if (name.IsEmpty())
        return OutOfMemoryError();
    return name;
}
Result<Id> MakeGroupId(const FamilyRow& row) {
    return MakeId(FormatString("net.orvik.image.pixelformat.@group", row.name).ToLower());
}
Result<Id> MakeGroupRegistryId(const FamilyRow& row) {
    return MakeId(FormatString("net.orvik.image.registry.@", row.name).ToLower());
}

Id GetChannelTypeOfDigit(int digit, bool inverted) {
    static const Id kTypes[16] = {
        channeltypes::kRed,
        channeltypes::kGreen,
        channeltypes::kBlue,
        "net.orvik.image.imagechanneltype.cmyk_c",
        "net.orvik.image.imagechanneltype.cmyk_m",
        "net.orvik.image.imagechanneltype.cmyk_y",
        "net.orvik.image.imagechanneltype.cmyk_k",
        channeltypes::kUnknown,
        {},
        {},
        channeltypes::kAlpha,
        channeltypes::kGrey,
        {},
        {},
        {},
        channeltypes::kUnused,
    };
    static const Id kInvertedInks[4] = {
        "net.orvik.image.imagechanneltype.cmyk_ic",
        "net.orvik.image.imagechanneltype.cmyk_im",
        "net.orvik.image.imagechanneltype.cmyk_iy",
        "net.orvik.image.imagechanneltype.cmyk_ik",
    };
    return inverted && digit >= 3 && digit <= 6 ? kInvertedInks[digit - 3] : kTypes[digit & 15];
}

Result<BaseArray<PixelFormat>> PixelFormatGroupImpl::GetEntries() const {
    BaseArray<PixelFormat> formats;
    const BaseArray<Registry::Entry> entries = TRY(Registry::CopyEntries(_registry));
    for (const Registry::Entry& entry : entries)
        TRY(formats.Append(Cast<PixelFormatInterface>(entry.object)));
    return formats;
}

Result<PixelFormatGroup> RegisterPixelFormatGroup(Publisher& publisher, const Id& id, const Id& registry) {
    PixelFormatGroup group = TRY(NewObj<PixelFormatGroupImpl>(id, registry));
    TRY(publisher.PublishObject(id, group));
    TRY(publisher.AddToRegistry(kPixelFormatRegistry, id, group));
    return group;
}

Result<void> RegisterPixelFormats(Publisher& publisher) {
    TRY(publisher.PublishClass<PixelFormatBase>(kPixelFormatBaseClass));
    size_t row = 0;
    for (int family = 0; family < kPixelFormatFamilyCount; ++family) {
        const Id groupId = TRY(MakeGroupId(kFamilies[family])), registry = TRY(MakeGroupRegistryId(kFamilies[family]));
        const PixelFormatGroup group = TRY(RegisterPixelFormatGroup(publisher, groupId, registry));
        for (; row < kFormatCount && static_cast<int>(kFormats[row].family) == family; ++row)
            TRY(RegisterFormat(publisher, kFormats[row], kCreateFunctions[row], group, registry));
    }
    return RegisterDynamicPixelFormats(publisher);
}

}  // namespace orvik
