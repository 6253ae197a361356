// JPEG: files that libjpeg makes for the test, and files written here that libjpeg reads for the test.

#include <numeric>

#include "jpeg_direct.h"
#include "parts.h"
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

TEST_F(JpegTest, ReadsWhatTheBareLibraryReads) {
    const auto expectAlike = [](JpegPicture made, const Id& format) {
        for (const int way : {0, 1, 2, 3}) {
            made.progressive = way & 1, made.arithmetic = way & 2, made.restartRows = way;
            SCOPED_TRACE(testing::Message() << format.GetText() << " " << made.width << "x" << made.height << " "
                                            << made.horizontal << made.vertical << " " << way);
            const Bytes file = WriteJpeg(made);
            const ImageBaseRef image = FirstImage(Loaded(file));
            EXPECT_EQ(image->GetPixelFormat()->GetId(), format);
            EXPECT_EQ(image->GetWidth(), Int(made.width));
            EXPECT_EQ(PixelsOf(image, format), ReadJpeg(file).rows);
        }
    };
    using Pairs = std::pair<int, int>[];
    for (const auto& [width, height] :
         Pairs{{1, 1}, {1, 37}, {37, 1}, {8, 8}, {17, 15}, {31, 33}, {64, 40}, {257, 3}}) {
        expectAlike(MakePicture(uint32_t(width), uint32_t(height), JCS_GRAYSCALE), pixelformats::kGreyU8);
        expectAlike(MakePicture(uint32_t(width), uint32_t(height), JCS_CMYK), FormatId("cmyk_inv.u8"));
        JpegPicture rgb = MakePicture(uint32_t(width), uint32_t(height));
        for (const auto& [horizontal, vertical] : Pairs{{1, 1}, {2, 1}, {1, 2}, {2, 2}, {4, 1}, {4, 2}}) {
            rgb.horizontal = horizontal, rgb.vertical = vertical;
            expectAlike(rgb, pixelformats::kRgbU8);
        }
    }
}

TEST_F(JpegTest, KeepsInksInvertedAndWritesRgb) {
    // 255 of an inverted ink is no ink: white.
    JpegPicture made{.width = 8, .height = 8, .colorSpace = JCS_CMYK, .quality = 100, .horizontal = 1, .vertical = 1};
    made.rows = Bytes(8 * 8 * 4, 255);
    const ImageTextureRef texture = Loaded(WriteJpeg(made));
    EXPECT_EQ(RgbaOf(texture), Bytes(8 * 8 * 4, 255));
    EXPECT_FALSE(ProfileOf(texture).HasProfile());
    const JpegPicture written = ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes()));
    EXPECT_EQ(written.colorSpace, JCS_RGB);
    EXPECT_EQ(written.rows, Bytes(8 * 8 * 3, 255));
    EXPECT_EQ(written.profile, ProfileBytes(colorprofiles::kSrgb));
}

TEST_F(JpegTest, RefusesOtherNumbersOfComponents) {
    // Two components have no colour space that the library knows: a second one like the first.
    Bytes file = WriteJpeg(MakePicture(8, 8, JCS_GRAYSCALE));
    const size_t frame = FindSegment(file, {0xC0});
    const Bytes component = {2, 0x11, 0};
    file[frame + 3] = uint8_t(file[frame + 3] + 3);
    file[frame + 9] = 2;
    file.insert(file.begin() + long(frame) + 13, component.begin(), component.end());
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
        ExpectResolution(WriteJpeg(made), c.dpi, c.aspectRatio);
    }
}

