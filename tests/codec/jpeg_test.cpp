// JPEG: files that libjpeg makes for the test, and files written here that libjpeg reads for the test.

#include <numeric>

#include "format_table.h"
#include "jpeg_direct.h"
#include "tool_support.h"

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

TEST_F(JpegTest, KeepsInksInvertedAndWritesRgb) {
    // 255 of an inverted ink is no ink: white.
    JpegPicture made{.width = 8, .height = 8, .colorSpace = JCS_CMYK, .quality = 100, .horizontal = 1, .vertical = 1};
    made.rows = Bytes(8 * 8 * 4, 255);
    const ImageTextureRef texture = Loaded(WriteJpeg(made));
    EXPECT_EQ(RgbaOf(texture), Bytes(8 * 8 * 4, 255));
    EXPECT_FALSE(FirstImage(texture)->Get(image::kColorProfile, ColorProfile()).HasProfile());
    const JpegPicture written = ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes()));
    EXPECT_EQ(written.colorSpace, JCS_RGB);
    EXPECT_EQ(written.rows, Bytes(8 * 8 * 3, 255));
    EXPECT_EQ(written.profile, ProfileBytes(colorprofiles::kSrgb));
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
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    const ImageTextureRef plain = Loaded(WriteJpeg(made));
    EXPECT_EQ(ProfileOf(plain), srgb);
    // Three segments hold the longer one. Behind its end a profile may have anything.
    for (const size_t extra : {0, 150000}) {
        made.profile = ProfileBytes(colorprofiles::kLinearRgb);
        made.profile.resize(made.profile.size() + extra);
        const ImageTextureRef texture = Loaded(WriteJpeg(made));
        EXPECT_EQ(ProfileOf(texture) == colorprofiles::Get(colorprofiles::kLinearRgb), extra == 0);
        EXPECT_EQ(ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes())).profile, made.profile);
    }
    // An invalid profile is dropped without the picture, and so is an incomplete one.
    JpegPicture senseless = MakePicture(16, 16), incomplete = MakePicture(16, 16);
    senseless.profile = Bytes(600, 7);
    incomplete.segments = {{JPEG_APP0 + 2, {'I', 'C', 'C', '_', 'P', 'R', 'O', 'F', 'I', 'L', 'E', 0, 2, 3, 1, 2, 3}}};
    for (const JpegPicture& broken : {senseless, incomplete}) {
        const ImageTextureRef texture = Loaded(WriteJpeg(broken));
        EXPECT_EQ(ProfileOf(texture), srgb);
        EXPECT_EQ(RgbaOf(texture), RgbaOf(plain));
    }
}

TEST_F(JpegTest, RowsOfTheSameFormatAreUsedInPlace) {
    Bytes pixels(36);
    std::iota(pixels.begin(), pixels.end(), uint8_t(1));
    const ImageTextureRef texture = MakeTexture({4, 3, pixelformats::kRgbU8, pixels});
    const auto image = Cast<ImageInterface>(FirstImage(texture));
    const auto setFor = [&](const Id& format, const ColorProfile& profile) {
        return *image->SetPixelHandler(PixelFormats::Get(format), {}, profile, SETPIXELHANDLERFLAGS::NONE);
    };
    const auto getFor = [&](const Id& format, const Id& profile) {
        return *image->GetPixelHandler(PixelFormats::Get(format), {}, colorprofiles::Get(profile),
                                       GETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION, LayerSet());
    };
    SetPixelHandlerStruct set = setFor(pixelformats::kRgbU8, ColorProfile());
    // Pixels without a profile are sRGB, so nothing changes on the way.
    GetPixelHandlerStruct get = getFor(pixelformats::kRgbU8, colorprofiles::kSrgb);
    ASSERT_TRUE(set.locate && get.find);
    const std::byte* const row = set.locate({1, 2, 3});
    const Result<const std::byte*> found = get.find({1, 2, 3});
    ASSERT_TRUE(row && found);
    EXPECT_EQ(*found, row);
    EXPECT_EQ(0, std::memcmp(row, pixels.data() + 27, 9));
    for (const PixelSpan& outside : {PixelSpan{0, 3, 1}, PixelSpan{0, -1, 1}, PixelSpan{-1, 0, 1}, PixelSpan{2, 0, 3}})
        EXPECT_FALSE(set.locate(outside) || get.find(outside));
    get.Free();
    EXPECT_FALSE(get.find);
    EXPECT_FALSE(setFor(pixelformats::kBgrU8, ColorProfile()).locate);
    EXPECT_FALSE(setFor(pixelformats::kRgbU8, colorprofiles::Get(colorprofiles::kLinearRgb)).locate);
    EXPECT_FALSE(getFor(pixelformats::kBgrU8, colorprofiles::kSrgb).find);
    EXPECT_FALSE(getFor(pixelformats::kRgbU8, colorprofiles::kLinearRgb).find);
}

