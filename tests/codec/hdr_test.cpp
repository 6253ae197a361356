// Radiance HDR: headers and rows put together by hand, the rules of the encoder, files through other programs.

#include <cmath>
#include <limits>

#include "parts.h"
#include "tool_support.h"

namespace codectest {
namespace {

const Id kRgbe{"net.orvik.image.pixelformat.rgb.rgbe"};

class HdrTest : public CodecTest {};

HdrPicture PictureOf(const ImageTextureRef& texture) {
    const ImageBaseRef image = FirstImage(texture);
    return {image->GetWidth(), image->GetHeight(), PixelsOf(image, kRgbe)};
}

TEST_F(HdrTest, ReadsHeaders) {
    const std::string format = "FORMAT=32-bit_rle_rgbe\n", size = "-Y 2 +X 1\n";
    const Bytes pixels = {1, 2, 3, 4, 5, 6, 7, 8};
    const std::string variables = "#?X\nGAMMA=2.2\n EXPOSURE= 1e3\nGAMMA=abc\nEXPOSURE=1,5\n# -Y 3 +X 3\n";
    const std::string good[] = {
        "#?RADIANCE\n" + format + "\n" + size,
        format + "\n" + size,
        "#?" + std::string(50, 'a') + "\n" + format + size,
        "#?\n" + format + size,
        format + size,
        "#?RGBE\r\nFORMAT=32-bit_rle_rgbe\r\n\r\n-Y 2 +X 1\r\n",
        " \t" + format + size,
        "FORMAT=32-bit_rle_rgbe_2\n" + size,
        variables + format + "VIEW=\n" + size,
        format + "-Y2+X1\n",
        format + "-Y \t +2 +X   +1 and more\n",
        format + std::string(127, 'c') + size,  // a long line goes on as the next
        format + std::string(126, 'c') + "\n" + size,
    };
    for (const std::string& header : good) {
        const HdrPicture picture = PictureOf(LoadedAs("hdr", HdrFile(header, pixels)));
        EXPECT_EQ(picture.width, 1) << header;
        EXPECT_EQ(picture.rgbe, pixels) << header;
    }
    EXPECT_EQ(PictureOf(LoadedAs("hdr", HdrFile(format + " -Y 2 +X 1\n-Y 1 +X 2\n", pixels))).width, 2);
    // Height comes first, whatever the letters say, and no picture is turned.
    for (const char* resolution :
         {"-Y 2 +X 1", "+Y 2 +X 1", "-Y 2 -X 1", "+Y 2 -X 1", "-X 2 +Y 1", "+X 2 +Y 1", "-X 2 -Y 1", "+X 2 -Y 1"}) {
        const HdrPicture picture = PictureOf(Loaded(HdrFile(HdrHeaderText(resolution), pixels)));
        EXPECT_EQ(picture.width, 1) << resolution;
        EXPECT_EQ(picture.rgbe, pixels) << resolution;
    }
    std::vector<std::string> bad = {"",
                                    size + format,
                                    "#?RADIANCE\n" + size,
                                    "FORMAT=32-bit_rle_xyze\n" + size,
                                    "format=32-bit_rle_rgbe\n" + size,
                                    "#?RADIANCE\n" + format,
                                    format + std::string("\0\n", 2) + size};
    for (const char* resolution :
         {"   ", "-Y 2 +Y 1\n", "+Y -X\n", "-Y 2\n", "-Y +-2 +X 1\n", "-Y 0 +X 1\n", "-Y 2 +X -1\n",
          "-Y 2147483648 +X 1\n", "-Y 18446744073709551618 +X 1\n", "-Y 3 +X 1\n", "-Y 1 +X 127\n"})
        bad.push_back(format + resolution);
    for (const std::string& header : bad)
        EXPECT_EQ(KindOf(LoadAs("hdr", HdrFile(header, pixels))), "mediasessionwrongtype") << header;
}

TEST_F(HdrTest, ReadsRows) {
    const Bytes flat = {10, 20, 30, 128, 11, 21, 31, 129};
    const std::string refused = "mediasessionwrongtype";
    const struct {
        const char* what;
        Int width, height;
        Bytes rows;
        Bytes rgbe;           ///< empty: refused
        std::string failure;  ///< kind of error
    } cases[] = {
        {"flat", 2, 1, flat, flat, ""},
        {"flat, high bit in the third byte", 1, 1, {2, 2, 128, 1}, {2, 2, 128, 1}, ""},
        {"flat, one mark", 1, 1, {2, 3, 0, 1}, {2, 3, 0, 1}, ""},
        {"a run of the oldest kind is a pixel", 2, 1, {9, 9, 9, 128, 1, 1, 1, 5}, {9, 9, 9, 128, 1, 1, 1, 5}, ""},
        {"runs", 2, 1, {2, 2, 0, 2, 130, 1, 130, 2, 2, 3, 4, 1, 5, 129, 6}, {1, 2, 3, 5, 1, 2, 4, 6}, ""},
        {"runs cut to fit", 2, 1, {2, 2, 0, 2, 255, 1, 1, 2, 254, 3, 130, 4, 131, 5}, {1, 2, 4, 5, 1, 3, 4, 5}, ""},
        {"another width", 2, 1, {2, 2, 0, 3, 131, 1, 131, 2, 131, 3, 131, 5}, {}, refused},
        {"a pixel that looks like a row", 2, 1, {2, 2, 2, 128, 1, 2, 3, 4}, {}, refused},
        {"no literals", 2, 1, {2, 2, 0, 2, 0, 1, 130, 2, 130, 3, 130, 5}, {}, refused},
        {"too many literals", 2, 1, {2, 2, 0, 2, 3, 1, 2, 3, 130, 3, 130, 5}, {}, refused},
        {"128 is a count of literals", 2, 1, {2, 2, 0, 2, 128, 1, 130, 2, 130, 3, 130, 5}, {}, refused},
        {"flat rows start over from the top",
         1,
         2,
         {2, 2, 0, 1, 1, 9, 1, 9, 1, 9, 1, 9, 5, 6, 7, 8, 1, 2, 3, 4},
         {5, 6, 7, 8, 1, 2, 3, 4},
         ""},
        {"which takes as many as all", 1, 2, {2, 2, 0, 1, 1, 9, 1, 9, 1, 9, 1, 9, 5, 6, 7, 8}, {}, "io"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result<ImageTextureRef> texture = LoadAs("hdr", HdrFile(HdrHeaderText(c.width, c.height), c.rows));
        if (c.rgbe.empty()) {
            EXPECT_EQ(KindOf(texture), c.failure);
            EXPECT_EQ(MessageOf(texture).empty(), c.failure == refused);
        } else {
            ASSERT_EQ(MessageOf(texture), "");
            EXPECT_EQ(PictureOf(*texture).rgbe, c.rgbe);
        }
    }
}

TEST_F(HdrTest, ReadsRandomRowsOfAllWidths) {
    Noise noise(31);
    for (const Int width : {1, 2, 3, 7, 8, 9, 127, 128, 129, 255, 1000, 32767}) {
        SCOPED_TRACE(width);
        Bytes pixels, rows;
        for (int y = 0; y < 3; ++y) {
            Bytes row = noise.Make(size_t(width) * 4);
            for (size_t i = 4; i < row.size(); ++i) {
                if (noise.Next() % 2)
                    row[i] = row[i - 4];
            }
            pixels = Joined({pixels, row});
            rows = Joined({rows, PackHdrRow(row, noise)});
        }
        EXPECT_EQ(PictureOf(Loaded(HdrFile(HdrHeaderText(width, 3), rows))).rgbe, pixels);
    }
}

TEST_F(HdrTest, DescribesThePicture) {
    const ImageTextureRef texture = Loaded(HdrFile(HdrHeaderText(1, 1), {128, 0, 64, 129}));
    const ImageBaseRef image = FirstImage(texture);
    EXPECT_EQ(image->GetPixelFormat()->GetId(), kRgbe);
    EXPECT_EQ(ProfileOf(texture), colorprofiles::Get(colorprofiles::kLinearRgb));
    EXPECT_FALSE(image->Has(image::kDpi.GetId()));
    EXPECT_FALSE(AlphaOf(image));
    EXPECT_FALSE(texture->Has(image::kExportSettings.GetId()));
    EXPECT_THAT(FloatsOf(image), testing::ElementsAre(128.5f / 128, 0.5f / 128, 64.5f / 128));
}

ImageTextureRef TextureOfFloats(Int width, Int height, const std::vector<float>& rgb) {
    Bytes bytes(rgb.size() * sizeof(float));
    std::memcpy(bytes.data(), rgb.data(), bytes.size());
    return MakeTexture({width, height, pixelformats::kRgbF32, bytes});
}

/// What is written in front of the rows.
std::string WrittenHeader(Int width, Int height) {
    return "#?RADIANCE\nGAMMA=1\nEXPOSURE=1\nSOFTWARE=HALDEN_3X\nFORMAT=32-bit_rle_rgbe\n\n-Y " +
           std::to_string(height) + " +X " + std::to_string(width) + "\n";
}

TEST_F(HdrTest, WritesPixels) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity(), kNan = std::nanf("");
    const struct {
        float rgb[3];
        Bytes rgbe;
    } cases[] = {
        {{0, 0, 0}, {0, 0, 0, 0}},
        {{1, 1, 1}, {128, 128, 128, 129}},
        {{0.999f, 0.5f, 0.001f}, {255, 128, 0, 128}},
        {{255.0f / 256, 254.9f / 256, 1 / 256.0f}, {255, 254, 1, 128}},
        {{-1, 2, 1e-9f}, {0, 128, 0, 130}},
        {{9.9e-11f, 0, 0}, {0, 0, 0, 0}},
        {{1.01e-10f, 0, 9e-11f}, {222, 0, 0, 95}},
        {{-kInfinity, kNan, 1}, {0, 0, 128, 129}},
        {{kNan, kNan, kNan}, {0, 0, 0, 0}},
        {{0x1p126f, 0, 0x1p119f}, {128, 0, 1, 255}},
        {{0x1p127f, 0, 0}, {255, 0, 0, 255}},
        {{kInfinity, 1e30f, std::numeric_limits<float>::max()}, {255, 0, 255, 255}},
    };
    for (const auto& c : cases) {
        const ImageTextureRef texture = TextureOfFloats(1, 1, {c.rgb[0], c.rgb[1], c.rgb[2]});
        EXPECT_EQ(Save(texture, "hdr").GetValueOr(Bytes()), HdrFile(WrittenHeader(1, 1), c.rgbe))
            << c.rgb[0] << " " << c.rgb[1] << " " << c.rgb[2];
    }
}

/// The rules of the encoder, byte by byte.
void EncodePlaneSlowly(const Bytes& plane, Bytes& out) {
    const size_t size = plane.size();
    for (size_t at = 0; at < size;) {
        size_t begin = at, run = 0, last = 0;
        while (run < 4 && begin < size) {
            begin += run;
            last = run;
            for (run = 1; begin + run < size && run < 127 && plane[begin + run] == plane[begin];)
                ++run;
        }
        if (last > 1 && last == begin - at) {
            out.insert(out.end(), {uint8_t(128 + last), plane[at]});
            at = begin;
        }
        while (at < begin) {
            const size_t count = std::min(begin - at, size_t(128));
            out.push_back(uint8_t(count));
            out.insert(out.end(), plane.begin() + long(at), plane.begin() + long(at + count));
            at += count;
        }
        if (run >= 4) {
            out.insert(out.end(), {uint8_t(128 + run), plane[at]});
            at += run;
        }
    }
}

/// Pixels that come back as the same bytes: the greatest mantissa is at least 128.
Bytes MakeRgbe(Int width, Noise& noise, uint32_t sameness) {
    Bytes rgbe = noise.Make(size_t(width) * 4);
    for (size_t i = 0; i < rgbe.size(); i += 4) {
        rgbe[i + noise.Next() % 3] |= 128;
        rgbe[i + 3] = uint8_t(120 + noise.Next() % 16);
        if (i > 0 && noise.Next() % 16 < sameness)
            std::copy_n(rgbe.begin() + long(i) - 4, 4, rgbe.begin() + long(i));
    }
    return rgbe;
}

TEST_F(HdrTest, EncodesRuns) {
    Noise noise(41);
    for (const Int width : {1, 4, 7, 8, 9, 10, 11, 12, 31, 127, 128, 129, 130, 131, 255, 256, 260, 500, 32767, 32768}) {
        for (const uint32_t sameness : {0u, 4u, 9u, 14u, 16u}) {
            SCOPED_TRACE(testing::Message() << width << " " << sameness);
            HdrPicture picture{width, 1, MakeRgbe(width, noise, sameness)};
            const Bytes file = Save(TextureOfFloats(width, 1, picture.ToFloats()), "hdr").GetValueOr(Bytes());
            Bytes expected = picture.rgbe;
            if (width >= 8 && width <= 32767) {
                expected = {2, 2, uint8_t(width >> 8), uint8_t(width)};
                for (size_t plane = 0; plane < 4; ++plane) {
                    Bytes values;
                    for (size_t i = plane; i < picture.rgbe.size(); i += 4)
                        values.push_back(picture.rgbe[i]);
                    EncodePlaneSlowly(values, expected);
                }
            }
            ASSERT_EQ(file, HdrFile(WrittenHeader(width, 1), expected));
            EXPECT_EQ(PictureOf(Loaded(file)).rgbe, picture.rgbe);
        }
    }
}

struct Size {
    Int width, height;
};
const Size kSizes[] = {{1, 1}, {1, 9}, {7, 3}, {8, 1}, {9, 2}, {37, 21}, {129, 5}, {32767, 1}, {32768, 1}};
constexpr Int kWidestForMagick = 16000;

class HdrToolsTest : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        RequireTools({"oiiotool", "convert-im6.q16"});
    }
    /// Through a TIFF, which ends in its pixels.
    std::vector<float> ReadByOiiotool(const std::string& name, const Size& size) {
        EXPECT_TRUE(RunShell("oiiotool " + Quoted(name) + " -d float --compression none -o " + Quoted("floats.tif")));
        const Bytes tiff = ReadFile(_scratch.Path("floats.tif"));
        std::vector<float> floats(size_t(size.width * size.height * 3));
        const size_t bytes = floats.size() * sizeof(float);
        if (tiff.size() >= bytes)
            std::memcpy(floats.data(), tiff.data() + tiff.size() - bytes, bytes);
        return floats;
    }
};

