// PNG: palettes, depths below 8 bits, transparent colours.

#include "codec_support.h"
#include "png_direct.h"

namespace codectest {
namespace {

class PngPaletteTest : public CodecTest {};

/// The value of each pixel, read from rows of any depth up to 8.
std::vector<int> IndicesOf(const PngPicture& picture) {
    std::vector<int> indices;
    const int depth = picture.bitDepth;
    for (uint32_t y = 0; y < picture.height; ++y) {
        for (uint32_t x = 0; x < picture.width; ++x) {
            const uint8_t byte = picture.rows[y * picture.RowBytes() + x * uint32_t(depth) / 8];
            indices.push_back(byte >> (8 - depth - int(x * uint32_t(depth)) % 8) & ((1 << depth) - 1));
        }
    }
    return indices;
}

PixelFormatIndexedColor IndexedFormatOf(const ImageTextureRef& texture) {
    return Cast<PixelFormatIndexedColorInterface>(FirstImage(texture)->GetPixelFormat());
}

TEST_F(PngPaletteTest, PalettesOfEveryDepth) {
    Noise noise(21);
    for (const int depth : {1, 2, 4, 8}) {
        for (const bool interlaced : {false, true}) {
            for (const int alphas : {0, 1, 2}) {  // none, fewer than colours, all
                for (const uint32_t width : {1u, 7u, 17u}) {
                    SCOPED_TRACE(testing::Message() << depth << " " << interlaced << " " << alphas << " " << width);
                    PngPicture made{.width = width,
                                    .height = 9,
                                    .colorType = PNG_COLOR_TYPE_PALETTE,
                                    .bitDepth = depth,
                                    .interlaced = interlaced};
                    made.rows = noise.Make(made.RowBytes() * made.height);
                    const size_t count = size_t(1) << depth;
                    for (size_t i = 0; i < count; ++i)
                        made.palette.push_back({uint8_t(noise.Next()), uint8_t(noise.Next()), uint8_t(noise.Next())});
                    made.alphas = noise.Make(count * size_t(alphas) / 2);
                    Bytes expected;
                    for (const int index : IndicesOf(made)) {
                        const png_color& color = made.palette[size_t(index)];
                        const bool hasAlpha = size_t(index) < made.alphas.size();
                        expected.insert(expected.end(), {color.red, color.green, color.blue,
                                                         hasAlpha ? made.alphas[size_t(index)] : uint8_t(255)});
                    }
                    const ImageTextureRef texture = Loaded(WritePng(made));
                    EXPECT_EQ(RgbaOf(texture), expected);
                    const PixelFormatIndexedColor format = IndexedFormatOf(texture);
                    ASSERT_TRUE(format);
                    EXPECT_EQ(format->GetBitsPerPixel().GetBits(), depth);
                    EXPECT_EQ(format->GetColorTableSize(), Int(count));
                    EXPECT_EQ(format->GetColorTablePixelFormat()->GetId(),
                              alphas == 0 ? pixelformats::kRgbU8 : pixelformats::kRgbaU8);
                }
            }
        }
    }
}

TEST_F(PngPaletteTest, SmallDepthsOfGrey) {
    Noise noise(22);
    for (const int depth : {1, 2, 4}) {
        for (const bool interlaced : {false, true}) {
            for (const int key : {-1, 0, 1, (1 << depth) - 1}) {
                SCOPED_TRACE(testing::Message() << depth << " " << interlaced << " " << key);
                PngPicture made{.width = 13,
                                .height = 5,
                                .colorType = PNG_COLOR_TYPE_GRAY,
                                .bitDepth = depth,
                                .interlaced = interlaced,
                                .hasKey = key >= 0,
                                .key = {0, 0, 0, 0, png_uint_16(key)}};
                made.rows = noise.Make(made.RowBytes() * made.height);
                Bytes expected;
                for (const int value : IndicesOf(made)) {
                    const uint8_t grey = uint8_t(value * 255 / ((1 << depth) - 1));
                    expected.insert(expected.end(), {grey, grey, grey, uint8_t(value == key ? 0 : 255)});
                }
                const ImageTextureRef texture = Loaded(WritePng(made));
                EXPECT_EQ(RgbaOf(texture), expected);
                EXPECT_EQ(IndexedFormatOf(texture)->GetColorTablePixelFormat()->GetId(),
                          key < 0 ? pixelformats::kGreyU8 : pixelformats::kGreyaU8);
            }
        }
    }
}

TEST_F(PngPaletteTest, TransparentPalettesAreWrittenWithAlpha) {
    const Bytes file = WritePng({.width = 2,
                                 .height = 1,
                                 .colorType = PNG_COLOR_TYPE_PALETTE,
                                 .rows = {0, 1},
                                 .palette = {{1, 2, 3}, {4, 5, 6}},
                                 .alphas = {7}});
    const ImageTextureRef texture = Loaded(file);
    const PngPicture written = ReadPng(Save(texture, "png").GetValueOr(Bytes()));
    EXPECT_EQ(written.colorType, PNG_COLOR_TYPE_RGB_ALPHA);
    EXPECT_EQ(written.rows, (Bytes{1, 2, 3, 7, 4, 5, 6, 255}));

    DataDictionary settings;
    ASSERT_TRUE(settings.Set(mediaexport::kBmpInfoHeader, Id("V4")));
    ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
    const Result<Bytes> bmp = Save(texture, "bmp");
    ASSERT_TRUE(bmp);
    EXPECT_EQ(Bytes(bmp->begin() + 122, bmp->end()), (Bytes{3, 2, 1, 7, 6, 5, 4, 255}));
}

TEST_F(PngPaletteTest, PalettesAndSmallDepthsAreWrittenWithWholeBytes) {
    const struct {
        int colorType;
        std::vector<png_color> palette;
        int writtenType;
        Bytes rows;
    } cases[] = {{PNG_COLOR_TYPE_PALETTE, {{1, 2, 3}, {4, 5, 6}}, PNG_COLOR_TYPE_RGB, {1, 2, 3, 4, 5, 6}},
                 {PNG_COLOR_TYPE_GRAY, {}, PNG_COLOR_TYPE_GRAY, {0, 255}}};
    for (const auto& c : cases) {
        const Bytes file = WritePng(
            {.width = 2, .height = 1, .colorType = c.colorType, .bitDepth = 1, .rows = {0x40}, .palette = c.palette});
        const PngPicture written = ReadPng(Save(Loaded(file), "png").GetValueOr(Bytes()));
        EXPECT_EQ(written.colorType, c.writtenType);
        EXPECT_EQ(written.bitDepth, 8);
        EXPECT_EQ(written.rows, c.rows);
    }
}

}  // namespace
}  // namespace codectest
