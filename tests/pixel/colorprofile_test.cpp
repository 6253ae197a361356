#include <cmath>
#include <gmock/gmock.h>
#include <sanitizer/lsan_interface.h>

#include "profile_tools.h"
#include "support/faults.h"
#include "support/threads.h"

#include "orvik/crc32c.h"
#include "orvik/dataserialize.h"
#include "orvik/gfx_image_oiioprocessor.h"
#include "orvik/iomemory.h"

namespace orvik {
namespace {

using testing::HasSubstr;
using ByteVector = std::vector<std::byte>;

class ColorProfileTest : public ModuleFixture {
protected:
    static ByteVector BytesOf(const ColorProfile& profile) {
        const Result<Block<const std::byte>> bytes = profile.WriteProfileToMemory();
        return bytes ? ByteVector(bytes->begin(), bytes->end()) : ByteVector();
    }
};

TEST_F(ColorProfileTest, BuiltInProfilesAndTheEmptyOne) {
    const struct {
        Id id;
        const char* description;
        Id space;
        const char* signature;
        uint32_t crc;  ///< of what release 2.14 of the library writes
    } kCases[] = {
        {colorprofiles::kSrgb, "sRGB IEC61966-2.1", colorspaces::kRgb, "RGB ", 0x4E49BA23},
        {colorprofiles::kSgrey, "Grey Gamma 2.2", colorspaces::kGrey, "GRAY", 0xAAC7C9D6},
        {colorprofiles::kLinearRgb, "Linear Color Space", colorspaces::kRgb, "RGB ", 0x3B3C9DE2},
        {colorprofiles::kLinearGrey, "Linear Color Space (Gray)", colorspaces::kGrey, "GRAY", 0x2179B024},
        {colorprofiles::kCmykDefault, "CMYK Default Profile", colorspaces::kCmyk, "CMYK", 0xFA00AEAB},
        {colorprofiles::kYuvDefault, "YUV Default Profile", {}, "XYZ ", 0x08BBAF0C},
    };
    for (const auto& entry : kCases) {
        const ColorProfile profile = colorprofiles::Get(entry.id);
        ASSERT_TRUE(profile.HasProfile()) << entry.description;
        EXPECT_EQ(TextOf(profile.ToString()), entry.description);
        EXPECT_EQ(TextOf(*profile.GetInfo(COLORPROFILEINFO::COPYRIGHT)), "No copyright, use freely");
        EXPECT_EQ(profile.GetColorSpace()->GetId(), entry.space) << entry.description;
        const ByteVector bytes = BytesOf(profile);
        ASSERT_GT(bytes.size(), 128u);
        EXPECT_EQ(std::memcmp(bytes.data() + 16, entry.signature, 4), 0);
        EXPECT_EQ(profile.GetCrc(), ComputeCrc32c(bytes));
        if (cmsGetEncodedCMMversion() == 2140) {
            EXPECT_EQ(profile.GetCrc(), entry.crc) << entry.description;
        }
        EXPECT_EQ(colorprofiles::Get(entry.id).GetEntry(), profile.GetEntry()) << "built once";
        const Result<ColorProfile> opened = ColorProfile::OpenProfileFromMemory(bytes);
        ASSERT_TRUE(opened) << MessageOf(opened);
        EXPECT_EQ(opened->GetEntry(), profile.GetEntry()) << entry.description;
    }
    EXPECT_TRUE(colorprofiles::Get(colorprofiles::kSrgb).CheckCompatiblePixelFormat(FormatOf("bgra.f16")));
    EXPECT_FALSE(colorprofiles::Get(colorprofiles::kSrgb).CheckCompatiblePixelFormat(FormatOf("grey.u8")));
    EXPECT_FALSE(colorprofiles::Get(colorprofiles::kYuvDefault).CheckCompatiblePixelFormat(FormatOf("indexed.u8bit")))
        << "no space is no equal space";
    EXPECT_FALSE(colorprofiles::Get("net.orvik.image.colorprofile.mauve").HasProfile());
    const ColorProfile none = colorprofiles::Get(colorprofiles::kNone);
    EXPECT_FALSE(none.HasProfile());
    EXPECT_EQ(TextOf(none.ToString()), "<<no profile>>");
    EXPECT_EQ(MessageOf(none.WriteProfileToMemory()), "no color profile");
    EXPECT_EQ(MessageOf(none.GetInfo(COLORPROFILEINFO::DESCRIPTION)), "no profile found");
    EXPECT_FALSE(none.GetColorSpace());
    EXPECT_EQ(none, ColorProfile());
    EXPECT_FALSE(none == colorprofiles::Get(colorprofiles::kSrgb));
}

TEST_F(ColorProfileTest, EqualBytesShareAnEntryWhileItLives) {
    const ByteVector bytes = MakeGammaProfile(1.7, L"Test"), other = MakeGammaProfile(1.8, L"Test");
    const ColorProfileInterface* first = nullptr;
    {
        const auto a = ColorProfile::OpenProfileFromMemory(bytes), c = ColorProfile::OpenProfileFromMemory(other);
        const auto b = ColorProfile::OpenProfileFromMemory(ByteVector(bytes));
        ASSERT_TRUE(a && b && c);
        EXPECT_EQ(a->GetEntry(), b->GetEntry());
        EXPECT_EQ(*a, *b);
        EXPECT_FALSE(*a == *c);
        EXPECT_EQ(a->GetHashCode(), b->GetHashCode());
        EXPECT_EQ(BytesOf(*a), bytes);
        ColorProfile writable = *a;
        ASSERT_TRUE(writable.SetMonitorProfileMode(true));
        EXPECT_TRUE(b->IsMonitorProfileMode()) << "the flag belongs to the shared entry";
        first = a->GetEntry().GetPointer();
        EXPECT_EQ(first->GetStrongCount(), 3) << "the table does not keep it";
    }
    const Result<ColorProfile> again = ColorProfile::OpenProfileFromMemory(bytes);
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->IsMonitorProfileMode()) << "opened anew";
    EXPECT_EQ(BytesOf(*again), bytes);
}

TEST_F(ColorProfileTest, ThreadsOpenAndReleaseOneProfile) {
    const ByteVector bytes = MakeGammaProfile(1.9, L"Threads");
    RunAtOnce(4, [&] {
        for (int i = 0; i < 300; ++i) {
            const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(bytes);
            ASSERT_TRUE(profile);
            ASSERT_EQ(TextOf(profile->ToString()), "Threads");
            ASSERT_TRUE(colorprofiles::Get(colorprofiles::kSgrey).HasProfile());
        }
    });
}

TEST_F(ColorProfileTest, VariantsOfSrgbBecomeTheBuiltInOne) {
    const std::pair<const wchar_t*, const char*> kCases[] = {{L"sRGB IEC61966-2.1", nullptr},
                                                             {L"Camera srgb iec61966-2 (tuned)", nullptr},
                                                             {L"sRGB IEC61966-2.1 Linear", "sRGB IEC61966-2.1 Linear"},
                                                             {L"sRGB", "sRGB"},
                                                             {L"Gr\u00FC\u00DFe \u4E2D", "Gr\u00FC\u00DFe \u4E2D"}};
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    for (const auto& [description, kept] : kCases) {
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(2.0, description));
        ASSERT_TRUE(profile) << MessageOf(profile);
        EXPECT_EQ(*profile == srgb, kept == nullptr) << TextOf(profile->ToString());
        if (kept) {
            EXPECT_EQ(TextOf(profile->ToString()), kept);
        }
    }
}

