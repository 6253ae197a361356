// Radiance HDR, as the tests of all formats see it.

#include <cmath>

#include "parts.h"

namespace codectest {
namespace {

Bytes MakeRows(Int width, Int height, Noise& noise) {
    Bytes rows;
    for (Int y = 0; y < height; ++y) {
        Bytes pixels = noise.Make(size_t(width) * 4);
        for (uint8_t& byte : pixels)
            byte = std::max(byte, uint8_t(100));
        rows = Joined({rows, PackHdrRow(pixels, noise)});
    }
    return rows;
}

std::vector<Sample> MakeHdrSamples() {
    Noise noise(13);
    return {
        {"hdr in runs", "hdr", HdrFile(HdrHeaderText(9, 3), MakeRows(9, 3, noise))},
        {"hdr with flat rows", "hdr", HdrFile(HdrHeaderText(3, 2), noise.Make(24))},
    };
}

/// Some sixty bytes that ask for gigabytes.
std::vector<Sample> MakeHdrBombs() {
    std::vector<Sample> bombs;
    for (const Int height : {2147483647, 32767, 32768, 40000}) {
        for (const Int width : {2147483647, 32767, 100000}) {
            for (const uint8_t first : Bytes{2, 9})
                bombs.push_back({std::to_string(height), "hdr",
                                 HdrFile(HdrHeaderText(width, height), {first, 2, 0x7F, 0xFF, 0xFF, 1, 0xFF, 1})});
        }
    }
    return bombs;
}

/// What the peer of the corpus gives: mantissas as they are, without the half step, cut off at 1.
Bytes PeersRgba(const ImageTextureRef& texture) {
    const ImageBaseRef image = FirstImage(texture);
    HdrPicture picture{image->GetWidth(), image->GetHeight(), PixelsOf(image, "net.orvik.image.pixelformat.rgb.rgbe")};
    Bytes rgba;
    for (const float value : picture.ToFloats()) {
        rgba.push_back(uint8_t(std::min(value, 1.0f) * 255 + 0.5f));
        if (rgba.size() % 4 == 3)
            rgba.push_back(255);
    }
    return rgba;
}

}  // namespace

TestedFormat TestedHdr() {
    TestedFormat hdr{"hdr", MakeHdrSamples};
    hdr.makeBombs = MakeHdrBombs;
    hdr.detectBytes = 2;
    hdr.largestSide = 0x7FFFFFFF;
    hdr.peersRgba = PeersRgba;
    hdr.differences = {
        {"hdr/directxtextest/asan-b8cff6a1-c5fb-4627-a8b1-e8213055d119.hdr", "ends before its rows do"},
    };
    hdr.fewestCompared = 10;
    hdr.fewestRefused = 15;
    return hdr;
}

}  // namespace codectest
