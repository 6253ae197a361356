// PNG: files that libpng makes for the test, and files written here that libpng reads for the test.

#include "codec_support.h"
#include "png_direct.h"

namespace codectest {
namespace {

class PngTest : public CodecTest {};

struct ColorType {
    int colorType, bitDepth, bytesPerPixel;
    const char* stored;
};
const ColorType kColorTypes[] = {
    {PNG_COLOR_TYPE_GRAY, 8, 1, "net.orvik.image.pixelformat.grey.u8"},
    {PNG_COLOR_TYPE_GRAY, 16, 2, "net.orvik.image.pixelformat.grey.u16"},
    {PNG_COLOR_TYPE_GRAY_ALPHA, 8, 2, "net.orvik.image.pixelformat.greya.u8"},
    {PNG_COLOR_TYPE_GRAY_ALPHA, 16, 4, "net.orvik.image.pixelformat.greya.u16"},
    {PNG_COLOR_TYPE_RGB, 8, 3, "net.orvik.image.pixelformat.rgb.u8"},
    {PNG_COLOR_TYPE_RGB, 16, 6, "net.orvik.image.pixelformat.rgb.u16"},
    {PNG_COLOR_TYPE_RGB_ALPHA, 8, 4, "net.orvik.image.pixelformat.rgba.u8"},
    {PNG_COLOR_TYPE_RGB_ALPHA, 16, 8, "net.orvik.image.pixelformat.rgba.u16"},
};

Id IdOf(const char* text) { return *Id::Create(text); }

TEST_F(PngTest, ReadsAndWritesEveryColorTypeInBothOrders) {
    Noise noise(1);
    for (const ColorType& type : kColorTypes) {
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
                const Result<Bytes> file = Save(texture, "png");
                ASSERT_TRUE(file) << file.GetError()->ToString().GetCString();
                const PngPicture written = ReadPng(*file);
                EXPECT_EQ(written.colorType, type.colorType);
                EXPECT_EQ(written.bitDepth, type.bitDepth);
                EXPECT_EQ(written.interlaced, interlaced);
                EXPECT_EQ(written.rows, made.rows);
            }
        }
    }
}

TEST_F(PngTest, ColorKeyMakesExactMatchesTransparent) {
    // 8 bits
    PngPicture rgb{
        .width = 3, .height = 1, .rows = {1, 2, 3, 1, 2, 4, 1, 2, 3}, .hasKey = true, .key = {0, 1, 2, 3, 0}};
    for (const bool interlaced : {false, true}) {
        rgb.interlaced = interlaced;
        const ImageTextureRef texture = Loaded(WritePng(rgb));
        EXPECT_EQ(FirstImage(texture)->GetPixelFormat()->GetId(), pixelformats::kRgbaU8);
        EXPECT_EQ(RgbaOf(texture), (Bytes{1, 2, 3, 0, 1, 2, 4, 255, 1, 2, 3, 0}));
    }
    const ImageTextureRef grey = Loaded(
        WritePng({.width = 3, .height = 1, .colorType = 0, .rows = {5, 6, 5}, .hasKey = true, .key = {0, 0, 0, 0, 5}}));
    EXPECT_EQ(PixelsOf(FirstImage(grey), pixelformats::kGreyaU8), (Bytes{5, 0, 6, 255, 5, 0}));
    // 16 bits: equal high bytes are not enough
    const ImageTextureRef grey16 = Loaded(WritePng({.width = 2,
                                                    .height = 1,
                                                    .colorType = 0,
                                                    .bitDepth = 16,
                                                    .rows = {0x34, 0x12, 0x35, 0x12},
                                                    .hasKey = true,
                                                    .key = {0, 0, 0, 0, 0x1234}}));
    EXPECT_EQ(PixelsOf(FirstImage(grey16), pixelformats::kGreyaU16), (Bytes{0x34, 0x12, 0, 0, 0x35, 0x12, 0xFF, 0xFF}));
    const ImageTextureRef rgb16 = Loaded(WritePng({.width = 2,
                                                   .height = 1,
                                                   .bitDepth = 16,
                                                   .rows = {1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 7},
                                                   .hasKey = true,
                                                   .key = {0, 0x0201, 0x0403, 0x0605, 0}}));
    EXPECT_EQ(PixelsOf(FirstImage(rgb16), pixelformats::kRgbaU16),
              (Bytes{1, 2, 3, 4, 5, 6, 0, 0, 1, 2, 3, 4, 5, 7, 0xFF, 0xFF}));
}

