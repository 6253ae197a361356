// BMP, as the tests of all formats see it.

#include "bmp_parts.h"
#include "format_table.h"
#include "tool_support.h"

namespace codectest {
namespace {

std::vector<Sample> MakeBmpSamples() {
    Noise noise(7);
    std::vector<Sample> samples;
    const auto add = [&](const char* name, const BmpParts& parts) { samples.push_back({name, "bmp", parts.Make()}); };
    add("bmp of 24 bits", {.width = 3, .height = 3, .rows = noise.Make(36)});
    add("bmp of 24 bits with a core header", {.headerSize = 12, .width = 3, .height = 2, .rows = noise.Make(24)});
    add("bmp of 32 bits", {.width = 2, .height = 2, .bitCount = 32, .rows = noise.Make(16)});
    add("bmp of 32 bits with masks", {.headerSize = 108,
                                      .width = 2,
                                      .height = -3,
                                      .bitCount = 32,
                                      .compression = 3,
                                      .red = 0xFF0000,
                                      .green = 0xFF00,
                                      .blue = 0xFF,
                                      .alpha = 0xFF000000,
                                      .rows = noise.Make(24)});
    add("bmp with a profile", {.headerSize = 124,
                               .space = 0x4D424544,
                               .profile = ProfileBytes(colorprofiles::kSrgb),
                               .rows = noise.Make(16)});
    add("bmp of 16 bits", {.width = 3, .height = 2, .bitCount = 16, .rows = noise.Make(16)});
    add("bmp of 16 bits with masks", {.width = 3,
                                      .height = 2,
                                      .bitCount = 16,
                                      .compression = 3,
                                      .red = 0xF800,
                                      .green = 0x7E0,
                                      .blue = 0x1F,
                                      .rows = noise.Make(16)});
    for (const uint16_t bits : std::initializer_list<uint16_t>{1, 2, 4, 8}) {
        const std::string name = "bmp of " + std::to_string(bits) + " bits";
        BmpParts parts{.width = 9, .height = 2, .bitCount = bits, .colorsUsed = 2, .palette = noise.Make(8)};
        parts.rows = noise.Make(2 * size_t((9 * bits + 31) / 32 * 4));
        add(name.c_str(), parts);
    }
    add("bmp of 4 bits with a core header",
        {.headerSize = 12, .width = 3, .height = 2, .bitCount = 4, .palette = noise.Make(48), .rows = noise.Make(8)});
    add("bmp of runs of 8 bits", {.width = 5,
                                  .height = 3,
                                  .bitCount = 8,
                                  .compression = 1,
                                  .colorsUsed = 3,
                                  .palette = noise.Make(12),
                                  .rows = {2, 1, 0, 3, 0, 1, 2, 0, 0, 0, 1, 2, 0, 2, 2, 0, 2, 1, 0, 0, 5, 2, 0, 1}});
    add("bmp of runs of 4 bits", {.width = 7,
                                  .height = 3,
                                  .bitCount = 4,
                                  .compression = 2,
                                  .colorsUsed = 3,
                                  .palette = noise.Make(12),
                                  .rows = {3, 0x12, 0, 3, 0x12, 0x10, 0, 0, 1, 0x20, 0, 2, 2, 1, 7, 0x21, 0, 1}});
    return samples;
}

/// Some sixty bytes that ask for gigabytes.
std::vector<Sample> MakeBmpBombs() {
    std::vector<Sample> bombs;
    const struct {
        int32_t width, height;
    } sizes[] = {{INT32_MAX, 1}, {1, INT32_MAX}, {INT32_MAX, INT32_MAX}, {INT32_MAX, INT32_MIN}, {65536, 65536}};
    for (const auto& size : sizes) {
        for (const uint16_t bits : std::initializer_list<uint16_t>{1, 4, 8, 16, 24, 32}) {
            for (const uint32_t compression : {0u, 1u, 2u})
                bombs.push_back({testing::PrintToString(size.width), "bmp",
                                 BmpParts{.width = size.width,
                                          .height = size.height,
                                          .bitCount = bits,
                                          .compression = compression,
                                          .colorsUsed = 0xFFFFFFFF}
                                     .Make()});
        }
    }
    return bombs;
}

std::vector<ExportVariant> MakeBmpVariants() {
    std::vector<ExportVariant> variants;
    for (const Id& generation : {Id("V3"), Id("V4"), Id("V5")}) {
        ExportVariant variant{std::string(generation.GetText())};
        EXPECT_TRUE(variant.settings.Set(mediaexport::kBmpInfoHeader, generation));
        variants.push_back(variant);
    }
    variants[0].keeps = Opaque;
    variants[0].unreadablePixel = {"GraphicsMagick"};  // it wants 60 bytes of any file
    variants[2].unreadable = {"ImageMagick"};          // it insists on profiles that lie behind the pixels
    return variants;
}

/// Pillow repeats the grey in the fourth byte of its palettes, which counts as transparency.
Bytes GreyIsTransparency(Bytes rgba) {
    rgba = Grey(std::move(rgba));
    for (size_t i = 0; i < rgba.size(); i += 4)
        rgba[i + 3] = uint8_t(255 - rgba[i]);
    return rgba;
}
Bytes BlackAndClear(Bytes rgba) { return GreyIsTransparency(BlackAndWhite(std::move(rgba))); }

constexpr int kLowBits = 7;  ///< 5 bits become 8 without being repeated in the low ones here

std::vector<ForeignWriter> MakeBmpWriters() {
    const std::string magick = "convert-im6.q16 -size %Wx%H -depth 8 rgba:%I ";
    const std::string pillow =
        "/usr/bin/python3 -c 'import sys; from PIL import Image; "
        "im = Image.frombytes(\"RGBA\", (%W, %H), open(sys.argv[1], \"rb\").read()); im.convert(sys.argv[2]).save("
        "sys.argv[3], \"BMP\")' %I ";
    const std::string graphics = "gm convert -size %Wx%H -depth 8 rgba:%I ";
    const std::string netpbm = magick + "-alpha off ppm:- | ppmtobmp ";
    return {
        {"ImageMagick, with alpha", {"convert-im6.q16"}, magick + "BMP:%O"},
        {"ImageMagick, V3", {"convert-im6.q16"}, magick + "-alpha off BMP3:%O", Opaque},
        {"ImageMagick, core header", {"convert-im6.q16"}, magick + "-alpha off BMP2:%O", Opaque},
        {"ImageMagick, palette", {"convert-im6.q16"}, magick + "-alpha off -type Palette BMP3:%O", SixtyFourColors},
        {"ImageMagick, runs",
         {"convert-im6.q16"},
         magick + "-alpha off -type Palette -compress RLE BMP3:%O",
         SixtyFourColors},
        {"ImageMagick, runs of grey", {"convert-im6.q16"}, magick + "-alpha off -compress RLE BMP3:%O", BlackAndWhite},
        {"ImageMagick, 555",
         {"convert-im6.q16"},
         magick + "-alpha off -define bmp:subtype=RGB555 BMP:%O",
         BlackAndWhite,
         kLowBits},
        {"ImageMagick, 565",
         {"convert-im6.q16"},
         magick + "-alpha off -define bmp:subtype=RGB565 BMP:%O",
         BlackAndWhite,
         kLowBits},
        {"GraphicsMagick, palette", {"gm"}, graphics + "-type Palette BMP3:%O", SixtyFourColors},
        {"GraphicsMagick, 16 colours", {"gm"}, graphics + "-type Palette BMP3:%O", SixteenColors},
        {"Pillow, with alpha", {"PIL"}, pillow + "RGBA %O"},
        {"Pillow, without alpha", {"PIL"}, pillow + "RGB %O", Opaque},
        {"Pillow, grey", {"PIL"}, pillow + "L %O", GreyIsTransparency},
        {"Pillow, one bit", {"PIL"}, pillow + "1 %O", BlackAndClear},
        {"netpbm", {"convert-im6.q16", "ppmtobmp"}, netpbm + "-bpp=24 2> /dev/null > %O", Opaque},
        {"netpbm, 8 bits", {"convert-im6.q16", "ppmtobmp"}, netpbm + "-bpp=8 2> /dev/null > %O", SixtyFourColors},
        {"netpbm, 4 bits", {"convert-im6.q16", "ppmtobmp"}, netpbm + "-bpp=4 2> /dev/null > %O", SixteenColors},
        {"netpbm, 1 bit", {"convert-im6.q16", "ppmtobmp"}, netpbm + "-bpp=1 2> /dev/null > %O", BlackAndWhite},
        {"netpbm, core header",
         {"convert-im6.q16", "ppmtobmp"},
         netpbm + "-os2 -bpp=8 2> /dev/null > %O",
         SixtyFourColors},
    };
}

/// Pixels of 16 bits, as an independent decoder sees them: their few bits become 8 without being repeated in the low
/// ones here, and as the nearest of 256 levels there.
bool AgreesInHighBits(const std::string& path, const ImageTextureRef& texture) {
    const Bytes file = ReadFile(path);
    constexpr size_t kBitCount = 28, kRedMask = 54;
    if (file.size() < 70 || file[kBitCount] != 16 || !HasTool("convert-im6.q16"))
        return false;
    const bool has4Bits = file[kRedMask] == 0 && file[kRedMask + 1] == 0x0F;
    Bytes other;
    RunShell("convert-im6.q16 '" + path + "' -depth 8 rgba:-", &other);
    const Bytes own = RgbaOf(texture);
    for (size_t i = 0; i < own.size() && own.size() == other.size(); ++i) {
        const bool isOneBit = i % 4 == 3 && !has4Bits;
        if (isOneBit ? own[i] / 128 != other[i] / 128 : std::abs(own[i] - other[i]) > (has4Bits ? 15 : kLowBits))
            return false;
    }
    return own.size() == other.size();
}

}  // namespace

TestedFormat TestedBmp() {
    TestedFormat bmp{"bmp", MakeBmpSamples};
    bmp.makeBombs = MakeBmpBombs;
    bmp.detectBytes = 20;
    bmp.embedsProfiles = true;
    bmp.alphaChannels = 1;
    bmp.largestSide = 32000;
    bmp.bitDepths = {8};
    bmp.differences = {
        {"bmp/image-rs/rgba32-61754.bmp", "masks of 6, 1, 7, 5 and 4 bits: only whole bytes are read"},
        {"bmp/image-rs/pal4rlecut.bmp", "its runs end before its rows"},
        {"bmp/image-rs/rle_overflow.bmp", "an image size of 0 leaves no runs"},
        {"bmp/pillow/badrle.bmp", "runs that leave the picture: no two peers agree"},
        {"bmp/pillow/mmap_error.bmp", "its rows begin inside of its palette: no two peers agree"},
        {"bmp/pillow/pal8badindex.bmp", "indices beyond the palette: no two peers agree"},
        {"bmp/oiio-tests/crash-5158.bmp", "shorter than its rows"},
        {"bmp/pillow/pal8os2v2-16.bmp", "header of 16 bytes, no generation that is known here"},
        {"bmp/pillow/pal8os2v2.bmp", "header of 64 bytes, no generation that is known here"},
        {"bmp/pillow/rgb32bf.bmp", "green mask 0xFF0: only whole bytes are read"},
        {"bmp/pillow/rgb32h52.bmp", "header of 52 bytes, no generation that is known here"},
    };
    bmp.fewestCompared = 70;
    bmp.fewestRefused = 3;
    bmp.agrees = AgreesInHighBits;
    bmp.mostPicturesOfCutFiles = 1;  // the last line of runs may lack its last byte
    bmp.makeVariants = MakeBmpVariants;
    bmp.makeWriters = MakeBmpWriters;
    return bmp;
}

}  // namespace codectest
