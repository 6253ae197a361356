// The same pixels through other programs: they read what is written here, and this reads what they write.

#include "codec_support.h"
#include "tool_support.h"

namespace codectest {
namespace {

class ToolsTest : public CodecTest {
protected:
    ScratchDirectory _scratch;

    Bytes RunToBytes(const std::string& command) {
        Bytes output;
        EXPECT_TRUE(RunShell(command, &output)) << command;
        return output;
    }
};

#define REQUIRE_TOOL(NAME) \
    if (!HasTool(NAME))    \
    GTEST_SKIP() << NAME << " is not installed"

const Id kGenerations[] = {"V3", "V4", "V5"};

struct Written {
    std::string name;
    std::string file;
    Bytes rgba;
};

/// A picture in every form that the exporters have, in files of their own.
std::vector<Written> WriteAll(const ScratchDirectory& scratch) {
    Noise noise(11);
    const Int width = 37, height = 21;
    const struct {
        Id format;
        int bytes;
        bool alphaChild;
    } kinds[] = {{pixelformats::kGreyU8, 1, false},
                 {pixelformats::kGreyaU8, 2, false},
                 {pixelformats::kRgbU8, 3, false},
                 {pixelformats::kRgbaU8, 4, false},
                 {pixelformats::kBgrU8, 3, true}};
    std::vector<Written> all;
    for (const auto& kind : kinds) {
        Picture picture{width, height, kind.format, noise.Make(size_t(width * height * kind.bytes))};
        if (kind.alphaChild)
            picture.alpha = noise.Make(size_t(width * height));
        const ImageTextureRef texture = MakeTexture(picture);
        const Bytes rgba = RgbaOf(texture);
        const auto add = [&](std::string_view format, const std::string& variant, const Bytes& expected) {
            const std::string name = std::string(kind.format.GetText()) + "-" + variant;
            const std::string path = scratch.Path(name + "." + std::string(format));
            const Result<void> saved = SaveTo(texture, format, Url(path));
            EXPECT_TRUE(saved) << name << saved.GetError()->ToString().GetCString();
            all.push_back({name, path, expected});
        };
        for (const bool interlaced : {false, true}) {
            DataDictionary settings;
            EXPECT_TRUE(settings.Set(mediaexport::kPngInterlaced, interlaced));
            EXPECT_TRUE(texture->Set(image::kExportSettings, settings));
            add("png", interlaced ? "interlaced" : "plain", rgba);
        }
        for (const Id& generation : kGenerations) {
            DataDictionary settings;
            EXPECT_TRUE(settings.Set(mediaexport::kBmpInfoHeader, generation));
            EXPECT_TRUE(texture->Set(image::kExportSettings, settings));
            Bytes expected = rgba;
            if (generation == Id("V3")) {
                for (size_t i = 3; i < expected.size(); i += 4)
                    expected[i] = 255;
            }
            add("bmp", std::string(generation.GetText()), expected);
        }
    }
    return all;
}

TEST_F(ToolsTest, ImageMagickReadsOurFiles) {
    REQUIRE_TOOL("convert-im6.q16");
    for (const Written& written : WriteAll(_scratch)) {
        if (written.name.ends_with("-V5"))
            continue;  // it insists on profiles that lie behind the pixels
        EXPECT_EQ(RunToBytes("convert-im6.q16 '" + written.file + "' -depth 8 rgba:-"), written.rgba) << written.name;
    }
}

TEST_F(ToolsTest, GraphicsMagickReadsOurFiles) {
    REQUIRE_TOOL("gm");
    for (const Written& written : WriteAll(_scratch)) {
        const Bytes read = RunToBytes("gm convert '" + written.file + "' -depth 8 rgba:-");
        EXPECT_EQ(read, written.rgba) << written.name;
    }
}

TEST_F(ToolsTest, PillowReadsOurFiles) {
    if (!RunShell("/usr/bin/python3 -c 'import PIL' 2> /dev/null"))
        GTEST_SKIP() << "Pillow is not installed";
    for (const Written& written : WriteAll(_scratch)) {
        const std::string script =
            "import sys; from PIL import Image; "
            "sys.stdout.buffer.write(Image.open(sys.argv[1]).convert(\"RGBA\").tobytes())";
        EXPECT_EQ(RunToBytes("/usr/bin/python3 -c '" + script + "' '" + written.file + "'"), written.rgba)
            << written.name;
    }
}

TEST_F(ToolsTest, PngcheckAcceptsOurFiles) {
    REQUIRE_TOOL("pngcheck");
    for (const Written& written : WriteAll(_scratch)) {
        if (written.file.ends_with(".png")) {
            EXPECT_TRUE(RunShell("pngcheck -q '" + written.file + "'")) << written.name;
        }
    }
}

TEST_F(ToolsTest, WeReadWhatTheyWrite) {
    REQUIRE_TOOL("convert-im6.q16");
    REQUIRE_TOOL("ppmtobmp");
    REQUIRE_TOOL("pnmtopng");
    if (!RunShell("/usr/bin/python3 -c 'import PIL' 2> /dev/null"))
        GTEST_SKIP() << "Pillow is not installed";
    Noise noise(5);
    const Bytes rgba = noise.Make(4 * 31 * 19);
    Bytes opaque = rgba;
    for (size_t i = 3; i < opaque.size(); i += 4)
        opaque[i] = 255;
    WriteFile(_scratch.Path("in.rgba"), rgba);
    const std::string in = "'" + _scratch.Path("in.rgba") + "'", out = "'" + _scratch.Path("out") + "'";
    const std::string magick = "convert-im6.q16 -size 31x19 -depth 8 rgba:" + in + " ";
    const std::string pillow =
        "/usr/bin/python3 -c 'import sys; from PIL import Image; "
        "im = Image.frombytes(\"RGBA\", (31, 19), open(sys.argv[1], \"rb\").read()); im.convert(sys.argv[2]).save("
        "sys.argv[3], sys.argv[4])' " +
        in + " ";
    const struct {
        const char* what;
        std::string command;
        const Bytes& expected;
    } cases[] = {
        {"ImageMagick, PNG with alpha", magick + "PNG32:" + out, rgba},
        {"ImageMagick, interlaced PNG", magick + "-interlace PNG PNG32:" + out, rgba},
        {"ImageMagick, PNG of 16 bits", magick + "PNG64:" + out, rgba},
        {"ImageMagick, PNG without alpha", magick + "-alpha off PNG24:" + out, opaque},
        {"ImageMagick, BMP with alpha", magick + "BMP:" + out, rgba},
        {"ImageMagick, BMP V3 without alpha", magick + "-alpha off BMP3:" + out, opaque},
        {"Pillow, PNG with alpha", pillow + "RGBA " + out + " PNG", rgba},
        {"Pillow, PNG without alpha", pillow + "RGB " + out + " PNG", opaque},
        {"Pillow, BMP with alpha", pillow + "RGBA " + out + " BMP", rgba},
        {"Pillow, BMP without alpha", pillow + "RGB " + out + " BMP", opaque},
        {"netpbm, PNG", magick + "-alpha off ppm:- | pnmtopng 2> /dev/null > " + out, opaque},
        {"netpbm, interlaced PNG", magick + "-alpha off ppm:- | pnmtopng -interlace 2> /dev/null > " + out, opaque},
        {"netpbm, BMP", magick + "-alpha off ppm:- | ppmtobmp -bpp=24 2> /dev/null > " + out, opaque},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(RunShell(c.command)) << c.command;
        const Result<ImageTextureRef> texture = Load(Url(_scratch.Path("out")));
        ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
        EXPECT_EQ(RgbaOf(*texture), c.expected);
    }
}

}  // namespace
}  // namespace codectest