TEST_F(PngTest, DescribesResolution) {
    PngPicture made{.width = 1, .height = 1, .rows = {1, 2, 3}};
    EXPECT_FALSE(FirstImage(Loaded(WritePng(made)))->Has(image::kDpi.GetId()));
    EXPECT_EQ(FirstImage(Loaded(WritePng(made)))->Get(image::kAspectRatio, 0), 1.0);
    made.xPerMetre = 11811, made.yPerMetre = 5906;
    EXPECT_EQ(FirstImage(Loaded(WritePng(made)))->Get(image::kDpi, 0), 300.0);
    EXPECT_EQ(FirstImage(Loaded(WritePng(made)))->Get(image::kAspectRatio, 0), 0.5);
    made.unit = PNG_RESOLUTION_UNKNOWN;
    EXPECT_FALSE(FirstImage(Loaded(WritePng(made)))->Has(image::kDpi.GetId()));
    EXPECT_EQ(FirstImage(Loaded(WritePng(made)))->Get(image::kAspectRatio, 0), 1.0);
}

TEST_F(PngTest, WritesResolution) {
    const ImageTextureRef texture = MakeTexture({1, 1, pixelformats::kRgbU8, {1, 2, 3}});
    ASSERT_TRUE(FirstImage(texture)->Set(image::kAspectRatio, 2.0));
    PngPicture written = ReadPng(Save(texture, "png").GetValueOr(Bytes()));
    EXPECT_EQ(written.xPerMetre, 2834u);  // 72 dots per inch, truncated
    EXPECT_EQ(written.yPerMetre, 5669u);
    EXPECT_EQ(written.unit, PNG_RESOLUTION_METER);
    ASSERT_TRUE(FirstImage(texture)->Set(image::kDpi, 300.0));
    ASSERT_TRUE(FirstImage(texture)->Set(image::kAspectRatio, 1.0));
    written = ReadPng(Save(texture, "png").GetValueOr(Bytes()));
    EXPECT_EQ(written.xPerMetre, 11811u);
    EXPECT_EQ(written.yPerMetre, 11811u);
}

TEST_F(PngTest, CarriesColorProfiles) {
    const Bytes linear = ProfileBytes(colorprofiles::kLinearRgb);
    const PngPicture made{
        .width = 1, .height = 1, .rows = {100, 150, 200}, .profileName = "anything", .profile = linear};
    const ImageTextureRef texture = Loaded(WritePng(made));
    EXPECT_EQ(FirstImage(texture)->Get(image::kColorProfile, ColorProfile()),
              colorprofiles::Get(colorprofiles::kLinearRgb));
    const PngPicture written = ReadPng(Save(texture, "png").GetValueOr(Bytes()));
    EXPECT_EQ(written.profile, linear);
    EXPECT_EQ(written.profileName, "Linear Color Space");
    EXPECT_EQ(written.rows, made.rows);  // not converted: the file says what they are
}

TEST_F(PngTest, GreyRowsGetAProfileOfTheirSpace) {
    const PngPicture made{.width = 3, .height = 1, .colorType = 0, .rows = {0, 77, 255}};
    const PngPicture written = ReadPng(Save(Loaded(WritePng(made)), "png").GetValueOr(Bytes()));
    EXPECT_EQ(written.rows, made.rows);
    EXPECT_EQ(written.profile, ProfileBytes(colorprofiles::kSgrey));
}

