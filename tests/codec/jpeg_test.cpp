// JPEG: files that libjpeg makes for the test, and files written here that libjpeg reads for the test.

#include "codec_support.h"
#include "jpeg_direct.h"

#include "orvik/threadservices.h"

namespace codectest {
namespace {

class JpegTest : public CodecTest {};

/// Waves with a little noise: something that survives compression.
Bytes MakeRows(uint32_t width, uint32_t height, int channels) {
    Noise noise(width * 31 + height);
    Bytes rows;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (int c = 0; c < channels; ++c)
                rows.push_back(uint8_t(40 + (x * 5 + y * 3 * uint32_t(c + 1)) % 150 + noise.Next() % 8));
        }
    }
    return rows;
}

JpegPicture MakePicture(uint32_t width, uint32_t height, J_COLOR_SPACE space = JCS_RGB) {
    JpegPicture picture{.width = width, .height = height, .colorSpace = space};
    if (space != JCS_RGB && space != JCS_YCbCr)
        picture.horizontal = picture.vertical = 1;
    picture.rows = MakeRows(width, height, picture.Channels());
    return picture;
}

const struct {
    J_COLOR_SPACE space;
    Id format;
} kSpaces[] = {{JCS_GRAYSCALE, pixelformats::kGreyU8},
               {JCS_RGB, pixelformats::kRgbU8},
               {JCS_CMYK, "net.orvik.image.pixelformat.cmyk_inv.u8"}};

TEST_F(JpegTest, ReadsWhatTheBareLibraryReads) {
    const struct {
        uint32_t width, height;
    } sizes[] = {{1, 1}, {1, 37}, {37, 1}, {8, 8}, {17, 15}, {31, 33}, {64, 40}, {257, 3}};
    const struct { int horizontal, vertical; } samplings[] = {{1, 1}, {2, 1}, {1, 2}, {2, 2}, {4, 1}, {4, 2}};
    for (const auto& kind : kSpaces) {
        for (const auto& size : sizes) {
            for (const auto& sampling : samplings) {
                for (const int way : {0, 1, 2, 3}) {
                    JpegPicture made = MakePicture(size.width, size.height, kind.space);
                    if (kind.space == JCS_RGB)
                        made.horizontal = sampling.horizontal, made.vertical = sampling.vertical;
                    else if (sampling.horizontal * sampling.vertical > 1)
                        continue;
                    made.progressive = way & 1;
                    made.arithmetic = way & 2;
                    made.restartRows = way;
                    SCOPED_TRACE(testing::Message() << kind.space << " " << size.width << "x" << size.height << " "
                                                    << sampling.horizontal << sampling.vertical << " " << way);
                    const Bytes file = WriteJpeg(made);
                    ASSERT_FALSE(file.empty());
                    const ImageBaseRef image = FirstImage(Loaded(file));
                    EXPECT_EQ(image->GetPixelFormat()->GetId(), kind.format);
                    EXPECT_EQ(image->GetWidth(), Int(size.width));
                    EXPECT_EQ(image->GetHeight(), Int(size.height));
                    EXPECT_EQ(PixelsOf(image, kind.format), ReadJpeg(file).rows);
                }
            }
        }
    }
}

TEST_F(JpegTest, InksStayInverted) {
    // 255 of an inverted ink is no ink: white.
    JpegPicture made{.width = 8, .height = 8, .colorSpace = JCS_CMYK, .quality = 100, .horizontal = 1, .vertical = 1};
    made.rows = Bytes(8 * 8 * 4, 255);
    const ImageTextureRef texture = Loaded(WriteJpeg(made));
    EXPECT_EQ(RgbaOf(texture), Bytes(8 * 8 * 4, 255));
    EXPECT_FALSE(FirstImage(texture)->Get(image::kColorProfile, ColorProfile()).HasProfile());
}