// --- Writing ---------------------------------------------------------------------------------------------------------

/// What a save must give, byte for byte: the file that the bare library makes of the same rows.
struct ExpectedFile {
    int quality = 80;
    bool baseline = false;
    int dpi = 72;
};

Bytes MakeExpected(const ImageTextureRef& texture, bool isGrey, const ExpectedFile& expected) {
    const ImageBaseRef image = FirstImage(texture);
    JpegPicture picture{.width = uint32_t(image->GetWidth()),
                        .height = uint32_t(image->GetHeight()),
                        .colorSpace = isGrey ? JCS_GRAYSCALE : JCS_RGB,
                        .rows = PixelsOf(image, isGrey ? pixelformats::kGreyU8 : pixelformats::kRgbU8),
                        .quality = expected.quality,
                        .forcesBaseline = expected.baseline,
                        .method = JDCT_FLOAT};
    picture.horizontal = picture.vertical = isGrey ? 1 : 2;
    picture.densityUnit = 1, picture.xDensity = picture.yDensity = expected.dpi;
    picture.profile = ProfileBytes(image->GetPixelFormat()->GetDefaultColorProfile());
    return WriteJpeg(picture);
}

TEST_F(JpegTest, WritesWhatTheBareLibraryWrites) {
    const struct {
        const char* format;
        int bytes;
        bool isGrey = false;
    } formats[] = {
        {"grey.u8", 1, true}, {"greya.u8", 2, true}, {"grey.f32", 4, true}, {"rgb.u8", 3},   {"bgr.u8", 3},
        {"rgba.u8", 4},       {"rgb.u16", 6},        {"rgb.f32", 12},       {"rgb.rgbe", 4},
    };
    for (const auto& format : formats) {
        for (const uint32_t width : {1u, 15u, 200u}) {
            SCOPED_TRACE(testing::Message() << format.format << " " << width);
            Bytes pixels = MakeRows(width, 21, format.bytes);
            if (std::string_view(format.format).ends_with("f32"))
                std::fill(pixels.begin(), pixels.end(), uint8_t(0x3E));  // 0.18...
            const ImageTextureRef texture = MakeTexture(
                {Int(width), 21, *Id::Create("net.orvik.image.pixelformat." + std::string(format.format)), pixels});
            EXPECT_EQ(Save(texture, "jpg").GetValueOr(Bytes()), MakeExpected(texture, format.isGrey, {}));
        }
    }
}

