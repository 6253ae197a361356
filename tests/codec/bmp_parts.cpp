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

}  // namespace codectest