TEST_F(JpegTest, RefusesOtherNumbersOfComponents) {
    // Two components have no colour space that the library knows.
    JpegPicture made = MakePicture(8, 8, JCS_GRAYSCALE);
    Bytes file = WriteJpeg(made);
    for (size_t i = 0; i + 20 < file.size(); ++i) {
        if (file[i] == 0xFF && file[i + 1] == 0xC0) {  // start of frame: a second component like the first
            const Bytes component = {2, 0x11, 0};
            file[i + 3] = uint8_t(file[i + 3] + 3);
            file[i + 9] = 2;
            file.insert(file.begin() + long(i) + 13, component.begin(), component.end());
            break;
        }
    }
    const Result<ImageTextureRef> loaded = Load(file);
    EXPECT_EQ(KindOf(loaded), "mediasessionwrongtype");
    EXPECT_EQ(MessageOf(loaded), "Unsupported color space: 0");
}

TEST_F(JpegTest, DescribesResolution) {
    const struct {
        int unit, x, y;
        double dpi, aspectRatio;  ///< 0 for none
    } cases[] = {
        {0, 1, 1, 0, 0},         {0, 72, 36, 0, 0},      {1, 300, 300, 300, 0}, {2, 100, 100, 254, 0},
        {1, 200, 100, 200, 0.5}, {1, 100, 1200, 100, 0}, {1, 100, 10, 100, 0},  {1, 100, 11, 100, 0.11},
        {1, 0, 72, 0, 0},        {1, 72, 0, 72, 0},      {2, 50, 100, 127, 2},  {3, 72, 72, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.unit << " " << c.x << " " << c.y);
        JpegPicture made = MakePicture(8, 8);
        made.densityUnit = c.unit, made.xDensity = c.x, made.yDensity = c.y;
        const ImageBaseRef image = FirstImage(Loaded(WriteJpeg(made)));
        EXPECT_EQ(image->Has(image::kDpi.GetId()), c.dpi != 0);
        EXPECT_DOUBLE_EQ(image->Get(image::kDpi, 0), c.dpi);
        EXPECT_EQ(image->Has(image::kAspectRatio.GetId()), c.aspectRatio != 0);
        EXPECT_DOUBLE_EQ(image->Get(image::kAspectRatio, 0), c.aspectRatio);
    }
}

ColorProfile ProfileOf(const ImageTextureRef& texture) {
    return FirstImage(texture)->Get(image::kColorProfile, ColorProfile());
}

TEST_F(JpegTest, CarriesColorProfiles) {
    JpegPicture made = MakePicture(16, 16);
    EXPECT_EQ(ProfileOf(Loaded(WriteJpeg(made))), colorprofiles::Get(colorprofiles::kSrgb));
    made.profile = ProfileBytes(colorprofiles::kLinearRgb);
    const ImageTextureRef texture = Loaded(WriteJpeg(made));
    EXPECT_EQ(ProfileOf(texture), colorprofiles::Get(colorprofiles::kLinearRgb));
    EXPECT_EQ(ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes())).profile, made.profile);

    // Larger than a segment: in pieces. Behind its end a profile may have anything.
    made.profile.resize(150000);
    const ImageTextureRef large = Loaded(WriteJpeg(made));
    EXPECT_EQ(ReadJpeg(Save(large, "jpg").GetValueOr(Bytes())).profile, made.profile);
}

TEST_F(JpegTest, BrokenProfilesCostOnlyThemselves) {
    JpegPicture made = MakePicture(16, 16);
    const Bytes good = WriteJpeg(made);
    made.profile = Bytes(600, 7);
    EXPECT_EQ(ProfileOf(Loaded(WriteJpeg(made))), colorprofiles::Get(colorprofiles::kSrgb));
    made.profile = {};
    made.segments = {{JPEG_APP0 + 2, {'I', 'C', 'C', '_', 'P', 'R', 'O', 'F', 'I', 'L', 'E', 0, 2, 3, 1, 2, 3}}};
    const ImageTextureRef texture = Loaded(WriteJpeg(made));
    EXPECT_EQ(ProfileOf(texture), colorprofiles::Get(colorprofiles::kSrgb));
    EXPECT_EQ(RgbaOf(texture), RgbaOf(Loaded(good)));
}