TEST_F(JpegTest, AppliesExportSettings) {
    const struct {
        Data quality, baseline, dpi;  ///< empty: not set
        ExpectedFile expected;
    } cases[] = {
        {{}, {}, {}, {}},
        {Data(0.0), Data(false), {}, {.quality = 0}},
        {Data(0.01), Data(true), {}, {.quality = 1, .baseline = true}},
        {Data(0.01), {}, {}, {.quality = 1}},
        {Data(0.804), {}, {}, {.quality = 80}},
        {Data(0.805), {}, {}, {.quality = 81}},
        {Data(0.994), {}, {}, {.quality = 99}},
        {Data(0.995), {}, {}, {.quality = 100}},
        {Data(7.0), {}, {}, {.quality = 100}},
        {Data(-3.0), {}, {}, {.quality = 0}},
        {Data(std::numeric_limits<double>::quiet_NaN()), {}, {}, {.quality = 0}},
        {Data(String("high")), Data(String("yes")), {}, {}},
        {{}, Data(true), {}, {.baseline = true}},
        {{}, {}, Data(0.0), {}},
        {{}, {}, Data(300.0), {.dpi = 300}},
        {{}, {}, Data(72.4), {.dpi = 72}},
        {{}, {}, Data(72.5), {.dpi = 73}},
        {{}, {}, Data(1e9), {.dpi = 65535}},
        {{}, {}, Data(-4.0), {.dpi = 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.quality.ToString().GetCString() << " "
                                        << c.baseline.ToString().GetCString() << " " << c.dpi.ToString().GetCString());
        DataDictionary settings;
        ASSERT_TRUE(settings.Set(mediaexport::kPngInterlaced, true));  // another format's
        if (!c.quality.IsEmpty()) {
            ASSERT_TRUE(settings.SetData(mediaexport::kQuality.GetId(), c.quality));
        }
        if (!c.baseline.IsEmpty()) {
            ASSERT_TRUE(settings.SetData(mediaexport::kJpgBaseline.GetId(), c.baseline));
        }
        const ImageTextureRef texture = MakeTexture({9, 8, pixelformats::kRgbU8, MakeRows(9, 8, 3)});
        ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
        if (!c.dpi.IsEmpty()) {
            ASSERT_TRUE(FirstImage(texture)->SetData(image::kDpi.GetId(), c.dpi));
        }
        EXPECT_EQ(Save(texture, "jpg").GetValueOr(Bytes()), MakeExpected(texture, false, c.expected));
    }
}

// --- Detection -------------------------------------------------------------------------------------------------------

TEST_F(JpegTest, DetectsThreeSegments) {
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
        {"fill bytes", {0xFF, 0xD8, 0xFF, 0xFF, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 2, 0xFF, 0xFF, 0xDB, 0, 9}, true},
        {"fill to the end", {0xFF, 0xD8, 0xFF, 0xFF, 0xFF, 0xFF}, false},
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

// --- Damage ----------------------------------------------------------------------------------------------------------

size_t FindScan(const Bytes& file) { return FindSegment(file, {0xDA}); }

/// True when a cut goes through tables or the head of a scan between the scans: half of these is an error.
bool IsInTables(const Bytes& file, size_t firstData, size_t cut) {
    for (size_t at = firstData; at + 4 < file.size(); ++at) {
        if (file[at] != 0xFF || (file[at + 1] != 0xC4 && file[at + 1] != 0xDA))
            continue;
        const size_t end = at + 2 + (size_t(file[at + 2]) << 8 | file[at + 3]);
        if (cut > at && cut < end)
            return true;
        at = end - 1;
    }
    return false;
}

TEST_F(JpegTest, CutFilesEndInAPicture) {
    for (const Sample& sample : TestedFormatOf("jpg").makeSamples()) {
        SCOPED_TRACE(sample.name);
        const Bytes& file = sample.bytes;
        const size_t scan = FindScan(file);
        const size_t data = scan + 2 + (size_t(file[scan + 2]) << 8 | file[scan + 3]);
        for (size_t length = 0; length <= file.size(); ++length) {
            const bool loads(Load(Bytes(file.begin(), file.begin() + long(length))));
            if (length <= scan) {
                EXPECT_FALSE(loads) << length;
            } else if (length >= data && !IsInTables(file, data, length)) {
                EXPECT_TRUE(loads) << length;
            }
        }
    }
}

TEST_F(JpegTest, CutFilesKeepTheirFirstRows) {
    Noise noise(9);
    const Bytes rows = noise.Make(64 * 64 * 3);
    const Bytes file = WriteJpeg({.width = 64, .height = 64, .rows = rows, .horizontal = 1, .vertical = 1});
    const Bytes whole = RgbaOf(*Load(file));
    const Bytes half = RgbaOf(*Load(Bytes(file.begin(), file.begin() + long(file.size() * 3 / 4))));
    const size_t firstQuarter = 64 * 16 * 4;
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + firstQuarter, half.begin()));
    EXPECT_NE(whole, half);
}

