// BMP, as the tests of all formats see it.

#include "bmp_parts.h"
#include "format_table.h"

namespace codectest {
namespace {

std::vector<Sample> MakeBmpSamples() {
    Noise noise(7);
    std::vector<Sample> samples;
    const auto add = [&](const char* name, BmpParts parts) { samples.push_back({name, "bmp", parts.Make()}); };
    add("bmp of 24 bits", {.width = 3, .height = 3, .rows = noise.Make(36)});
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
    variants[2].unreadable = {"ImageMagick"};  // it insists on profiles that lie behind the pixels
    return variants;
}

std::vector<ForeignWriter> MakeBmpWriters() {
    const std::string magick = "convert-im6.q16 -size %Wx%H -depth 8 rgba:%I ";
    const std::string pillow =
        "/usr/bin/python3 -c 'import sys; from PIL import Image; "
        "im = Image.frombytes(\"RGBA\", (%W, %H), open(sys.argv[1], \"rb\").read()); im.convert(sys.argv[2]).save("
        "sys.argv[3], \"BMP\")' %I ";
    return {
        {"ImageMagick, with alpha", {"convert-im6.q16"}, magick + "BMP:%O"},
        {"ImageMagick, V3", {"convert-im6.q16"}, magick + "-alpha off BMP3:%O", Opaque},
        {"Pillow, with alpha", {"PIL"}, pillow + "RGBA %O"},
        {"Pillow, without alpha", {"PIL"}, pillow + "RGB %O", Opaque},
        {"netpbm",
         {"convert-im6.q16", "ppmtobmp"},
         magick + "-alpha off ppm:- | ppmtobmp -bpp=24 2> /dev/null > %O",
         Opaque},
    };
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
        {"bmp/oiio-tests/crash-5158.bmp", "shorter than its rows"},
        {"bmp/pillow/pal8os2v2-16.bmp", "header of 16 bytes, no generation that is known here"},
        {"bmp/pillow/pal8os2v2.bmp", "header of 64 bytes, no generation that is known here"},
        {"bmp/pillow/rgb32bf.bmp", "green mask 0xFF0: only whole bytes are read"},
        {"bmp/pillow/rgb32h52.bmp", "header of 52 bytes, no generation that is known here"},
    };
    bmp.fewestCompared = 40;
    bmp.fewestRefused = 3;
    bmp.makeVariants = MakeBmpVariants;
    bmp.makeWriters = MakeBmpWriters;
    return bmp;
}

}  // namespace codectest