TEST_F(JpegTest, ProfileOfTheRowsIsEmbedded) {
    const struct {
        J_COLOR_SPACE space;
        J_COLOR_SPACE written;
        Id profile;
    } cases[] = {{JCS_GRAYSCALE, JCS_GRAYSCALE, colorprofiles::kSgrey},
                 {JCS_RGB, JCS_RGB, colorprofiles::kSrgb},
                 {JCS_CMYK, JCS_RGB, colorprofiles::kSrgb}};
    for (const auto& c : cases) {
        const ImageTextureRef texture = Loaded(WriteJpeg(MakePicture(16, 16, c.space)));
        const JpegPicture written = ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes()));
        EXPECT_EQ(written.colorSpace, c.written);
        EXPECT_EQ(written.componentCount, c.written == JCS_GRAYSCALE ? 1 : 3);
        EXPECT_EQ(written.profile, ProfileBytes(c.profile));
    }
}

TEST_F(JpegTest, RowsAreDecodedIntoThePicture) {
    const ImageTextureRef texture = MakeTexture({4, 3, pixelformats::kRgbU8, Bytes(36)});
    const auto image = Cast<ImageInterface>(FirstImage(texture));
    const auto handlerFor = [&](const Id& format, const ColorProfile& profile) {
        return *image->SetPixelHandler(PixelFormats::Get(format), {}, profile, SETPIXELHANDLERFLAGS::NONE);
    };
    SetPixelHandlerStruct same = handlerFor(pixelformats::kRgbU8, ColorProfile());
    ASSERT_TRUE(same.locate);
    std::byte* const row = same.locate({1, 2, 3});
    ASSERT_TRUE(row);
    std::memset(row, 7, 9);
    const Bytes pixels = PixelsOf(image, pixelformats::kRgbU8);
    EXPECT_EQ(Bytes(pixels.begin() + 27, pixels.end()), Bytes(9, 7));
    EXPECT_EQ(std::count(pixels.begin(), pixels.end(), 7), 9);
    for (const PixelSpan& outside : {PixelSpan{0, 3, 1}, PixelSpan{0, -1, 1}, PixelSpan{-1, 0, 1}, PixelSpan{2, 0, 3}})
        EXPECT_FALSE(same.locate(outside));
    // Where pixels change on the way, there is no such place.
    EXPECT_FALSE(handlerFor(pixelformats::kBgrU8, ColorProfile()).locate);
    EXPECT_FALSE(handlerFor(pixelformats::kRgbU8, colorprofiles::Get(colorprofiles::kLinearRgb)).locate);
}

// --- Writing ---------------------------------------------------------------------------------------------------------

/// The tables that the library makes of a quality.
JpegPicture TablesOf(int quality, bool baseline) {
    JpegPicture tables;
    jpeg_compress_struct info{};
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, baseline);
    for (int table = 0; table < 2; ++table)
        std::copy_n(info.quant_tbl_ptrs[table]->quantval, 64, tables.quantization[table]);
    jpeg_destroy_compress(&info);
    return tables;
}

Result<Bytes> SaveWith(const ImageTextureRef& texture, const DataDictionary& settings) {
    EXPECT_TRUE(texture->Set(image::kExportSettings, settings));
    return Save(texture, "jpg");
}

TEST_F(JpegTest, MapsQuality) {
    const ImageTextureRef texture = MakeTexture({8, 8, pixelformats::kRgbU8, MakeRows(8, 8, 3)});
    const struct {
        double quality;
        bool baseline;
        int expected;
    } cases[] = {{0, false, 0},
                 {0, true, 0},
                 {0.01, false, 1},
                 {0.01, true, 1},
                 {0.804, false, 80},
                 {0.805, false, 81},
                 {0.5, true, 50},
                 {1, false, 100},
                 {7, false, 100},
                 {-3, false, 0},
                 {0.994, false, 99},
                 {0.995, false, 100},
                 {std::numeric_limits<double>::quiet_NaN(), false, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.quality << " " << c.baseline);
        DataDictionary settings;
        ASSERT_TRUE(settings.Set(mediaexport::kQuality, c.quality));
        ASSERT_TRUE(settings.Set(mediaexport::kJpgBaseline, c.baseline));
        const JpegPicture written = ReadJpeg(SaveWith(texture, settings).GetValueOr(Bytes()));
        const JpegPicture expected = TablesOf(c.expected, c.baseline);
        for (int table = 0; table < 2; ++table)
            EXPECT_THAT(written.quantization[table], testing::ElementsAreArray(expected.quantization[table]));
    }
}

