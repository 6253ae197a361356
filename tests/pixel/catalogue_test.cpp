#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "pixel_tools.h"

#include "orvik/registrybase.h"

namespace orvik {
namespace {

class CatalogueTest : public ModuleFixture {};

struct ExpectedFamily {
    const char* name;
    const char* variants;
    const char* space;
    const char* channels;  ///< short names of the channel types in memory order
};
constexpr ExpectedFamily kFamilies[] = {
    {"RGB", "U8 U16 U32 S32 F16 F32 F64 U565 U555 U444 RGBE", "rgb", "red green blue"},
    {"RGBA", "U8 U16 U32 S32 F16 F32 F64", "rgb", "red green blue alpha"},
    {"ARGB", "U8 U16 F32 F64 U1555 U4444", "rgb", "alpha red green blue"},
    {"RGBX", "U8", "rgb", "red green blue unused"},
    {"XRGB", "U8", "rgb", "unused red green blue"},
    {"BGR", "U8 U16 F32 U565 U555 U444", "rgb", "blue green red"},
    {"BGRA", "U8 U16 F16 F32", "rgb", "blue green red alpha"},
    {"ABGR", "U8 U1555 U4444", "rgb", "alpha blue green red"},
    {"BGRX", "U8", "rgb", "blue green red unused"},
    {"ALPHA", "U8 U16 F16 F32 F64", "alpha", "alpha"},
    {"GREY", "U8 U16 F16 F32 F64", "grey", "grey"},
    {"AGREY", "U8 U16 F16 F32 F64", "grey", "alpha grey"},
    {"GREYA", "U8 U16 F16 F32 F64", "grey", "grey alpha"},
    {"CMYK", "U8 U16 F32", "cmyk", "cmyk_c cmyk_m cmyk_y cmyk_k"},
    {"ACMYK", "U8 U16 F32", "cmyk", "cmyk_c cmyk_m cmyk_y cmyk_k alpha"},
    {"CMYK_INV", "U8 U16 F32", "cmyk", "cmyk_ic cmyk_im cmyk_iy cmyk_ik"},
    {"ACMYK_INV", "U8 U16 F32", "cmyk", "cmyk_ic cmyk_im cmyk_iy cmyk_ik alpha"},
    {"YUV", "I422A I422B", "yuv", "unknown unknown unknown"},
    {"Indexed", "u1bit u2bit u3bit u4bit u5bit u6bit u7bit u8bit u16bit", "", "unknown"},
};

std::vector<std::string> Split(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}
std::string Lower(std::string text) {
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}
Id IdOf(const std::string& text) { return Id::Create(text).GetValueOr(Id()); }

std::vector<Int> BitsOf(ChannelOffsets offsets) {
    std::vector<Int> bits;
    for (const BITS offset : offsets)
        bits.push_back(offset.GetBits());
    return bits;
}

ComponentType ComponentOfVariant(const std::string& variant) {
    for (int i = 0; i < kComponentTypeCount; ++i) {
        if (variant == GetComponentName(ComponentType(i)))
            return ComponentType(i);
    }
    return ComponentType::None;
}

TEST_F(CatalogueTest, GroupsHoldTheirFormatsInOrder) {
    std::vector<std::string> expectedGroups, groups;
    int count = 0;
    for (const ExpectedFamily& family : kFamilies) {
        const std::string name = family.name, prefix = "net.orvik.image.pixelformat." + Lower(name);
        expectedGroups.push_back(prefix + "group");
        const auto group = FindPublished<PixelFormatGroupInterface>(IdOf(expectedGroups.back()));
        const Result<BaseArray<PixelFormat>> entries = group->GetEntries();
        const std::vector<std::string> variants = Split(family.variants), types = Split(family.channels);
        ASSERT_TRUE(entries && size_t(entries->GetCount()) == variants.size()) << name;
        for (const std::string& variant : variants) {
            const PixelFormat format = (*entries)[&variant - variants.data()];
            const std::string id = prefix + "." + Lower(variant);
            SCOPED_TRACE(id);
            ++count;
            EXPECT_EQ(format->GetPixelFormatGroup(), group);
            EXPECT_EQ(PixelFormats::Get(IdOf(id)), format);
            EXPECT_EQ(TextOf(format->GetId()), id);
            EXPECT_EQ(TextOf(format->GetShortName()), name + "::" + variant);
            const std::string classId = "net.orvik.image.class.pixelformat." + name + "." + variant;
            EXPECT_EQ(TextOf(format->GetClassId()), classId);
            const auto other = ClassRef(IdOf(classId)).Create<PixelFormatInterface>();
            ASSERT_TRUE(other);
            EXPECT_FALSE(*other == format);
            EXPECT_EQ((*other)->GetId(), format->GetId());
            ASSERT_EQ(format->GetChannelCount(), Int(types.size()));
            const ComponentType component = ComponentOfVariant(variant);
            std::vector<Int> offsets = {0};
            for (size_t i = 0; i < types.size(); ++i) {
                const ImageChannel& channel = format->GetChannels()[i];
                EXPECT_EQ(TextOf(channel->GetChannelType()->GetId()), "net.orvik.image.imagechanneltype." + types[i]);
                EXPECT_EQ(channel->GetComponentType(), component);
                if (component != ComponentType::None) {
                    EXPECT_EQ(channel, ChannelOf(types[i], component));
                    offsets.push_back(Int(i + 1) * GetComponentBits(component));
                }
            }
            EXPECT_TRUE(component == ComponentType::None || BitsOf(format->GetChannelOffsets()) == offsets);
            EXPECT_EQ(format->GetBitsPerPixel(), format->GetChannelOffsets().back());
            EXPECT_EQ(format->HasAlpha(), std::string(family.channels).find("alpha") != std::string::npos);
            EXPECT_EQ(format->GetPackedPixelCount(), family.space == std::string("yuv") ? 2 : 1);
            EXPECT_EQ(TextOf(format->GetColorSpace()->GetId()),
                      *family.space ? "net.orvik.image.colorspace." + std::string(family.space) : "");
        }
    }
    EXPECT_EQ(count, 83);
    expectedGroups.push_back("net.orvik.image.pixelformat.dynamicgroup");
    for (const Registry::Entry& entry : Registry::GetEntries(kPixelFormatRegistry))
        groups.push_back(TextOf(entry.id));
    EXPECT_EQ(groups, expectedGroups);
    EXPECT_EQ(Registry::GetEntries("net.orvik.image.registry.dynamic").GetCount(), 16);
    EXPECT_EQ(PixelFormats::GetAll().TakeValue().GetCount(), 83 + 16);
}

TEST_F(CatalogueTest, PackedAndSpecialOffsets) {
    const std::pair<const char*, std::vector<Int>> kCases[] = {
        {"rgb.u565", {11, 5, 0, 16}},      {"bgr.u565", {11, 5, 0, 16}},       {"rgb.u555", {10, 5, 0, 16}},
        {"bgr.u555", {10, 5, 0, 16}},      {"argb.u1555", {15, 10, 5, 0, 16}}, {"abgr.u1555", {15, 10, 5, 0, 16}},
        {"rgb.u444", {8, 4, 0, 16}},       {"bgr.u444", {8, 4, 0, 16}},        {"argb.u4444", {12, 8, 4, 0, 16}},
        {"abgr.u4444", {12, 8, 4, 0, 16}}, {"rgb.rgbe", {0, 8, 16, 32}},       {"yuv.i422a", {0, 8, 24, 16}},
        {"yuv.i422b", {8, 0, 16, 16}},     {"indexed.u1bit", {0, 1}},          {"indexed.u7bit", {0, 7}},
        {"indexed.u16bit", {0, 16}},
    };
    for (const auto& [name, offsets] : kCases)
        EXPECT_EQ(BitsOf(FormatOf(name)->GetChannelOffsets()), offsets) << name;
}

TEST_F(CatalogueTest, DefaultProfilesFollowSpaceAndComponent) {
    const std::pair<const char*, const char*> kCases[] = {
        {"rgb.u8", "sRGB IEC61966-2.1"},          {"rgb.f32", "Linear Color Space"},
        {"rgb.u565", "sRGB IEC61966-2.1"},        {"rgb.rgbe", "Linear Color Space"},
        {"grey.u16", "Grey Gamma 2.2"},           {"greya.f16", "Linear Color Space (Gray)"},
        {"cmyk.u8", "CMYK Default Profile"},      {"yuv.i422a", "YUV Default Profile"},
        {"alpha.u8", "<<no profile>>"},           {"indexed.u8bit", "<<no profile>>"},
        {"dynamic.redu32", "sRGB IEC61966-2.1"},  {"dynamic.reds32", "sRGB IEC61966-2.1"},
        {"dynamic.reds8", "<<no profile>>"},      {"dynamic.reds16", "<<no profile>>"},
        {"dynamic.redf16", "Linear Color Space"},
    };
    for (const auto& [name, profile] : kCases)
        EXPECT_EQ(TextOf(FormatOf(name)->GetDefaultColorProfile().ToString()), profile) << name;
    EXPECT_FALSE(ColorSpace()->GetDefaultLinearColorProfile().HasProfile());
}

TEST_F(CatalogueTest, AlphaFormats) {
    const std::tuple<const char*, const char*, Int> kCases[] = {
        {"rgba.f16", "ALPHA::F16", 3},  {"argb.u8", "ALPHA::U8", 0},    {"acmyk.u16", "ALPHA::U16", 4},
        {"agrey.f64", "ALPHA::F64", 0}, {"alpha.f32", "ALPHA::F32", 0}, {"rgba.u32", "A U32", 3}};
    for (const auto& [format, alphaName, index] : kCases) {
        const auto alpha = FormatOf(format)->GetAlphaPixelFormat();
        ASSERT_TRUE(alpha) << format;
        EXPECT_EQ(TextOf(alpha->first->GetShortName()), alphaName) << format;
        EXPECT_EQ(alpha->second, index) << format;
    }
    for (const char* name : {"rgb.u8", "rgbx.u8", "indexed.u8bit", "yuv.i422a"})
        EXPECT_EQ(ErrorIdOf(FormatOf(name)->GetAlphaPixelFormat()), errorid::kUnsupportedOperation) << name;
}

TEST_F(CatalogueTest, LinesAndPixelMemory) {
    const std::tuple<const char*, Int, Int, Int> kCases[] = {
        {"indexed.u1bit", 1, 1, 1}, {"indexed.u1bit", 9, 1, 2}, {"indexed.u3bit", 3, 1, 2}, {"rgb.u8", 1, 1, 3},
        {"rgb.u8", 1, 4, 4},        {"rgb.u8", 3, 4, 12},       {"yuv.i422a", 2, 1, 4},     {"rgba.f64", 2, 64, 64},
        {"rgb.u8", 0, 4, 0},        {"rgb.u8", -5, 4, 0},
    };
    for (const auto& [format, width, alignment, bytes] : kCases)
        EXPECT_EQ(FormatOf(format)->GetBytesPerLine(width, alignment), bytes) << format;
    const PixelFormat rgb = FormatOf("rgb.u8");
    const Result<BaseArray<std::byte>> pixels = rgb->CreatePix(5, 3, 4);
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->GetCount(), 48);
    EXPECT_TRUE(std::ranges::all_of(*pixels, [](std::byte b) { return b == std::byte(0); }));
    const std::tuple<Int, Int, Int, Id> kRefused[] = {
        {Int(1) << 62, 1, 1, errorid::kOutOfMemory}, {Int(1) << 40, Int(1) << 40, 1, errorid::kOutOfMemory},
        {Int(1) << 61, 1, 1, errorid::kOutOfMemory}, {-1, 1, 1, errorid::kIllegalArgument},
        {1, -1, 1, errorid::kIllegalArgument},       {1, 1, 3, errorid::kIllegalArgument},
        {1, 1, 0, errorid::kIllegalArgument},
    };
    for (const auto& [width, height, alignment, error] : kRefused)
        EXPECT_EQ(ErrorIdOf(rgb->CreatePix(width, height, alignment)), error) << width << " " << height;
}

TEST_F(CatalogueTest, TextsOfPixels) {
    const std::tuple<const char*, std::vector<uint8_t>, const char*> kCases[] = {
        {"rgba.u8", {1, 2, 3, 4}, "A 4 R 1 G 2 B 3"},
        {"abgr.u8", {1, 2, 3, 4}, "A 1 R 4 G 3 B 2"},
        {"bgr.u16", {1, 1, 2, 0, 3, 0}, "R 3 G 2 B 257"},
        {"xrgb.u8", {9, 1, 2, 3}, "R 1 G 2 B 3"},
        {"rgb.s32", {255, 255, 255, 255, 1, 0, 0, 0, 0, 0, 0, 128}, "R -1 G 1 B -2147483648"},
        {"greya.u8", {9, 8}, "A 8 Grey 9"},
        {"grey.f16", {0x00, 0x3C}, "Grey 1"},
        {"cmyk.u8", {1, 2, 3, 4}, "C 1 M 2 Y 3 K 4"},
        {"acmyk_inv.u8", {1, 2, 3, 4, 5}, "iC 1 iM 2 iY 3 iK 4 iA 5"},
        {"rgb.u565", {0x21, 0x18}, "A0 0 R5 3 G6 1 B5 1"},
        {"bgr.u555", {0x01, 0x7C}, "A0 0 R5 1 G5 0 B5 31"},
        {"argb.u1555", {0xFF, 0xFF}, "A1 1 R5 31 G5 31 B5 31"},
        {"abgr.u4444", {0x34, 0x12}, "A4 1 R4 4 G4 3 B4 2"},
        {"dynamic.redgreens8", {255, 2}, "R -1 G 2"},
    };
    for (const auto& [format, pixel, text] : kCases)
        EXPECT_EQ(TextOf(FormatOf(format)->PixToString(pixel.data())), text) << format;
}

TEST_F(CatalogueTest, PixelsAreComparedWithTolerance) {
    const auto compare = [](const char* format, auto a, auto b, Int tolerance) {
        return FormatOf(format)->IsIdenticalPixel(a.data(), b.data(), tolerance);
    };
    using U8 = std::array<uint8_t, 4>;
    using U16 = std::array<uint16_t, 4>;
    using U32 = std::array<uint32_t, 4>;
    using F32 = std::array<float, 4>;
    EXPECT_TRUE(compare("rgba.u8", U8{1, 2, 3, 4}, U8{1, 2, 3, 4}, -5));
    EXPECT_FALSE(compare("rgba.u8", U8{1, 2, 3, 4}, U8{1, 2, 3, 5}, -5)) << "negative counts as 0";
    EXPECT_TRUE(compare("rgba.u8", U8{1, 2, 3, 4}, U8{1, 2, 3, 6}, 2));
    EXPECT_TRUE(compare("xrgb.u8", U8{1, 2, 3, 4}, U8{99, 2, 3, 4}, 0)) << "unused";
    EXPECT_TRUE(compare("rgba.u16", U16{0, 0, 0, 0}, U16{0, 256, 0, 0}, 1));
    EXPECT_FALSE(compare("rgba.u16", U16{0, 0, 0, 0}, U16{0, 257, 0, 0}, 1));
    EXPECT_TRUE(compare("rgba.u32", U32{0, 0, 0, 0}, U32{1u << 24, 0, 0, 0}, 1));
    EXPECT_FALSE(compare("rgba.u32", U32{0, 0, 0, 0}, U32{(1u << 24) + 1, 0, 0, 0}, 1));
    EXPECT_TRUE(
        compare("rgba.s32", U32{0x80000000, 0, 0, 0}, U32{0x7FFFFFFF, 0, 0, 0}, std::numeric_limits<Int>::max()));
    EXPECT_FALSE(compare("rgba.s32", U32{0x80000000, 0, 0, 0}, U32{0x7FFFFFFF, 0, 0, 0}, 254));
    EXPECT_TRUE(compare("rgba.f32", F32{0.5f}, F32{0.5039f}, 1));
    EXPECT_FALSE(compare("rgba.f32", F32{0.5f}, F32{0.5041f}, 1));
    EXPECT_TRUE(compare("rgba.f32", F32{HUGE_VALF}, F32{HUGE_VALF}, 0));
    EXPECT_FALSE(compare("rgba.f32", F32{NAN}, F32{1}, 255)) << "NaN is near nothing";
    EXPECT_TRUE(compare("rgb.u565", U16{0x0800}, U16{0x1000}, 8)) << "a step of five bits is eight steps of eight";
    EXPECT_FALSE(compare("rgb.u565", U16{0x0800}, U16{0x1000}, 7));
}

TEST_F(CatalogueTest, ChannelTypes) {
    using Names = std::set<std::string>;
    std::map<std::string, Names> found;  // by the space and the value that fills
    for (const Registry::Entry& entry : Registry::GetEntries(kImageChannelTypeRegistry)) {
        const auto type = Cast<ImageChannelTypeInterface>(entry.object);
        EXPECT_EQ(type->GetId(), entry.id);
        const std::string id = TextOf(entry.id), space = TextOf(type->GetColorSpace()->GetId());
        const std::string fill = std::to_string(type->GetDefaultFillValue() & 255);
        found[space.substr(space.rfind('.') + 1) + " " + fill].insert(id.substr(id.rfind('.') + 1));
    }
    const std::map<std::string, Names> expected = {
        {"rgb 0", {"red", "green", "blue"}},
        {"grey 0", {"grey"}},
        {"alpha 255", {"alpha"}},
        {"cmyk 0", {"cmyk_c", "cmyk_m", "cmyk_y", "cmyk_k"}},
        {"cmyk 255", {"cmyk_ic", "cmyk_im", "cmyk_iy", "cmyk_ik"}},
        {" 0",
         {"unknown", "unused", "depth", "depthback", "materialid", "nodeid", "uvu", "uvv", "normal", "realpix",
          "coverage", "bg", "noderenderid", "transparency", "velocity", "weight", "mask"}}};
    EXPECT_EQ(found, expected);
    EXPECT_EQ(channeltypes::Get(channeltypes::kAlpha)->GetDefaultFillValue(), 0xFFFFFFFFu);
    const ImageChannelType red = channeltypes::Get(channeltypes::kRed);
    const ImageChannel half = red->GetChannel(&GetDataType<Pix16f>()).GetValueOr(ImageChannel());
    EXPECT_EQ(half, ChannelOf("red", ComponentType::F16));
    EXPECT_EQ(half->GetChannelBits(), BITS(16));
    EXPECT_EQ(TextOf(half->GetClassId()), "net.orvik.image.class.imagechannelPix16f");
    for (const DataType* wrong : {static_cast<const DataType*>(nullptr), &GetDataType<String>(), &GetDataType<Int>()})
        EXPECT_EQ(ErrorIdOf(red->GetChannel(wrong)), errorid::kIllegalArgument);
    EXPECT_FALSE(ChannelOf("mauve", ComponentType::U8));
    EXPECT_FALSE(ChannelOf("red", ComponentType::None));
}

}  // namespace
}  // namespace orvik