TEST_F(JpegTest, RefusesSizesThatTheFileCannotHold) {
    for (const Sample& sample : TestedFormatOf("jpg").makeSamples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(KindOf(Load(ResizeJpeg(sample.bytes, 65500, 65500))), "mediasessionwrongtype");
        EXPECT_EQ(KindOf(Load(ResizeJpeg(sample.bytes, 700, 500))), "ok");  // a file that ends early is a picture
    }
    // A large picture of one colour is valid: hardly more than a bit per block.
    const Bytes flat = WriteJpeg({.width = 4000, .height = 3000, .rows = Bytes(36000000, 80), .progressive = true});
    EXPECT_LT(flat.size(), 100000u);
    EXPECT_EQ(KindOf(Load(flat)), "ok");
}

TEST_F(JpegTest, LimitsTheNumberOfScans) {
    Bytes file = WriteJpeg({.width = 8,
                            .height = 8,
                            .colorSpace = JCS_GRAYSCALE,
                            .rows = Bytes(64, 90),
                            .progressive = true,
                            .horizontal = 1,
                            .vertical = 1});
    const size_t scan = FindScan(file);
    // The first scan again and again.
    const uint8_t mark[] = {0xFF, 0xC4};
    const auto end = std::search(file.begin() + long(scan) + 2, file.end(), std::begin(mark), std::end(mark));
    ASSERT_NE(end, file.end());
    const Bytes once(file.begin() + long(scan), end);
    Bytes many(file.begin(), end);
    for (int i = 0; i < 600; ++i)
        many.insert(many.end(), once.begin(), once.end());
    EXPECT_EQ(MessageOf(Load(many)), "Error loading jpg: more than 500 scans");
}

TEST_F(JpegTest, ReportsEmptyAndForeignFiles) {
    const auto handler = FindHandlerBySuffix("jpg");
    const auto analyze = [&](const Bytes& file) {
        const auto importer = Cast<MediaInputInterface>(*handler->CreateHandler(Mount(file)));
        return MessageOf(importer->Analyze({}, {}, MEDIASESSIONFLAGS::NONE));
    };
    EXPECT_EQ(analyze({}), "Error loading jpg: Empty input file");
    EXPECT_EQ(analyze({1, 2, 3, 4}), "Error loading jpg: Not a JPEG file: starts with 0x01 0x02");
    EXPECT_EQ(analyze({0xFF, 0xD8}), "Error loading jpg: JPEG datastream contains no image");
}

TEST_F(JpegTest, ManySegmentsCostLittleMemory) {
    // Segments of nothing, and as many pieces of no Exif data, before the picture.
    const Bytes good = TestedFormatOf("jpg").makeSamples()[0].bytes;
    Bytes file(good.begin(), good.begin() + 2);
    for (int i = 0; i < 200000; ++i) {
        const uint8_t segments[] = {0xFF, 0xE1, 0, 2, 0xFF, 0xE2, 0, 7, 'E', 'x', 'i', 'f', 'x'};
        file.insert(file.end(), std::begin(segments), std::end(segments));
    }
    file.insert(file.end(), good.begin() + 2, good.end());
    const Url url = Mount(file);
    const MemoryWatch watch;
    EXPECT_EQ(KindOf(Load(url)), "ok");
    EXPECT_LE(watch.GetPeakBytes(), size_t(4) << 20);
}

// --- Other programs, for what the walks over all formats leave out
// --------------------------------------------------------------

class JpegToolsTest : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        RequireTools({"djpeg", "convert-im6.q16", "exiftool", "PIL"});
    }
    static std::string Pillow(const std::string& script) {
        return "/usr/bin/python3 -c 'import sys; from PIL import Image; " + script + "' ";
    }
};