TEST_F(JpegTest, SettingsHaveDefaults) {
    const ImageTextureRef texture = MakeTexture({8, 8, pixelformats::kRgbU8, MakeRows(8, 8, 3)});
    const JpegPicture expected = TablesOf(80, false);
    DataDictionary other, wrongType;
    ASSERT_TRUE(other.Set(mediaexport::kPngInterlaced, true));
    ASSERT_TRUE(wrongType.SetData(mediaexport::kQuality.GetId(), Data(String("high"))));
    for (const DataDictionary& settings : {DataDictionary(), other, wrongType}) {
        const JpegPicture written = ReadJpeg(SaveWith(texture, settings).GetValueOr(Bytes()));
        EXPECT_THAT(written.quantization[0], testing::ElementsAreArray(expected.quantization[0]));
    }
}

TEST_F(JpegTest, WritesResolution) {
    const ImageTextureRef texture = MakeTexture({8, 8, pixelformats::kRgbU8, MakeRows(8, 8, 3)});
    const struct {
        double dpi;
        int expected;
    } cases[] = {{0, 72}, {300, 300}, {72.4, 72}, {72.5, 73}, {1e9, 65535}, {-4, 0}};
    JpegPicture written = ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes()));
    EXPECT_EQ(written.xDensity, 72);
    for (const auto& c : cases) {
        ASSERT_TRUE(FirstImage(texture)->Set(image::kDpi, c.dpi));
        written = ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes()));
        EXPECT_EQ(written.densityUnit, 1);
        EXPECT_EQ(written.xDensity, c.expected);
        EXPECT_EQ(written.yDensity, c.expected);
    }
}

TEST_F(JpegTest, WritesWhatTheBareLibraryWritesWithFloats) {
    for (const uint32_t width : {1u, 15u, 33u, 200u}) {
        const Bytes rows = MakeRows(width, 21, 3);
        const ImageTextureRef texture = MakeTexture({Int(width), 21, pixelformats::kRgbU8, rows});
        DataDictionary settings;
        ASSERT_TRUE(settings.Set(mediaexport::kQuality, 1.0));
        const JpegPicture written = ReadJpeg(SaveWith(texture, settings).GetValueOr(Bytes()), JDCT_FLOAT);
        ASSERT_EQ(written.rows.size(), rows.size());
        // At the highest quality brightness comes back almost as it was; colour is kept for every fourth pixel.
        double difference = 0;
        for (size_t i = 0; i < rows.size(); i += 3) {
            const auto bright = [i](const Bytes& from) {
                return from[i] * 299 + from[i + 1] * 587 + from[i + 2] * 114;
            };
            difference = std::max(difference, std::abs(bright(rows) - bright(written.rows)) / 1000.0);
        }
        EXPECT_LT(difference, 3.5) << width;
    }
}

TEST_F(JpegTest, WritesEveryKindOfPixel) {
    const struct {
        const char* format;
        int bytes;
        J_COLOR_SPACE written;
    } cases[] = {
        {"net.orvik.image.pixelformat.grey.u8", 1, JCS_GRAYSCALE},
        {"net.orvik.image.pixelformat.greya.u8", 2, JCS_GRAYSCALE},
        {"net.orvik.image.pixelformat.grey.f32", 4, JCS_GRAYSCALE},
        {"net.orvik.image.pixelformat.bgr.u8", 3, JCS_RGB},
        {"net.orvik.image.pixelformat.rgba.u8", 4, JCS_RGB},
        {"net.orvik.image.pixelformat.rgb.u16", 6, JCS_RGB},
        {"net.orvik.image.pixelformat.rgb.f32", 12, JCS_RGB},
        {"net.orvik.image.pixelformat.cmyk.u8", 4, JCS_RGB},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        const ImageTextureRef texture = MakeTexture({9, 7, *Id::Create(c.format), Bytes(size_t(c.bytes) * 63)});
        const JpegPicture written = ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes()));
        EXPECT_EQ(written.colorSpace, c.written);
        EXPECT_EQ(written.width, 9u);
        EXPECT_EQ(written.height, 7u);
    }
}

