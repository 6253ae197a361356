#include "bmp_parts.h"

namespace codectest {
namespace {

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
    head.insert(head.end(), palette.begin(), palette.end());
    head.insert(head.end(), profile.begin(), profile.end());

    const size_t rowsAt = 14 + head.size();
    Bytes file = {'B', 'M'};
    Append(file, {{rowsAt + rows.size(), 4}, {0, 4}, {rowsAt, 4}});
    file.insert(file.end(), head.begin(), head.end());
    file.insert(file.end(), rows.begin(), rows.end());
    return file;
}

BmpParts Masked32(uint32_t headerSize, uint32_t red, uint32_t green, uint32_t blue, uint32_t alpha, Bytes rows) {
    BmpParts parts{.headerSize = headerSize, .bitCount = 32, .compression = 3};
    parts.red = red, parts.green = green, parts.blue = blue, parts.alpha = alpha;
    parts.rows = std::move(rows);
    return parts;
}

BmpParts Masked16(uint32_t headerSize, uint32_t red, uint32_t green, uint32_t blue, uint32_t alpha, Bytes rows) {
    BmpParts parts = Masked32(headerSize, red, green, blue, alpha, std::move(rows));
    parts.width = 3, parts.height = 1;
    parts.bitCount = 16;
    return parts;
}

BmpParts Indexed(int bits, int width, int height, Bytes palette, Bytes rows, uint32_t headerSize) {
    BmpParts parts{.headerSize = headerSize, .width = width, .height = height, .bitCount = uint16_t(bits)};
    parts.colorsUsed = uint32_t(palette.size() / 4);
    parts.palette = std::move(palette);
    parts.rows = std::move(rows);
    return parts;
}

BmpParts Runs(int bits, int width, int height, Bytes palette, Bytes data) {
    BmpParts parts = Indexed(bits, width, height, std::move(palette), std::move(data));
    parts.compression = bits == 8 ? 1 : 2;
    return parts;
}

}  // namespace codectest
