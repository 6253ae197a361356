// BMP: files put together byte by byte, with pixels written by hand; files written here compared byte by byte.

#include "parts.h"

namespace codectest {
namespace {

class BmpTest : public CodecTest {};

const Bytes kRows24 = {1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 11, 12, 13, 14, 15, 16, 0xEE, 0xEE};  // bottom row first
const Bytes kRows32 = {1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18};
const char* const kWrongType = "mediasessionwrongtype";

/// @return format of the image
PixelFormat ExpectPixels(const Bytes& file, const Bytes& rgba) {
    const ImageTextureRef texture = LoadedAs("bmp", file);  // detection does not claim all headers
    EXPECT_EQ(RgbaOf(texture), rgba);
    return FirstImage(texture)->GetPixelFormat();
}

TEST_F(BmpTest, ReadsEveryGeneration) {
    const Bytes rgb24 = Rgba({0x0D0C0BFF, 0x100F0EFF, 0x030201FF, 0x060504FF});
    const Bytes plain32 = Rgba({0x0D0C0B0E, 0x11100F12, 0x03020104, 0x07060508});
    const Bytes opaque32 = Rgba({0x0D0C0BFF, 0x11100FFF, 0x030201FF, 0x070605FF});
    const uint32_t b0 = 0xFF, b1 = 0xFF00, b2 = 0xFF0000, b3 = 0xFF000000;  // bytes of a pixel
    BmpParts senseless{.headerSize = 124, .space = 0x4D424544, .rows = kRows24};
    senseless.profile = Bytes(200, 1);
    const struct {
        const char* what;
        BmpParts parts;
        Bytes rgba;           ///< top row first
        Int formatBits = 24;  ///< of the image; 24 are always "bgr.u8"
        const char* generation = "V3";
    } files[] = {
        {"core", {.headerSize = 12, .rows = kRows24}, rgb24, 24, ""},
        {"V3", {.rows = kRows24}, rgb24},
        {"top-down", {.height = -2, .rows = kRows24}, Rgba({0x030201FF, 0x060504FF, 0x0D0C0BFF, 0x100F0EFF})},
        {"44 bytes", {.headerSize = 44, .rows = kRows24}, rgb24},
        {"64 bytes", {.headerSize = 64, .rows = kRows24}, rgb24},
        {"V4 with unused masks", {.headerSize = 108, .red = 5, .rows = kRows24}, rgb24, 24, "V4"},
        {"110 bytes", {.headerSize = 110, .rows = kRows24}, rgb24, 24, "V4"},
        {"V5", {.headerSize = 124, .rows = kRows24}, rgb24, 24, "V5"},
        {"V5 with a profile that is none", senseless, rgb24, 24, "V5"},
        {"130 bytes", {.headerSize = 130, .rows = kRows24}, rgb24, 24, "V5"},
        {"plain 32 bits", {.bitCount = 32, .rows = kRows32}, plain32},
        {"all masks", Masked(32, 108, {b2, b1, b0, b3}, kRows32), plain32, 32, "V4"},
        {"V5 all masks", Masked(32, 124, {b2, b1, b0, b3}, kRows32), plain32, 32, "V5"},
        {"no alpha", Masked(32, 108, {b2, b1, b0, 0}, kRows32), opaque32, 24, "V4"},
        {"V3 masks", Masked(32, 40, {b2, b1, b0, b3}, kRows32), opaque32},
        {"leading filler", Masked(32, 56, {b3, b2, b1, 0}, kRows32),
         Rgba({0x0E0D0CFF, 0x121110FF, 0x040302FF, 0x080706FF})},
        {"alpha first", Masked(32, 56, {b3, b2, b1, b0}, kRows32),
         Rgba({0x0E0D0C0B, 0x1211100F, 0x04030201, 0x08070605}), 32},
        {"gap in the middle", Masked(32, 56, {b3, b1, b0, 0}, kRows32),
         Rgba({0x0E0C0BFF, 0x12100FFF, 0x040201FF, 0x080605FF}), 32},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.what);
        const ImageTextureRef texture = LoadedAs("bmp", file.parts.Make());
        EXPECT_EQ(RgbaOf(texture), file.rgba);
        EXPECT_EQ(ProfileOf(texture), colorprofiles::Get(colorprofiles::kSrgb));
        const ImageBaseRef alpha = AlphaOf(FirstImage(texture));
        EXPECT_EQ(static_cast<bool>(alpha), file.rgba[3] != 255);
        EXPECT_TRUE(!alpha || alpha->Get(image::kAlphaName, String()) == String("Alpha"));
        EXPECT_TRUE(!alpha || alpha->GetPixelFormat()->GetId() == pixelformats::kAlphaU8);
        const PixelFormat format = FirstImage(texture)->GetPixelFormat();
        EXPECT_EQ(format->GetBitsPerPixel().GetBits(), file.formatBits);
        EXPECT_EQ(format->GetId() == pixelformats::kBgrU8, file.formatBits == 24);
        const DataDictionary settings = texture->Get(image::kExportSettings, DataDictionary());
        EXPECT_EQ(settings.Get(mediaexport::kBmpInfoHeader, Id()).GetText(), file.generation);
    }
}

TEST_F(BmpTest, KeepsOnlyPlausibleResolutions) {
    const struct {
        int32_t x, y;
        Float dpi, aspectRatio;  ///< 0: absent
    } cases[] = {
        {0, 0, 0, 0},           {0, 100, 0, 0},           {39, 39, 0, 0},          {40, 40, 1.016, 0},
        {40, 0, 1.016, 0},      {100, 1000, 2.541, 0},    {100, 999, 2.541, 9.99}, {100, 10, 2.541, 0},
        {100, 11, 2.541, 0.11}, {2834, -5668, 72.002, 2}, {-100, 50, 2.541, 0.5},  {393599, 393599, 9999.975, 0},
        {393600, 1, 0, 0},      {INT32_MIN, 1, 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.x << " " << c.y);
        const BmpParts parts{.xPerMetre = c.x, .yPerMetre = c.y, .rows = kRows24};
        ExpectResolution(parts.Make(), c.dpi, c.aspectRatio, 1e-3);
    }
}

/// Good files with one wrong field each.
TEST_F(BmpTest, RefusesDamage) {
    const struct {
        BmpParts parts;
        const char* message;
        const char* kind = kWrongType;
    } cases[] = {
        {{.bitCount = 0, .rows = kRows24}, "Invalid image bit count: 0."},
        {{.bitCount = 3, .rows = kRows24}, "Invalid image bit count: 3."},
        {{.bitCount = 12, .rows = kRows24}, "Invalid image bit count: 12."},
        {{.bitCount = 33, .rows = kRows24}, ""},
        {{.headerSize = 13, .rows = kRows24}, "Invalid image bit count: 0."},
        {{.headerSize = 39, .rows = kRows24}, "Invalid image bit count: 0."},
        {{.headerSize = 12, .planes = 2, .rows = kRows24}, ""},
        {{.width = -1, .rows = kRows24}, "Invalid Image width: -1."},
        {{.compression = 4, .rows = kRows24}, "unsupported bmp compression (4)."},
        {{.compression = 1, .rows = {0, 1}}, "Illegal RLE compression (missing data)."},
        {{.height = 3, .rows = kRows24}, ""},
        {{.height = INT32_MIN, .rows = kRows24}, ""},
        {{.width = INT32_MAX, .height = INT32_MAX, .rows = kRows24}, "", "outofmemory"},
        {Masked(32, 108, {0, 0, 0, 0}, kRows32), "Invalid image bit count: 32."},
        {Masked(32, 52, {0xFF0000, 0xFF00, 0xFF, 0}, kRows32), "Invalid image bit count: 32."},  // has no masks yet
        {Masked(32, 108, {0xFF, 0xFF0, 0, 0}, kRows32),
         "BITMAPV4HEADER unsupported mask value (ff0) for channel 'net.orvik.image.imagechanneltype.green'."},
        {Masked(32, 108, {0xFF, 0, 0, 0xFF01}, kRows32),
         "BITMAPV4HEADER unsupported mask value (ff01) for channel 'net.orvik.image.imagechanneltype.unused'."},
        {Masked(32, 108, {0xFF, 0, 0xFF, 0}, kRows32),
         "BITMAPV4HEADER duplicate mask value (ff) for channel 'net.orvik.image.imagechanneltype.blue'."},
        {{.bitCount = 16, .compression = 3, .red = 1, .green = 2, .blue = 4, .rows = kRows24}, "unsupported pixeltype"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << &c - cases << ": " << c.message);
        const Result<ImageTextureRef> loaded = LoadAs("bmp", c.parts.Make());
        EXPECT_EQ(MessageOf(loaded), c.message);
        EXPECT_EQ(KindOf(loaded), c.kind);
    }
    for (const uint32_t profileSize : {2000u, 0xFFFFFFFFu}) {
        Bytes file = BmpParts{.headerSize = 124, .space = 0x4D424544, .profile = Bytes(4), .rows = kRows24}.Make();
        Put32(file, 14 + 116, profileSize, false);
        EXPECT_EQ(KindOf(Load(file)), kWrongType);
    }
}

TEST_F(BmpTest, LoadsPicturesWithoutPixels) {
    for (const auto& [width, height] : {std::pair(0, 2), {2, 0}, {0, 0}}) {
        for (const uint32_t compression : {0u, 1u}) {
            SCOPED_TRACE(testing::Message() << width << " " << height << " " << compression);
            const BmpParts parts{.width = width, .height = height, .compression = compression};
            const ImageBaseRef image = FirstImage(Loaded(parts.Make()));
            EXPECT_EQ(std::pair(image->GetWidth(), image->GetHeight()), std::pair(Int(width), Int(height)));
        }
    }
}

TEST_F(BmpTest, HonorsThePixelOffset) {
    Bytes file = BmpParts{.rows = kRows24}.Make();
    file.insert(file.begin() + 54, 10, 0xAA);
    for (const auto& [offset, red] : {std::pair(64, 13), {0, 0xAA}}) {  // 0: the rows follow the header
        file[10] = uint8_t(offset);
        EXPECT_EQ(RgbaOf(Loaded(file))[offset ? 0 : 8], red);
    }
}

TEST_F(BmpTest, Palettes) {
    const uint32_t black = 0x000000FF, first = 0x030201FF, second = 0x060504FF, third = 0x090807FF;
    const Bytes two = {1, 2, 3, 0, 4, 5, 6, 0}, three = {1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0};
    Bytes core = {1, 2, 3, 4, 5, 6}, full(1024);
    core.resize(3 * 256);
    full[255 * 4] = 7;
    BmpParts untold = Indexed(1, 3, 1, two, {0x40, 0, 0, 0}), excessive = Indexed(8, 1, 1, full, {255, 0, 0, 0}),
             masked = Indexed(8, 1, 1, two, {1, 0, 0, 0}, 108);
    untold.colorsUsed = 0;
    excessive.colorsUsed = 0x7FFFFFFF;
    masked.compression = 3;
    const struct {
        const char* what;
        BmpParts parts;
        Bytes rgba;  ///< top row first
    } cases[] = {
        {"1 bit, the high bit first", untold, Rgba({first, second, first})},
        {"1 bit, one colour", Indexed(1, 2, 1, {1, 2, 3, 0}, {0x40, 0, 0, 0}), Rgba({first, black})},
        {"2 bits", Indexed(2, 3, 1, three, {0x60, 0, 0, 0}), Rgba({second, third, first})},
        {"4 bits, bottom up", Indexed(4, 2, 2, three, {0x01, 0, 0, 0, 0x20, 0, 0, 0}),
         Rgba({third, first, first, second})},
        {"4 bits, top down", Indexed(4, 2, -2, three, {0x01, 0, 0, 0, 0x20, 0, 0, 0}),
         Rgba({first, second, third, first})},
        {"8 bits, an index beyond the table", Indexed(8, 4, 1, three, {2, 0, 3, 255}),
         Rgba({third, first, black, black})},
        {"the header counts more colours than there are", excessive, Rgba({0x000007FF})},
        {"core header, 1 bit", Indexed(1, 2, 1, {1, 2, 3, 4, 5, 6}, {0x40, 0, 0, 0}, 12), Rgba({first, second})},
        {"core header, 8 bits", Indexed(8, 3, 1, core, {1, 0, 2, 0}, 12), Rgba({second, first, black})},
        {"a fourth byte makes all alphas count", Indexed(8, 4, 1, {1, 2, 3, 0, 4, 5, 6, 55}, {0, 1, 1, 2}),
         Rgba({first, 0x060504C8, 0x060504C8, 0})},
        {"header of 52 bytes", Indexed(1, 1, 1, two, {0x80, 0, 0, 0}, 52), Rgba({second})},
        {"header of 56 bytes", Indexed(1, 1, 1, two, {0x80, 0, 0, 0}, 56), Rgba({second})},
        {"masks do not matter", masked, Rgba({second})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes file = c.parts.Make();
        ExpectPixels(file, c.rgba);
        Put32(file, 10, 0, false);  // the rows follow the palette
        const auto format = Cast<PixelFormatIndexedColorInterface>(ExpectPixels(file, c.rgba));  // with its colours
        ASSERT_TRUE(format);
        EXPECT_EQ(format->GetBitsPerPixel().GetBits(), c.parts.bitCount);
        EXPECT_EQ(format->GetColorTableSize(), Int(c.parts.palette.size()) / (c.parts.headerSize == 12 ? 3 : 4));
        EXPECT_EQ(format->GetColorTablePixelFormat()->GetId(),
                  c.rgba.back() == 0 ? pixelformats::kBgraU8 : pixelformats::kBgrU8);
    }
    EXPECT_EQ(KindOf(Load(Indexed(1, 1, 1, {}, Bytes(4)).Make())), "io");  // the palette must be there
}

TEST_F(BmpTest, SixteenBits) {
    // The bits are not repeated in the low ones, except for 4 bits next to an alpha.
    const Bytes pixels555 = {0x00, 0xFC, 0xE0, 0x03, 0x5F, 0x84, 0, 0},
                five = Rgba({0xF80000FF, 0x00F800FF, 0x0810F8FF});
    BmpParts unmasked = Masked(16, 108, {1, 2, 4, 0}, pixels555);
    unmasked.compression = 0;
    ExpectPixels(unmasked.Make(), five);
    unmasked.headerSize = 40;
    ExpectPixels(unmasked.Make(), five);
    const struct {
        uint32_t red, green, blue, alpha;
        Bytes rows, rgba;
    } cases[] = {
        {0x7C00, 0x3E0, 0x1F, 0, pixels555, five},
        {0xF800, 0x7E0, 0x1F, 0, {0, 0xF8, 0xE0, 7, 0x3F, 8, 0, 0}, Rgba({0xF80000FF, 0x00FC00FF, 0x0804F8FF})},
        {0xF00, 0xF0, 0xF, 0, {0, 0x0F, 0xF0, 0, 0x2F, 1, 0, 0}, Rgba({0xF00000FF, 0x00F000FF, 0x1020F0FF})},
        {0x7C00, 0x3E0, 0x1F, 0x8000, pixels555, Rgba({0xF80000FF, 0x00F80000, 0x0810F8FF})},
        {0xF00, 0xF0, 0xF, 0xF000, {0, 0xFF, 0xF0, 0, 0x2F, 0x51, 0, 0}, Rgba({0xFF0000FF, 0x00FF0000, 0x1122FF55})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.alpha << " " << c.red);
        ExpectPixels(Masked(16, 108, {c.red, c.green, c.blue, c.alpha}, c.rows).Make(), c.rgba);
        if (c.alpha == 0)  // the oldest header has no place for it
            ExpectPixels(Masked(16, 40, {c.red, c.green, c.blue, 0}, c.rows).Make(), c.rgba);
    }
}

const char* const kCropped = "Illegal RLE compression (cropped data).";

TEST_F(BmpTest, RunLengths) {
    Bytes wrapping;
    for (int i = 0; i < 257; ++i)
        wrapping.insert(wrapping.end(), {0, 2, 255, 0});
    wrapping.insert(wrapping.end(), {0, 2, 2, 0, 2, 7, 0, 1});
    const struct {
        const char* what;
        int bits, width, height;
        Bytes data;
        std::string indices;  ///< hexadecimal, the row of the file first; empty for an error
        const char* message = "";
    } cases[] = {
        {"runs", 8, 5, 2, {5, 7, 0, 0, 5, 9, 0, 1}, "7777799999"},
        {"an end of line closes the last row", 8, 2, 1, {2, 7, 0, 0}, "77"},
        {"a lone 0 ends the last line", 8, 2, 1, {2, 7, 0}, "77"},
        {"short lines", 8, 3, 2, {1, 7, 0, 0, 0, 0}, "700000"},
        {"odd literals and a filler", 8, 5, 1, {0, 3, 1, 2, 3, 99, 2, 5, 0, 1}, "12355"},
        {"even literals", 8, 5, 1, {0, 4, 1, 2, 3, 4, 1, 5, 0, 1}, "12345"},
        {"a row as long as its bytes", 8, 8, 2, {8, 7, 0, 0, 8, 9, 0, 1}, "7777777799999999"},
        {"a run past the row's bytes ends the line", 8, 5, 2, {255, 7, 5, 9, 0, 1}, "7777799999"},
        {"a run into the filler does not", 8, 5, 2, {8, 7, 0, 0, 5, 9, 0, 1}, "7777799999"},
        {"literals past the row are codes", 8, 8, 2, {0, 10, 1, 2, 3, 4, 5, 6, 7, 8, 8, 9, 0, 1}, "1234567899999999"},
        {"after their filler", 8, 8, 2, {0, 11, 1, 2, 3, 4, 5, 6, 7, 8, 99, 8, 9, 0, 1}, "1234567899999999"},
        {"a jump to the right", 8, 5, 1, {2, 7, 0, 2, 1, 0, 2, 8, 0, 0}, "77088"},
        {"a jump by one line ends the line", 8, 3, 2, {1, 7, 0, 2, 2, 1, 1, 8, 0, 1}, "700800"},
        {"a jump down leaves lines out", 8, 3, 4, {1, 7, 0, 2, 1, 3, 1, 8, 0, 1}, "700000000800"},
        {"a jump beyond the last line", 8, 3, 2, {1, 7, 0, 2, 1, 3}, "", "Corrupt RLE compression."},
        {"x begins anew after 65535", 8, 5, 1, wrapping, "07700"},
        {"an early end", 8, 5, 3, {5, 7, 0, 0, 0, 1}, "", "Illegal RLE compression (missing data)."},

        {"halves in turn", 4, 5, 1, {5, 0x12, 0, 1}, "12121"},
        {"a run from an odd pixel begins with the high half", 4, 5, 1, {1, 0x30, 4, 0x12, 0, 1}, "31212"},
        {"5 literals", 4, 5, 1, {0, 5, 0x12, 0x34, 0x5F, 99, 0, 1}, "12345"},
        {"4 literals", 4, 5, 1, {0, 4, 0x12, 0x34, 1, 0x50, 0, 1}, "12345"},
        {"6 literals", 4, 7, 1, {0, 6, 0x12, 0x34, 0x56, 99, 1, 0x70, 0, 1}, "1234567"},
        {"7 literals", 4, 7, 1, {0, 7, 0x12, 0x34, 0x56, 0x7F, 0, 1}, "1234567"},
        {"literals fill the row", 4, 8, 1, {0, 8, 0x12, 0x34, 0x56, 0x78, 0, 1}, "12345678"},
        {"literals from an odd pixel", 4, 7, 1, {1, 0x90, 0, 6, 0x12, 0x34, 0x56, 99, 0, 1}, "9123456"},
        {"a run past the row's bytes", 4, 5, 2, {12, 0x12, 5, 0x34, 0, 1}, "1212134343"},
        {"literals past it are codes", 4, 8, 2, {0, 12, 0x12, 0x34, 0x56, 0x78, 8, 0x9A, 0, 1}, "123456789A9A9A9A"},
        {"after their filler", 4, 8, 2, {0, 9, 0x12, 0x34, 0x56, 0x78, 99, 8, 0x9A, 0, 1}, "123456789A9A9A9A"},
        {"a jump", 4, 5, 3, {1, 0x70, 0, 2, 1, 0, 1, 0x80, 0, 2, 0, 2, 1, 0x90, 0, 1}, "708000000090000"},
    };
    for (const BmpParts& parts : {Runs(8, 3, 1, {0, 3, 1, 2, 3}), Runs(8, 5, 1, {}), Runs(8, 5, 1, {5}),
                                  Runs(8, 5, 2, {5, 7, 0, 0}), Runs(8, 5, 1, {0, 5, 1, 2}), Runs(8, 5, 1, {0, 2, 1}),
                                  Runs(4, 2, 1, {2, 0x77, 0}), Runs(4, 8, 1, {0, 8, 0x12})})
        EXPECT_EQ(KindOf(Load(parts.Make())) + MessageOf(Load(parts.Make())), std::string(kWrongType) + kCropped)
            << testing::PrintToString(parts.rows);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result<ImageTextureRef> texture = Load(Runs(c.bits, c.width, -c.height, c.data).Make());
        EXPECT_EQ(MessageOf(texture), c.message);
        EXPECT_EQ(KindOf(texture), *c.message ? kWrongType : "ok");
        if (!texture)
            continue;
        const Bytes rgba = RgbaOf(*texture);
        std::string indices;
        for (size_t i = 0; i < rgba.size(); i += 4)
            indices += "0123456789ABCDEF"[rgba[i] / 10];
        EXPECT_EQ(indices, c.indices);
    }
    ExpectPixels(Runs(8, 1, 2, {1, 7, 0, 0, 1, 9, 0, 1}).Make(), Rgba({0x5A0000FF, 0x460000FF}));  // bottom up
}

/// Two fields bound the runs: the smaller one counts.
TEST_F(BmpTest, HeaderFieldsLimitTheRuns) {
    const Bytes good = Runs(8, 2, 1, {2, 7, 0, 1}).Make();
    const uint32_t size = uint32_t(good.size()), most = 0xFFFFFFFF;
    for (const auto& [offset, value] :
         {std::pair(34u, 0u), {34, 1}, {34, most}, {2, 0}, {2, most}, {2, size}, {2, size - 3}, {2, size - 5}}) {
        Bytes file = good;
        Put32(file, offset, value, false);
        EXPECT_EQ(MessageOf(Load(file)), value >= size ? "" : kCropped) << offset << " " << value;
    }
}

TEST_F(BmpTest, DeliversRowsBeforeBrokenRuns) {
    const ImageTextureRef texture = MakeTexture();  // one that fails to load is not handed out
    const Bytes file = Runs(8, 2, 2, {2, 7, 0, 0, 2}).Make();
    EXPECT_EQ(MessageOf(LoadInto(texture, "bmp", Mount(file))), kCropped);
    EXPECT_EQ(RgbaOf(texture), Rgba({0x000000FF, 0x000000FF, 0x460000FF, 0x460000FF}));
}

struct Saved {
    Id generation = {};
    bool keepsColors = false;  ///< no conversion to sRGB
    bool isLinear = false;     ///< the picture's profile
    Float dpi = 0, aspectRatio = 0;
};

Result<Bytes> SaveAs(const Saved& how, const ImageTextureRef& texture) {
    const ImageBaseRef image = FirstImage(texture);
    DataDictionary settings;
    if (!how.generation.GetText().empty())
        TRY(settings.Set(mediaexport::kBmpInfoHeader, how.generation));
    TRY(settings.Set(mediaexport::kDisableSrgbConversion, how.keepsColors));
    const Id& profile = how.isLinear ? colorprofiles::kLinearRgb : colorprofiles::kSrgb;
    TRY(image->Set(image::kColorProfile, colorprofiles::Get(profile)));
    if (how.dpi != 0) {
        TRY(image->Set(image::kDpi, how.dpi));
        TRY(image->Set(image::kAspectRatio, how.aspectRatio));
    }
    TRY(texture->Set(image::kExportSettings, settings));
    return Save(texture, "bmp");
}

/// A file of 24 or 32 bits as it is written here.
BmpParts Expected(uint32_t headerSize, uint16_t bits, int width, int height, Bytes rows, Bytes profile = {}) {
    BmpParts parts = Masked(32, headerSize, {0xFF0000, 0xFF00, 0xFF, bits == 32 ? 0xFF000000 : 0}, std::move(rows));
    parts.width = width, parts.height = height;
    parts.bitCount = bits, parts.compression = bits == 32 ? 3 : 0;
    parts.xPerMetre = parts.yPerMetre = 2834;  // 72 dots per inch
    parts.space = headerSize == 124 ? 0x4D424544 : 0x73524742;
    parts.profile = std::move(profile);
    return parts;
}

TEST_F(BmpTest, Writes) {
    const Bytes rows24 = {11, 10, 9, 15, 14, 13, 0, 0, 3, 2, 1, 7, 6, 5, 0, 0};
    const Bytes rows32 = {11, 10, 9, 12, 15, 14, 13, 16, 3, 2, 1, 4, 7, 6, 5, 8};
    const Bytes linear100 = {100, 100, 100, 0}, srgb100 = {168, 168, 168, 0};
    const Bytes srgb = ProfileBytes(colorprofiles::kSrgb), linear = ProfileBytes(colorprofiles::kLinearRgb);
    const ImageTextureRef rgba =
        MakeTexture({2, 2, pixelformats::kRgbaU8, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}});
    const ImageTextureRef rgb = MakeTexture({1, 1, pixelformats::kRgbU8, {100, 100, 100}});
    const ImageTextureRef child = MakeTexture({2, 1, pixelformats::kGreyU8, {100, 200}, {7, 9}});
    const ImageTextureRef palette = Loaded(Indexed(8, 2, 1, {1, 2, 3, 0, 4, 5, 6, 55}, {0, 1, 0, 0}).Make());
    BmpParts resolved = Expected(40, 24, 2, 2, rows24);
    resolved.xPerMetre = 11808, resolved.yPerMetre = 5904;
    const struct {
        const char* what;
        Saved how;
        ImageTextureRef texture;
        BmpParts expected;
    } cases[] = {
        {"V3 by default", {}, rgb, Expected(40, 24, 1, 1, linear100)},
        {"V4 by default with alpha", {}, rgba, Expected(108, 32, 2, 2, rows32)},
        {"V5 by default with a profile", {{}, false, true}, rgb, Expected(124, 24, 1, 1, linear100, linear)},
        {"V3 without alpha", {"V3"}, rgba, Expected(40, 24, 2, 2, rows24)},
        {"V4", {"V4"}, rgba, Expected(108, 32, 2, 2, rows32)},
        {"V5", {"V5"}, rgba, Expected(124, 32, 2, 2, rows32, srgb)},
        {"masks of 24 bits", {"V4"}, rgb, Expected(108, 24, 1, 1, linear100)},
        {"alpha of a child", {"V4"}, child, Expected(108, 32, 2, 1, {100, 100, 100, 7, 200, 200, 200, 9})},
        {"no alpha of a child", {"V3"}, child, Expected(40, 24, 2, 1, {100, 100, 100, 200, 200, 200, 0, 0})},
        {"alpha of a palette", {"V4"}, palette, Expected(108, 32, 2, 1, {1, 2, 3, 255, 4, 5, 6, 200})},
        {"resolution", {.generation = "V3", .dpi = 300, .aspectRatio = 0.5}, rgba, resolved},
        {"V3 is sRGB", {"V3", false, true}, rgb, Expected(40, 24, 1, 1, srgb100)},
        {"V4 is sRGB", {"V4", false, true}, rgb, Expected(108, 24, 1, 1, srgb100)},
        {"V4 keeps its colours on request", {"V4", true, true}, rgb, Expected(108, 24, 1, 1, linear100)},
        {"V5 has the profile", {"V5", false, true}, rgb, Expected(124, 24, 1, 1, linear100, linear)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result<Bytes> file = SaveAs(c.how, c.texture);
        ASSERT_TRUE(file) << file.GetError()->ToString().GetCString();
        EXPECT_EQ(*file, c.expected.Make());
    }
    const ImageTextureRef again = Loaded(cases[std::size(cases) - 1].expected.Make());
    EXPECT_EQ(ProfileOf(again), colorprofiles::Get(colorprofiles::kLinearRgb));
    EXPECT_EQ(KindOf(SaveAs({"V6"}, rgb)), "illegalargument");
    EXPECT_EQ(MessageOf(SaveAs({"V6"}, rgb)), "Invalid header type: V6.");
}

}  // namespace
}  // namespace codectest
