#include "test_picture.h"

#include <cmath>

namespace bench {

std::vector<uint8_t> MakeTestPicture() {
    std::vector<uint8_t> pixels(kPixelBytes);
    uint32_t noise = 0x9e3779b9;
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* row = pixels.data() + kRowBytes * static_cast<size_t>(y);
        for (int x = 0; x < kWidth; ++x) {
            noise ^= noise << 13;
            noise ^= noise >> 17;
            noise ^= noise << 5;
            const int tileX = x / 256, tileY = y / 180;
            const bool flat = tileX % 2 == 1 && tileY % 2 == 1;
            const double wave = flat ? 0.5 : std::sin(x * 0.004) * std::cos(y * 0.006);
            const bool edge = (tileX ^ tileY) & 1;
            const double base = 120 + 80 * wave + (edge ? 30 : 0);
            const uint32_t grain = flat ? 0 : noise;
            row[x * 3] = static_cast<uint8_t>(base + (grain & 3));
            row[x * 3 + 1] = static_cast<uint8_t>(base * 0.8 + ((grain >> 8) & 3));
            row[x * 3 + 2] = static_cast<uint8_t>(255 - base + ((grain >> 16) & 3));
        }
    }
    return pixels;
}

const std::vector<uint8_t>& TestPicture() {
    static const std::vector<uint8_t> pixels = MakeTestPicture();
    return pixels;
}

const std::vector<float>& TestFloats() {
    static const std::vector<float> floats = [] {
        std::vector<float> made;
        made.reserve(kPixelBytes);
        for (const uint8_t value : TestPicture())
            made.push_back(static_cast<float>(value) * static_cast<float>(value) / 16384.0F);
        return made;
    }();
    return floats;
}

}  // namespace bench
