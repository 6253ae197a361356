#include "bmp_parts.h"

namespace codectest {
namespace {

void Append(Bytes& bytes, uint64_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(uint8_t(value >> (8 * i)));
}

}  // namespace

Bytes BmpParts::Make() const {
    Bytes head;
    Append(head, headerSize, 4);
    if (headerSize == 12) {
        Append(head, uint32_t(width), 2);
        Append(head, uint32_t(height), 2);
        Append(head, planes, 2);
        Append(head, bitCount, 2);
    } else {
        Append(head, uint32_t(width), 4);
        Append(head, uint32_t(height), 4);
        Append(head, planes, 2);
        Append(head, bitCount, 2);
        Append(head, compression, 4);
        Append(head, rows.size(), 4);
        Append(head, uint32_t(xPerMetre), 4);
        Append(head, uint32_t(yPerMetre), 4);
        Append(head, colorsUsed, 4);
        Append(head, 0, 4);
    }
    if (headerSize >= 56 || (headerSize == 40 && compression == 3)) {
        Append(head, red, 4);
        Append(head, green, 4);
        Append(head, blue, 4);
    }
    if (headerSize >= 56)
        Append(head, alpha, 4);
    if (headerSize >= 108) {
        Append(head, space, 4);
        head.resize(head.size() + 36 + 12);
    }
    if (headerSize >= 124) {
        Append(head, 4, 4);
        Append(head, headerSize + palette.size(), 4);
        Append(head, profile.size(), 4);
        Append(head, 0, 4);
    }
    head.resize(std::max(head.size(), size_t(headerSize)));
    head.insert(head.end(), palette.begin(), palette.end());
    head.insert(head.end(), profile.begin(), profile.end());

    Bytes file = {'B', 'M'};
    Append(file, 14 + head.size() + rows.size(), 4);
    Append(file, 0, 4);
    Append(file, 14 + head.size(), 4);
    file.insert(file.end(), head.begin(), head.end());
    file.insert(file.end(), rows.begin(), rows.end());
    return file;
}

}  // namespace codectest
