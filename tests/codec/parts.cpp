#include "parts.h"

#include <cmath>
#include <cstring>

namespace codectest {

Bytes BytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes Rgba(std::initializer_list<uint32_t> pixels) {
    Bytes bytes;
    for (const uint32_t pixel : pixels)
        bytes.insert(bytes.end(), {uint8_t(pixel >> 24), uint8_t(pixel >> 16), uint8_t(pixel >> 8), uint8_t(pixel)});
    return bytes;
}

ColorProfile ProfileOf(const ImageTextureRef& texture) {
    return FirstImage(texture)->Get(image::kColorProfile, ColorProfile());
}

std::vector<float> FloatsOf(const ImageBaseRef& image) {
    const Bytes pixels = PixelsOf(image, pixelformats::kRgbF32);
    std::vector<float> floats(pixels.size() / sizeof(float));
    std::memcpy(floats.data(), pixels.data(), pixels.size());
    return floats;
}

void ExpectResolution(const Bytes& file, Float dpi, Float aspectRatio, Float tolerance) {
    const ImageBaseRef image = FirstImage(Loaded(file));
    EXPECT_EQ(image->Has(image::kDpi.GetId()), dpi != 0);
    EXPECT_NEAR(image->Get(image::kDpi, 0), dpi, tolerance);
    EXPECT_EQ(image->Has(image::kAspectRatio.GetId()), aspectRatio != 0);
    EXPECT_NEAR(image->Get(image::kAspectRatio, 0), aspectRatio, tolerance);
}

namespace {

const std::string kMagick = "convert-im6.q16 -size %Wx%H -depth 8 rgba:%I ";

struct Field {
    uint64_t value;
    int bytes;
};

void Append(Bytes& bytes, std::initializer_list<Field> fields) {
    for (const Field& field : fields) {
        for (int i = 0; i < field.bytes; ++i)
            bytes.push_back(uint8_t(field.value >> (8 * i)));
    }
}

}  // namespace

ForeignWriter MagickWriter(const char* arguments, Bytes (*keeps)(Bytes rgba), int tolerance) {
    return {arguments, {"convert-im6.q16"}, kMagick + arguments + ":%O", keeps, tolerance};
}

ForeignWriter PpmWriter(const char* tool, const char* arguments, Bytes (*keeps)(Bytes rgba)) {
    const std::string command = kMagick + "-alpha off ppm:- | " + tool + " " + arguments + " 2> /dev/null > %O";
    return {arguments, {"convert-im6.q16", tool}, command, keeps};
}

// --- BMP -------------------------------------------------------------------------------------------------------------

Bytes BmpParts::Make() const {
    const int sideBytes = headerSize == 12 ? 2 : 4;
    Bytes head;
    Append(head,
           {{headerSize, 4}, {uint32_t(width), sideBytes}, {uint32_t(height), sideBytes}, {planes, 2}, {bitCount, 2}});
    if (headerSize != 12)
        Append(head, {{compression, 4},
                      {rows.size(), 4},
                      {uint32_t(xPerMetre), 4},
                      {uint32_t(yPerMetre), 4},
                      {colorsUsed, 4},
                      {0, 4}});
    if (headerSize >= 56 || (headerSize == 40 && compression == 3))
        Append(head, {{red, 4}, {green, 4}, {blue, 4}});
    if (headerSize >= 56)
        Append(head, {{alpha, 4}});
    if (headerSize >= 108) {
        Append(head, {{space, 4}});
        head.resize(head.size() + 36 + 12);
    }
    if (headerSize >= 124)
        Append(head, {{4, 4}, {headerSize + palette.size(), 4}, {profile.size(), 4}, {0, 4}});
    head.resize(std::max(head.size(), size_t(headerSize)));
    const size_t rowsAt = 14 + head.size() + palette.size() + profile.size();
    Bytes file = {'B', 'M'};
    Append(file, {{rowsAt + rows.size(), 4}, {0, 4}, {rowsAt, 4}});
    return Joined({file, head, palette, profile, rows});
}

BmpParts Masked(int bits, uint32_t headerSize, std::array<uint32_t, 4> rgbaMasks, Bytes rows) {
    BmpParts parts{.headerSize = headerSize, .bitCount = uint16_t(bits), .compression = 3};
    if (bits == 16)
        parts.width = 3, parts.height = 1;
    parts.red = rgbaMasks[0], parts.green = rgbaMasks[1], parts.blue = rgbaMasks[2], parts.alpha = rgbaMasks[3];
    parts.rows = std::move(rows);
    return parts;
}

BmpParts Indexed(int bits, int width, int height, Bytes palette, Bytes rows, uint32_t headerSize) {
    BmpParts parts{.headerSize = headerSize, .width = width, .height = height, .bitCount = uint16_t(bits)};
    parts.colorsUsed = uint32_t(palette.size() / 4);
    parts.palette = std::move(palette);
    parts.rows = std::move(rows);
    return parts;
}

BmpParts Runs(int bits, int width, int height, Bytes data) {
    Bytes palette;
    for (int i = 0; i < 16; ++i)
        palette.insert(palette.end(), {0, 0, uint8_t(10 * i), 0});
    BmpParts parts = Indexed(bits, width, height, std::move(palette), std::move(data));
    parts.compression = bits == 8 ? 1 : 2;
    return parts;
}

// --- Radiance HDR ----------------------------------------------------------------------------------------------------

std::string HdrHeaderText(const std::string& resolution) {
    return "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n" + resolution + "\n";
}

Bytes PackHdrRow(const Bytes& rgbe, Noise& noise) {
    const size_t width = rgbe.size() / 4;
    Bytes row = {2, 2, uint8_t(width >> 8), uint8_t(width)};
    for (size_t plane = 0; plane < 4; ++plane) {
        Bytes values;
        for (size_t i = plane; i < rgbe.size(); i += 4)
            values.push_back(rgbe[i]);
        row = Joined({row, PackInRuns(values, 1, noise, 1)});
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

// --- TGA -------------------------------------------------------------------------------------------------------------
namespace {

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
    Bytes head = {uint8_t(id.size()), mapType, imageType};
    constexpr uint32_t kOrigin = 0x04030201;  // says nothing
    Append(head, {{mapFirst, 2}, {mapLength, 2}, {mapBits, 1}, {kOrigin, 4}, {width, 2}, {height, 2}, {depth, 1}});
    head.push_back(descriptor);
    return Joined({head, id, map, pixels});
}

TgaParts Mapped(uint8_t depth, uint8_t mapBits, uint16_t first, uint16_t length, Bytes map, Bytes pixels) {
    TgaParts parts{.mapType = 1, .imageType = 1, .mapFirst = first, .mapLength = length, .mapBits = mapBits};
    parts.depth = depth;
    parts.map = std::move(map);
    parts.pixels = std::move(pixels);
    return parts;
}

Bytes PackInRuns(const Bytes& pixels, size_t pixelBytes, Noise& noise, size_t lowest) {
    Bytes packed;
    const size_t total = pixels.size() / pixelBytes;
    const auto at = [&](size_t i) { return pixels.begin() + long(i * pixelBytes); };
    for (size_t i = 0; i < total;) {
        size_t equal = 1;
        while (i + equal < total && std::equal(at(i), at(i + 1), at(i + equal)))
            ++equal;
        const bool asRun = noise.Next() % 4 < (equal > 1 ? 3 : 1);
        const size_t count = 1 + noise.Next() % std::min(128 - (asRun ? lowest : 0), asRun ? equal : total - i);
        packed.push_back(uint8_t(count - 1 + lowest + (asRun ? 128 : 0)));
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
