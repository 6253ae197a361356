// Colour profiles: built-in ones, sharing, substitution, infos, and damaged bytes.

#include <gmock/gmock.h>
#include <thread>

#include "profile_tools.h"
#include "support/faults.h"
#include "support/threads.h"

#include "orvik/crc32c.h"
#include "orvik/dataserialize.h"
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
    /// A grey profile made by the library itself.
    static ByteVector MakeProfile(double gamma, const wchar_t* description) {
        const cmsCIExyY white{0.3127, 0.3290, 1.0};
        cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
        const cmsHPROFILE profile = cmsCreateGrayProfile(&white, curve);
        cmsMLU* text = cmsMLUalloc(nullptr, 1);
        cmsMLUsetWide(text, "en", "US", description);
        cmsWriteTag(profile, cmsSigProfileDescriptionTag, text);
        ByteVector bytes = SaveBare(profile);
        cmsMLUfree(text);
        cmsCloseProfile(profile);
        cmsFreeToneCurve(curve);
        return bytes;
    }
};

TEST_F(ColorProfileTest, BuiltInProfiles) {
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
}

/// The sums of all built-in profiles, from a module started for this alone.
std::string SumsOfBuiltIns() {
    Publisher publisher;
    if (!StartImageModule(publisher))
        return "not started";
    std::string sums;
    for (const Id& id : {colorprofiles::kSrgb, colorprofiles::kSgrey, colorprofiles::kLinearRgb,
                         colorprofiles::kLinearGrey, colorprofiles::kCmykDefault, colorprofiles::kYuvDefault})
        sums += std::to_string(colorprofiles::Get(id).GetCrc()) + " ";
    return sums;
}

TEST(ColorProfileProcess, SumsAreTheSameInEveryRun) {
    const std::string here = SumsOfBuiltIns();
    EXPECT_THAT(" " + here, testing::Not(HasSubstr(" 0 "))) << "a profile is missing";
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // the library notes the time in seconds
    EXPECT_EQ(SumsOfBuiltIns(), here);
    // Another process, with memory and time of its own.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((std::fputs(SumsOfBuiltIns().c_str(), stderr), std::exit(0)), testing::ExitedWithCode(0), here);
}

TEST_F(ColorProfileTest, TheEmptyProfile) {
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
    const ByteVector bytes = MakeProfile(1.7, L"Test"), other = MakeProfile(1.8, L"Test");
    const ColorProfileInterface* first = nullptr;
    {
        const Result<ColorProfile> a = ColorProfile::OpenProfileFromMemory(bytes);
        const Result<ColorProfile> b = ColorProfile::OpenProfileFromMemory(ByteVector(bytes));
        const Result<ColorProfile> c = ColorProfile::OpenProfileFromMemory(other);
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
    const ByteVector bytes = MakeProfile(1.9, L"Threads");
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
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(MakeProfile(2.0, description));
        ASSERT_TRUE(profile) << MessageOf(profile);
        EXPECT_EQ(*profile == srgb, kept == nullptr) << TextOf(profile->ToString());
        if (kept) {
            EXPECT_EQ(TextOf(profile->ToString()), kept);
        }
    }
}

TEST_F(ColorProfileTest, FilesAreWrittenAndReadWhole) {
    const Url url = MountMemoryFile("profile.icc", CreateMemoryFile().TakeValue()).TakeValue();
    const ColorProfile sgrey = colorprofiles::Get(colorprofiles::kSgrey);
    ASSERT_TRUE(sgrey.WriteProfileToFile(url));
    EXPECT_EQ(ColorProfile::OpenProfileFromFile(url).GetValueOr(ColorProfile()), sgrey);
    UnmountMemoryFile("profile.icc");
    EXPECT_FALSE(ColorProfile::OpenProfileFromFile(url));
}

TEST_F(ColorProfileTest, StreamsOfFieldsCarryProfiles) {
    const MemoryFileRef file = CreateMemoryFile().TakeValue();
    ColorProfile none, made = ColorProfile::OpenProfileFromMemory(MakeProfile(2.3, L"Field")).GetValueOr(none);
    ASSERT_TRUE(made.HasProfile());
    DataSerialize writer(OpenMemoryOutput(file).TakeValue());
    BaseArray<std::byte> junk;
    ASSERT_TRUE(junk.Resize(50));
    ASSERT_TRUE(made.DescribeIO(writer) && none.DescribeIO(writer) && writer.Field("_profile", junk));
    DataSerialize reader(OpenMemoryInput(file).TakeValue());
    ColorProfile read = colorprofiles::Get(colorprofiles::kSgrey);
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
    const ByteVector good = MakeProfile(2.1, L"Good");
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

}  // namespace
}  // namespace orvik