TEST_F(HdrToolsTest, OthersReadItsFiles) {
    Noise noise(51);
    for (const Size& size : kSizes) {
        SCOPED_TRACE(testing::Message() << size.width << " x " << size.height);
        const HdrPicture picture{size.width, size.height, MakeRgbe(size.width * size.height, noise, 5)};
        const std::vector<float> floats = picture.ToFloats();
        ASSERT_TRUE(SaveTo(TextureOfFloats(size.width, size.height, floats), "hdr", Url(_scratch.Path("ours.hdr"))));
        EXPECT_EQ(ReadByOiiotool("ours.hdr", size), floats);
    }
}

TEST_F(HdrToolsTest, ReadsFilesOfOthers) {
    Noise noise(53);
    for (const Size& size : kSizes) {
        const std::string head = "P6\n" + std::to_string(size.width) + " " + std::to_string(size.height) + "\n65535\n";
        Bytes words = noise.Make(size_t(size.width * size.height) * 6);
        for (size_t i = 6; i < words.size(); ++i) {
            if (i / 60 % 2)  // runs between noise
                words[i] = words[i - 6];
        }
        WriteFile(_scratch.Path("in.ppm"), HdrFile(head, words));
        for (const char* writer :
             {"oiiotool $in -o $out", "convert-im6.q16 $in $out", "convert-im6.q16 $in -flip $out"}) {
            SCOPED_TRACE(testing::Message() << writer << " " << size.width << " x " << size.height);
            if (size.width > kWidestForMagick && std::string_view(writer).starts_with("convert"))
                continue;
            Run("in=" + Quoted("in.ppm") + " out=" + Quoted("theirs.hdr") + "; " + writer);
            const HdrPicture picture = PictureOf(Loaded(ReadFile(_scratch.Path("theirs.hdr"))));
            EXPECT_EQ(picture.width, size.width);
            EXPECT_EQ(picture.ToFloats(), ReadByOiiotool("theirs.hdr", size));
        }
    }
}

}  // namespace
}  // namespace codectest
