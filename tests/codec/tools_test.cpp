// The same pixels through other programs: they read what is written here, and this reads what they write.

#include <map>

#include "format_table.h"
#include "tool_support.h"

namespace codectest {
namespace {

/// A program that turns a file into RGBA bytes.
struct Reader {
    std::string_view name;
    const char* tool;
    std::string command;
};
const Reader kReaders[] = {
    {"ImageMagick", "convert-im6.q16", "convert-im6.q16 %O -depth 8 rgba:-"},
    {"GraphicsMagick", "gm", "gm convert %O -depth 8 rgba:-"},
    {"Pillow", "PIL",
     "/usr/bin/python3 -c 'import sys; from PIL import Image; "
     "sys.stdout.buffer.write(Image.open(sys.argv[1]).convert(\"RGBA\").tobytes())' %O"},
};

/// Each letter behind a % stands for a text.
std::string Filled(std::string command, const std::map<char, std::string>& texts) {
    for (const auto& [letter, text] : texts) {
        const std::string mark{'%', letter};
        for (size_t at = 0; (at = command.find(mark, at)) != std::string::npos; at += text.size())
            command.replace(at, mark.size(), text);
    }
    return command;
}

struct Size {
    Int width, height;
};
/// Single pixels, lines, rows that end in the middle of whatever a format fills them up to.
const Size kSizes[] = {{1, 1}, {1, 9}, {2, 3}, {3, 2}, {5, 4}, {8, 8}, {37, 21}, {131, 2}};

struct Kind {
    Id format;
    int bytes;
    bool alphaChild = false;
    bool isWide = false;
};
const Kind kKinds[] = {
    {pixelformats::kGreyU8, 1},
    {pixelformats::kGreyaU8, 2},
    {pixelformats::kRgbU8, 3},
    {pixelformats::kRgbaU8, 4},
    {.format = pixelformats::kBgrU8, .bytes = 3, .alphaChild = true},
    {.format = pixelformats::kRgbU16, .bytes = 6, .isWide = true},
    {.format = pixelformats::kRgbaU16, .bytes = 8, .isWide = true},
};

class ReadersTest : public ToolTest, public testing::WithParamInterface<std::string_view> {};
class WritersTest : public ReadersTest {};

TEST_P(ReadersTest, ReadSavedFiles) {
    const TestedFormat& format = TestedFormatOf(GetParam());
    std::vector<const Reader*> readers;
    for (const Reader& reader : kReaders) {
        if (HasTool(reader.tool))
            readers.push_back(&reader);
    }
    if (readers.empty())
        GTEST_SKIP() << "no other program is installed";
    Noise noise(11);
    const std::string file = "out." + std::string(format.name);
    const bool checksPng = format.name == "png" && HasTool("pngcheck");
    int asked = 0;
    for (const Size& size : kSizes) {
        for (const Kind& kind : kKinds) {
            Picture picture{size.width, size.height, kind.format,
                            noise.Make(size_t(size.width * size.height * kind.bytes))};
            if (kind.alphaChild)
                picture.alpha = noise.Make(size_t(size.width * size.height));
            const ImageTextureRef texture = MakeTexture(picture);
            const Bytes rgba = RgbaOf(texture);
            for (const ExportVariant& variant : format.makeVariants()) {
                SCOPED_TRACE(testing::Message() << kind.format.GetText() << " " << variant.name << " " << size.width
                                                << " x " << size.height);
                ASSERT_TRUE(texture->Set(image::kExportSettings, variant.settings));
                const Result<void> saved = SaveTo(texture, format.name, Url(_scratch.Path(file)));
                ASSERT_TRUE(saved) << saved.GetError()->ToString().GetCString();
                if (checksPng && size.width == 37) {
                    EXPECT_TRUE(RunShell("pngcheck -q " + Quoted(file)));
                }
                const Bytes expected = variant.isLossy ? RgbaOf(*Load(Url(_scratch.Path(file))))
                                       : variant.keeps ? variant.keeps(rgba)
                                                       : rgba;
                for (const Reader* reader : readers) {
                    const auto isIn = [reader](const std::vector<std::string_view>& names) {
                        return std::count(names.begin(), names.end(), reader->name) != 0;
                    };
                    if (isIn(variant.unreadable) || (size.width * size.height == 1 && isIn(variant.unreadablePixel)))
                        continue;
                    SCOPED_TRACE(std::string(reader->name));
                    // The interpreter takes long to start: it sees every third picture.
                    if (reader->name == "Pillow" && ++asked % 3 != 0)
                        continue;
                    Bytes read;
                    EXPECT_TRUE(RunShell(Filled(reader->command, {{'O', Quoted(file)}}), &read));
                    // 16 bits become 8 by a shift here, by rounding elsewhere.
                    ExpectNear(read, expected, variant.tolerance + (kind.isWide ? 1 : 0));
                }
            }
        }
    }
}

TEST_P(WritersTest, FilesLoadWithTheirPixels) {
    const TestedFormat& format = TestedFormatOf(GetParam());
    Noise noise(5);
    std::string missing;
    int read = 0;
    for (const ForeignWriter& writer : format.makeWriters()) {
        const auto absent = std::find_if_not(writer.tools.begin(), writer.tools.end(), HasTool);
        if (absent != writer.tools.end()) {
            missing += std::string(" ") + *absent;
            continue;
        }
        for (const Size& size : kSizes) {
            SCOPED_TRACE(testing::Message() << writer.what << " " << size.width << " x " << size.height);
            Bytes rgba = noise.Make(size_t(4 * size.width * size.height));
            if (writer.keeps)
                rgba = writer.keeps(rgba);
            WriteFile(_scratch.Path("in.rgba"), rgba);
            const std::string command = Filled(writer.command, {{'I', Quoted("in.rgba")},
                                                                {'O', Quoted("out")},
                                                                {'W', std::to_string(size.width)},
                                                                {'H', std::to_string(size.height)}});
            ASSERT_TRUE(RunShell(command)) << command;
            if (writer.isLossy) {
                ASSERT_TRUE(RunShell(Filled(kReaders[0].command, {{'O', Quoted("out")}}), &rgba));
            }
            const Result<ImageTextureRef> texture = Load(Url(_scratch.Path("out")));
            ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
            ExpectNear(RgbaOf(*texture), rgba, writer.tolerance);
            ++read;
        }
    }
    if (read == 0)
        GTEST_SKIP() << "not installed:" << missing;
}

/// The formats whose row has such a list; the others have tests of their own for other programs.
template <class List>
auto FormatsWith(List TestedFormat::*list) {
    std::vector<std::string_view> names;
    for (const TestedFormat& format : TestedFormats()) {
        if (format.*list)
            names.push_back(format.name);
    }
    return testing::ValuesIn(names);
}
constexpr auto kNameOf = [](const auto& info) { return std::string(info.param); };
INSTANTIATE_TEST_SUITE_P(Formats, ReadersTest, FormatsWith(&TestedFormat::makeVariants), kNameOf);
INSTANTIATE_TEST_SUITE_P(Formats, WritersTest, FormatsWith(&TestedFormat::makeWriters), kNameOf);

using MetadataToolsTest = ToolTest;

TEST_F(MetadataToolsTest, ProfileAndResolutionGoBothWays) {
    if (!HasTool("convert-im6.q16") || !HasTool("exiftool"))
        GTEST_SKIP() << "ImageMagick or exiftool is not installed";
    const Bytes profile = ProfileBytes(colorprofiles::kLinearRgb);
    WriteFile(_scratch.Path("linear.icc"), profile);
    const struct {
        std::string format;
        const char *tags, *values;
    } cases[] = {
        {"bmp", "-PixelsPerMeterX -PixelsPerMeterY", "5669\n2834\n"},  // keeps its header, which has room for a profile
        {"jpg", "-XResolution -YResolution -ResolutionUnit", "144\n144\n1\n"},
        {"png", "-PixelsPerUnitX -PixelsPerUnitY", "5669\n2834\n"},
    };
    for (const auto& [format, tags, values] : cases) {
        SCOPED_TRACE(format);
        const std::string file = _scratch.Path("file." + format);
        Run("convert-im6.q16 -size 3x2 gradient:red-blue -depth 8 -units PixelsPerInch -density 144x72 -profile " +
            Quoted("linear.icc") + " '" + file + "'");
        const Result<ImageTextureRef> texture = Load(Url(file));
        ASSERT_TRUE(texture);
        const ImageBaseRef image = FirstImage(*texture);
        EXPECT_NEAR(image->Get(image::kDpi, 0), 144, 0.1);
        EXPECT_NEAR(image->Get(image::kAspectRatio, 0), 0.5, 0.001);
        EXPECT_EQ(image->Get(image::kColorProfile, ColorProfile()), colorprofiles::Get(colorprofiles::kLinearRgb));

        ASSERT_TRUE(SaveTo(*texture, format, Url(file)));
        EXPECT_EQ(Run("exiftool -icc_profile -b '" + file + "'"), profile);
        const Bytes resolution = Run("exiftool -n -s3 " + std::string(tags) + " '" + file + "'");
        EXPECT_EQ(std::string(resolution.begin(), resolution.end()), values);
    }
}

}  // namespace
}  // namespace codectest
