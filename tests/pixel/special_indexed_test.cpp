// Indices and their colours.

#include <array>
#include <gmock/gmock.h>
#include <thread>

#include "slow_special.h"

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
    /// An entry whose bytes tell its index.
    static std::array<uint8_t, 3> ColorOf(Int index) {
        return {static_cast<uint8_t>(index * 7 + 1), static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(~index)};
    }
    static PixelFormatIndexedColor CreateWithColors(Int width, Int count) {
        PixelFormatIndexedColor format = Create(width);
        const PixelFormat rgb = FormatOf("rgb.u8");
        EXPECT_TRUE(format->InitColorTable(rgb, count));
        for (Int i = 0; i < count; ++i)
            EXPECT_TRUE(format->SetIndex(i, rgb, ColorOf(i).data()));
        return format;
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
                Bytes line(static_cast<size_t>((phase + count * width + 7) / 8));
                for (uint8_t& byte : line)
                    byte = static_cast<uint8_t>(random());
                const std::string bits = BitsOf(line);
                Bytes wanted(static_cast<size_t>(count) * 3);
                for (Int i = 0; i < count; ++i) {
                    Int index =
                        width == 16
                            ? line[static_cast<size_t>(2 * i)] + 256 * line[static_cast<size_t>(2 * i + 1)]
                            : std::stol(bits.substr(static_cast<size_t>(phase + i * width), static_cast<size_t>(width)),
                                        nullptr, 2);
                    if (index < format->GetColorTableSize())
                        std::memcpy(&wanted[static_cast<size_t>(i) * 3], ColorOf(index).data(), 3);
                }
                Bytes out(wanted.size());
                const Result<void> done =
                    rgb->ConvertPixelFromSlow({out.data(), BITS(24), 0}, count, {line.data(), BITS(width), phase},
                                              format, nullptr, nullptr, CONVERTPIXELFLAGS::NONE);
                ASSERT_TRUE(done) << MessageOf(done);
                ASSERT_EQ(out, wanted) << width << " bits, phase " << phase << ", " << count << " pixels";
                if (width == 16)
                    count += 6;  // each conversion makes 65536 colours ready
            }
        }
    }
}

TEST_F(SpecialIndexedTest, OwnLinesAreCopiedWithoutTheirNeighbours) {
    std::mt19937 random(4);
    for (const Int width : kWidths) {
        const PixelFormatIndexedColor format = CreateWithColors(width, 2);
        const Result<ConvertPixelFunc> copy = FindConversion(format, format);
        ASSERT_TRUE(copy) << MessageOf(copy);
        for (int phase = 0; phase < (width < 8 ? 8 : 1); ++phase) {
            for (Int count = 0; count <= 70; ++count) {
                Bytes source(200), target(200);
                for (size_t i = 0; i < source.size(); ++i) {
                    source[i] = static_cast<uint8_t>(random());
                    target[i] = static_cast<uint8_t>(random());
                }
                const int dstPhase = width < 8 ? (phase * 5 + 3) & 7 : 0;
                const auto length = static_cast<size_t>(count * width);
                std::string wanted = BitsOf(target);
                wanted.replace(static_cast<size_t>(dstPhase), length,
                               BitsOf(source).substr(static_cast<size_t>(phase), length));
                ASSERT_TRUE((*copy)({target.data(), BITS(width), dstPhase}, count, {source.data(), BITS(width), phase},
                                    CONVERTPIXELFLAGS::NONE));
                ASSERT_EQ(BitsOf(target), wanted) << width << " bits, phase " << phase << ", " << count << " pixels";
            }
        }
    }
}

TEST_F(SpecialIndexedTest, EveryGeneralFormatGetsTheConvertedColor) {
    const Result<BaseArray<PixelFormat>> all = PixelFormats::GetAll();
    ASSERT_TRUE(all);
    const Bytes line = {0, 1, 2, 3, 255, 2};
    for (const char* entryName : {"rgb.u8", "rgba.u8", "grey.u16", "bgra.f32", "rgb.u565", "cmyk.u8", "alpha.u8"}) {
        const PixelFormat entry = FormatOf(entryName);
        const PixelFormatIndexedColor format = Create(8);
        ASSERT_TRUE(format->InitColorTable(entry, 4));
        const uint8_t colors[4][4] = {{1, 2, 3, 4}, {255, 128, 7, 0}, {0, 0, 0, 0}, {90, 80, 70, 60}};
        Bytes run;
        for (Int i = 0; i < 4; ++i)
            ASSERT_TRUE(format->SetIndex(i, FormatOf("rgba.u8"), colors[i]));
        for (const uint8_t index : line) {
            Bytes pixel(static_cast<size_t>(entry->GetBitsPerPixel().GetBytes()));
            if (index < 4)
                pixel = ConvertBytes(entry, FormatOf("rgba.u8"), colors[index], 1);
            run.insert(run.end(), pixel.begin(), pixel.end());
        }
        int tried = 0;
        for (const PixelFormat& dst : *all) {
            if (!IsGeneral(dst))
                continue;
            ++tried;
            EXPECT_EQ(ConvertBytes(dst, format, line.data(), 6), ConvertBytes(dst, entry, run.data(), 6))
                << entryName << " to " << TextOf(dst->GetId());
            // Planes: the channels one behind the other.
            std::vector<BITS> offsets;
            const ChannelOffsets own = dst->GetChannelOffsets();
            for (size_t c = 0; c + 1 < own.size(); ++c)
                offsets.push_back(own[c] * 6);
            const Int channelBits = own[1].GetBits();
            offsets.push_back(BITS(channelBits));
            const Result<ConvertPixelFunc> direct = FindConversion(dst, format, offsets, format->GetChannelOffsets());
            const Result<ConvertPixelFunc> plain = FindConversion(dst, entry, offsets, entry->GetChannelOffsets());
            ASSERT_TRUE(direct && plain) << entryName << " to " << TextOf(dst->GetId());
            Bytes a(256), b(256);
            ASSERT_TRUE(
                (*direct)({a.data(), BITS(channelBits), 0}, 6, {line.data(), BITS(8), 0}, CONVERTPIXELFLAGS::NONE));
            ASSERT_TRUE((*plain)({b.data(), BITS(channelBits), 0}, 6, {run.data(), entry->GetBitsPerPixel(), 0},
                                 CONVERTPIXELFLAGS::NONE));
            EXPECT_EQ(a, b) << entryName << " to planes of " << TextOf(dst->GetId());
        }
        EXPECT_EQ(tried, 49);
    }
}