TEST_F(JpegTest, CarriesColorProfiles) {
    JpegPicture made = MakePicture(16, 16), incomplete = made;
    const ImageTextureRef plain = Loaded(WriteJpeg(made));
    // Three segments hold the longer one. Behind its end a profile may have anything.
    for (const size_t extra : {0, 150000}) {
        made.profile = ProfileBytes(colorprofiles::kLinearRgb);
        made.profile.resize(made.profile.size() + extra);
        const ImageTextureRef texture = Loaded(WriteJpeg(made));
        EXPECT_EQ(ProfileOf(texture) == colorprofiles::Get(colorprofiles::kLinearRgb), extra == 0);
        EXPECT_EQ(ReadJpeg(Save(texture, "jpg").GetValueOr(Bytes())).profile, made.profile);
    }
    // An invalid profile is dropped without the picture, and so is an incomplete one.
    made.profile = Bytes(600, 7);
    incomplete.segments = {{JPEG_APP0 + 2, {'I', 'C', 'C', '_', 'P', 'R', 'O', 'F', 'I', 'L', 'E', 0, 2, 3, 1, 2, 3}}};
    for (const ImageTextureRef& texture : {plain, Loaded(WriteJpeg(made)), Loaded(WriteJpeg(incomplete))}) {
        EXPECT_EQ(ProfileOf(texture), colorprofiles::Get(colorprofiles::kSrgb));
        EXPECT_EQ(RgbaOf(texture), RgbaOf(plain));
    }
}

