// TGA against a copy of the pixels.

#include <algorithm>

#include "codec_cases.h"

namespace bench {
namespace {

/// Packets as most writers make them: runs where pixels repeat, literals elsewhere, none across rows.
std::vector<uint8_t> MakeRunsFile() {
    constexpr int kPixelBytes = 3, kLongest = 128;
    const std::vector<uint8_t>& pixels = TestPicture();
    std::vector<uint8_t> file = {0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (const int number : {kWidth & 255, kWidth >> 8, kHeight & 255, kHeight >> 8, 24, 0})
        file.push_back(static_cast<uint8_t>(number));
    for (int y = kHeight - 1; y >= 0; --y) {
        const uint8_t* row = pixels.data() + static_cast<size_t>(y) * kRowBytes;
        const auto repeats = [row](int x) {
            return x > 0 && std::equal(row + kPixelBytes * x, row + kPixelBytes * (x + 1), row + kPixelBytes * (x - 1));
        };
        const auto putPixel = [&](int x) {
            file.insert(file.end(), {row[kPixelBytes * x + 2], row[kPixelBytes * x + 1], row[kPixelBytes * x]});
        };
        for (int x = 0; x < kWidth;) {
            const bool isRun = x + 1 < kWidth && repeats(x + 1);
            int count = 1;
            while (x + count < kWidth && count < kLongest && repeats(x + count) == isRun)
                ++count;
            if (!isRun && x + count < kWidth && repeats(x + count))
                --count;  // the last pixel begins a run
            file.push_back(static_cast<uint8_t>(isRun ? 127 + count : count - 1));
            for (int i = 0; i < (isRun ? 1 : count); ++i)
                putPixel(x + i);
            x += count;
        }
    }
    return file;
}

}  // namespace

std::vector<CodecCase> MakeTgaCases() {
    CodecCase tga{"tga", orvik::Id("net.orvik.mediasession.tga.export")};
    tga.peerSuffix = "tga";
    tga.peerOptions = {{"compression", "none"}};
    CodecCase runs{"tga-rle"};
    runs.makeFile = MakeRunsFile;
    runs.filePixelBytes = 3;
    runs.peerSuffix = "tga";
    return {tga, runs};
}

}  // namespace bench
