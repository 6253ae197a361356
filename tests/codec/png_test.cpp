// PNG: files that libpng makes for the test, and files written here that libpng reads for the test.

#include <zlib.h>

#include "imexport/png/media_io_png_library.h"
#include "jpeg_direct.h"
#include "parts.h"
#include "png_direct.h"
#include "tool_support.h"

#include "orvik/memory.h"

namespace codectest {
namespace {

class PngTest : public CodecTest {};

PngPicture Written(const ImageTextureRef& texture) { return ReadPng(Save(texture, "png").GetValueOr(Bytes())); }

PngPicture MakeNoise(int type, int depth, uint32_t width, bool interlaced, Noise& noise) {
    PngPicture made{.width = width, .height = 9, .colorType = type, .bitDepth = depth, .interlaced = interlaced};
    made.rows = noise.Make(made.RowBytes() * made.height);
    return made;
}
auto KindAndRows(const PngPicture& p) { return std::tuple(p.colorType, p.bitDepth, p.interlaced, p.rows); }

TEST_F(PngTest, ReadsAndWritesEveryColorTypeInBothOrders) {
    const std::pair<int, std::string> types[] = {{PNG_COLOR_TYPE_GRAY, "grey"},
                                                 {PNG_COLOR_TYPE_GRAY_ALPHA, "greya"},
                                                 {PNG_COLOR_TYPE_RGB, "rgb"},
                                                 {PNG_COLOR_TYPE_RGB_ALPHA, "rgba"}};
    Noise noise(1);
    const auto expectBothWays = [&](const PngPicture& made, const Id& stored) {
        SCOPED_TRACE(testing::Message() << stored.GetText() << " " << made.interlaced << " " << made.width);
        const ImageTextureRef texture = Loaded(WritePng(made));
        EXPECT_EQ(FirstImage(texture)->GetPixelFormat()->GetId(), stored);
        EXPECT_EQ(PixelsOf(FirstImage(texture), stored), made.rows);
        EXPECT_FALSE(AlphaOf(FirstImage(texture)));
        DataDictionary settings;
        ASSERT_TRUE(settings.Set(mediaexport::kPngInterlaced, made.interlaced));
        ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
        EXPECT_EQ(KindAndRows(Written(texture)), KindAndRows(made));
    };
    for (const auto& [type, channels] : types) {
        for (const int depth : {8, 16}) {
            for (const uint32_t width : {1u, 3u, 13u}) {
                for (const bool interlaced : {false, true})
                    expectBothWays(MakeNoise(type, depth, width, interlaced, noise),
                                   FormatId(channels + ".u" + std::to_string(depth)));
            }
        }
    }
}

const PngPicture kOnePixel{.width = 1, .height = 1, .rows = {1, 2, 3}};

/// The value of each pixel, read from rows of any depth up to 8.
std::vector<size_t> IndicesOf(const PngPicture& picture) {
    std::vector<size_t> indices;
    const uint32_t depth = uint32_t(picture.bitDepth);
    for (uint32_t y = 0; y < picture.height; ++y) {
        for (uint32_t x = 0; x < picture.width; ++x) {
            const uint8_t byte = picture.rows[y * picture.RowBytes() + x * depth / 8];
            indices.push_back(byte >> (8 - depth - x * depth % 8) & ((1u << depth) - 1));
        }
    }
    return indices;
}

/// As ImageMagick reads it, where that is installed.
void ExpectReadAlikeByMagick(const Bytes& file) {
    if (!HasTool("convert-im6.q16"))
        return;
    const ScratchDirectory scratch;
    WriteFile(scratch.Path("file"), file);
    Bytes other;
    EXPECT_TRUE(
        RunShell("convert-im6.q16 png:- -depth 16 -endian LSB rgba:- < '" + scratch.Path("file") + "'", &other));
    EXPECT_EQ(PixelsOf(FirstImage(Loaded(file)), pixelformats::kRgbaU16), other);
}

/// @param colors  what the indices stand for, as RGBA
void ExpectIndexed(const PngPicture& made, const Bytes& colors, const Id& tableFormat) {
    Bytes expected;
    for (const size_t index : IndicesOf(made))
        expected.insert(expected.end(), &colors[4 * index], &colors[4 * index] + 4);
    const Bytes file = WritePng(made);
    if (made.colorType == PNG_COLOR_TYPE_GRAY && made.width == 7)
        ExpectReadAlikeByMagick(file);
    const ImageTextureRef texture = Loaded(file);
    EXPECT_EQ(RgbaOf(texture), expected);
    const auto format = Cast<PixelFormatIndexedColorInterface>(FirstImage(texture)->GetPixelFormat());
    ASSERT_TRUE(format);
    EXPECT_EQ(format->GetBitsPerPixel().GetBits(), made.bitDepth);
    EXPECT_EQ(format->GetColorTableSize(), Int(colors.size() / 4));
    EXPECT_EQ(format->GetColorTablePixelFormat()->GetId(), tableFormat);
}

TEST_F(PngTest, PalettesAndSmallDepthsOfGrey) {
    Noise noise(21);
    for (const int depth : {1, 2, 4, 8}) {
        for (const bool interlaced : {false, true}) {
            for (const uint32_t width : {1u, 7u, 17u}) {
                SCOPED_TRACE(testing::Message() << depth << " " << interlaced << " " << width);
                PngPicture made = MakeNoise(PNG_COLOR_TYPE_PALETTE, depth, width, interlaced, noise);
                const size_t count = size_t(1) << depth;
                Bytes colors = noise.Make(4 * count);
                for (size_t i = 0; i < colors.size(); i += 4)
                    made.palette.push_back({colors[i], colors[i + 1], colors[i + 2]});
                for (const size_t alphas : {count, count / 2, size_t(0)}) {  // all, some, none
                    made.alphas.clear();
                    for (size_t i = 0; i < alphas; ++i)
                        made.alphas.push_back(colors[4 * i + 3]);
                    for (size_t i = alphas; i < count; ++i)
                        colors[4 * i + 3] = 255;
                    ExpectIndexed(made, colors, alphas ? pixelformats::kRgbaU8 : pixelformats::kRgbU8);
                }
                if (depth == 8)
                    continue;
                made.colorType = PNG_COLOR_TYPE_GRAY;
                for (const int key : {-1, 0, 1, (1 << depth) - 1}) {
                    for (size_t i = 0; i < count; ++i) {
                        std::fill_n(&colors[4 * i], 3, uint8_t(i * 255 / (count - 1)));
                        colors[4 * i + 3] = int(i) == key ? 0 : 255;
                    }
                    made.hasKey = key >= 0;
                    made.key.gray = png_uint_16(key);
                    ExpectIndexed(made, colors, key < 0 ? pixelformats::kGreyU8 : pixelformats::kGreyaU8);
                }
            }
        }
    }
}

TEST_F(PngTest, ColorKeyMakesExactMatchesTransparent) {
    const struct {
        int colorType, bitDepth;
        Bytes rows;  ///< the first of two pixels has the colour of the key
        png_color_16 key;
        Id shown;
        Bytes pixels;
    } cases[] = {
        {2, 8, {1, 2, 3, 1, 2, 4}, {0, 1, 2, 3, 0}, pixelformats::kRgbaU8, {1, 2, 3, 0, 1, 2, 4, 255}},
        {0, 8, {5, 6}, {0, 0, 0, 0, 5}, pixelformats::kGreyaU8, {5, 0, 6, 255}},
        {0, 16, {5, 1, 6, 1}, {0, 0, 0, 0, 0x105}, pixelformats::kGreyaU16, {5, 1, 0, 0, 6, 1, 0xFF, 0xFF}},
        {2,
         16,
         {1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 7},
         {0, 0x0201, 0x0403, 0x0605, 0},
         pixelformats::kRgbaU16,
         {1, 2, 3, 4, 5, 6, 0, 0, 1, 2, 3, 4, 5, 7, 0xFF, 0xFF}},
    };
    PngPicture made{.width = 2, .height = 1, .hasKey = true};
    for (const auto& c : cases) {
        for (const bool interlaced : {false, true}) {
            SCOPED_TRACE(testing::Message() << c.shown.GetText() << " " << interlaced);
            made.colorType = c.colorType, made.bitDepth = c.bitDepth, made.interlaced = interlaced;
            made.rows = c.rows, made.key = c.key;
            const Bytes file = WritePng(made);
            ExpectReadAlikeByMagick(file);
            const ImageBaseRef image = FirstImage(Loaded(file));
            EXPECT_EQ(image->GetPixelFormat()->GetId(), c.shown);
            EXPECT_EQ(PixelsOf(image, c.shown), c.pixels);
        }
    }
    // The key counts with all its bits, which the library would not write.
    made = {.width = 1, .height = 1, .colorType = 0, .rows = {5}, .hasKey = true, .key = {0, 0, 0, 0, 5}};
    Bytes file = WritePng(made);
    const std::string_view chunk = "tRNS";
    *(std::search(file.begin(), file.end(), chunk.begin(), chunk.end()) + 4) = 1;
    TestedFormatOf("png").mendDamage(file);
    EXPECT_EQ(PixelsOf(FirstImage(Loaded(file)), pixelformats::kGreyaU8), (Bytes{5, 255}));
}

TEST_F(PngTest, ReadsAndWritesResolution) {
    const int metre = PNG_RESOLUTION_METER, unknown = PNG_RESOLUTION_UNKNOWN;
    const struct {
        uint32_t x, y;
        int unit;
        Float dpi, aspectRatio;  ///< 0: absent
    } read[] = {
        {0, 0, metre, 0, 1}, {11811, 5906, metre, 300, 0.5}, {11811, 0, metre, 300, 0}, {11811, 5906, unknown, 0, 1}};
    PngPicture made = kOnePixel;
    for (const auto& c : read) {
        SCOPED_TRACE(testing::Message() << c.x << " " << c.y << " " << c.unit);
        made.xPerMetre = c.x, made.yPerMetre = c.y, made.unit = c.unit;
        ExpectResolution(WritePng(made), c.dpi, c.aspectRatio);
    }
    const struct {
        Float dpi, aspectRatio;  ///< 0: the picture has none
        uint32_t x, y;
    } written[] = {{0, 0, 2834, 2834}, {0, 2, 2834, 5669}, {300, 1, 11811, 11811}, {300, 0, 11811, 11811}};
    for (const auto& c : written) {
        const ImageTextureRef texture = MakeTexture({1, 1, pixelformats::kRgbU8, {1, 2, 3}});
        const ImageBaseRef image = FirstImage(texture);
        ASSERT_TRUE(c.dpi == 0 || image->Set(image::kDpi, c.dpi));
        ASSERT_TRUE(c.aspectRatio == 0 || image->Set(image::kAspectRatio, c.aspectRatio));
        const PngPicture file = Written(texture);
        EXPECT_EQ(std::tuple(file.xPerMetre, file.yPerMetre, file.unit), std::tuple(c.x, c.y, metre));
    }
}

TEST_F(PngTest, LibraryErrorsKeepTheirText) {
    Bytes file = WritePng(kOnePixel);
    file[24] = 3;  // a bit depth that no colour type has, with a check sum that no longer fits
    const Result<ImageTextureRef> loaded = Load(file);
    EXPECT_EQ(KindOf(loaded), "fileformat");
    EXPECT_EQ(MessageOf(loaded), "PNG Error: IHDR: CRC error");
}

TEST_F(PngTest, ReadsTheWidestPicturesThatItWrites) {
    constexpr Int kWidth = 1100000;  // a ratio of 1000 to 1
    for (const auto& [width, height] : {std::pair(kWidth, Int(1)), std::pair(Int(1), kWidth)}) {
        const Result<Bytes> file = Save(MakeTexture({width, height, pixelformats::kGreyU8, Bytes(kWidth, 7)}), "png");
        ASSERT_TRUE(file);
        EXPECT_EQ(PixelsOf(FirstImage(Loaded(*file)), pixelformats::kGreyU8), Bytes(kWidth, 7));
    }
}

Bytes Deflated(const Bytes& bytes) {
    uLongf size = compressBound(uLong(bytes.size()));
    Bytes deflated(size);
    EXPECT_EQ(compress(deflated.data(), &size, bytes.data(), uLong(bytes.size())), Z_OK);
    deflated.resize(size);
    return deflated;
}
/// The file with a chunk behind its header.
Bytes WithChunk(const Bytes& file, std::string_view type, const Bytes& content) {
    Bytes chunk = Joined({Bytes(4), BytesOf(type), content, Bytes(4)});
    Put32(chunk, 0, uint32_t(content.size()), true);
    Bytes longer = file;
    longer.insert(longer.begin() + 33, chunk.begin(), chunk.end());
    TestedFormatOf("png").mendDamage(longer);
    return longer;
}
TEST_F(PngTest, UnusedChunksAreNeitherInflatedNorKept) {
    using namespace std::string_view_literals;
    const Bytes text = Deflated(Bytes(100000, 'x'));
    const std::tuple<const char*, std::string_view, Bytes> chunks[] = {
        {"tEXt", "k\0text", Bytes(1000, 'x')},
        {"tEXt", "k\0"sv, Bytes(17 << 20, 'x')},  // more than the library may hold
        {"zTXt", "k\0\0"sv, text},
        {"iTXt", "k\0\1\0en\0k\0"sv, text},
        {"sPLT", "k\0\10"sv, Bytes(600)},
        {"eXIf", "II*\0"sv, Bytes(1000)},
        {"pCAL", "k\0\0\0\0\0\0\0\0\0\0\2m\0001\0002"sv, {}},
        {"sCAL", "\0011\0002"sv, {}},
    };
    const Bytes plain = WritePng(kOnePixel);
    const auto countAllocations = [](const Bytes& file) {
        const Url url = Mount(file);
        SetAllocationFault(0);
        const Result<ImageTextureRef> loaded = Load(url);
        const Int count = GetAllocationCount();
        EXPECT_EQ(MessageOf(loaded), "");
        return count;
    };
    countAllocations(plain);
    const Int count = countAllocations(plain);
    for (const auto& [type, head, tail] : chunks)
        EXPECT_EQ(countAllocations(WithChunk(plain, type, Joined({BytesOf(head), tail}))), count) << type;
}

TEST_F(PngTest, ProfilesAreBoundedOnceInflated) {
    for (const uint32_t size : {15u << 20, 17u << 20}) {
        Bytes profile = ProfileBytes(colorprofiles::kLinearRgb);
        profile.resize(size);
        Put32(profile, 0, size, true);
        const Bytes content = Joined({{'k', 0, 0}, Deflated(profile)});
        const ColorProfile loaded = ProfileOf(Loaded(WithChunk(WritePng(kOnePixel), "iCCP", content)));
        EXPECT_EQ(loaded == colorprofiles::Get(colorprofiles::kSrgb), size > 16 << 20) << size;
    }
}

TEST_F(PngTest, TheLibraryHoldsNoMoreThanTheFileJustifies) {
    Bytes file = WritePng(kOnePixel);
    Put32(file, 16, 0x7FFFFF00, true);  // its width
    TestedFormatOf("png").mendDamage(file);
    const Result<InputStreamRef> stream = Mount(file).OpenInputStream();
    ASSERT_TRUE(stream);
    PngLibrary library;
    ASSERT_TRUE(library.OpenForReading(*stream));
    ASSERT_TRUE(library.Call([](png_structp png, png_infop info) { png_read_info(png, info); }));
    EXPECT_EQ(KindOf(library.Call([](png_structp png, png_infop info) { png_read_update_info(png, info); })),
              "outofmemory");
}

TEST_F(PngTest, ModuleInformation) {
    const auto info = FindPublished<DataDictionaryObjectInterface>("net.orvik.moduleinfo.libpng");
    for (const auto& [key, value] :
         {std::pair("name", "libpng"), {"description", "PNG image i/o library"}, {"version", "1.6.36"}})
        EXPECT_EQ(info->GetData(*Id::Create(std::string("net.orvik.moduleinfo.") + key))->ToString(), String(value));
}

TEST_F(PngTest, ChoosesDepthAndColorTypeByTheImage) {
    const auto made = [](const char* format, const Bytes& pixel, const Bytes& alpha = {}) {
        return MakeTexture({1, 1, FormatId(format), pixel, alpha});
    };
    const auto indexed = [](int colorType, std::vector<png_color> palette, const Bytes& alphas = {}) {
        PngPicture made{.width = 2, .height = 1, .colorType = colorType, .bitDepth = 1, .rows = {0x40}};
        made.palette = std::move(palette), made.alphas = alphas;
        return Loaded(WritePng(made));
    };
    const int grey = PNG_COLOR_TYPE_GRAY, rgb = PNG_COLOR_TYPE_RGB, alpha = PNG_COLOR_MASK_ALPHA,
              palette = PNG_COLOR_TYPE_PALETTE;
    const struct {
        ImageTextureRef texture;
        int colorType, bitDepth;
        Bytes row;
    } cases[] = {
        {made("bgr.u8", {1, 2, 3}), rgb, 8, {3, 2, 1}},
        {made("bgra.u8", {1, 2, 3, 4}), rgb | alpha, 8, {3, 2, 1, 4}},
        {made("bgr.u8", {1, 2, 3}, {7}), rgb | alpha, 8, {3, 2, 1, 7}},
        {made("grey.u16", {1, 2}, {7}), grey | alpha, 16, {1, 2, 7, 7}},
        {made("rgb.f32", Bytes(12)), rgb, 16, Bytes(6)},
        {made("grey.f32", {0, 0, 0x80, 0x3F}), grey, 16, {0xFF, 0xFF}},
        {made("rgb.f16", Bytes(6)), rgb, 16, Bytes(6)},
        {indexed(grey, {}), grey, 8, {0, 255}},
        {indexed(palette, {{1, 2, 3}, {4, 5, 6}}), rgb, 8, {1, 2, 3, 4, 5, 6}},
        {indexed(palette, {{1, 2, 3}, {4, 5, 6}}, {7}), rgb | alpha, 8, {1, 2, 3, 7, 4, 5, 6, 255}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(KindAndRows(Written(c.texture)), std::tuple(c.colorType, c.bitDepth, false, c.row));
    }
}

/// A profile with another description of equal length.
Bytes Renamed(Bytes profile, std::u16string_view from, std::u16string_view to) {
    Bytes wanted, given;  // the highest byte first
    for (size_t i = 0; i < from.size(); ++i) {
        wanted.insert(wanted.end(), {uint8_t(from[i] >> 8), uint8_t(from[i])});
        given.insert(given.end(), {uint8_t(to[i] >> 8), uint8_t(to[i])});
    }
    const auto at = std::search(profile.begin(), profile.end(), wanted.begin(), wanted.end());
    EXPECT_NE(at, profile.end());
    std::copy(given.begin(), given.end(), at);
    return profile;
}

TEST_F(PngTest, CarriesColorProfiles) {
    const Bytes linear = ProfileBytes(colorprofiles::kLinearRgb);
    const std::u16string_view name = u"Linear Color Space";
    const std::pair<const char*, Bytes> cases[] = {
        {"Linear Color Space", linear},
        {"L\xE9? Color Sp", Renamed(linear, name, u" L\u00E9\u4E2D\n\n\tColor   Sp ")},
        {"ICC", Renamed(linear, name, u"                  ")},
    };
    PngPicture made = kOnePixel;
    made.profileName = "anything";
    for (const auto& [writtenName, bytes] : cases) {
        SCOPED_TRACE(writtenName);
        made.profile = bytes;
        const ImageTextureRef texture = Loaded(WritePng(made));
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(AsBlock(bytes));
        ASSERT_TRUE(profile);
        EXPECT_EQ(ProfileOf(texture), *profile);
        const PngPicture written = Written(texture);
        EXPECT_EQ(written.profile, bytes);
        EXPECT_EQ(written.profileName, writtenName);
        EXPECT_EQ(written.rows, made.rows);  // not converted: the file says what they are
    }
}

TEST_F(PngTest, GreyRowsGetAProfileOfTheirSpace) {
    const PngPicture made{.width = 3, .height = 1, .colorType = 0, .rows = {0, 77, 255}};
    const ImageTextureRef texture = Loaded(WritePng(made));
    EXPECT_EQ(ProfileOf(texture), colorprofiles::Get(colorprofiles::kSrgb));
    const PngPicture written = Written(texture);
    EXPECT_EQ(written.rows, made.rows);
    EXPECT_EQ(written.profile, ProfileBytes(colorprofiles::kSgrey));
}

/// A file without a profile counts as sRGB, which grey pixels cannot be converted from.
TEST_F(PngTest, GreyHasTheLightOfItsColorsInRgb) {
    const Bytes greys = {0, 85, 170, 255};  // of which two bits are enough
    Bytes colors, wide;
    for (const uint8_t grey : greys) {
        colors.insert(colors.end(), 3, grey);
        wide.insert(wide.end(), 2, grey);
    }
    const auto lightOf = [](const Bytes& file) {
        const Result<Bytes> hdr = Save(Loaded(file), "hdr");
        return FloatsOf(FirstImage(Loaded(hdr.GetValueOr(Bytes()))));
    };
    const std::vector<float> wanted = lightOf(WritePng({.width = 4, .height = 1, .rows = colors}));
    ASSERT_EQ(wanted.size(), 12u);
    ASSERT_NEAR(wanted[3], 0.0908, 0.001);
    const std::pair<const char*, Bytes> files[] = {
        {"png 8", WritePng({.width = 4, .height = 1, .colorType = 0, .rows = greys})},
        {"png 16", WritePng({.width = 4, .height = 1, .colorType = 0, .bitDepth = 16, .rows = wide})},
        {"png 2", WritePng({.width = 4, .height = 1, .colorType = 0, .bitDepth = 2, .rows = {0x1B}})},
        {"jpeg", WriteJpeg({.width = 4, .height = 1, .colorSpace = JCS_GRAYSCALE, .rows = greys, .quality = 100})},
    };
    for (const auto& [what, file] : files)
        EXPECT_THAT(lightOf(file), testing::Pointwise(testing::FloatNear(0.01f), wanted)) << what;
}

}  // namespace
}  // namespace codectest
