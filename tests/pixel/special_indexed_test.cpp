#include <array>
#include <gmock/gmock.h>
#include <random>

#include "pixel_tools.h"
#include "support/threads.h"

#include "orvik/mediasession_streamformat.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Bytes = std::vector<uint8_t>;

const Int kWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 16};

class SpecialIndexedTest : public ModuleFixture {
protected:
    /// An own instance of a class, as a codec makes it.
    static PixelFormatIndexedColor Create(Int width) {
        const Result<Id> id = Id::Create("net.orvik.image.class.pixelformat.Indexed.u" + std::to_string(width) + "bit");
        const auto made = ClassRef(*id).Create<PixelFormatIndexedColorInterface>();
        EXPECT_TRUE(made);
        return made ? *made : PixelFormatIndexedColor();
    }
    /// An entry that identifies its index.
    static std::array<uint8_t, 3> ColorOf(Int index) {
        return {uint8_t(index * 7 + 1), uint8_t(index >> 8), uint8_t(~index)};
    }
    static PixelFormatIndexedColor CreateWithColors(Int width, Int count) {
        const PixelFormat rgb = FormatOf("rgb.u8");
        const auto format = PixelFormats::CreateIndexed(width, rgb, count);
        EXPECT_TRUE(format) << MessageOf(format);
        for (Int i = 0; format && i < count; ++i)
            EXPECT_TRUE((*format)->SetIndex(i, rgb, ColorOf(i).data()));
        return format.GetValueOr(PixelFormatIndexedColor());
    }
    /// Bits of a line as text, the highest bit of a byte first.
    static std::string BitsOf(const Bytes& bytes) {
        std::string text;
        for (const uint8_t byte : bytes) {
            for (int bit = 7; bit >= 0; --bit)
                text += byte >> bit & 1 ? '1' : '0';
        }
        return text;
    }
};

TEST_F(SpecialIndexedTest, EveryWidthPhaseAndCount) {
    std::mt19937 random(3);
    const PixelFormat rgb = FormatOf("rgb.u8");
    for (const Int width : kWidths) {
        const Int all = Int(1) << width, size = all * 3 / 4 + 1;  // shorter than what the bits can say
        const PixelFormatIndexedColor format = CreateWithColors(width, std::min(size, all));
        for (int phase = 0; phase < (width < 8 ? 8 : 1); ++phase) {
            for (Int count = 0; count <= 70; ++count) {
                // Exactly the bytes that hold the run: what is read beyond shows in sanitizer builds.
                Bytes line(size_t((phase + count * width + 7) / 8));
                std::generate(line.begin(), line.end(), std::ref(random));
                const std::string bits = BitsOf(line);
                Bytes wanted(size_t(count) * 3);
                for (Int i = 0; i < count; ++i) {
                    Int index = width == 16
                                    ? line[size_t(2 * i)] + 256 * line[size_t(2 * i + 1)]
                                    : std::stol(bits.substr(size_t(phase + i * width), size_t(width)), nullptr, 2);
                    if (index < format->GetColorTableSize())
                        std::memcpy(&wanted[size_t(i) * 3], ColorOf(index).data(), 3);
                }
                Bytes out(wanted.size());
                const Result<void> done = rgb->ConvertPixelFromSlow(
                    {out.data(), BITS(24)}, count, {line.data(), BITS(width), phase}, format, nullptr, nullptr, {});
                ASSERT_TRUE(done) << MessageOf(done);
                ASSERT_EQ(out, wanted) << width << " bits, phase " << phase << ", " << count << " pixels";
                if (width == 16)
                    count += 6;  // each conversion makes 65536 colours ready
            }
        }
    }
}

TEST_F(SpecialIndexedTest, CopiesIndicesWithoutTouchingNeighbours) {
    std::mt19937 random(4);
    for (const Int width : kWidths) {
        const PixelFormatIndexedColor format = CreateWithColors(width, 2);
        const Result<ConvertPixelFunc> copy = FindConversion(format, format);
        ASSERT_TRUE(copy) << MessageOf(copy);
        const int phases = width < 8 ? 8 : 1;
        for (int phase = 0; phase < phases * phases; ++phase) {
            const int from = phase / phases, to = phase % phases;
            for (Int count = 0; count <= 70; count += count < 20 ? 1 : 7) {
                Bytes source(200), target(200);
                std::generate(source.begin(), source.end(), std::ref(random));
                std::generate(target.begin(), target.end(), std::ref(random));
                std::string wanted = BitsOf(target);
                wanted.replace(size_t(8 + to), size_t(count * width),
                               BitsOf(source).substr(size_t(8 + from), size_t(count * width)));
                ASSERT_TRUE((*copy)({&target[1], BITS(width), to}, count, {&source[1], BITS(width), from}, {}));
                ASSERT_EQ(BitsOf(target), wanted)
                    << width << " bits, " << count << " pixels, phases " << from << " and " << to;
            }
        }
    }
}

