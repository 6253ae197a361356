// BMP against a copy of the pixels.

#include "codec_cases.h"

namespace bench {
namespace {

void Append(std::vector<uint8_t>& bytes, uint32_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

/// Runs where a colour repeats, literals elsewhere; rows bottom-up.
std::vector<uint8_t> EncodeRuns(const std::vector<uint8_t>& indices) {
    constexpr int kLongest = 255, kShortestLiteral = 3;
    std::vector<uint8_t> out;
    for (int y = kHeight - 1; y >= 0; --y) {
        const uint8_t* row = indices.data() + static_cast<size_t>(y) * kWidth;
        const auto runAt = [row](int x) {
            int count = 1;
            while (x + count < kWidth && count < kLongest && row[x + count] == row[x])
                ++count;
            return count;
        };
        for (int x = 0; x < kWidth;) {
            int literals = 0;
            while (x + literals < kWidth && literals < kLongest && runAt(x + literals) < kShortestLiteral)
                ++literals;
            if (literals >= kShortestLiteral) {
                out.insert(out.end(), {0, static_cast<uint8_t>(literals)});
                out.insert(out.end(), row + x, row + x + literals);
                if (literals % 2)
                    out.push_back(0);
                x += literals;
            } else {
                const int count = runAt(x);
                out.insert(out.end(), {static_cast<uint8_t>(count), row[x]});
                x += count;
            }
        }
        out.insert(out.end(), {0, static_cast<uint8_t>(y > 0 ? 0 : 1)});  // end of the line or of the bitmap
    }
    return out;
}

/// The green channel of the picture as indices into 256 levels of grey.
std::vector<uint8_t> MakeRle8File() {
    const std::vector<uint8_t>& pixels = TestPicture();
    std::vector<uint8_t> indices(static_cast<size_t>(kWidth) * kHeight);
    for (size_t i = 0; i < indices.size(); ++i)
        indices[i] = pixels[3 * i + 1];
    const std::vector<uint8_t> runs = EncodeRuns(indices);
    constexpr uint32_t kHeaders = 14 + 40, kPalette = 256 * 4;
    std::vector<uint8_t> file = {'B', 'M'};
    Append(file, kHeaders + kPalette + static_cast<uint32_t>(runs.size()), 4);
    Append(file, 0, 4);
    Append(file, kHeaders + kPalette, 4);
    Append(file, 40, 4);
    Append(file, kWidth, 4);
    Append(file, kHeight, 4);
    Append(file, 1, 2);
    Append(file, 8, 2);
    Append(file, 1, 4);  // RLE8
    Append(file, static_cast<uint32_t>(runs.size()), 4);
    for (int i = 0; i < 4; ++i)
        Append(file, 0, 4);
    for (uint32_t level = 0; level < 256; ++level)
        Append(file, level * 0x010101, 4);
    file.insert(file.end(), runs.begin(), runs.end());
    return file;
}

}  // namespace

std::vector<CodecCase> MakeBmpCases() {
    CodecCase bmp{"bmp", orvik::Id("net.orvik.mediasession.bmp.export")};
    bmp.peerSuffix = "bmp";
    CodecCase runs{"bmp-rle8"};
    runs.makeFile = MakeRle8File;
    runs.peerSuffix = "bmp";
    return {bmp, runs};
}

}  // namespace bench