TEST_F(JpegTest, RowsOfTheSameFormatAreUsedInPlace) {
    Bytes pixels(36);
    std::iota(pixels.begin(), pixels.end(), uint8_t(1));
    const ImageTextureRef texture = MakeTexture({4, 3, pixelformats::kRgbU8, pixels});
    const auto image = Cast<ImageInterface>(FirstImage(texture));
    const auto setFor = [&](const Id& format, const ColorProfile& profile, ChannelOffsets offsets = {}) {
        return *image->SetPixelHandler(PixelFormats::Get(format), offsets, profile, SETPIXELHANDLERFLAGS::NONE);
    };
    const auto getFor = [&](const Id& format, const Id& profile, ChannelOffsets offsets = {}) {
        return *image->GetPixelHandler(PixelFormats::Get(format), offsets, colorprofiles::Get(profile),
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
    const BITS planes[] = {BITS(0), BITS(32), BITS(64), BITS(8)};  // equal formats whose channels lie elsewhere
    EXPECT_FALSE(setFor(pixelformats::kRgbU8, ColorProfile(), planes).locate);
    EXPECT_FALSE(getFor(pixelformats::kRgbU8, colorprofiles::kSrgb, planes).find);
}

/// What a save must give, byte for byte: the file that the bare library makes of the same rows.
struct ExpectedFile {
    int quality = 80;
    bool baseline = false;
    int dpi = 72;
};

Bytes MakeExpected(const ImageTextureRef& texture, bool isGrey, const ExpectedFile& expected) {
    const ImageBaseRef image = FirstImage(texture);
    JpegPicture picture{.width = uint32_t(image->GetWidth()), .height = uint32_t(image->GetHeight())};
    picture.colorSpace = isGrey ? JCS_GRAYSCALE : JCS_RGB;
    picture.rows = PixelsOf(image, isGrey ? pixelformats::kGreyU8 : pixelformats::kRgbU8);
    picture.quality = expected.quality, picture.forcesBaseline = expected.baseline, picture.method = JDCT_FLOAT;
    picture.horizontal = picture.vertical = isGrey ? 1 : 2;
    picture.densityUnit = 1, picture.xDensity = picture.yDensity = expected.dpi;
    picture.profile = ProfileBytes(image->GetPixelFormat()->GetDefaultColorProfile());
    return WriteJpeg(picture);
}

TEST_F(JpegTest, WritesWhatTheBareLibraryWrites) {
    const std::pair<std::string, int> formats[] = {{"grey.u8", 1}, {"greya.u8", 2}, {"grey.f32", 4},
                                                   {"rgb.u8", 3},  {"bgr.u8", 3},   {"rgba.u8", 4},
                                                   {"rgb.u16", 6}, {"rgb.f32", 12}, {"rgb.rgbe", 4}};
    for (const auto& [format, bytes] : formats) {
        for (const uint32_t width : {1u, 15u, 200u}) {
            SCOPED_TRACE(testing::Message() << format << " " << width);
            Bytes pixels = MakeRows(width, 21, bytes);
            if (format.ends_with("f32"))
                std::fill(pixels.begin(), pixels.end(), uint8_t(0x3E));  // 0.18...
            const ImageTextureRef texture = MakeTexture({Int(width), 21, FormatId(format), pixels});
            const Bytes expected = MakeExpected(texture, format.starts_with("grey"), {});
            EXPECT_EQ(Save(texture, "jpg").GetValueOr(Bytes()), expected);
        }
    }
}

TEST_F(JpegTest, AppliesExportSettings) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    const Id quality = mediaexport::kQuality.GetId(), baseline = mediaexport::kJpgBaseline.GetId(),
             dpi = image::kDpi.GetId();
    const struct {
        std::vector<std::pair<Id, Data>> settings;
        ExpectedFile expected;
    } cases[] = {
        {{{quality, Data(0.0)}, {baseline, Data(false)}}, {.quality = 0}},
        {{{quality, Data(0.01)}, {baseline, Data(true)}}, {.quality = 1, .baseline = true}},
        {{{quality, Data(0.01)}}, {.quality = 1}},
        {{{quality, Data(0.804)}}, {.quality = 80}},
        {{{quality, Data(0.805)}}, {.quality = 81}},
        {{{quality, Data(0.994)}}, {.quality = 99}},
        {{{quality, Data(0.995)}}, {.quality = 100}},
        {{{quality, Data(7.0)}}, {.quality = 100}},
        {{{quality, Data(-3.0)}}, {.quality = 0}},
        {{{quality, Data(kNan)}}, {.quality = 0}},
        {{{quality, Data(String("high"))}, {baseline, Data(String("yes"))}}, {}},
        {{{dpi, Data(0.0)}}, {}},
        {{{dpi, Data(300.0)}}, {.dpi = 300}},
        {{{dpi, Data(72.4)}}, {.dpi = 72}},
        {{{dpi, Data(72.5)}}, {.dpi = 73}},
        {{{dpi, Data(1e9)}}, {.dpi = 65535}},
        {{{dpi, Data(-4.0)}}, {.dpi = 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const ImageTextureRef texture = MakeTexture({9, 8, pixelformats::kRgbU8, MakeRows(9, 8, 3)});
        DataDictionary settings;
        ASSERT_TRUE(settings.Set(mediaexport::kPngInterlaced, true));  // another format's
        for (const auto& [id, data] : c.settings)
            ASSERT_TRUE(id == dpi ? FirstImage(texture)->SetData(id, data) : settings.SetData(id, data));
        ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
        EXPECT_EQ(Save(texture, "jpg").GetValueOr(Bytes()), MakeExpected(texture, false, c.expected));
    }
}

TEST_F(JpegTest, DetectsThreeSegments) {
    const auto format = FindPublished<FileFormatInterface>("net.orvik.fileformat.imagejpg");
    const std::pair<const char*, Bytes> claimed[] = {
        {"three heads", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 3, 9, 0xFF, 0xDB, 0xFF, 0xFF}},
        {"fill bytes", {0xFF, 0xD8, 0xFF, 0xFF, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 2, 0xFF, 0xFF, 0xDB, 0, 9}},
        {"end as the second", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xD9, 0, 0}},
    };
    const std::pair<const char*, Bytes> foreign[] = {
        {"nothing", {}},
        {"start alone", {0xFF, 0xD8}},
        {"no start", {0xFF, 0xD9, 0xFF, 0xE0, 0, 2, 0xFF, 0xE0, 0, 2, 0xFF, 0xE0, 0, 2}},
        {"fill to the end", {0xFF, 0xD8, 0xFF, 0xFF, 0xFF, 0xFF}},
        {"two heads", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 3, 9}},
        {"third is none", {0xFF, 0xD8, 0xFF, 0xE0, 0, 2, 0xFF, 0xE1, 0, 2, 0xFE, 0xE1, 0, 2}},
        {"length below 2", {0xFF, 0xD8, 0xFF, 0xE0, 0, 1, 0xFF, 0xE1, 0, 2, 0xFF, 0xE1, 0, 2}},
        {"length beyond the end", {0xFF, 0xD8, 0xFF, 0xE0, 9, 9, 0xFF, 0xE1, 0, 2}},
    };
    for (const auto& [what, bytes] : claimed)
        EXPECT_TRUE(*format->Detect(Url("x"), *OpenMemoryInput(AsBlock(bytes)))) << what;
    for (const auto& [what, bytes] : foreign)
        EXPECT_FALSE(*format->Detect(Url("x"), *OpenMemoryInput(AsBlock(bytes)))) << what;
}

