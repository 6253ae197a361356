// JPEG through other programs: they read what is written here, and this reads what they write.

#include "codec_support.h"
#include "jpeg_direct.h"
#include "tool_support.h"

namespace codectest {
namespace {

struct Size {
    Int width, height;
};
const Size kSizes[] = {{1, 1}, {1, 40}, {40, 1}, {7, 5}, {8, 8}, {16, 16}, {17, 33}, {121, 65}};

Bytes MakeRows(Int width, Int height, int channels) {
    Noise noise(uint32_t(width * 100 + height));
    Bytes rows;
    for (Int i = 0; i < width * height; ++i) {
        for (int c = 0; c < channels; ++c)
            rows.push_back(
                uint8_t(60 + (i % width) * 90 / width + (i / width) * 60 / height + c * 10 + noise.Next() % 9));
    }
    return rows;
}

class JpegToolsTest : public CodecTest {
protected:
    void SetUp() override {
        CodecTest::SetUp();
        for (const char* tool : {"cjpeg", "djpeg", "convert-im6.q16", "gm", "exiftool"}) {
            if (!HasTool(tool))
                GTEST_SKIP() << tool << " is not installed";
        }
        if (!RunShell("/usr/bin/python3 -c 'import PIL' 2> /dev/null"))
            GTEST_SKIP() << "Pillow is not installed";
    }
    std::string Quoted(const std::string& name) const { return "'" + _scratch.Path(name) + "'"; }
    Bytes RunToBytes(const std::string& command) {
        Bytes output;
        EXPECT_TRUE(RunShell(command + " 2> /dev/null", &output)) << command;
        return output;
    }

    void WritePpm(const std::string& name, const Size& size) {
        const std::string head = "P6 " + std::to_string(size.width) + " " + std::to_string(size.height) + " 255\n";
        const Bytes rows = MakeRows(size.width, size.height, 3);
        Bytes file(head.begin(), head.end());
        file.insert(file.end(), rows.begin(), rows.end());
        WriteFile(_scratch.Path(name), file);
    }

