#include "hdr_parts.h"

#include <cmath>
#include <cstdio>

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

HdrPicture DecodeHdrSlowly(const Bytes& file) {
    const std::string text(file.begin(), file.end());
    HdrPicture picture;
    const size_t line = text.find("\n\n");
    int height = 0, width = 0;
    char letters[4];
    if (line == std::string::npos || text.find("FORMAT=32-bit_rle_rgbe") > line ||
        std::sscanf(text.c_str() + line + 2, "%c%c %d %c%c %d", letters, letters + 1, &height, letters + 2, letters + 3,
                    &width) != 6)
        return picture;
    size_t at = text.find('\n', line + 2) + 1;
    const auto next = [&]() -> uint8_t {
        const size_t position = at++;
        return position < file.size() ? file[position] : uint8_t(0);
    };
    Bytes rgbe(size_t(width) * size_t(height) * 4);
    const bool inRuns = at + 2 < file.size() && file[at] == 2 && file[at + 1] == 2 && file[at + 2] < 128;
    for (size_t y = 0; y < size_t(height); ++y) {
        uint8_t* const row = rgbe.data() + y * size_t(width) * 4;
        if (!inRuns) {
            for (size_t i = 0; i < size_t(width) * 4; ++i)
                row[i] = next();
            continue;
        }
        at += 4;
        for (size_t plane = 0; plane < 4; ++plane) {
            for (size_t x = 0; x < size_t(width);) {
                const uint8_t code = next();
                const bool isRun = code > 128;
                uint8_t value = isRun ? next() : 0;
                for (int i = isRun ? code - 128 : code; i > 0 && x < size_t(width); --i, ++x)
                    row[4 * x + plane] = isRun ? value : next();
                if (code == 0)
                    return picture;
            }
        }
    }
    if (at > file.size())
        return picture;
    picture.width = width;
    picture.height = height;
    picture.rgbe = std::move(rgbe);
    return picture;
}

}  // namespace codectest
