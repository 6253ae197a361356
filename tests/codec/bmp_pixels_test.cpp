// BMP: palettes, pixels of 16 bits, and run lengths, with expected pixels written by hand.

#include "bmp_parts.h"

namespace codectest {
namespace {

class BmpPixelsTest : public CodecTest {};

Result<Bytes> LoadRgba(const Bytes& file) {
    const ImageTextureRef texture = TRY(Load(file));
    return RgbaOf(texture);
}

// --- Palettes --------------------------------------------------------------------------------------------------------

struct PaletteCase {
    const char* what;
    BmpParts parts;
    Bytes rgba;  ///< top row first
};

TEST_F(BmpPixelsTest, Palettes) {
    const Bytes black = {0, 0, 0, 255}, clear = {0, 0, 0, 0}, first = {3, 2, 1, 255}, second = {6, 5, 4, 255},
                third = {9, 8, 7, 255};
    const auto row = [](std::initializer_list<Bytes> pixels) {
        Bytes all;
        for (const Bytes& pixel : pixels)
            all.insert(all.end(), pixel.begin(), pixel.end());
        return all;
    };
    const Bytes two = {1, 2, 3, 0, 4, 5, 6, 0}, three = {1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0};
    Bytes core = {1, 2, 3, 4, 5, 6};
    core.resize(3 * 256);
    Bytes core1 = {1, 2, 3, 4, 5, 6};
    const PaletteCase cases[] = {
        {"1 bit, the high bit first",
         {.width = 3, .height = 1, .bitCount = 1, .palette = two, .rows = {0x40, 0, 0, 0}},
         row({first, second, first})},
        {"1 bit, one colour",
         {.width = 2, .height = 1, .bitCount = 1, .colorsUsed = 1, .palette = {1, 2, 3, 0}, .rows = {0x40, 0, 0, 0}},
         row({first, black})},
        {"2 bits",
         {.width = 3, .height = 1, .bitCount = 2, .colorsUsed = 3, .palette = three, .rows = {0x60, 0, 0, 0}},
         row({second, third, first})},
        {"4 bits, bottom up",
         {.width = 2,
          .height = 2,
          .bitCount = 4,
          .colorsUsed = 3,
          .palette = three,
          .rows = {0x01, 0, 0, 0, 0x20, 0, 0, 0}},
         row({third, first, first, second})},
        {"4 bits, top down",
         {.width = 2,
          .height = -2,
          .bitCount = 4,
          .colorsUsed = 3,
          .palette = three,
          .rows = {0x01, 0, 0, 0, 0x20, 0, 0, 0}},
         row({first, second, third, first})},
        {"8 bits, an index beyond the table",
         {.width = 4, .height = 1, .bitCount = 8, .colorsUsed = 3, .palette = three, .rows = {2, 0, 3, 255}},
         row({third, first, black, black})},
        {"fewer colours than told are there",
         {.width = 1,
          .height = 1,
          .bitCount = 8,
          .colorsUsed = 0x7FFFFFFF,
          .palette =
              [] {
                  Bytes all(1024);
                  all[255 * 4] = 7;
                  return all;
              }(),
          .rows = {255, 0, 0, 0}},
         row({{0, 0, 7, 255}})},
        {"core header, 1 bit",
         {.headerSize = 12, .width = 2, .height = 1, .bitCount = 1, .palette = core1, .rows = {0x40, 0, 0, 0}},
         row({first, second})},
        {"core header, 8 bits",
         {.headerSize = 12, .width = 3, .height = 1, .bitCount = 8, .palette = core, .rows = {1, 0, 2, 0}},
         row({second, first, black})},
        {"a fourth byte makes all alphas count",
         {.width = 4,
          .height = 1,
          .bitCount = 8,
          .colorsUsed = 2,
          .palette = {1, 2, 3, 0, 4, 5, 6, 55},
          .rows = {0, 1, 1, 2}},
         row({first, {6, 5, 4, 200}, {6, 5, 4, 200}, clear})},
        {"V4",
         {.headerSize = 108, .width = 1, .height = 1, .bitCount = 1, .palette = two, .rows = {0x80, 0, 0, 0}},
         second},
        {"header of 56 bytes",
         {.headerSize = 56, .width = 1, .height = 1, .bitCount = 1, .palette = two, .rows = {0x80, 0, 0, 0}},
         second},
        {"masks do not matter",
         {.headerSize = 108,
          .width = 1,
          .height = 1,
          .bitCount = 8,
          .compression = 3,
          .colorsUsed = 2,
          .palette = two,
          .rows = {1, 0, 0, 0}},
         second},
    };
    for (const PaletteCase& c : cases) {
        SCOPED_TRACE(c.what);
        for (const bool offset : {true, false}) {
            Bytes file = c.parts.Make();
            if (!offset)
                std::memset(file.data() + 10, 0, 4);  // the rows follow the palette
            const Result<Bytes> rgba = LoadRgba(file);
            ASSERT_TRUE(rgba) << rgba.GetError()->ToString().GetCString();
            EXPECT_EQ(*rgba, c.rgba);
        }
    }
}

TEST_F(BmpPixelsTest, PaletteStaysWithTheImage) {
    const Bytes file = BmpParts{.width = 1,
                                .height = 1,
                                .bitCount = 4,
                                .colorsUsed = 2,
                                .palette = {1, 2, 3, 0, 4, 5, 6, 9},
                                .rows = Bytes(4)}
                           .Make();
    const Result<ImageTextureRef> texture = Load(file);
    ASSERT_TRUE(texture);
    const auto format = Cast<PixelFormatIndexedColorInterface>(FirstImage(*texture)->GetPixelFormat());
    ASSERT_TRUE(format);
    EXPECT_EQ(format->GetId(), Id("net.orvik.image.pixelformat.indexed.u4bit"));
    EXPECT_EQ(format->GetColorTableSize(), 2);
    EXPECT_EQ(format->GetColorTablePixelFormat()->GetId(), pixelformats::kBgraU8);
    uint8_t color[4]{};
    ASSERT_TRUE(format->GetIndex(1, PixelFormats::Get(pixelformats::kBgraU8), color));
    EXPECT_THAT(color, testing::ElementsAre(4, 5, 6, 246));
}

TEST_F(BmpPixelsTest, PaletteMustBeThere) {
    Bytes file = BmpParts{.width = 1, .height = 1, .bitCount = 1, .rows = Bytes(4)}.Make();
    EXPECT_EQ(KindOf(Load(file)), "io");
}

// --- 16 bits ---------------------------------------------------------------------------------------------------------

TEST_F(BmpPixelsTest, SixteenBits) {
    struct Case {
        const char* what;
        uint32_t compression, red, green, blue, alpha;
        std::vector<uint16_t> pixels;
        Bytes rgba;
    };
    // The bits are not repeated in the low ones, but for 4 bits beside an alpha.
    const Bytes five = {248, 0, 0, 255, 0, 248, 0, 255, 8, 16, 248, 255};
    const Case cases[] = {
        {"555 without masks", 0, 1, 2, 4, 0, {0x7C00, 0x03E0, 0x045F}, five},
        {"555", 3, 0x7C00, 0x3E0, 0x1F, 0, {0xFC00, 0x03E0, 0x845F}, five},
        {"565", 3, 0xF800, 0x7E0, 0x1F, 0, {0xF800, 0x07E0, 0x083F}, {248, 0, 0, 255, 0, 252, 0, 255, 8, 4, 248, 255}},
        {"444", 3, 0xF00, 0xF0, 0xF, 0, {0x0F00, 0x00F0, 0x012F}, {240, 0, 0, 255, 0, 240, 0, 255, 16, 32, 240, 255}},
        {"1555",
         3,
         0x7C00,
         0x3E0,
         0x1F,
         0x8000,
         {0xFC00, 0x03E0, 0x845F},
         {248, 0, 0, 255, 0, 248, 0, 0, 8, 16, 248, 255}},
        {"4444",
         3,
         0xF00,
         0xF0,
         0xF,
         0xF000,
         {0xFF00, 0x00F0, 0x512F},
         {255, 0, 0, 255, 0, 255, 0, 0, 17, 34, 255, 85}},
    };
    for (const Case& c : cases) {
        for (const uint32_t headerSize : {40u, 108u}) {
            SCOPED_TRACE(testing::Message() << c.what << " " << headerSize);
            if (headerSize == 40 && c.alpha != 0)
                continue;  // no place for an alpha mask
            BmpParts parts{.headerSize = headerSize,
                           .width = 3,
                           .height = 1,
                           .bitCount = 16,
                           .compression = c.compression,
                           .red = c.red,
                           .green = c.green,
                           .blue = c.blue,
                           .alpha = c.alpha};
            for (const uint16_t pixel : c.pixels) {
                parts.rows.push_back(uint8_t(pixel));
                parts.rows.push_back(uint8_t(pixel >> 8));
            }
            parts.rows.resize(8);
            const Result<Bytes> rgba = LoadRgba(parts.Make());
            ASSERT_TRUE(rgba) << rgba.GetError()->ToString().GetCString();
            EXPECT_EQ(*rgba, c.rgba);
        }
    }
}

// --- Run lengths -----------------------------------------------------------------------------------------------------

/// A file whose colours tell their index: red is 10 times as much.
BmpParts RunParts(int bits, int width, int height, Bytes data) {
    BmpParts parts{.width = width,
                   .height = height,
                   .bitCount = uint16_t(bits),
                   .compression = bits == 8 ? 1u : 2u,
                   .colorsUsed = 16,
                   .rows = std::move(data)};
    for (int i = 0; i < 16; ++i)
        parts.palette.insert(parts.palette.end(), {0, 0, uint8_t(10 * i), 0});
    return parts;
}

struct RunCase {
    const char* what;
    int bits, width, height;
    Bytes data;
    std::string indices;  ///< hexadecimal, the row of the file first; empty for an error
    const char* message = "";
};

const char* const kCropped = "Illegal RLE compression (cropped data).";
const char* const kMissing = "Illegal RLE compression (missing data).";
const char* const kCorrupt = "Corrupt RLE compression.";

TEST_F(BmpPixelsTest, RunLengths) {
    Bytes wrapping;
    for (int i = 0; i < 257; ++i)
        wrapping.insert(wrapping.end(), {0, 2, 255, 0});
    wrapping.insert(wrapping.end(), {0, 2, 2, 0, 2, 7, 0, 1});
    const RunCase cases[] = {
        {"runs", 8, 5, 2, {5, 7, 0, 0, 5, 9, 0, 1}, "7777799999"},
        {"an end of line closes the last row", 8, 2, 1, {2, 7, 0, 0}, "77"},
        {"a lone 0 ends the last line", 8, 2, 1, {2, 7, 0}, "77"},
        {"short lines", 8, 3, 2, {1, 7, 0, 0, 0, 0}, "700000"},
        {"odd literals and a filler", 8, 5, 1, {0, 3, 1, 2, 3, 99, 2, 5, 0, 1}, "12355"},
        {"even literals", 8, 5, 1, {0, 4, 1, 2, 3, 4, 1, 5, 0, 1}, "12345"},
        {"the last filler is missing", 8, 3, 1, {0, 3, 1, 2, 3}, "", kCropped},
        {"a row as long as its bytes", 8, 8, 2, {8, 7, 0, 0, 8, 9, 0, 1}, "7777777799999999"},
        {"a run past the row's bytes ends the line", 8, 5, 2, {255, 7, 5, 9, 0, 1}, "7777799999"},
        {"a run into the filler does not", 8, 5, 2, {8, 7, 0, 0, 5, 9, 0, 1}, "7777799999"},
        {"literals past the row are codes", 8, 8, 2, {0, 10, 1, 2, 3, 4, 5, 6, 7, 8, 8, 9, 0, 1}, "1234567899999999"},
        {"after their filler", 8, 8, 2, {0, 11, 1, 2, 3, 4, 5, 6, 7, 8, 99, 8, 9, 0, 1}, "1234567899999999"},
        {"a jump to the right", 8, 5, 1, {2, 7, 0, 2, 1, 0, 2, 8, 0, 0}, "77088"},
        {"a jump by one line ends the line", 8, 3, 2, {1, 7, 0, 2, 2, 1, 1, 8, 0, 1}, "700800"},
        {"a jump down leaves lines out", 8, 3, 4, {1, 7, 0, 2, 1, 3, 1, 8, 0, 1}, "700000000800"},
        {"a jump beyond the last line", 8, 3, 2, {1, 7, 0, 2, 1, 3}, "", kCorrupt},
        {"x begins anew after 65535", 8, 5, 1, wrapping, "07700"},
        {"an early end", 8, 5, 3, {5, 7, 0, 0, 0, 1}, "", kMissing},
        {"no data", 8, 5, 1, {}, "", kCropped},
        {"no value", 8, 5, 1, {5}, "", kCropped},
        {"no second line", 8, 5, 2, {5, 7, 0, 0}, "", kCropped},
        {"no literals", 8, 5, 1, {0, 5, 1, 2}, "", kCropped},
        {"half a jump", 8, 5, 1, {0, 2, 1}, "", kCropped},

        {"halves in turn", 4, 5, 1, {5, 0x12, 0, 1}, "12121"},
        {"a run from an odd pixel begins with the high half", 4, 5, 1, {1, 0x30, 4, 0x12, 0, 1}, "31212"},
        {"5 literals", 4, 5, 1, {0, 5, 0x12, 0x34, 0x5F, 99, 0, 1}, "12345"},
        {"4 literals", 4, 5, 1, {0, 4, 0x12, 0x34, 1, 0x50, 0, 1}, "12345"},
        {"6 literals", 4, 7, 1, {0, 6, 0x12, 0x34, 0x56, 99, 1, 0x70, 0, 1}, "1234567"},
        {"7 literals", 4, 7, 1, {0, 7, 0x12, 0x34, 0x56, 0x7F, 0, 1}, "1234567"},
        {"literals fill the row", 4, 8, 1, {0, 8, 0x12, 0x34, 0x56, 0x78, 0, 1}, "12345678"},
        {"literals from an odd pixel", 4, 7, 1, {1, 0x90, 0, 6, 0x12, 0x34, 0x56, 99, 0, 1}, "9123456"},
        {"a run past the row's bytes", 4, 5, 2, {12, 0x12, 5, 0x34, 0, 1}, "1212134343"},
        {"literals past the row are codes",
         4,
         8,
         2,
         {0, 12, 0x12, 0x34, 0x56, 0x78, 8, 0x9A, 0, 1},
         "123456789A9A9A9A"},
        {"after their filler", 4, 8, 2, {0, 9, 0x12, 0x34, 0x56, 0x78, 99, 8, 0x9A, 0, 1}, "123456789A9A9A9A"},
        {"a jump", 4, 5, 3, {1, 0x70, 0, 2, 1, 0, 1, 0x80, 0, 2, 0, 2, 1, 0x90, 0, 1}, "708000000090000"},
        {"a lone 0", 4, 2, 1, {2, 0x77, 0}, "", kCropped},
        {"no nibbles", 4, 8, 1, {0, 8, 0x12}, "", kCropped},
    };
    for (const RunCase& c : cases) {
        SCOPED_TRACE(c.what);
        const Result<Bytes> rgba = LoadRgba(RunParts(c.bits, c.width, -c.height, c.data).Make());
        EXPECT_EQ(MessageOf(rgba), c.message);
        EXPECT_EQ(KindOf(rgba), *c.message ? "mediasessionwrongtype" : "ok");
        if (!rgba)
            continue;
        std::string indices;
        for (size_t i = 0; i < rgba->size(); i += 4)
            indices += "0123456789ABCDEF"[(*rgba)[i] / 10];
        EXPECT_EQ(indices, c.indices);
    }
}

TEST_F(BmpPixelsTest, RunsGoBottomUpToo) {
    const Result<Bytes> rgba = LoadRgba(RunParts(8, 2, 2, {2, 7, 0, 0, 2, 9, 0, 1}).Make());
    ASSERT_TRUE(rgba);
    EXPECT_EQ(*rgba, (Bytes{90, 0, 0, 255, 90, 0, 0, 255, 70, 0, 0, 255, 70, 0, 0, 255}));
}

/// Two fields bound the runs: the smaller one counts.
TEST_F(BmpPixelsTest, FieldsBoundTheRuns) {
    const Bytes good = RunParts(8, 2, 1, {2, 7, 0, 1}).Make();
    ASSERT_TRUE(Load(good));
    const struct {
        size_t offset;
        uint32_t value;
        const char* message;
    } cases[] = {
        {34, 0, kCropped},
        {34, 1, kCropped},
        {34, 0xFFFFFFFF, ""},
        {2, 0, kCropped},
        {2, 0xFFFFFFFF, ""},
        {2, uint32_t(good.size()) - 3, kCropped},
        {2, uint32_t(good.size()) - 5, kCropped},
    };
    for (const auto& c : cases) {
        Bytes file = good;
        std::memcpy(file.data() + c.offset, &c.value, 4);
        EXPECT_EQ(MessageOf(Load(file)), c.message) << c.offset << " " << c.value;
    }
}

TEST_F(BmpPixelsTest, RowsBeforeBrokenRunsStay) {
    // Straight into the stream, for a texture that failed to load is not handed out.
    const Bytes file = RunParts(8, 2, 2, {2, 7, 0, 0, 2}).Make();
    const MediaSessionFileFormatHandler handler = FindHandlerBySuffix("bmp");
    const auto input = Cast<MediaConverterInterface>(*handler->CreateHandler(Mount(file)));
    const ImageTextureRef texture = *ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>();
    const auto output = *ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>();
    ASSERT_TRUE(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
    const auto session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
    ASSERT_TRUE(session->ConnectMediaConverter(input, output));
    EXPECT_EQ(MessageOf(session->Convert(TimeValue(), MEDIASESSIONFLAGS::NONE)), kCropped);
    EXPECT_EQ(RgbaOf(texture), (Bytes{0, 0, 0, 255, 0, 0, 0, 255, 70, 0, 0, 255, 70, 0, 0, 255}));
}

}  // namespace
}  // namespace codectest