    ScratchDirectory _scratch;
};

constexpr const char* kPillow = "/usr/bin/python3 -c 'import sys; from PIL import Image; ";

/// The largest difference between two pictures; 256 when they are not of one size.
int Distance(const Bytes& a, const Bytes& b) {
    if (a.size() != b.size() || a.empty())
        return 256;
    int most = 0;
    for (size_t i = 0; i < a.size(); ++i)
        most = std::max(most, std::abs(int(a[i]) - int(b[i])));
    return most;
}

TEST_F(JpegToolsTest, OthersReadOurFiles) {
    const std::string file = Quoted("ours.jpg");
    const std::string readers[] = {
        "djpeg -rgb -ppm " + file + " | tail -c ",
        "convert-im6.q16 " + file + " -strip -depth 8 rgb:- | tail -c ",
        "gm convert " + file + " +profile '*' -depth 8 rgb:- | tail -c ",
        std::string(kPillow) + "sys.stdout.buffer.write(Image.open(sys.argv[1]).convert(\"RGB\").tobytes())' " + file +
            " | tail -c ",
    };
    for (const bool grey : {false, true}) {
        for (const Size& size : kSizes) {
            for (const double quality : {0.1, 0.8, 1.0}) {
                const ImageTextureRef texture =
                    MakeTexture({size.width, size.height, grey ? pixelformats::kGreyU8 : pixelformats::kRgbU8,
                                 MakeRows(size.width, size.height, grey ? 1 : 3)});
                DataDictionary settings;
                ASSERT_TRUE(settings.Set(mediaexport::kQuality, quality));
                ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
                ASSERT_TRUE(SaveTo(texture, "jpg", Url(_scratch.Path("ours.jpg"))));
                const Bytes own = PixelsOf(FirstImage(*Load(Url(_scratch.Path("ours.jpg")))), pixelformats::kRgbU8);
                for (const std::string& reader : readers) {
                    SCOPED_TRACE(testing::Message()
                                 << reader << " " << grey << " " << size.width << "x" << size.height << " " << quality);
                    EXPECT_LE(Distance(RunToBytes(reader + std::to_string(own.size())), own), 1);
                }
            }
        }
    }
}

TEST_F(JpegToolsTest, WeReadTheirFiles) {
    const std::string ppm = Quoted("in.ppm"), file = Quoted("theirs.jpg");
    const std::string writers[] = {
        "cjpeg -quality 90 ",
        "cjpeg -quality 90 -sample 1x1 ",
        "cjpeg -quality 90 -sample 2x1 ",
        "cjpeg -quality 90 -sample 1x2 ",
        "cjpeg -quality 90 -sample 4x2,1x1,1x1 ",
        "cjpeg -quality 50 -progressive -sample 2x2 ",
        "cjpeg -quality 50 -arithmetic ",
        "cjpeg -quality 90 -grayscale ",
        "cjpeg -quality 90 -rgb ",
        "cjpeg -quality 90 -restart 1 ",
        "convert-im6.q16 - -quality 75 -sampling-factor 4:2:2 jpg:- < ",
        "convert-im6.q16 - -quality 75 -interlace JPEG jpg:- < ",
        "gm convert - -quality 60 jpg:- < ",
        std::string(kPillow) +
            "Image.open(sys.argv[1]).save(sys.stdout.buffer, \"JPEG\", quality=85, subsampling=1, optimize=True)' ",
        std::string(kPillow) + "Image.open(sys.argv[1]).convert(\"L\").save(sys.stdout.buffer, \"JPEG\")' ",
    };
    for (const Size& size : kSizes) {
        WritePpm("in.ppm", size);
        for (const std::string& writer : writers) {
            SCOPED_TRACE(testing::Message() << writer << size.width << "x" << size.height);
            ASSERT_TRUE(RunShell(writer + ppm + " > " + file));
            const Result<ImageTextureRef> texture = Load(Url(_scratch.Path("theirs.jpg")));
            ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
            const Bytes own = PixelsOf(FirstImage(*texture), pixelformats::kRgbU8);
            const Bytes judge = RunToBytes("djpeg -rgb -ppm " + file + " | tail -c " + std::to_string(own.size()));
            EXPECT_LE(Distance(own, judge), 1);
        }
    }
}

TEST_F(JpegToolsTest, WeReadTheirInks) {
    const Bytes rows = MakeRows(23, 11, 4);
    WriteFile(_scratch.Path("in.cmyk"), rows);
    const std::string in = Quoted("in.cmyk"), file = Quoted("theirs.jpg"), pillow = kPillow;
    for (const std::string& writer : {
             pillow + "Image.frombytes(\"CMYK\", (23, 11), open(sys.argv[1], \"rb\").read())" +
                 ".save(sys.stdout.buffer, \"JPEG\", quality=95)' " + in,
             "convert-im6.q16 -size 23x11 -depth 8 cmyk:" + in + " -quality 95 jpg:-",
         }) {
        SCOPED_TRACE(writer);
        ASSERT_TRUE(RunShell(writer + " > " + file));
        const Bytes own =
            PixelsOf(FirstImage(*Load(Url(_scratch.Path("theirs.jpg")))), "net.orvik.image.pixelformat.cmyk.u8");
        EXPECT_LE(
            Distance(own, RunToBytes(pillow + "sys.stdout.buffer.write(Image.open(sys.argv[1]).tobytes())' " + file)),
            1);
        EXPECT_LE(Distance(own, rows), 12);
    }
}

TEST_F(JpegToolsTest, InksAreConvertedByTheirProfile) {
    const std::string path =
        SharedDirectory() + "/corpus/jpeg/twelvemonkeys/warning-embedded-color-profile-invalid-ignored-cmyk.jpg";
    if (!RunShell("test -f '" + path + "'"))
        GTEST_SKIP() << "no corpus at " << path;
    ASSERT_TRUE(SaveTo(*Load(Url(path)), "tga", Url(_scratch.Path("srgb.tga"))));
    const std::string judge = std::string(kPillow) +
                              "import io; from PIL import ImageCms; i = Image.open(sys.argv[1]); "
                              "p = io.BytesIO(i.info[\"icc_profile\"]); s = ImageCms.createProfile(\"sRGB\"); "
                              "i = ImageCms.profileToProfile(i, p, s, outputMode=\"RGB\"); "
                              "sys.stdout.buffer.write(i.tobytes())' '" +
                              path + "'";
    EXPECT_LE(
        Distance(PixelsOf(FirstImage(*Load(Url(_scratch.Path("srgb.tga")))), pixelformats::kRgbU8), RunToBytes(judge)),
        1);
}

TEST_F(JpegToolsTest, ResolutionAndProfile) {
    const ImageTextureRef texture = MakeTexture({8, 8, pixelformats::kRgbU8, MakeRows(8, 8, 3)});
    ASSERT_TRUE(FirstImage(texture)->Set(image::kDpi, 299.6));
    ASSERT_TRUE(SaveTo(texture, "jpg", Url(_scratch.Path("ours.jpg"))));
    const Bytes said = RunToBytes("exiftool -s3 -n -XResolution -YResolution -ResolutionUnit " + Quoted("ours.jpg"));
    EXPECT_EQ(std::string(said.begin(), said.end()), "300\n300\n1\n");
    EXPECT_EQ(RunToBytes("exiftool -icc_profile -b " + Quoted("ours.jpg")), ProfileBytes(colorprofiles::kSrgb));

    WritePpm("in.ppm", {8, 8});
    ASSERT_TRUE(RunShell("convert-im6.q16 " + Quoted("in.ppm") + " -units PixelsPerCentimeter -density 118x59 " +
                         Quoted("theirs.jpg")));
    const ImageBaseRef image = FirstImage(*Load(Url(_scratch.Path("theirs.jpg"))));
    EXPECT_DOUBLE_EQ(image->Get(image::kDpi, 0), 118 * 2.54);
    EXPECT_EQ(image->Get(image::kAspectRatio, 0), 0.5);
}

TEST_F(JpegToolsTest, WeReadTheirSetsOfPictures) {
    WritePpm("0", {64, 48});
    WritePpm("1", {17, 33});
    ASSERT_TRUE(RunShell(std::string(kPillow) + "p = [Image.open(f) for f in sys.argv[2:]]; " +
                         "p[0].save(sys.argv[1], format=\"MPO\", save_all=True, append_images=p[1:])' " +
                         Quoted("theirs.mpo") + " " + Quoted("0") + " " + Quoted("1")));
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
            EXPECT_LE(Distance(own, RunToBytes(picture + " '" + path + "' | djpeg -rgb -ppm | tail -c " +
                                               std::to_string(own.size()))),
                      1)
                << index;
            EXPECT_EQ(image->Get(image::kSubImageIndex, -1), index++);
        }
        EXPECT_EQ(index, 2);
    }
}

}  // namespace
}  // namespace codectest
