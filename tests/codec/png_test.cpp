// PNG: files that libpng makes for the test, and files written here that libpng reads for the test.

#include <zlib.h>

#include "codec_support.h"
#include "format_table.h"
#include "imexport/png/media_io_png_library.h"
#include "jpeg_direct.h"
#include "png_direct.h"
#include "tool_support.h"

#include "orvik/memory.h"

namespace codectest {
namespace {

class PngTest : public CodecTest {};

Id IdOf(std::string_view text) { return *Id::Create(text); }

PngPicture Written(const ImageTextureRef& texture) { return ReadPng(Save(texture, "png").GetValueOr(Bytes())); }

// --- Reading ---------------------------------------------------------------------------------------------------------

TEST_F(PngTest, ReadsAndWritesEveryColorTypeInBothOrders) {
    const struct {
        int colorType, bitDepth;
        const char* stored;
    } types[] = {
        {PNG_COLOR_TYPE_GRAY, 8, "net.orvik.image.pixelformat.grey.u8"},
        {PNG_COLOR_TYPE_GRAY, 16, "net.orvik.image.pixelformat.grey.u16"},
        {PNG_COLOR_TYPE_GRAY_ALPHA, 8, "net.orvik.image.pixelformat.greya.u8"},
        {PNG_COLOR_TYPE_GRAY_ALPHA, 16, "net.orvik.image.pixelformat.greya.u16"},
        {PNG_COLOR_TYPE_RGB, 8, "net.orvik.image.pixelformat.rgb.u8"},
        {PNG_COLOR_TYPE_RGB, 16, "net.orvik.image.pixelformat.rgb.u16"},
        {PNG_COLOR_TYPE_RGB_ALPHA, 8, "net.orvik.image.pixelformat.rgba.u8"},
        {PNG_COLOR_TYPE_RGB_ALPHA, 16, "net.orvik.image.pixelformat.rgba.u16"},
    };
    Noise noise(1);
    for (const auto& type : types) {
        for (const bool interlaced : {false, true}) {
            for (const uint32_t width : {1u, 3u, 13u}) {
                SCOPED_TRACE(testing::Message() << type.stored << " " << interlaced << " " << width);
                PngPicture made{.width = width,
                                .height = 9,
                                .colorType = type.colorType,
                                .bitDepth = type.bitDepth,
                                .interlaced = interlaced};
                made.rows = noise.Make(made.RowBytes() * made.height);
                const ImageTextureRef texture = Loaded(WritePng(made));
                const ImageBaseRef image = FirstImage(texture);
                EXPECT_EQ(image->GetPixelFormat()->GetId().GetText(), type.stored);
                EXPECT_EQ(PixelsOf(image, IdOf(type.stored)), made.rows);
                EXPECT_FALSE(AlphaOf(image));

                DataDictionary settings;
                ASSERT_TRUE(settings.Set(mediaexport::kPngInterlaced, interlaced));
                ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
                const PngPicture written = Written(texture);
                EXPECT_EQ(written.colorType, type.colorType);
                EXPECT_EQ(written.bitDepth, type.bitDepth);
                EXPECT_EQ(written.interlaced, interlaced);
                EXPECT_EQ(written.rows, made.rows);
            }
        }
    }
}

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

/// @param colors  what the indices stand for, as RGBA
void ExpectIndexed(const PngPicture& made, const Bytes& colors, const Id& tableFormat) {
    Bytes expected;
    for (const size_t index : IndicesOf(made))
        expected.insert(expected.end(), &colors[4 * index], &colors[4 * index] + 4);
    const ImageTextureRef texture = Loaded(WritePng(made));
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
                PngPicture made{.width = width, .height = 9, .bitDepth = depth, .interlaced = interlaced};
                made.colorType = PNG_COLOR_TYPE_PALETTE;
                made.rows = noise.Make(made.RowBytes() * made.height);
                const size_t count = size_t(1) << depth;
                Bytes colors = noise.Make(4 * count);
                for (size_t i = 0; i < colors.size(); i += 4)
                    made.palette.push_back({colors[i], colors[i + 1], colors[i + 2]});
                for (const size_t alphas : {count, count / 2, size_t(0)}) {  // all, some, none
                    made.alphas.clear();
                    for (size_t i = 0; i < count; ++i) {
                        if (i < alphas)
                            made.alphas.push_back(colors[4 * i + 3]);
                        else
                            colors[4 * i + 3] = 255;
                    }
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
        Bytes rows;
        png_color_16 key;  ///< index, red, green, blue, grey
        Id shown;
        Bytes pixels;
    } cases[] = {
        {2, 8, {1, 2, 3, 1, 2, 4}, {0, 1, 2, 3, 0}, pixelformats::kRgbaU8, {1, 2, 3, 0, 1, 2, 4, 255}},
        {0, 8, {5, 6}, {0, 0, 0, 0, 5}, pixelformats::kGreyaU8, {5, 0, 6, 255}},
        {0,
         16,
         {0x34, 0x12, 0x35, 0x12},
         {0, 0, 0, 0, 0x1234},
         pixelformats::kGreyaU16,
         {0x34, 0x12, 0, 0, 0x35, 0x12, 0xFF, 0xFF}},
        {2,
         16,
         {1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 7},
         {0, 0x0201, 0x0403, 0x0605, 0},
         pixelformats::kRgbaU16,
         {1, 2, 3, 4, 5, 6, 0, 0, 1, 2, 3, 4, 5, 7, 0xFF, 0xFF}},
    };
    for (const auto& c : cases) {
        for (const bool interlaced : {false, true}) {
            SCOPED_TRACE(testing::Message() << c.shown.GetText() << " " << c.key.gray << " " << interlaced);
            const ImageBaseRef image = FirstImage(Loaded(WritePng({.width = 2,
                                                                   .height = 1,
                                                                   .colorType = c.colorType,
                                                                   .bitDepth = c.bitDepth,
                                                                   .interlaced = interlaced,
                                                                   .rows = c.rows,
                                                                   .hasKey = true,
                                                                   .key = c.key})));
            EXPECT_EQ(image->GetPixelFormat()->GetId(), c.shown);
            EXPECT_EQ(PixelsOf(image, c.shown), c.pixels);
        }
    }
    // The key counts with all its bits, which the library would not write.
    Bytes file =
        WritePng({.width = 1, .height = 1, .colorType = 0, .rows = {5}, .hasKey = true, .key = {0, 0, 0, 0, 5}});
    const std::string_view chunk = "tRNS";
    *(std::search(file.begin(), file.end(), chunk.begin(), chunk.end()) + 4) = 1;
    TestedFormatOf("png").mendDamage(file);
    EXPECT_EQ(PixelsOf(FirstImage(Loaded(file)), pixelformats::kGreyaU8), (Bytes{5, 255}));
}

TEST_F(PngTest, DescribesResolution) {
    const struct {
        uint32_t x, y;
        int unit;
        Float dpi, aspectRatio;  ///< 0: absent
    } cases[] = {{0, 0, PNG_RESOLUTION_METER, 0, 1},
                 {11811, 5906, PNG_RESOLUTION_METER, 300, 0.5},
                 {11811, 0, PNG_RESOLUTION_METER, 300, 0},
                 {11811, 5906, PNG_RESOLUTION_UNKNOWN, 0, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.x << " " << c.y << " " << c.unit);
        const ImageBaseRef image = FirstImage(Loaded(WritePng(
            {.width = 1, .height = 1, .rows = {1, 2, 3}, .xPerMetre = c.x, .yPerMetre = c.y, .unit = c.unit})));
        EXPECT_EQ(image->Has(image::kDpi.GetId()), c.dpi != 0);
        EXPECT_EQ(image->Get(image::kDpi, 0), c.dpi);
        EXPECT_EQ(image->Has(image::kAspectRatio.GetId()), c.aspectRatio != 0);
        EXPECT_EQ(image->Get(image::kAspectRatio, 0), c.aspectRatio);
    }
}

TEST_F(PngTest, LibraryErrorsKeepTheirText) {
    Bytes file = WritePng({.width = 1, .height = 1, .rows = {1, 2, 3}});
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

/// A chunk with its check sum.
Bytes MakeChunk(std::string_view type, const Bytes& content) {
    Bytes chunk(4);
    Put32(chunk, 0, uint32_t(content.size()), true);
    chunk.insert(chunk.end(), type.begin(), type.end());
    chunk.insert(chunk.end(), content.begin(), content.end());
    const uint32_t sum = uint32_t(crc32(0, chunk.data() + 4, uInt(chunk.size() - 4)));
    chunk.resize(chunk.size() + 4);
    Put32(chunk, chunk.size() - 4, sum, true);
    return chunk;
}
Bytes Deflated(const Bytes& bytes) {
    uLongf size = compressBound(uLong(bytes.size()));
    Bytes deflated(size);
    EXPECT_EQ(compress(deflated.data(), &size, bytes.data(), uLong(bytes.size())), Z_OK);
    deflated.resize(size);
    return deflated;
}
Bytes Joined(std::string_view head, const Bytes& tail) {
    Bytes bytes(head.begin(), head.end());
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    return bytes;
}
/// The file with a chunk behind its header.
Bytes WithChunk(Bytes file, const Bytes& chunk) {
    file.insert(file.begin() + 33, chunk.begin(), chunk.end());
    return file;
}
const PngPicture kOnePixel{.width = 1, .height = 1, .rows = {1, 2, 3}};

TEST_F(PngTest, UnusedChunksAreNeitherInflatedNorKept) {
    using namespace std::string_view_literals;
    const Bytes text = Deflated(Bytes(100000, 'x'));
    const std::pair<const char*, Bytes> chunks[] = {
        {"tEXt", Joined("k\0text"sv, Bytes(1000, 'x'))},
        {"tEXt", Joined("k\0"sv, Bytes(17 << 20, 'x'))},  // more than the library may hold
        {"zTXt", Joined("k\0\0"sv, text)},
        {"iTXt", Joined("k\0\1\0en\0k\0"sv, text)},
        {"sPLT", Joined("k\0\10"sv, Bytes(600))},
        {"eXIf", Joined("II*\0"sv, Bytes(1000))},
        {"pCAL", Joined("k\0\0\0\0\0\0\0\0\0\0\2m\0001\0002"sv, {})},
        {"sCAL", Joined("\0011\0002"sv, {})},
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
    for (const auto& [type, content] : chunks)
        EXPECT_EQ(countAllocations(WithChunk(plain, MakeChunk(type, content))), count) << type;
}

TEST_F(PngTest, ProfilesAreBoundedOnceInflated) {
    for (const Int size : {Int(15) << 20, Int(17) << 20}) {
        Bytes profile = ProfileBytes(colorprofiles::kLinearRgb);
        profile.resize(size_t(size));
        Put32(profile, 0, uint32_t(size), true);
        using namespace std::string_view_literals;
        const ImageTextureRef texture =
            Loaded(WithChunk(WritePng(kOnePixel), MakeChunk("iCCP", Joined("k\0\0"sv, Deflated(profile)))));
        const ColorProfile loaded = FirstImage(texture)->Get(image::kColorProfile, ColorProfile());
        EXPECT_EQ(loaded == colorprofiles::Get(colorprofiles::kSrgb), size > 16 << 20) << size;
    }
}

TEST_F(PngTest, TheLibraryHoldsNoMoreThanTheFileJustifies) {
    Bytes file = WritePng(kOnePixel);
    const Bytes header = MakeChunk("IHDR", {0x7F, 0xFF, 0xFF, 0, 0, 0, 0, 1, 8, 2, 0, 0, 0});
    std::copy(header.begin(), header.end(), file.begin() + 8);
    const Result<InputStreamRef> stream = Mount(file).OpenInputStream();
    ASSERT_TRUE(stream);
    PngLibrary library;
    ASSERT_TRUE(library.OpenForReading(*stream));
    ASSERT_TRUE(library.Call([](png_structp png, png_infop info) { png_read_info(png, info); }));
    EXPECT_EQ(KindOf(library.Call([](png_structp png, png_infop info) { png_read_update_info(png, info); })),
              "outofmemory");
}

TEST_F(PngTest, ShortMemoryNeverDropsTheProfile) {
    const Bytes profile = ProfileBytes(colorprofiles::kLinearRgb);
    PngPicture picture = kOnePixel;
    picture.profileName = "p";
    picture.profile = profile;
    const Url url = Mount(WritePng(picture));
    const ColorProfile wanted = *ColorProfile::OpenProfileFromMemory(AsBlock(profile));
    ASSERT_TRUE(Load(url));
    int failures = 0;
    bool isReached = true;
    for (Int n = 1; isReached; ++n) {
        SetAllocationFault(n);
        const Result<ImageTextureRef> loaded = Load(url);
        isReached = GetAllocationCount() >= n;
        SetAllocationFault(0);
        if (loaded) {
            EXPECT_EQ(FirstImage(*loaded)->Get(image::kColorProfile, ColorProfile()), wanted) << n;
        } else {
            EXPECT_EQ(KindOf(loaded), "outofmemory") << n;
            ++failures;
        }
    }
    EXPECT_GT(failures, 20);
}

TEST_F(PngTest, ModuleInformation) {
    const auto info = FindPublished<DataDictionaryObjectInterface>("net.orvik.moduleinfo.libpng");
    const auto text = [&](const char* key) {
        const Result<Data> data = info->GetData(IdOf(key));
        return data ? data->ToString() : String();
    };
    EXPECT_EQ(text("net.orvik.moduleinfo.name"), String("libpng"));
    EXPECT_EQ(text("net.orvik.moduleinfo.description"), String("PNG image i/o library"));
    EXPECT_EQ(text("net.orvik.moduleinfo.version"), String("1.6.36"));
}

// --- Writing ---------------------------------------------------------------------------------------------------------

TEST_F(PngTest, ChoosesDepthAndColorTypeByTheImage) {
    const auto made = [](std::string_view format, const Bytes& pixel, const Bytes& alpha = {}) {
        return MakeTexture({1, 1, IdOf("net.orvik.image.pixelformat." + std::string(format)), pixel, alpha});
    };
    const auto indexed = [](int colorType, std::vector<png_color> palette, const Bytes& alphas = {}) {
        return Loaded(WritePng({.width = 2,
                                .height = 1,
                                .colorType = colorType,
                                .bitDepth = 1,
                                .rows = {0x40},
                                .palette = std::move(palette),
                                .alphas = alphas}));
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
        const PngPicture written = Written(c.texture);
        EXPECT_EQ(written.colorType, c.colorType);
        EXPECT_EQ(written.bitDepth, c.bitDepth);
        EXPECT_EQ(written.rows, c.row);
    }
}

TEST_F(PngTest, WritesResolution) {
    const struct {
        Float dpi, aspectRatio;  ///< 0: the picture has none
        uint32_t x, y;
    } cases[] = {{0, 0, 2834, 2834}, {0, 2, 2834, 5669}, {300, 1, 11811, 11811}, {300, 0, 11811, 11811}};
    for (const auto& c : cases) {
        const ImageTextureRef texture = MakeTexture({1, 1, pixelformats::kRgbU8, {1, 2, 3}});
        const ImageBaseRef image = FirstImage(texture);
        ASSERT_TRUE(c.dpi == 0 || image->Set(image::kDpi, c.dpi));
        ASSERT_TRUE(c.aspectRatio == 0 || image->Set(image::kAspectRatio, c.aspectRatio));
        const PngPicture written = Written(texture);
        EXPECT_EQ(written.xPerMetre, c.x);
        EXPECT_EQ(written.yPerMetre, c.y);
        EXPECT_EQ(written.unit, PNG_RESOLUTION_METER);
    }
}

/// A profile with another description of equal length.
Bytes Renamed(Bytes profile, std::u16string_view from, std::u16string_view to) {
    const auto bytesOf = [](std::u16string_view text) {
        Bytes bytes;
        for (const char16_t c : text)
            bytes.insert(bytes.end(), {uint8_t(c >> 8), uint8_t(c)});
        return bytes;
    };
    const Bytes wanted = bytesOf(from), given = bytesOf(to);
    const auto at = std::search(profile.begin(), profile.end(), wanted.begin(), wanted.end());
    EXPECT_TRUE(at != profile.end() && wanted.size() == given.size());
    std::copy(given.begin(), given.end(), at);
    return profile;
}

TEST_F(PngTest, CarriesColorProfiles) {
    const Bytes linear = ProfileBytes(colorprofiles::kLinearRgb);
    const std::u16string_view name = u"Linear Color Space";
    const struct {
        const char* writtenName;
        Bytes profile;
    } cases[] = {
        {"Linear Color Space", linear},
        {"L\xE9? Color Sp", Renamed(linear, name, u" L\u00E9\u4E2D\n\n\tColor   Sp ")},
        {"ICC", Renamed(linear, name, u"                  ")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.writtenName);
        const PngPicture made{
            .width = 1, .height = 1, .rows = {100, 150, 200}, .profileName = "anything", .profile = c.profile};
        const ImageTextureRef texture = Loaded(WritePng(made));
        const Result<ColorProfile> profile = ColorProfile::OpenProfileFromMemory(AsBlock(c.profile));
        ASSERT_TRUE(profile);
        EXPECT_EQ(FirstImage(texture)->Get(image::kColorProfile, ColorProfile()), *profile);
        const PngPicture written = Written(texture);
        EXPECT_EQ(written.profile, c.profile);
        EXPECT_EQ(written.profileName, c.writtenName);
        EXPECT_EQ(written.rows, made.rows);  // not converted: the file says what they are
    }
}

TEST_F(PngTest, GreyRowsGetAProfileOfTheirSpace) {
    const PngPicture made{.width = 3, .height = 1, .colorType = 0, .rows = {0, 77, 255}};
    const ImageTextureRef texture = Loaded(WritePng(made));
    EXPECT_EQ(FirstImage(texture)->Get(image::kColorProfile, ColorProfile()), colorprofiles::Get(colorprofiles::kSrgb));
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
        EXPECT_TRUE(hdr);
        const Bytes pixels = PixelsOf(FirstImage(Loaded(hdr.GetValueOr(Bytes()))), pixelformats::kRgbF32);
        std::vector<float> light(pixels.size() / sizeof(float));
        std::memcpy(light.data(), pixels.data(), pixels.size());
        return light;
    };
    const std::vector<float> wanted =
        lightOf(WritePng({.width = 4, .height = 1, .colorType = PNG_COLOR_TYPE_RGB, .rows = colors}));
    ASSERT_NEAR(wanted[3], 0.0908, 0.001);
    const std::pair<const char*, Bytes> files[] = {
        {"png 8", WritePng({.width = 4, .height = 1, .colorType = PNG_COLOR_TYPE_GRAY, .rows = greys})},
        {"png 16", WritePng({.width = 4, .height = 1, .colorType = PNG_COLOR_TYPE_GRAY, .bitDepth = 16, .rows = wide})},
        {"png 2", WritePng({.width = 4, .height = 1, .colorType = PNG_COLOR_TYPE_GRAY, .bitDepth = 2, .rows = {0x1B}})},
        {"jpeg", WriteJpeg({.width = 4, .height = 1, .colorSpace = JCS_GRAYSCALE, .rows = greys, .quality = 100})},
    };
    for (const auto& [what, file] : files)
        EXPECT_THAT(lightOf(file), testing::Pointwise(testing::FloatNear(0.01f), wanted)) << what;
}

/// What others seldom write, as they read it.
TEST_F(PngTest, OthersReadRareVariants) {
    if (!HasTool("convert-im6.q16"))
        GTEST_SKIP() << "ImageMagick is not installed";
    const png_color_16 key{0, 0x42, 0x43, 0x44, 1}, wideKey{0, 0x4243, 0x4445, 0x4647, 0x4243};
    const PngPicture cases[] = {
        {.colorType = 0, .bitDepth = 1, .hasKey = true, .key = key},
        {.colorType = 0, .bitDepth = 2},
        {.colorType = 0, .bitDepth = 2, .interlaced = true, .hasKey = true, .key = key},
        {.colorType = 0, .bitDepth = 8, .hasKey = true, .key = {0, 0, 0, 0, 0x42}},
        {.colorType = 0, .bitDepth = 16, .hasKey = true, .key = wideKey},
        {.colorType = 2, .bitDepth = 8, .interlaced = true, .hasKey = true, .key = key},
        {.colorType = 2, .bitDepth = 16, .hasKey = true, .key = wideKey},
    };
    const Bytes keyed = {0x42, 0x43, 0x44}, wideKeyed = {0x43, 0x42, 0x45, 0x44, 0x47, 0x46};
    Noise noise(12);
    for (PngPicture made : cases) {
        SCOPED_TRACE(testing::Message() << made.colorType << " " << made.bitDepth << " " << made.interlaced);
        made.width = 7, made.height = 3;
        made.rows = noise.Make(made.RowBytes() * made.height);
        // The first pixel has the colour of the key; smaller depths meet theirs soon enough.
        std::copy_n((made.bitDepth == 16 ? wideKeyed : keyed).begin(), made.RowBytes() / made.width, made.rows.begin());
        const Bytes file = WritePng(made);
        ExpectReadAlike("convert-im6.q16 png:- -depth 16 -endian LSB rgba:-", file, pixelformats::kRgbaU16);
        const Bytes rgba = RgbaOf(Loaded(file));
        bool isClear = false;
        for (size_t i = 3; i < rgba.size(); i += 4)
            isClear |= rgba[i] == 0;
        EXPECT_EQ(isClear, made.hasKey);
    }
}

}  // namespace
}  // namespace codectest