// --- Order and detection ---------------------------------------------------------------------------------------------

TEST_F(JpegTest, DetectsByThreeSegments) {
    const auto format = FindPublished<FileFormatInterface>("net.orvik.fileformat.imagejpg");
    const struct {
        const char* what;
        Bytes bytes;
        bool expected;
    } cases[] = {
        {"nothing", {}, false},
        {"start alone", {0xFF, 0xD8}, false},
        {"no start", {0xFF, 0xD9, 0xFF, 0xE0, 0, 2, 0xFF, 0xE0, 0, 2, 0xFF, 0xE0, 0, 2}, false},
        {"three heads", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 3, 9, 0xFF, 0xDB, 0xFF, 0xFF}, true},
        {"two heads", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 3, 9}, false},
        {"end as the second", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xD9, 0, 0}, true},
        {"third is none", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 2, 0xFE, 0xE1, 0, 2}, false},
        {"length below 2", {0xFF, 0xD8, 0xFF, 0xE0, 0, 1, 0xFF, 0xE1, 0, 2, 0xFF, 0xE1, 0, 2}, false},
        {"length beyond the end", {0xFF, 0xD8, 0xFF, 0xE0, 9, 9, 0xFF, 0xE1, 0, 2}, false},
    };
    for (const auto& c : cases) {
        const InputStreamRef stream = *OpenMemoryInput(AsBlock(c.bytes));
        const Result<Bool> detected = format->Detect(Url("x"), stream);
        ASSERT_TRUE(detected) << c.what;
        EXPECT_EQ(*detected, c.expected) << c.what;
    }
}

TEST_F(JpegTest, HeaderIsReadOnce) {
    const Url url = Mount(WriteJpeg(MakePicture(8, 8)));
    const auto importer = Cast<MediaInputInterface>(*FindHandlerBySuffix("jpeg")->CreateHandler(url));
    EXPECT_EQ(KindOf(importer->PrepareExecute({}, {}, MEDIASESSIONFLAGS::NONE)), "illegalstate");
    EXPECT_EQ(KindOf(importer->Analyze({}, {}, MEDIASESSIONFLAGS::NONE)), "ok");
    EXPECT_EQ(KindOf(importer->Analyze({}, {}, MEDIASESSIONFLAGS::NONE)), "illegalstate");
}

TEST_F(JpegTest, CancellationEndsLoadingAndSaving) {
    for (const bool progressive : {false, true}) {
        JpegPicture made = MakePicture(64, 64);
        made.progressive = progressive;
        const Bytes file = WriteJpeg(made);
        const ImageTextureRef texture = Loaded(file);
        CancelToken token;
        const CancelScope scope(token);
        token.Cancel();
        EXPECT_EQ(KindOf(Load(file)), "threadcancelled");
        EXPECT_EQ(KindOf(Save(texture, "jpg")), "threadcancelled");
    }
}

TEST_F(JpegTest, ModuleInformation) {
    const auto info = FindPublished<DataDictionaryObjectInterface>("net.orvik.moduleinfo.jpeglib");
    const auto text = [&](const char* key) {
        const Result<Data> data = info->GetData(*Id::Create(key));
        return data ? data->ToString() : String();
    };
    EXPECT_EQ(text("net.orvik.moduleinfo.name"), String("jpeglib"));
    EXPECT_EQ(text("net.orvik.moduleinfo.description"), String("Jpeg image i/o library"));
    EXPECT_EQ(text("net.orvik.moduleinfo.version"), String("6.2"));
}

}  // namespace
}  // namespace codectest
