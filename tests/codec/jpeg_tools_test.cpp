// JPEG through other programs: they read what is written here, and this reads what they write.

#include "codec_support.h"
#include "jpeg_direct.h"
#include "tool_support.h"

namespace codectest {
namespace {

class JpegToolsTest : public CodecTest {
protected:
    std::string Quoted(const std::string& name) const { return "'" + _scratch.Path(name) + "'"; }
    Bytes RunToBytes(const std::string& command) {
        Bytes output;
        EXPECT_TRUE(RunShell(command + " 2> /dev/null", &output)) << command;
        return output;
    }

    ScratchDirectory _scratch;
};

#define REQUIRE_TOOL(NAME) \
    if (!HasTool(NAME))    \
    GTEST_SKIP() << NAME << " is not installed"

constexpr const char* kPillow = "/usr/bin/python3 -c 'import sys; from PIL import Image; ";

bool HasPillow() { return RunShell("/usr/bin/python3 -c 'import PIL' 2> /dev/null"); }

/// The largest difference between two pictures; 256 when they are not of one size.
int Distance(const Bytes& a, const Bytes& b) {
    if (a.size() != b.size() || a.empty())
        return 256;
    int most = 0;
    for (size_t i = 0; i < a.size(); ++i)
        most = std::max(most, std::abs(int(a[i]) - int(b[i])));
    return most;
}

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

TEST_F(JpegToolsTest, OthersReadOurFiles) {
    REQUIRE_TOOL("djpeg");
    REQUIRE_TOOL("convert-im6.q16");
    REQUIRE_TOOL("gm");
    if (!HasPillow())
        GTEST_SKIP() << "Pillow is not installed";
    const std::string file = Quoted("ours.jpg");
    const std::string readers[] = {
        "djpeg -ppm " + file + " | tail -c %",
        "convert-im6.q16 " + file + " -strip -depth 8 rgb:-",
        "gm convert " + file + " +profile '*' -depth 8 rgb:-",
        std::string(kPillow) + "sys.stdout.buffer.write(Image.open(sys.argv[1]).convert(\"RGB\").tobytes())' " + file,
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
                for (std::string reader : readers) {
                    SCOPED_TRACE(testing::Message()
                                 << reader << " " << grey << " " << size.width << "x" << size.height << " " << quality);
                    if (const size_t at = reader.find('%'); at != std::string::npos) {
                        reader.replace(at, 1, std::to_string(own.size() / (grey ? 3 : 1)));
                        Bytes rows = RunToBytes(reader), rgb;
                        for (const uint8_t value : rows)
                            rgb.insert(rgb.end(), grey ? 3 : 1, value);
                        EXPECT_LE(Distance(rgb, own), 1);
                    } else {
                        EXPECT_LE(Distance(RunToBytes(reader), own), 1);
                    }
                }
            }
        }
    }
}

TEST_F(JpegToolsTest, WeReadTheirFiles) {
    REQUIRE_TOOL("cjpeg");
    REQUIRE_TOOL("djpeg");
    REQUIRE_TOOL("convert-im6.q16");
    REQUIRE_TOOL("gm");
    if (!HasPillow())
        GTEST_SKIP() << "Pillow is not installed";
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
        const Bytes rows = MakeRows(size.width, size.height, 3);
        const std::string head = "P6 " + std::to_string(size.width) + " " + std::to_string(size.height) + " 255\n";
        Bytes in(head.begin(), head.end());
        in.insert(in.end(), rows.begin(), rows.end());
        WriteFile(_scratch.Path("in.ppm"), in);
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
    REQUIRE_TOOL("convert-im6.q16");
    if (!HasPillow())
        GTEST_SKIP() << "Pillow is not installed";
    const Bytes rows = MakeRows(23, 11, 4);
    WriteFile(_scratch.Path("in.cmyk"), rows);
    const std::string in = Quoted("in.cmyk"), file = Quoted("theirs.jpg");
    const std::string writers[] = {
        std::string(kPillow) + "Image.frombytes(\"CMYK\", (23, 11), open(sys.argv[1], \"rb\").read())" +
            ".save(sys.stdout.buffer, \"JPEG\", quality=95)' " + in,
        "convert-im6.q16 -size 23x11 -depth 8 cmyk:" + in + " -quality 95 jpg:-",
    };
    for (const std::string& writer : writers) {
        SCOPED_TRACE(writer);
        ASSERT_TRUE(RunShell(writer + " > " + file));
        const Result<ImageTextureRef> texture = Load(Url(_scratch.Path("theirs.jpg")));
        ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
        const Bytes own = PixelsOf(FirstImage(*texture), "net.orvik.image.pixelformat.cmyk.u8");
        EXPECT_LE(Distance(own, RunToBytes(std::string(kPillow) +
                                           "sys.stdout.buffer.write(Image.open(sys.argv[1]).tobytes())' " + file)),
                  1);
        EXPECT_LE(Distance(own, rows), 12);
    }
}

}  // namespace
}  // namespace codectest