TEST_F(SpecialIndexedTest, InstancesKeepTheirOwnColors) {
    const PixelFormat rgb = FormatOf("rgb.u8"), words = FormatOf("rgb.u565");
    const uint8_t red[3] = {255, 0, 0}, blue[3] = {0, 0, 255}, index = 0;
    const PixelFormatIndexedColor a = Create(8), b = Create(8);
    ASSERT_TRUE(a->InitColorTable(rgb, 1));
    ASSERT_TRUE(b->InitColorTable(rgb, 1));
    ASSERT_TRUE(a->SetIndex(0, rgb, red));
    ASSERT_TRUE(b->SetIndex(0, rgb, blue));
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(ConvertBytes(rgb, a, &index, 1), ElementsAre(255, 0, 0));
        EXPECT_THAT(ConvertBytes(rgb, b, &index, 1), ElementsAre(0, 0, 255));
        EXPECT_THAT(ConvertBytes(words, a, &index, 1), ElementsAre(0x00, 0xF8)) << "through RGB";
        EXPECT_THAT(ConvertBytes(words, b, &index, 1), ElementsAre(0x1F, 0x00)) << "through RGB";
        EXPECT_TRUE(ConvertBytes(a, b, &index, 1).empty()) << "other colours, other format";
    }
    EXPECT_EQ(a->GetId(), b->GetId());
    EXPECT_EQ(TextOf(a->GetShortName()), "Indexed::u8bit");
    EXPECT_EQ(a->GetPixelFormatGroup(), FormatOf("indexed.u8bit")->GetPixelFormatGroup());
    // A conversion that was found has the colours of that moment, whatever happens to its format.
    PixelFormatIndexedColor gone = Create(8);
    ASSERT_TRUE(gone->InitColorTable(rgb, 1));
    ASSERT_TRUE(gone->SetIndex(0, rgb, red));
    const Result<ConvertPixelFunc> kept = FindConversion(rgb, gone);
    ASSERT_TRUE(gone->SetIndex(0, rgb, blue));
    EXPECT_THAT(ConvertBytes(rgb, gone, &index, 1), ElementsAre(0, 0, 255));
    gone = PixelFormatIndexedColor();
    uint8_t pixel[3];
    ASSERT_TRUE(kept && (*kept)({pixel, BITS(24), 0}, 1, {&index, BITS(8), 0}, CONVERTPIXELFLAGS::NONE));
    EXPECT_THAT(pixel, ElementsAre(255, 0, 0));
}

TEST_F(SpecialIndexedTest, WithoutColorsThereIsNoConversion) {
    const PixelFormatIndexedColor empty = Create(4);
    const PixelFormat rgb = FormatOf("rgb.u8");
    EXPECT_THAT(MessageOf(FindConversion(rgb, empty)), StartsWith("No pixel conversion found from"));
    EXPECT_EQ(empty->GetColorTableSize(), 0);
    uint8_t pixel[3] = {};
    EXPECT_FALSE(empty->SetIndex(0, rgb, pixel));
    EXPECT_FALSE(empty->GetIndex(0, rgb, pixel));
    for (const char* name : {"indexed.u8bit", "indexed.u1bit", "yuv.i422a"})
        EXPECT_FALSE(empty->InitColorTable(FormatOf(name), 2)) << name << " cannot be an entry";
    EXPECT_FALSE(empty->InitColorTable(PixelFormat(), 2));
    EXPECT_FALSE(empty->InitColorTable(rgb, 0));
    EXPECT_FALSE(empty->InitColorTable(rgb, 17));
    ASSERT_TRUE(empty->InitColorTable(rgb, 16));
    EXPECT_FALSE(empty->SetIndex(0, FormatOf("alpha.f16"), pixel)) << "no conversion, no colour";
}

TEST_F(SpecialIndexedTest, ManyThreadsReadOneTable) {
    const PixelFormatIndexedColor format = CreateWithColors(8, 256);
    const Bytes line = {0, 1, 200, 255};
    Bytes wanted;
    for (const uint8_t index : line)
        for (const uint8_t byte : ColorOf(index))
            wanted.push_back(byte);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i)
                EXPECT_EQ(ConvertBytes(FormatOf("rgb.u8"), format, line.data(), 4), wanted);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace orvik
