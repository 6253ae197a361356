// BMP, as the tests of all formats see it.

#include "parts.h"
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
    BmpParts withProfile{.headerSize = 124, .space = 0x4D424544, .rows = noise.Make(16)};
    withProfile.profile = ProfileBytes(colorprofiles::kSrgb);
    add("bmp with a profile", withProfile);
    BmpParts topDown = Masked(32, 108, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}, noise.Make(24));
    topDown.height = -3;
    add("bmp of 32 bits with masks", topDown);
    add("bmp of 16 bits", {.width = 3, .height = 2, .bitCount = 16, .rows = noise.Make(16)});
    BmpParts twoRows = Masked(16, 40, {0xF800, 0x7E0, 0x1F, 0}, noise.Make(16));
    twoRows.height = 2;
    add("bmp of 16 bits with masks", twoRows);
    for (const int bits : {1, 2, 4, 8})
        add(("bmp of " + std::to_string(bits) + " bits").c_str(),
            Indexed(bits, 9, 2, noise.Make(8), noise.Make(2 * size_t((9 * bits + 31) / 32 * 4))));
    add("bmp of 4 bits with a core header", Indexed(4, 3, 2, noise.Make(48), noise.Make(8), 12));
    add("bmp of runs of 8 bits",
        Runs(8, 5, 3, {2, 1, 0, 3, 0, 1, 2, 0, 0, 0, 1, 2, 0, 2, 2, 0, 2, 1, 0, 0, 5, 2, 0, 1}));
    add("bmp of runs of 4 bits", Runs(4, 7, 3, {3, 0x12, 0, 3, 0x12, 0x10, 0, 0, 1, 0x20, 0, 2, 2, 1, 7, 0x21, 0, 1}));
    return samples;
}

/// Some sixty bytes that ask for gigabytes.
std::vector<Sample> MakeBmpBombs() {
    std::vector<Sample> bombs;
    constexpr int kMost = INT32_MAX;
    for (const auto& [width, height] :
         {std::pair(kMost, 1), {1, kMost}, {kMost, kMost}, {kMost, INT32_MIN}, {65536, 65536}, {1 << 25, 2}}) {
        for (const int bits : {1, 4, 8, 16, 24, 32}) {
            for (const uint32_t compression : {0u, 1u, 2u}) {
                BmpParts parts = Indexed(bits, width, height, {}, {});
                parts.compression = compression;
                parts.colorsUsed = 0xFFFFFFFF;
                bombs.push_back({testing::PrintToString(width), "bmp", parts.Make()});
            }
        }
    }
    return bombs;
}

std::vector<ExportVariant> MakeBmpVariants() {
    std::vector<ExportVariant> variants;
    for (const char* generation : {"V3", "V4", "V5"})
        variants.push_back(MakeVariant(generation, mediaexport::kBmpInfoHeader, *Id::Create(generation)));
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
    const std::string graphics = "gm convert -size %Wx%H -depth 8 rgba:%I -type Palette BMP3:%O";
    return {
        MagickWriter("BMP"),
        MagickWriter("-alpha off BMP3", Opaque),
        MagickWriter("-alpha off BMP2", Opaque),
        MagickWriter("-alpha off -type Palette BMP3", SixtyFourColors),
        MagickWriter("-alpha off -type Palette -compress RLE BMP3", SixtyFourColors),
        MagickWriter("-alpha off -compress RLE BMP3", BlackAndWhite),
        MagickWriter("-alpha off -define bmp:subtype=RGB555 BMP", BlackAndWhite, kLowBits),
        MagickWriter("-alpha off -define bmp:subtype=RGB565 BMP", BlackAndWhite, kLowBits),
        {"GraphicsMagick, palette", {"gm"}, graphics, SixtyFourColors},
        {"GraphicsMagick, 16 colours", {"gm"}, graphics, SixteenColors},
        PillowWriter("Pillow, with alpha", "RGBA", "BMP"),
        PillowWriter("Pillow, without alpha", "RGB", "BMP", Opaque),
        PillowWriter("Pillow, grey", "L", "BMP", GreyIsTransparency),
        PillowWriter("Pillow, one bit", "1", "BMP", BlackAndClear),
        PpmWriter("ppmtobmp", "-bpp=24", Opaque),
        PpmWriter("ppmtobmp", "-bpp=8", SixtyFourColors),
        PpmWriter("ppmtobmp", "-bpp=4", SixteenColors),
        PpmWriter("ppmtobmp", "-bpp=1", BlackAndWhite),
        PpmWriter("ppmtobmp", "-os2 -bpp=8", SixtyFourColors),
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
    bmp.largestSide = 32000;
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