TEST_F(SpecialIndexedTest, InstancesKeepTheirOwnColors) {
    const PixelFormat rgb = FormatOf("rgb.u8"), words = FormatOf("rgb.u565");
    const uint8_t red[3] = {255, 0, 0}, blue[3] = {0, 0, 255}, index = 0;
    const PixelFormatIndexedColor b = Create(8);
    PixelFormatIndexedColor a = Create(8);
    ASSERT_TRUE(a->InitColorTable(rgb, 1) && a->SetIndex(0, rgb, red));
    ASSERT_TRUE(b->InitColorTable(rgb, 1) && b->SetIndex(0, rgb, blue));
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(ConvertBytes(rgb, a, &index, 1), ElementsAre(255, 0, 0));
        EXPECT_THAT(ConvertBytes(rgb, b, &index, 1), ElementsAre(0, 0, 255));
        EXPECT_THAT(ConvertBytes(words, a, &index, 1), ElementsAre(0x00, 0xF8)) << "through RGB";
        EXPECT_THAT(ConvertBytes(words, b, &index, 1), ElementsAre(0x1F, 0x00)) << "through RGB";
        EXPECT_TRUE(ConvertBytes(a, b, &index, 1).empty()) << "other colours, other format";
    }
    EXPECT_EQ(a->GetId(), b->GetId());
    EXPECT_EQ(a->GetPixelFormatGroup(), FormatOf("indexed.u8bit")->GetPixelFormatGroup());
    // A conversion that was found has the colours of that moment, whatever happens to its format.
    const Result<ConvertPixelFunc> kept = FindConversion(rgb, a);
    ASSERT_TRUE(a->SetIndex(0, rgb, blue));
    EXPECT_THAT(ConvertBytes(rgb, a, &index, 1), ElementsAre(0, 0, 255));
    a = PixelFormatIndexedColor();
    uint8_t pixel[3];
    ASSERT_TRUE(kept && (*kept)({pixel, BITS(24)}, 1, {&index, BITS(8)}, {}));
    EXPECT_THAT(pixel, ElementsAre(255, 0, 0));
}

TEST_F(SpecialIndexedTest, StreamsAndClonesKeepTheColors) {
    const PixelFormat rgb = FormatOf("rgb.u8"), published = FormatOf("indexed.u4bit");
    const PixelFormatIndexedColor made = CreateWithColors(4, 5);
    MediaStreamFormat stream;
    ASSERT_TRUE(stream.Set(mediaformat::kPixelFormat, made));
    MediaStreamFormat copy = stream;
    ASSERT_TRUE(copy.Set(mediaformat::kWidth, 9));
    const Bytes line = {0x04, 0x4F};  // 0, 4, 4 and what lies behind the table
    for (const MediaStreamFormat& carrier : {stream, copy}) {
        const PixelFormat carried = carrier.Get(mediaformat::kPixelFormat, PixelFormat());
        EXPECT_EQ(carried, PixelFormat(made));
        EXPECT_EQ(carried->GetId(), published->GetId());
        EXPECT_FALSE(carried == published);
    }
    const auto clone = Cast<PixelFormatIndexedColorInterface>(made->Clone().GetValueOr(ObjectRef()));
    EXPECT_EQ(ConvertBytes(rgb, clone, line.data(), 4), ConvertBytes(rgb, made, line.data(), 4));
    EXPECT_EQ(clone->GetColorTableSize(), 5);
    EXPECT_EQ(clone->GetClassId(), made->GetClassId());
    const uint8_t black[3] = {};
    ASSERT_TRUE(clone->SetIndex(4, rgb, black));
    EXPECT_THAT(ConvertBytes(rgb, clone, line.data(), 2), ElementsAre(1, 0, 255, 0, 0, 0));
    EXPECT_THAT(ConvertBytes(rgb, made, line.data(), 2), ElementsAre(1, 0, 255, 29, 0, 251)) << "its own table";
    const auto blank = Cast<PixelFormatIndexedColorInterface>(published->Clone().GetValueOr(ObjectRef()));
    EXPECT_EQ(blank->GetColorTableSize(), 0);
    EXPECT_TRUE(blank->InitColorTable(rgb, 16)) << "a clone is not shared";
    EXPECT_FALSE(Cast<PixelFormatIndexedColorInterface>(published)->InitColorTable(rgb, 16));
}

