// PNG, as the tests of all formats see it.

#include <zlib.h>

#include "parts.h"
#include "png_direct.h"

namespace codectest {
namespace {

std::vector<Sample> MakePngSamples() {
    Noise noise(8);
    std::vector<Sample> samples;
    const auto add = [&](const char* name, PngPicture picture) {
        picture.rows = noise.Make(picture.RowBytes() * picture.height);
        samples.push_back({name, "png", WritePng(picture)});
    };
    add("png rgb 8", {.width = 4, .height = 3, .colorType = 2, .bitDepth = 8});
    add("png rgba 16 interlaced", {.width = 5, .height = 4, .colorType = 6, .bitDepth = 16, .interlaced = true});
    add("png grey 16", {.width = 3, .height = 2, .colorType = 0, .bitDepth = 16});
    add("png grey and alpha 8", {.width = 3, .height = 2, .colorType = 4, .bitDepth = 8});
    add("png rgb 16 with a colour key",
        {.width = 2, .height = 2, .colorType = 2, .bitDepth = 16, .hasKey = true, .key = {0, 1, 2, 3, 0}});
    for (const int depth : {1, 2, 4, 8}) {
        PngPicture picture{.width = 11, .height = 3, .colorType = 3, .bitDepth = depth, .interlaced = depth == 2};
        picture.palette.assign(size_t(1) << depth, png_color{1, 2, 3});
        if (depth > 2)
            picture.alphas = {9};
        add(("png palette " + std::to_string(depth)).c_str(), picture);
    }
    add("png grey 2 with a colour key",
        {.width = 11, .height = 3, .colorType = 0, .bitDepth = 2, .hasKey = true, .key = {0, 0, 0, 0, 1}});
    add("png with a resolution",
        {.width = 1, .height = 2, .colorType = 2, .bitDepth = 8, .xPerMetre = 2835, .yPerMetre = 5669});
    add("png with a profile",
        {.width = 1, .height = 2, .profileName = "p", .profile = ProfileBytes(colorprofiles::kSrgb)});
    add("png grey 8 with a colour key",
        {.width = 4, .height = 2, .colorType = 0, .bitDepth = 8, .hasKey = true, .key = {0, 0, 0, 0, 9}});
    return samples;
}

/// Gives every chunk the check sum of its content, so that damage reaches the code behind the check.
void FixChecksums(Bytes& png) {
    for (size_t at = 8; at + 12 <= png.size();) {
        const size_t length = size_t(png[at]) << 24 | png[at + 1] << 16 | png[at + 2] << 8 | png[at + 3];
        if (length > png.size() - at - 12)
            return;
        Put32(png, at + 8 + length, uint32_t(crc32(0, png.data() + at + 4, uInt(length + 4))), true);
        at += length + 12;
    }
}

/// Headers of huge sides over the data of one pixel.
std::vector<Sample> MakePngBombs() {
    std::vector<Sample> bombs;
    for (const uint32_t side : {0xFFFFFFFFu, 0x7FFFFFFFu, 1000000u, 900000u}) {
        for (const int colorType : {0, 2, 3, 6}) {
            Bytes png = WritePng({.width = 1, .height = 1, .rows = {1, 2, 3}});
            Put32(png, 16, side, true);
            Put32(png, 20, side == 0xFFFFFFFF ? 1 : side, true);
            png[25] = uint8_t(colorType);
            png[28] = uint8_t(side & 1);  // interlaced or not
            FixChecksums(png);
            bombs.push_back({testing::PrintToString(side), "png", png});
        }
    }
    return bombs;
}

std::vector<ExportVariant> MakePngVariants() {
    return {MakeVariant("plain", mediaexport::kPngInterlaced, false),
            MakeVariant("interlaced", mediaexport::kPngInterlaced, true)};
}

std::vector<ForeignWriter> MakePngWriters() {
    return {
        MagickWriter("PNG32"),
        MagickWriter("-interlace PNG PNG32"),
        MagickWriter("PNG64"),
        MagickWriter("-alpha off PNG24", Opaque),
        MagickWriter("-alpha off PNG8", SixtyFourColors),
        MagickWriter("-alpha off -interlace PNG PNG8", SixteenColors),
        PillowWriter("Pillow, with alpha", "RGBA", "PNG"),
        PillowWriter("Pillow, without alpha", "RGB", "PNG", Opaque),
        PillowWriter("Pillow, grey", "L", "PNG", Grey),
        PillowWriter("Pillow, one bit", "1", "PNG", BlackAndWhite),
        PillowWriter("Pillow, palette", "P", "PNG", BlackAndWhite),
        PpmWriter("pnmtopng", "", Opaque),
        PpmWriter("pnmtopng", "-interlace", Opaque),
        PpmWriter("pnmtopng", "", SixteenColors),
        PpmWriter("pnmtopng", "", SixteenGreys),
        PpmWriter("pnmtopng", "-interlace", SixteenGreys),
        PpmWriter("pnmtopng", "", BlackAndWhite),
    };
}

}  // namespace

TestedFormat TestedPng() {
    TestedFormat png{"png", MakePngSamples};
    // All rows can be there when the last chunks or the check sums of the data are not.
    png.mostPicturesOfCutFiles = 24;
    png.mendDamage = FixChecksums;
    png.makeBombs = MakePngBombs;
    png.detectBytes = 8;
    png.analyzesAgain = false;
    png.announcesLate = true;
    png.secondInputError = "functionnotimplemented";
    png.largestSide = 0x7FFFFFFF;
    png.differences = {
        {"png/image-png/basn0g16.png", "16 bits become 8 by a shift here, by rounding elsewhere"},
        {"png/image-png/oi4n0g16.png", "16 bits become 8 by a shift here, by rounding elsewhere"},
        {"png/image-rs/basi0g16.png", "16 bits become 8 by a shift here, by rounding elsewhere"},
        {"png/image-png/x_interlaced_chck.png", "wrong check sum of the pixel data"},
    };
    png.fewestCompared = 90;
    png.fewestRefused = 5;
    png.makeVariants = MakePngVariants;
    png.makeWriters = MakePngWriters;
    return png;
}

}  // namespace codectest