TEST_F(PngTest, ChoosesDepthAndColorTypeByTheImage) {
    const struct {
        const char* format;
        int bytesPerPixel, colorType, bitDepth;
    } cases[] = {
        {"net.orvik.image.pixelformat.bgr.u8", 3, PNG_COLOR_TYPE_RGB, 8},
        {"net.orvik.image.pixelformat.bgra.u8", 4, PNG_COLOR_TYPE_RGB_ALPHA, 8},
        {"net.orvik.image.pixelformat.rgb.f32", 12, PNG_COLOR_TYPE_RGB, 16},
        {"net.orvik.image.pixelformat.grey.f32", 4, PNG_COLOR_TYPE_GRAY, 16},
        {"net.orvik.image.pixelformat.rgb.f16", 6, PNG_COLOR_TYPE_RGB, 16},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        const ImageTextureRef texture = MakeTexture({2, 2, IdOf(c.format), Bytes(size_t(c.bytesPerPixel) * 4)});
        const Result<Bytes> file = Save(texture, "png");
        ASSERT_TRUE(file) << file.GetError()->ToString().GetCString();
        const PngPicture written = ReadPng(*file);
        EXPECT_EQ(written.colorType, c.colorType);
        EXPECT_EQ(written.bitDepth, c.bitDepth);
    }
}

TEST_F(PngTest, WritesAlphaOfAChildAndSwapsChannels) {
    Picture picture{2, 1, pixelformats::kBgrU8, {1, 2, 3, 4, 5, 6}};
    picture.alpha = {7, 9};
    const PngPicture written = ReadPng(Save(MakeTexture(picture), "png").GetValueOr(Bytes()));
    EXPECT_EQ(written.colorType, PNG_COLOR_TYPE_RGB_ALPHA);
    EXPECT_EQ(written.rows, (Bytes{3, 2, 1, 7, 6, 5, 4, 9}));
}

TEST_F(PngTest, LibraryErrorsKeepTheirText) {
    Bytes file = WritePng({.width = 1, .height = 1, .rows = {1, 2, 3}});
    file[24] = 3;  // a bit depth that no colour type has, with a check sum that no longer fits
    const Result<ImageTextureRef> loaded = Load(file);
    EXPECT_EQ(KindOf(loaded), "fileformat");
    EXPECT_EQ(MessageOf(loaded), "PNG Error: IHDR: CRC error");
}

TEST_F(PngTest, SpaceBombIsRefused) {
    // A header of 900000 x 900000 pixels over the data of one pixel.
    Bytes file = WritePng({.width = 1, .height = 1, .rows = {1, 2, 3}});
    PngPicture large{.width = 900000, .height = 1, .rows = Bytes(2700000)};
    const Bytes head = WritePng(large);
    std::copy(head.begin() + 16, head.begin() + 33, file.begin() + 16);  // IHDR with its check sum
    EXPECT_EQ(KindOf(Load(file)), "mediasessionwrongtype");
    EXPECT_EQ(RgbaOf(Loaded(head)).size(), 3600000u);  // the honest one loads, at a ratio of 1000 to 1
}

TEST_F(PngTest, ModuleInformation) {
    const auto info = FindPublished<DataDictionaryObjectInterface>("net.orvik.moduleinfo.libpng");
    const auto text = [&](const char* key) {
        const Result<Data> data = info->GetData(*Id::Create(key));
        return data ? data->ToString() : String();
    };
    EXPECT_EQ(text("net.orvik.moduleinfo.name"), String("libpng"));
    EXPECT_EQ(text("net.orvik.moduleinfo.description"), String("PNG image i/o library"));
    EXPECT_EQ(text("net.orvik.moduleinfo.version"), String("1.6.36"));
}

}  // namespace
}  // namespace codectest
