#include "tga_parts.h"

namespace codectest {
namespace {

void Append16(Bytes& bytes, uint16_t value) {
    bytes.push_back(uint8_t(value));
    bytes.push_back(uint8_t(value >> 8));
}

struct Color {
    uint8_t r = 0, g = 0, b = 0, a = 255;
};

int Word(const uint8_t* at) { return at[0] | at[1] << 8; }

Color Unpack555(const uint8_t* at) {
    const int word = Word(at);
    return {uint8_t((word >> 10 & 31) * 8), uint8_t((word >> 5 & 31) * 8), uint8_t((word & 31) * 8)};
}

/// Entries of four bytes are alpha, blue, green, red.
Color UnpackEntry(const uint8_t* at, int bytes) {
    if (bytes == 2)
        return Unpack555(at);
    return bytes == 3 ? Color{at[2], at[1], at[0]} : Color{at[3], at[2], at[1], at[0]};
}

/// All pixels in file order; empty when the packets do not give exactly these.
Bytes Unpack(const uint8_t* at, const uint8_t* end, bool inRuns, size_t pixels, size_t size) {
    Bytes all;
    while (all.size() < pixels * size) {
        size_t count = pixels, repeat = 1;
        if (inRuns) {
            if (at == end)
                return {};
            count = size_t(*at & 127) + 1;
            if (*at++ & 128)
                std::swap(count, repeat);
        }
        if (size_t(end - at) < count * size || all.size() + count * repeat * size > pixels * size)
            return {};
        for (size_t i = 0; i < repeat; ++i)
            all.insert(all.end(), at, at + count * size);
        at += count * size;
    }
    return all;
}

}  // namespace

Bytes TgaParts::Make() const {
    Bytes file = {uint8_t(id.size()), mapType, imageType};
    Append16(file, mapFirst);
    Append16(file, mapLength);
    file.push_back(mapBits);
    file.insert(file.end(), {1, 2, 3, 4});  // an origin, which says nothing
    Append16(file, width);
    Append16(file, height);
    file.push_back(depth);
    file.push_back(descriptor);
    for (const Bytes& part : {id, map, pixels})
        file.insert(file.end(), part.begin(), part.end());
    if (footer) {
        const std::string_view text("\0\0\0\0\0\0\0\0TRUEVISION-XFILE.\0", 26);
        file.insert(file.end(), text.begin(), text.end());
    }
    return file;
}

Bytes PackInRuns(const Bytes& pixels, int pixelBytes, Noise& noise) {
    Bytes packed;
    const size_t size = size_t(pixelBytes), total = pixels.size() / size;
    const auto at = [&](size_t i) { return pixels.begin() + long(i * size); };
    for (size_t i = 0; i < total;) {
        size_t equal = 1;
        while (i + equal < total && std::equal(at(i), at(i + 1), at(i + equal)))
            ++equal;
        const bool asRun = equal > 1 && noise.Next() % 4 != 0;
        const size_t longest = std::min(size_t(128), asRun ? equal : total - i);
        const size_t count = 1 + noise.Next() % longest;
        packed.push_back(uint8_t((count - 1) | (asRun ? 128 : 0)));
        packed.insert(packed.end(), at(i), at(i + (asRun ? 1 : count)));
        i += count;
    }
    return packed;
}

Bytes DecodeTgaSlowly(const Bytes& file) {
    if (file.size() < 18)
        return {};
    const uint8_t* const head = file.data();
    const uint8_t* const end = head + file.size();
    const int kind = head[2] & ~8, first = Word(head + 3), length = Word(head + 5), entryBytes = (head[7] + 7) / 8;
    const long width = int16_t(Word(head + 12)), height = int16_t(Word(head + 14)), size = (head[16] + 7) / 8;
    const uint8_t* const map = head + 18 + head[0];
    const bool hasMap = head[1] != 0;
    const long mapBytes = hasMap ? long(length) * entryBytes : 0;
    const bool known = kind == 2 ? size >= 2 : (kind == 1 || kind == 3) && (size == 1 || size == 2);
    if (width < 1 || height < 1 || !known || end - map < mapBytes)
        return {};
    if (kind == 1 && (mapBytes == 0 || entryBytes < 2 || entryBytes > 4))
        return {};
    const Bytes pixels = Unpack(map + mapBytes, end, (head[2] & 8) != 0, size_t(width * height), size_t(size));
    if (pixels.empty())
        return {};

    Bytes rgba(size_t(width * height * 4));
    for (long y = 0; y < height; ++y) {
        const long row = head[17] & 0x20 ? y : height - 1 - y;
        for (long x = 0; x < width; ++x) {
            const long at = (row * width + (head[17] & 0x10 ? -x : x)) * size;
            Bytes pixel(size_t(size), 0);
            if (at >= 0)  // a row from right to left begins at its left end, and in front of the first one are zeros
                pixel.assign(pixels.begin() + at, pixels.begin() + at + size);
            Color color;
            if (kind == 1) {
                color.a = entryBytes == 4 ? 0 : 255;  // what no entry says is all zeros
                const int index = size == 1 ? pixel[0] : Word(pixel.data());
                if (index >= first && index < std::min(first + length, 256))
                    color = UnpackEntry(map + (index - first) * entryBytes, entryBytes);
            } else if (kind == 3) {
                color = {pixel.back(), pixel.back(), pixel.back()};  // the high byte of 16 bits
            } else {
                color = size == 2 ? Unpack555(pixel.data()) : Color{pixel[2], pixel[1], pixel[0]};
            }
            uint8_t* const to = rgba.data() + (y * width + x) * 4;
            to[0] = color.r, to[1] = color.g, to[2] = color.b, to[3] = size > 3 ? pixel[3] : color.a;
        }
    }
    return rgba;
}

}  // namespace codectest