TEST_F(ColorProfileTest, FilesAndStreamsOfFieldsCarryProfiles) {
    const Url url = MountMemoryFile("profile.icc", CreateMemoryFile().TakeValue()).TakeValue();
    const ColorProfile sgrey = colorprofiles::Get(colorprofiles::kSgrey);
    ASSERT_TRUE(sgrey.WriteProfileToFile(url));
    EXPECT_EQ(ColorProfile::OpenProfileFromFile(url).GetValueOr(ColorProfile()), sgrey);
    UnmountMemoryFile("profile.icc");
    EXPECT_FALSE(ColorProfile::OpenProfileFromFile(url));
    const MemoryFileRef file = CreateMemoryFile().TakeValue();
    ColorProfile none, made = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(2.3, L"Field")).GetValueOr(none);
    ASSERT_TRUE(made.HasProfile());
    DataSerialize writer(OpenMemoryOutput(file).TakeValue());
    BaseArray<std::byte> junk;
    ASSERT_TRUE(junk.Resize(50));
    ASSERT_TRUE(made.DescribeIO(writer) && none.DescribeIO(writer) && writer.Field("_profile", junk));
    DataSerialize reader(OpenMemoryInput(file).TakeValue());
    ColorProfile read = sgrey;
    ASSERT_TRUE(read.DescribeIO(reader));
    EXPECT_EQ(read.GetEntry(), made.GetEntry());
    ASSERT_TRUE(read.DescribeIO(reader));
    EXPECT_FALSE(read.HasProfile());
    read = made;
    EXPECT_EQ(MessageOf(read.DescribeIO(reader)), "found invalid magic number in color profile.");
    EXPECT_EQ(read, made) << "unchanged by an error";
    EXPECT_FALSE(read.DescribeIO(reader)) << "the stream has ended";
}