TEST_F(SpecialIndexedTest, ReadsAndWritesEntriesInAnyFormat) {
    const PixelFormat rgb = FormatOf("rgb.u8"), rgba = FormatOf("rgba.u16");
    const PixelFormatIndexedColor format = CreateWithColors(2, 3);
    EXPECT_EQ(format->GetColorTablePixelFormat(), rgb);
    EXPECT_EQ(format->GetColorSpace(), rgb->GetColorSpace());
    EXPECT_EQ(format->GetDefaultColorProfile(), rgb->GetDefaultColorProfile());
    EXPECT_FALSE(format->HasAlpha());
    uint16_t read[4] = {};
    ASSERT_TRUE(format->GetIndex(2, rgba, read));
    EXPECT_THAT(read, ElementsAre(0x0F0F, 0, 0xFDFD, 0xFFFF));
    for (const Int outside : {Int(-1), Int(3), Int(1) << 40}) {
        EXPECT_EQ(ErrorIdOf(format->SetIndex(outside, rgba, read)), errorid::kIllegalArgument);
        EXPECT_EQ(ErrorIdOf(format->GetIndex(outside, rgba, read)), errorid::kIllegalArgument);
    }
    ASSERT_TRUE(format->InitColorTable(rgba, 4)) << "another table";
    ASSERT_TRUE(format->GetIndex(2, rgba, read));
    EXPECT_THAT(read, ElementsAre(0, 0, 0, 0)) << "all zero";
    for (const Int width : {Int(-1), Int(0), Int(9), Int(15), Int(17), Int(32)})
        EXPECT_FALSE(PixelFormats::CreateIndexed(width, rgb, 2)) << width;
    EXPECT_FALSE(PixelFormats::CreateIndexed(2, rgb, 5)) << "two bits count to four";
}

TEST_F(SpecialIndexedTest, ProfilesConvertTheColorsWithTheirAlpha) {
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    const ColorProfile linear = colorprofiles::Get(colorprofiles::kLinearRgb);
    const uint16_t colors[2][4] = {{0x8000, 0x1234, 0xFFFF, 0x4567}, {0x0102, 0xC000, 0, 0xFFFF}};
    const PixelFormat entry = FormatOf("rgba.u16");
    const auto format = PixelFormats::CreateIndexed(1, entry, 2);
    ASSERT_TRUE(format);
    for (Int i = 0; i < 2; ++i)
        ASSERT_TRUE((*format)->SetIndex(i, entry, colors[i]));
    const uint8_t line = 0x40;
    for (const char* name : {"rgba.u16", "rgb.u8", "bgra.f16", "argb.u4444"}) {
        const PixelFormat dst = FormatOf(name);
        const auto convert = [&](const PixelFormat& src, const void* pixels) {
            Bytes out(size_t(dst->GetBytesPerLine(2)));
            ColorProfile target = linear;
            const Result<void> done =
                dst->ConvertPixelFromSlow({out.data(), dst->GetBitsPerPixel()}, 2, {pixels, src->GetBitsPerPixel()},
                                          src, &srgb, &target, CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION);
            EXPECT_TRUE(done) << MessageOf(done);
            return out;
        };
        EXPECT_EQ(convert(*format, &line), convert(entry, colors)) << name;
        EXPECT_NE(convert(*format, &line), ConvertBytes(dst, entry, colors, 2)) << name << " by plain arithmetic";
    }
}

TEST_F(SpecialIndexedTest, RefusesConversionWithoutColors) {
    const PixelFormatIndexedColor empty = Create(4);
    const PixelFormat rgb = FormatOf("rgb.u8");
    EXPECT_THAT(MessageOf(FindConversion(rgb, empty)), StartsWith("No pixel conversion found from"));
    uint8_t pixel[3] = {};
    EXPECT_FALSE(empty->SetIndex(0, rgb, pixel) || empty->GetIndex(0, rgb, pixel));
    for (const char* name : {"indexed.u8bit", "indexed.u1bit", "yuv.i422a", ""})
        EXPECT_FALSE(empty->InitColorTable(FormatOf(name), 2)) << name << " cannot be an entry";
    EXPECT_FALSE(empty->InitColorTable(rgb, 0) || empty->InitColorTable(rgb, 17));
    ASSERT_TRUE(empty->InitColorTable(rgb, 16));
    EXPECT_FALSE(empty->SetIndex(0, FormatOf("alpha.f16"), pixel)) << "no conversion, no colour";
}

TEST_F(SpecialIndexedTest, ConcurrentReadersShareOneTable) {
    const PixelFormat rgb = FormatOf("rgb.u8");
    const PixelFormatIndexedColor format = CreateWithColors(8, 256);
    const uint8_t line[] = {0, 1, 200, 255};
    RunAtOnce(4, [&] {
        for (int i = 0; i < 20; ++i)
            EXPECT_THAT(ConvertBytes(rgb, format, line, 4), ElementsAre(1, 0, 255, 8, 0, 254, 121, 0, 55, 250, 0, 0));
    });
}

}  // namespace
}  // namespace orvik
