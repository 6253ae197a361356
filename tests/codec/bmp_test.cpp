// BMP: files put together byte by byte, and files written here compared byte by byte.

#include "bmp_parts.h"

namespace codectest {
namespace {

class BmpTest : public CodecTest {};

const Bytes kRows24 = {1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 11, 12, 13, 14, 15, 16, 0xEE, 0xEE};  // bottom row first
const Bytes kRows32 = {1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18};

/// Past detection, straight into the importer.
Result<ImageTextureRef> LoadWithImporter(const Bytes& file) {
    const MediaSessionFileFormatHandler handler = FindHandlerBySuffix("bmp");
    const auto input = Cast<MediaConverterInterface>(TRY(handler->CreateHandler(Mount(file))));
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    const auto output = TRY(ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>());
    TRY(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
    const auto session = TRY(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>());
    TRY(session->ConnectMediaConverter(input, output));
    TRY(session->Convert(TimeValue(), MEDIASESSIONFLAGS::NONE));
    return texture;
}

struct GoodFile {
    const char* what;
    BmpParts parts;
    std::string format;  ///< of the image
    Bytes rgba;          ///< top row first
};

TEST_F(BmpTest, ReadsEveryGeneration) {
    const Bytes rgb24 = {13, 12, 11, 255, 16, 15, 14, 255, 3, 2, 1, 255, 6, 5, 4, 255};
    const Bytes upsideDown = {3, 2, 1, 255, 6, 5, 4, 255, 13, 12, 11, 255, 16, 15, 14, 255};
    const Bytes plain32 = {13, 12, 11, 14, 17, 16, 15, 18, 3, 2, 1, 4, 7, 6, 5, 8};
    const Bytes opaque32 = {13, 12, 11, 255, 17, 16, 15, 255, 3, 2, 1, 255, 7, 6, 5, 255};
    const std::string bgr = "net.orvik.image.pixelformat.bgr.u8";
    const BmpParts masked{.headerSize = 108,
                          .bitCount = 32,
                          .compression = 3,
                          .red = 0xFF0000,
                          .green = 0xFF00,
                          .blue = 0xFF,
                          .alpha = 0xFF000000,
                          .rows = kRows32};
    BmpParts noAlpha = masked, leading = masked, red = masked, v5 = masked, v3 = masked, middle = masked;
    noAlpha.alpha = 0;
    leading.alpha = 0, leading.red = 0xFF000000, leading.green = 0xFF0000, leading.blue = 0xFF00;
    red.alpha = 0xFF, red.red = 0xFF000000, red.green = 0xFF0000, red.blue = 0xFF00;
    v5.headerSize = 124;
    v3.headerSize = 40;
    middle.alpha = 0, middle.red = 0xFF000000;
    const GoodFile files[] = {
        {"core", {.headerSize = 12, .rows = kRows24}, bgr, rgb24},
        {"V3", {.rows = kRows24}, bgr, rgb24},
        {"top-down", {.height = -2, .rows = kRows24}, bgr, upsideDown},
        {"44 bytes", {.headerSize = 44, .rows = kRows24}, bgr, rgb24},
        {"64 bytes", {.headerSize = 64, .rows = kRows24}, bgr, rgb24},
        {"V4 with unused masks", {.headerSize = 108, .red = 5, .rows = kRows24}, bgr, rgb24},
        {"110 bytes", {.headerSize = 110, .rows = kRows24}, bgr, rgb24},
        {"V5", {.headerSize = 124, .rows = kRows24}, bgr, rgb24},
        {"130 bytes", {.headerSize = 130, .rows = kRows24}, bgr, rgb24},
        {"plain 32 bits", {.bitCount = 32, .rows = kRows32}, bgr, plain32},
        {"all masks", masked, "", plain32},
        {"V5 all masks", v5, "", plain32},
        {"no alpha", noAlpha, bgr, opaque32},
        {"V3 masks", v3, bgr, opaque32},
        {"leading filler", leading, bgr, {14, 13, 12, 255, 18, 17, 16, 255, 4, 3, 2, 255, 8, 7, 6, 255}},
        {"alpha first", red, "", {14, 13, 12, 11, 18, 17, 16, 15, 4, 3, 2, 1, 8, 7, 6, 5}},
        {"gap in the middle", middle, "", {14, 12, 11, 255, 18, 16, 15, 255, 4, 2, 1, 255, 8, 6, 5, 255}},
    };
    for (const GoodFile& file : files) {
        SCOPED_TRACE(file.what);
        // Some of these headers no detector claims; the importer reads them all the same.
        const Result<ImageTextureRef> texture = LoadWithImporter(file.parts.Make());
        ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
        EXPECT_EQ(RgbaOf(*texture), file.rgba);
        const PixelFormat format = FirstImage(*texture)->GetPixelFormat();
        EXPECT_EQ(format->GetBitsPerPixel().GetBits(), file.format.empty() ? 32 : 24);
        if (!file.format.empty()) {
            EXPECT_EQ(format->GetId().GetText(), file.format);
        }
    }
}

TEST_F(BmpTest, DescribesThePicture) {
    Result<ImageTextureRef> texture = Load(
        BmpParts{.headerSize = 108, .bitCount = 32, .xPerMetre = 2834, .yPerMetre = -5668, .rows = kRows32}.Make());
    ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
    const ImageBaseRef image = FirstImage(*texture);
    EXPECT_EQ(image->GetWidth(), 2);
    EXPECT_EQ(image->GetHeight(), 2);
    EXPECT_DOUBLE_EQ(image->Get(image::kDpi, 0), 2834 * 300.0 / 11808.0);
    EXPECT_DOUBLE_EQ(image->Get(image::kAspectRatio, 0), 2.0);
    EXPECT_EQ(image->Get(image::kColorProfile, ColorProfile()), colorprofiles::Get(colorprofiles::kSrgb));
    const ImageBaseRef alpha = AlphaOf(image);
    ASSERT_TRUE(alpha);
    EXPECT_EQ(alpha->Get(image::kAlphaName, String()), String("Alpha"));
    EXPECT_EQ(alpha->GetPixelFormat()->GetId(), pixelformats::kAlphaU8);
    const DataDictionary settings = (*texture)->Get(image::kExportSettings, DataDictionary());
    EXPECT_EQ(settings.Get(mediaexport::kBmpInfoHeader, Id()), Id("V4"));
}

TEST_F(BmpTest, KeepsOnlyPlausibleResolutions) {
    const struct {
        int32_t x, y;
        bool hasDpi, hasAspectRatio;
    } cases[] = {{0, 0, false, false},   {0, 100, false, false},    {39, 39, false, false},
                 {40, 40, true, false},  {40, 0, true, false},      {100, 1000, true, false},
                 {100, 999, true, true}, {100, 10, true, false},    {100, 11, true, true},
                 {-100, 50, true, true}, {393600, 1, false, false}, {INT32_MIN, 1, false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.x << " " << c.y);
        Result<ImageTextureRef> texture = Load(BmpParts{.xPerMetre = c.x, .yPerMetre = c.y, .rows = kRows24}.Make());
        ASSERT_TRUE(texture);
        EXPECT_EQ(FirstImage(*texture)->Has(image::kDpi.GetId()), c.hasDpi);
        EXPECT_EQ(FirstImage(*texture)->Has(image::kAspectRatio.GetId()), c.hasAspectRatio);
    }
}

/// One good file, one wrong field a case.
TEST_F(BmpTest, RefusesDamage) {
    const BmpParts good{.rows = kRows24};
    const BmpParts masks{.headerSize = 108, .bitCount = 32, .compression = 3, .red = 0xFF, .rows = kRows32};
    const auto with = [](BmpParts parts, auto change) {
        change(parts);
        return parts.Make();
    };
    const struct {
        const char* what;
        Bytes file;
        const char* kind;
        const char* message;
    } cases[] = {
        {"bit count 3", with(good, [](auto& p) { p.bitCount = 3; }), "mediasessionwrongtype",
         "Invalid image bit count: 3."},
        {"bit count 0", with(good, [](auto& p) { p.bitCount = 0; }), "mediasessionwrongtype",
         "Invalid image bit count: 0."},
        {"bit count 33", with(good, [](auto& p) { p.bitCount = 33; }), "mediasessionwrongtype", ""},
        {"width -1", with(good, [](auto& p) { p.width = -1; }), "mediasessionwrongtype", "Invalid Image width: -1."},
        {"compression 4", with(good, [](auto& p) { p.compression = 4; }), "mediasessionwrongtype",
         "unsupported bmp compression (4)."},
        {"run lengths that are none",
         with(good,
              [](auto& p) {
                  p.compression = 1, p.rows = {0, 1};
              }),
         "mediasessionwrongtype", "Illegal RLE compression (missing data)."},
        {"more rows than bytes", with(good, [](auto& p) { p.height = 3; }), "mediasessionwrongtype", ""},
        {"least height", with(good, [](auto& p) { p.height = INT32_MIN; }), "mediasessionwrongtype", ""},
        {"greatest size", with(good, [](auto& p) { p.width = p.height = INT32_MAX; }), "outofmemory", ""},
        {"core with two planes", with(good, [](auto& p) { p.headerSize = 12, p.planes = 2; }), "mediasessionwrongtype",
         ""},
        {"no masks", with(masks, [](auto& p) { p.red = 0; }), "mediasessionwrongtype", "Invalid image bit count: 32."},
        {"half a lane", with(masks, [](auto& p) { p.green = 0xFF0; }), "mediasessionwrongtype",
         "BITMAPV4HEADER unsupported mask value (ff0) for channel 'net.orvik.image.imagechanneltype.green'."},
        {"lane taken twice", with(masks, [](auto& p) { p.blue = 0xFF; }), "mediasessionwrongtype",
         "BITMAPV4HEADER duplicate mask value (ff) for channel 'net.orvik.image.imagechanneltype.blue'."},
        {"16 bits, odd masks",
         with(good, [](auto& p) { p.bitCount = 16, p.compression = 3, p.red = 1, p.green = 2, p.blue = 4; }),
         "mediasessionwrongtype", "unsupported pixeltype"},
        {"profile that is none",
         with(good, [](auto& p) { p.headerSize = 124, p.space = 0x4D424544, p.profile = Bytes(200, 1); }), "fileformat",
         "found invalid magic number in color profile."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result<ImageTextureRef> loaded = Load(c.file);
        EXPECT_EQ(MessageOf(loaded), c.message);
        if (std::string_view(c.kind) != "fileformat")  // the class of the profile's error is the profile's affair
            EXPECT_EQ(KindOf(loaded), c.kind);
        else
            EXPECT_FALSE(loaded);
    }
}

TEST_F(BmpTest, ProfileMustLieInsideTheFile) {
    for (const uint32_t size : {2000u, 0xFFFFFFFFu}) {
        Bytes file = BmpParts{.headerSize = 124, .space = 0x4D424544, .profile = Bytes(4), .rows = kRows24}.Make();
        std::memcpy(file.data() + 14 + 116, &size, 4);
        EXPECT_EQ(KindOf(Load(file)), "mediasessionwrongtype");
    }
}

TEST_F(BmpTest, PixelOffsetCounts) {
    Bytes file = BmpParts{.rows = kRows24}.Make();
    file.insert(file.begin() + 54, 10, 0xAA);
    file[10] = 64;
    Result<ImageTextureRef> texture = Load(file);
    ASSERT_TRUE(texture);
    EXPECT_EQ(RgbaOf(*texture)[0], 13);
    file[10] = 0;  // none: the rows follow the header
    texture = Load(file);
    ASSERT_TRUE(texture);
    EXPECT_EQ(RgbaOf(*texture)[8], 0xAA);
}

// --- Writing ---------------------------------------------------------------------------------------------------------

uint32_t U32(const Bytes& bytes, size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | uint32_t(bytes[at + 3]) << 24;
}

Picture RgbaPicture() { return {2, 2, pixelformats::kRgbaU8, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}; }

Result<Bytes> SaveAs(const ImageTextureRef& texture, const Id& generation) {
    DataDictionary settings;
    TRY(settings.Set(mediaexport::kBmpInfoHeader, generation));
    TRY(texture->Set(image::kExportSettings, settings));
    return Save(texture, "bmp");
}

TEST_F(BmpTest, WritesV3ByDefault) {
    const ImageTextureRef texture = MakeTexture(RgbaPicture());
    const Result<Bytes> file = Save(texture, "bmp");
    ASSERT_TRUE(file) << file.GetError()->ToString().GetCString();
    const Bytes expected = {
        'B', 'M', 70, 0,  0,    0,    0, 0, 0,    0,    54, 0, 0, 0,  // file size, reserved, pixel offset
        40,  0,   0,  0,  2,    0,    0, 0, 2,    0,    0,  0, 1, 0, 24, 0,
        0,   0,   0,  0,                                                     // size, width, height, planes, bits, plain
        16,  0,   0,  0,  0x12, 0x0B, 0, 0, 0x12, 0x0B, 0,  0,               // image size, 2834 pixels a metre
        0,   0,   0,  0,  0,    0,    0, 0,                                  // colours
        11,  10,  9,  15, 14,   13,   0, 0, 3,    2,    1,  7, 6, 5, 0,  0,  // bottom row first, filled to 8 bytes
    };
    EXPECT_EQ(*file, expected);
}

TEST_F(BmpTest, WritesV4AndV5WithAlpha) {
    const ImageTextureRef texture = MakeTexture(RgbaPicture());
    const Result<Bytes> v4 = SaveAs(texture, Id("V4"));
    ASSERT_TRUE(v4) << v4.GetError()->ToString().GetCString();
    EXPECT_EQ(v4->size(), 14u + 108 + 16);
    EXPECT_EQ(U32(*v4, 2), v4->size());
    EXPECT_EQ(U32(*v4, 10), 14u + 108);
    EXPECT_EQ(U32(*v4, 14), 108u);
    EXPECT_EQ((*v4)[28], 32);
    EXPECT_EQ(U32(*v4, 30), 3u);
    EXPECT_EQ(U32(*v4, 54), 0xFF0000u);
    EXPECT_EQ(U32(*v4, 58), 0xFF00u);
    EXPECT_EQ(U32(*v4, 62), 0xFFu);
    EXPECT_EQ(U32(*v4, 66), 0xFF000000u);
    EXPECT_EQ(U32(*v4, 70), 0x73524742u);
    EXPECT_EQ(Bytes(v4->begin() + 74, v4->begin() + 122), Bytes(48));  // endpoints and gamma
    EXPECT_EQ(Bytes(v4->begin() + 122, v4->end()), (Bytes{11, 10, 9, 12, 15, 14, 13, 16, 3, 2, 1, 4, 7, 6, 5, 8}));

    const Result<Bytes> v5 = SaveAs(texture, Id("V5"));
    ASSERT_TRUE(v5) << v5.GetError()->ToString().GetCString();
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    const Block<const std::byte> profile = *srgb.WriteProfileToMemory();
    ASSERT_EQ(v5->size(), 14 + 124 + profile.size() + 16);
    EXPECT_EQ(U32(*v5, 10), 14 + 124 + profile.size());
    EXPECT_EQ(U32(*v5, 70), 0x4D424544u);
    EXPECT_EQ(U32(*v5, 122), 4u);
    EXPECT_EQ(U32(*v5, 126), 124u);
    EXPECT_EQ(U32(*v5, 130), profile.size());
    EXPECT_EQ(std::memcmp(v5->data() + 138, profile.data(), profile.size()), 0);

    const Result<ImageTextureRef> again = Load(*v5);
    ASSERT_TRUE(again) << again.GetError()->ToString().GetCString();
    EXPECT_EQ(RgbaOf(*again), RgbaPicture().pixels);
    EXPECT_EQ((*again)->Get(image::kExportSettings, DataDictionary()).Get(mediaexport::kBmpInfoHeader, Id()), Id("V5"));
}

TEST_F(BmpTest, WritesAlphaOfAChild) {
    Picture picture{2, 1, pixelformats::kGreyU8, {100, 200}};
    picture.alpha = {7, 9};
    const ImageTextureRef texture = MakeTexture(picture);
    const Result<Bytes> v4 = SaveAs(texture, Id("V4"));
    ASSERT_TRUE(v4) << v4.GetError()->ToString().GetCString();
    EXPECT_EQ(Bytes(v4->begin() + 122, v4->end()), (Bytes{100, 100, 100, 7, 200, 200, 200, 9}));
    const Result<Bytes> v3 = SaveAs(texture, Id("V3"));
    ASSERT_TRUE(v3);
    EXPECT_EQ((*v3)[28], 24);
    EXPECT_EQ(Bytes(v3->begin() + 54, v3->end()), (Bytes{100, 100, 100, 200, 200, 200, 0, 0}));
}

TEST_F(BmpTest, WritesResolution) {
    const ImageTextureRef texture = MakeTexture(RgbaPicture());
    ASSERT_TRUE(FirstImage(texture)->Set(image::kDpi, 300.0));
    ASSERT_TRUE(FirstImage(texture)->Set(image::kAspectRatio, 0.5));
    const Result<Bytes> file = Save(texture, "bmp");
    ASSERT_TRUE(file);
    EXPECT_EQ(U32(*file, 38), 11808u);
    EXPECT_EQ(U32(*file, 42), 5904u);
}

TEST_F(BmpTest, RefusesUnknownGeneration) {
    const Result<Bytes> file = SaveAs(MakeTexture(RgbaPicture()), Id("V6"));
    EXPECT_EQ(KindOf(file), "illegalargument");
    EXPECT_EQ(MessageOf(file), "Invalid header type: V6.");
}

}  // namespace
}  // namespace codectest