/// Behind the segment whose mark is here.
size_t EndOfSegment(const Bytes& file, size_t at) { return at + 2 + (size_t(file[at + 2]) << 8 | file[at + 3]); }

/// True when a cut goes through tables or the head of a scan between the scans: half of these is an error.
bool IsInTables(const Bytes& file, size_t firstData, size_t cut) {
    for (size_t at = firstData; at + 4 < file.size(); ++at) {
        if (file[at] != 0xFF || (file[at + 1] != 0xC4 && file[at + 1] != 0xDA))
            continue;
        const size_t end = EndOfSegment(file, at);
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
        const size_t scan = FindSegment(file, {0xDA}), data = EndOfSegment(file, scan);
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
    JpegPicture made = MakePicture(8, 8, JCS_GRAYSCALE);
    made.progressive = true;
    const Bytes file = WriteJpeg(made);
    const auto scan = file.begin() + long(FindSegment(file, {0xDA}));
    const uint8_t mark[] = {0xFF, 0xC4};
    const auto end = std::search(scan + 2, file.end(), std::begin(mark), std::end(mark));
    ASSERT_NE(end, file.end());
    Bytes many(file.begin(), end);
    for (int i = 0; i < 600; ++i)  // the first scan again and again
        many.insert(many.end(), scan, end);
    EXPECT_EQ(MessageOf(Load(many)), "Error loading jpg: more than 500 scans");
}

TEST_F(JpegTest, ReportsEmptyAndForeignFiles) {
    EXPECT_EQ(MessageOf(LoadAs("jpg", {})), "Error loading jpg: Empty input file");
    EXPECT_EQ(MessageOf(LoadAs("jpg", {1, 2, 3, 4})), "Error loading jpg: Not a JPEG file: starts with 0x01 0x02");
    EXPECT_EQ(MessageOf(LoadAs("jpg", {0xFF, 0xD8})), "Error loading jpg: JPEG datastream contains no image");
}

TEST_F(JpegTest, ManySegmentsCostLittleMemory) {
    // Segments of nothing, and as many pieces of no Exif data, before the picture.
    const uint8_t segments[] = {0xFF, 0xE1, 0, 2, 0xFF, 0xE2, 0, 7, 'E', 'x', 'i', 'f', 'x'};
    Bytes many;
    for (int i = 0; i < 200000; ++i)
        many.insert(many.end(), std::begin(segments), std::end(segments));
    Bytes file = TestedFormatOf("jpg").makeSamples()[0].bytes;
    file.insert(file.begin() + 2, many.begin(), many.end());
    const Url url = Mount(file);
    const MemoryWatch watch;
    EXPECT_EQ(KindOf(Load(url)), "ok");
    EXPECT_LE(watch.GetPeakBytes(), size_t(4) << 20);
}

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
        const ImageTextureRef texture = Loaded(ReadFile(path));
        Int index = 0;
        for (const HierarchyObjectRef& child : texture->GetChildren(Int(IMAGEHIERARCHY::IMAGE))) {
            const auto image = Cast<ImageBaseInterface>(child);
            const Bytes own = PixelsOf(image, pixelformats::kRgbU8);
            const std::string picture = (index == 0 ? "cat '" : "exiftool -b -MPImage2 '") + path + "'";
            ExpectNear(own, Run(picture + " | djpeg -rgb -ppm | tail -c " + std::to_string(own.size())), 1);
            EXPECT_EQ(image->Get(image::kSubImageIndex, -1), index++);
        }
        EXPECT_EQ(index, 2);
    }
}

}  // namespace
}  // namespace codectest