TEST_F(ColorProfileTest, ShortMemoryInTheLibraryIsOutOfMemory) {
    const ByteVector bytes = MakeGammaProfile(1.6);
    const PixelFormat rgb = FormatOf("rgb.f32");
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    using Colors = std::array<float, 3>;
    const auto convert = [&]() -> Result<std::pair<Colors, String>> {
        const ColorProfile profile = TRY(ColorProfile::OpenProfileFromMemory(bytes));
        const String text = TRY(profile.GetInfo(COLORPROFILEINFO::MODEL));
        const auto transform = TRY(ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>());
        TRY(transform->Init(rgb, profile, rgb, srgb, COLORCONVERSIONINTENT::PERCEPTUAL, COLORCONVERSIONFLAGS::NONE));
        const Colors in{0.25f, 0.5f, 0.75f};
        Colors out{};
        TRY(transform->Convert({out.data(), BITS(96)}, {in.data(), BITS(96)}, 1));
        return std::pair(out, text);
    };
    const auto wanted = convert();
    ASSERT_TRUE(wanted) << MessageOf(wanted);
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler disabler;  // the library itself leaks when it is refused memory
#endif
    for (const bool sticky : {false, true}) {
        AllocationFaults faults(sticky);
        while (faults.Next()) {
            const auto converted = faults.Run(convert);
            if (converted) {
                EXPECT_EQ(converted->first, wanted->first);
                EXPECT_EQ(converted->second, wanted->second);
            }
        }
        EXPECT_GT(faults.GetErrorCount(), 50);
    }
}

TEST_F(ColorProfileTest, DamagedBytesAreRefused) {
    const ByteVector good = MakeGammaProfile(2.1, L"Good");
    EXPECT_EQ(MessageOf(ColorProfile::OpenProfileFromMemory({})), "mem is nullptr");
    for (size_t length = 0; length < good.size(); ++length) {
        // A heap block of exactly this length, so that a sanitizer sees reads behind it.
        const std::unique_ptr<std::byte[]> part(new std::byte[length + (length == 0)]);
        std::memcpy(part.get(), good.data(), length);
        const Result<ColorProfile> opened = ColorProfile::OpenProfileFromMemory({part.get(), length});
        if (length < 40) {
            EXPECT_EQ(MessageOf(opened), "found invalid magic number in color profile.") << length;
        } else if (!opened) {
            EXPECT_EQ(MessageOf(opened), "cmsOpenProfileFromMem failed.") << length;
            if (const Error cause = opened.GetError()->GetCause()) {
                EXPECT_THAT(TextOf(cause->GetMessage()), HasSubstr("LCMS Error: "));
            }
        } else {  // the header alone is a profile; what it lacks shows when it is asked
            EXPECT_TRUE(opened->GetInfo(COLORPROFILEINFO::MODEL)) << length;
        }
        EXPECT_TRUE(length >= 128 || !opened) << length;
    }
    ByteVector wrong = good;
    wrong[38] = std::byte('x');
    EXPECT_EQ(MessageOf(ColorProfile::OpenProfileFromMemory(wrong)), "found invalid magic number in color profile.");
    for (size_t at = 0; at < std::min<size_t>(good.size(), 300); ++at) {
        for (const int value : {0x00, 0x7F, 0xFF}) {
            ByteVector flipped = good;
            flipped[at] = std::byte(value);
            const Result<ColorProfile> opened = ColorProfile::OpenProfileFromMemory(flipped);  // sizes among them
            if (opened) {
                EXPECT_TRUE(opened->GetInfo(COLORPROFILEINFO::COPYRIGHT)) << at;
            }
        }
    }
}

/// Three channels with one gamma in front of the primaries of sRGB, as seen from D50.
class GammaProcessor final : public virtual OiioProcessorInterface {
public:
    explicit GammaProcessor(float gamma, int failAt = -1) : _gamma(gamma), _failAt(failAt) {}
    String GetName() const override { return "Gamma \u00BD"; }
    String GetCopyright() const override { return "Test department"; }
    Result<Triple> Forward(const Triple& rgb) const override {
        return Multiply(kToXyz, {std::pow(rgb[0], _gamma), std::pow(rgb[1], _gamma), std::pow(rgb[2], _gamma)});
    }
    Result<Triple> Inverse(const Triple& xyz) const override {
        Triple rgb = TRY(Multiply(kToRgb, xyz));
        for (float& linear : rgb)
            linear = std::pow(linear, 1 / _gamma);  // NaN below 0
        return rgb;
    }

private:
    Result<Triple> Multiply(const float (&matrix)[3][3], const Triple& in) const {
        if (_failAt-- == 0)
            return UnexpectedError("The lamp is broken.");
        Triple out{};
        for (size_t i = 0; i < 3; ++i)
            out[i] = matrix[i][0] * in[0] + matrix[i][1] * in[1] + matrix[i][2] * in[2];
        return out;
    }

