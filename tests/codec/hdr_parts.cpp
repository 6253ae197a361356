#include "hdr_parts.h"

#include <cmath>

namespace codectest {

std::string HdrHeaderText(const std::string& resolution) {
    return "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n" + resolution + "\n";
}

Bytes HdrFile(const std::string& header, const Bytes& pixels) {
    Bytes file(header.begin(), header.end());
    file.insert(file.end(), pixels.begin(), pixels.end());
    return file;
}

Bytes PackHdrRow(const Bytes& rgbe, Noise& noise) {
    const size_t width = rgbe.size() / 4;
    Bytes row = {2, 2, uint8_t(width >> 8), uint8_t(width)};
    for (size_t plane = 0; plane < 4; ++plane) {
        const auto at = [&](size_t x) { return rgbe[4 * x + plane]; };
        for (size_t x = 0; x < width;) {
            size_t equal = 1;
            while (x + equal < width && at(x + equal) == at(x))
                ++equal;
            const bool asRun = noise.Next() % 3 == 0;
            const size_t count =
                1 + noise.Next() % (asRun ? std::min(equal, size_t(127)) : std::min(width - x, size_t(128)));
            row.push_back(uint8_t(count + (asRun ? 128 : 0)));
            for (size_t i = 0; i < (asRun ? 1 : count); ++i)
                row.push_back(at(x + i));
            x += count;
        }
    }
    return row;
}

std::vector<float> HdrPicture::ToFloats() const {
    std::vector<float> floats;
    for (size_t i = 0; i < rgbe.size(); i += 4) {
        for (size_t c = 0; c < 3; ++c)
            floats.push_back(rgbe[i + 3] == 0 ? 0.0f : float(std::ldexp(rgbe[i + c], rgbe[i + 3] - 136)));
    }
    return floats;
}

}  // namespace codectest