TEST_F(JpegToolsTest, ReadsInksOfOthers) {
    Bytes rows;
    Noise noise(23);
    for (int i = 0; i < 23 * 11 * 4; ++i)  // smooth enough for compression
        rows.push_back(uint8_t(60 + i / 4 % 23 * 4 + i / 92 * 5 + i % 4 * 10 + noise.Next() % 9));
    WriteFile(_scratch.Path("in.cmyk"), rows);
    const std::string in = Quoted("in.cmyk"), file = Quoted("theirs.jpg");
    for (const std::string& writer : {Pillow("Image.frombytes(\"CMYK\", (23, 11), open(sys.argv[1], \"rb\").read())"
                                             ".save(sys.stdout.buffer, \"JPEG\", quality=95)") +
                                          in,
                                      "convert-im6.q16 -size 23x11 -depth 8 cmyk:" + in + " -quality 95 jpg:-"}) {
        SCOPED_TRACE(writer);
        Run(writer + " > " + file);
        const Bytes own =
            PixelsOf(FirstImage(*Load(Url(_scratch.Path("theirs.jpg")))), "net.orvik.image.pixelformat.cmyk.u8");
        ExpectNear(own, Run(Pillow("sys.stdout.buffer.write(Image.open(sys.argv[1]).tobytes())") + file), 1);
        ExpectNear(own, rows, 12);
    }
}

TEST_F(JpegToolsTest, InksAreConvertedByTheirProfile) {
    const std::string path =
        SharedDirectory() + "/corpus/jpeg/twelvemonkeys/warning-embedded-color-profile-invalid-ignored-cmyk.jpg";
    if (!RunShell("test -f '" + path + "'"))
        GTEST_SKIP() << "no corpus at " << path;
    ASSERT_TRUE(SaveTo(*Load(Url(path)), "tga", Url(_scratch.Path("srgb.tga"))));
    const Bytes judge = Run(Pillow("import io; from PIL import ImageCms; i = Image.open(sys.argv[1]); "
                                   "p = io.BytesIO(i.info[\"icc_profile\"]); s = ImageCms.createProfile(\"sRGB\"); "
                                   "i = ImageCms.profileToProfile(i, p, s, outputMode=\"RGB\"); "
                                   "sys.stdout.buffer.write(i.tobytes())") +
                            "'" + path + "'");
    ExpectNear(PixelsOf(FirstImage(*Load(Url(_scratch.Path("srgb.tga")))), pixelformats::kRgbU8), judge, 1);
}

TEST_F(JpegToolsTest, ReadsPictureSetsOfOthers) {
    Run("convert-im6.q16 -size 64x48 gradient:red-blue -depth 8 " + Quoted("0.ppm"));
    Run("convert-im6.q16 -size 17x33 gradient:green-white -depth 8 " + Quoted("1.ppm"));
    Run(Pillow("p = [Image.open(f) for f in sys.argv[2:]]; "
               "p[0].save(sys.argv[1], format=\"MPO\", save_all=True, append_images=p[1:])") +
        Quoted("theirs.mpo") + " " + Quoted("0.ppm") + " " + Quoted("1.ppm"));
    std::vector<std::string> files = {_scratch.Path("theirs.mpo")};
    const std::string ofCorpus = SharedDirectory() + "/corpus/jpeg/pillow/ignore_frame_size.mpo";
    if (RunShell("test -f '" + ofCorpus + "'"))
        files.push_back(ofCorpus);
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        const Result<ImageTextureRef> texture = Load(Url(path));
        ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
        int index = 0;
        for (auto child = (*texture)->GetFirstChild(Int(IMAGEHIERARCHY::IMAGE)); child; child = child->GetNext()) {
            const auto image = Cast<ImageBaseInterface>(child);
            const Bytes own = PixelsOf(image, pixelformats::kRgbU8);
            const std::string picture = index == 0 ? "cat" : "exiftool -b -MPImage2";
            ExpectNear(own, Run(picture + " '" + path + "' | djpeg -rgb -ppm | tail -c " + std::to_string(own.size())),
                       1);
            EXPECT_EQ(image->Get(image::kSubImageIndex, -1), index++);
        }
        EXPECT_EQ(index, 2);
    }
}

}  // namespace
}  // namespace codectest