    static constexpr float kToXyz[3][3] = {{0.4360747f, 0.3850649f, 0.1430804f},
                                           {0.2225045f, 0.7168786f, 0.0606169f},
                                           {0.0139322f, 0.0971045f, 0.7141733f}};
    static constexpr float kToRgb[3][3] = {{3.1338561f, -1.6168667f, -0.4906146f},
                                           {-0.9787684f, 1.9161415f, 0.0334540f},
                                           {0.0719453f, -0.2289914f, 1.4052427f}};
    float _gamma;
    mutable int _failAt;
};

class BakedProfileTest : public ModuleFixture {};

Result<ColorProfile> Bake(float gamma, int failAt = -1) {
    return ColorProfile::BakeFromProcessor(NewObj<GammaProcessor>(gamma, failAt).GetValueOr(nullptr));
}

TEST_F(BakedProfileTest, TheHeaderAndTheTexts) {
    const Result<ColorProfile> baked = Bake(2.2f);
    ASSERT_TRUE(baked) << MessageOf(baked);
    EXPECT_EQ(TextOf(baked->ToString()), "\"Gamma \u00BD\". Baked by Orvik OIIO.");
    EXPECT_EQ(TextOf(*baked->GetInfo(COLORPROFILEINFO::COPYRIGHT)), "Test department");
    EXPECT_EQ(baked->GetColorSpace()->GetId(), colorspaces::kRgb);
    const Result<Block<const std::byte>> bytes = baked->WriteProfileToMemory();
    ASSERT_TRUE(bytes && bytes->size() > 2 * 6 * 32 * 32 * 32) << "two tables of 32 points an axis in 16 bits";
    const auto at = [&](size_t offset) {
        return std::string(reinterpret_cast<const char*>(bytes->data()) + offset, 4);
    };
    EXPECT_EQ(at(12) + at(16) + at(20), "mntrRGB Lab ");
    EXPECT_EQ(at(8) + at(64), std::string("\x04\x20\0\0\0\0\0\0", 8)) << "version and rendering intent";
    const auto bare = OpenBare(*baked);
    for (const auto tag : {cmsSigAToB0Tag, cmsSigBToA0Tag}) {
        const auto* pipeline = static_cast<const cmsPipeline*>(cmsReadTag(bare.get(), tag));
        ASSERT_TRUE(pipeline);
        EXPECT_EQ(cmsPipelineStageCount(pipeline), 5u);
    }
    EXPECT_EQ(*Bake(2.2f), *baked) << "no date and no address gets in";
}

TEST_F(BakedProfileTest, BothDirectionsFollowTheProcessor) {
    const Result<ColorProfile> baked = Bake(1.8f);
    ASSERT_TRUE(baked) << MessageOf(baked);
    const Result<ColorProfile> exact = ColorProfile::OpenProfileFromMemory(MakeGammaProfile(1.8));
    ASSERT_TRUE(exact);
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    const PixelFormat rgb = FormatOf("rgb.u8");
    std::vector<uint8_t> colors;
    for (int i = 0; i < 512; ++i) {  // away from the dark corner, where a table of 32 points is coarse
        for (const int digit : {i % 8, i / 8 % 8, i / 64})
            colors.push_back(uint8_t(60 + 195 * digit / 7));
    }
    const auto convert = [&](const ColorProfile& from, const ColorProfile& to) {
        std::vector<uint8_t> out(colors.size());
        const ColorProfileConvert transform = CreateConvert();
        constexpr auto kIntent = COLORCONVERSIONINTENT::RELATIVE_COLORIMETRIC;
        EXPECT_TRUE(transform->Init(rgb, from, rgb, to, kIntent, COLORCONVERSIONFLAGS::NONE));
        EXPECT_TRUE(transform->Convert({out.data(), BITS(24)}, {colors.data(), BITS(24)}, 512));
        return out;
    };
    const auto largest = [](const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
        int most = 0;
        for (size_t i = 0; i < a.size(); ++i)
            most = std::max(most, std::abs(a[i] - b[i]));
        return most;
    };
    EXPECT_LE(largest(convert(*baked, srgb), convert(*exact, srgb)), 3);
    EXPECT_LE(largest(convert(srgb, *baked), convert(srgb, *exact)), 12);
    EXPECT_GT(largest(convert(srgb, *exact), colors), 12) << "the profiles differ enough to show an error";
}

TEST_F(BakedProfileTest, AFailingProcessorStopsTheBaking) {
    for (const int failAt : {0, 100, 32 * 32 * 32, 40000})
        EXPECT_EQ(MessageOf(Bake(2.2f, failAt)), "The lamp is broken.") << failAt;
    EXPECT_FALSE(ColorProfile::BakeFromProcessor(OiioProcessor()));
    const auto provider = FindPublished<OiioProcessorInterface>(OiioProcessorInterface::kInterfaceId);
    EXPECT_FALSE(ColorProfile::BakeFromProcessor(provider)) << "none ships";
}

}  // namespace
}  // namespace orvik
