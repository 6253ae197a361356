// TGA, as the tests of all formats see it.

#include "parts.h"
#include "tool_support.h"

namespace codectest {
namespace {

std::vector<Sample> MakeTgaSamples() {
    Noise noise(9);
    std::vector<Sample> samples;
    const auto add = [&](const char* name, const TgaParts& parts) { samples.push_back({name, "tga", parts.Make()}); };
    add("tga of 24 bits", {.width = 3, .height = 3, .pixels = noise.Make(27)});
    const Bytes packets = {0x85, 1, 2, 3, 4, 2, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 0x80, 9, 9, 9, 9};
    add("tga of 32 bits in runs",
        {.imageType = 10, .width = 5, .height = 2, .depth = 32, .descriptor = 0x28, .pixels = packets});
    add("tga of 16 bits from right to left",
        {.width = 4, .height = 3, .depth = 16, .descriptor = 0x10, .pixels = noise.Make(24)});
    TgaParts inRuns = Mapped(8, 24, 2, 3, noise.Make(9), {0x83, 3, 3, 2, 3, 4, 5});
    inRuns.imageType = 9, inRuns.width = 4, inRuns.id = {1, 2};
    add("tga with a map in runs", inRuns);
    TgaParts wide = Mapped(16, 15, 0, 2, noise.Make(4), {0, 0, 1, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 0, 1, 0});
    wide.width = 4;
    add("tga of 16-bit indices", wide);
    add("tga in grey of 16 bits", {.imageType = 3, .width = 4, .height = 4, .depth = 16, .pixels = noise.Make(32)});
    return samples;
}

/// Some twenty bytes that ask for gigabytes.
std::vector<Sample> MakeTgaBombs() {
    std::vector<Sample> bombs;
    for (const uint16_t side : std::initializer_list<uint16_t>{0x7FFF, 0x1000}) {
        for (const uint8_t type : Bytes{1, 2, 3, 9, 10, 11}) {
            for (const uint8_t depth : Bytes{8, 16, 24, 32, 255}) {
                const uint16_t entries = side == 0x1000 ? 1 : 0xFFFF;
                TgaParts parts = Mapped(depth, 24, 0xFFFF, entries, {1, 2, 3}, {0xFF, 1, 2, 3, 4});
                parts.imageType = type, parts.width = parts.height = side, parts.descriptor = 0x10;
                bombs.push_back({testing::PrintToString(side), "tga", parts.Make()});
            }
        }
    }
    return bombs;
}

std::vector<ExportVariant> MakeTgaVariants() {
    return {{.name = "plain", .unreadable = {"ImageMagick"}}};  // it takes the bottom row for the top one
}

std::vector<ForeignWriter> MakeTgaWriters() {
    return {
        // What ImageMagick writes begins with the top row and claims the opposite.
        MagickWriter("-flip -compress None TGA"),
        MagickWriter("-flip -compress RLE TGA"),
        MagickWriter("-alpha off -flip -compress RLE TGA", Opaque),
        PpmWriter("ppmtotga", "-rgb -norle", Opaque),
        PpmWriter("ppmtotga", "-rgb", Opaque),
        PillowWriter("Pillow, with alpha", "RGBA", "TGA"),
        PillowWriter("Pillow, with alpha, in runs", "RGBA", "TGA compression=tga_rle"),
        PillowWriter("Pillow, without alpha, in runs", "RGB", "TGA compression=tga_rle", Opaque),
        PillowWriter("Pillow, grey", "L", "TGA", Grey),
        PillowWriter("Pillow, grey in runs", "L", "TGA compression=tga_rle", Grey),
    };
}

/// Where peers read a file differently, and the format allows both: a row from right to left goes on in the row before,
/// 5 bits are not widened by their upper bits, 16 bits of grey are one value, map entries of four bytes are alpha,
/// blue, green, red.
bool AgreesWithTheSlowDecoder(const std::string& path, const ImageTextureRef& texture) {
    const Bytes file = ReadFile(path);
    const uint8_t kind = file[2] & 7, mapBits = file[7], depth = file[16], descriptor = file[17];
    constexpr uint8_t kMapped = 1, kRightToLeft = 0x10;
    const int wordBits = kind == kMapped ? mapBits : depth;
    const bool mayDiffer =
        (descriptor & kRightToLeft) || wordBits == 15 || wordBits == 16 || (kind == kMapped && mapBits == 32);
    return mayDiffer && RgbaOf(texture) == DecodeTgaSlowly(file);
}

}  // namespace

TestedFormat TestedTga() {
    TestedFormat tga{"tga", MakeTgaSamples};
    tga.makeBombs = MakeTgaBombs;
    tga.detectBytes = 17;
    tga.largestSide = 32000;
    tga.agrees = AgreesWithTheSlowDecoder;
    tga.fewestCompared = 55;
    tga.fewestRefused = 10;
    tga.makeVariants = MakeTgaVariants;
    tga.makeWriters = MakeTgaWriters;
    return tga;
}

}  // namespace codectest
