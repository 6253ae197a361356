#include "imexport/bmp/media_io_bmp_runs.h"

#include <algorithm>
#include <cstring>

#include "orvik/mediasession_base.h"

namespace orvik::bmp {
namespace {

Error CroppedData() { return MediaSessionWrongTypeError("Illegal RLE compression (cropped data)."); }

/// Meaning of the second byte after a 0.
enum Escape : uint8_t { kEndOfLine = 0, kEndOfBitmap = 1, kDelta = 2 };

}  // namespace

Result<uint8_t> RunDecoder::ReadByte() {
    if (!HasByte())
        return CroppedData();
    return uint8_t(_input[_next++]);
}

Result<Int> RunDecoder::DecodeLine(Block<std::byte> row, bool isLast) {
    _x = 0;
    while (true) {
        const uint8_t count = TRY(ReadByte());
        if (count != 0) {
            const uint8_t value = TRY(ReadByte());
            if (WriteRun(row, count, value) == Line::Ends)
                return Int(0);
            continue;
        }
        if (!HasByte() && !_nibbles)
            return Int(0);  // the last line may lack its end code
        const uint8_t escape = TRY(ReadByte());
        switch (escape) {
            case kEndOfLine:
                return Int(0);
            case kEndOfBitmap:
                if (!isLast)
                    return MediaSessionWrongTypeError("Illegal RLE compression (missing data).");
                return Int(0);
            case kDelta: {
                const uint8_t right = TRY(ReadByte()), down = TRY(ReadByte());
                _x = uint16_t(_x + right);
                if (down != 0)
                    return Int(down) - 1;
                break;
            }
            default:
                if (TRY(ReadLiterals(row, escape)) == Line::Ends)
                    return Int(0);
        }
    }
}

RunDecoder::Line RunDecoder::WriteRun(Block<std::byte> row, uint8_t count, uint8_t value) {
    for (Int left = count; left > 0;) {
        if (IsBeyond(row))
            return Line::Ends;
        if (_nibbles) {
            // The first pixel takes the high nibble, also at odd x.
            PutNibble(row, (count - left) % 2 == 0 ? value >> 4 : value & 15);
            --left;
        } else {
            const Int fitting = std::min({left, Int(row.size()) - _x, Int(0x10000) - _x});
            std::memset(row.data() + _x, value, size_t(fitting));
            _x = uint16_t(_x + fitting);
            left -= fitting;
        }
    }
    return Line::Goes;
}

Result<RunDecoder::Line> RunDecoder::ReadLiterals(Block<std::byte> row, uint8_t count) {
    const Line line = TRY(_nibbles ? ReadLiteralNibbles(row, count) : ReadLiteralBytes(row, count));
    const int bytes = _nibbles ? (count + 1) / 2 : count;
    if (bytes % 2 != 0 && HasByte())
        ++_next;
    return line;
}

Result<RunDecoder::Line> RunDecoder::ReadLiteralBytes(Block<std::byte> row, uint8_t count) {
    for (Int left = count; left > 0;) {
        if (IsBeyond(row))
            return Line::Ends;
        const Int fitting = std::min({left, Int(row.size()) - _x, Int(0x10000) - _x});
        const Int there = std::min(fitting, Int(_input.size() - _next));
        std::memcpy(row.data() + _x, _input.data() + _next, size_t(there));
        _next += size_t(there);
        _x = uint16_t(_x + there);
        left -= there;
        if (there < fitting)
            return CroppedData();
    }
    return Line::Goes;
}

Result<RunDecoder::Line> RunDecoder::ReadLiteralNibbles(Block<std::byte> row, uint8_t count) {
    uint8_t pair = 0;
    for (int i = 0; i < count; ++i) {
        if (IsBeyond(row))
            return Line::Ends;
        if (i % 2 == 0)
            pair = TRY(ReadByte());
        PutNibble(row, i % 2 == 0 ? pair >> 4 : pair & 15);
    }
    return Line::Goes;
}

void RunDecoder::PutNibble(Block<std::byte> row, uint8_t nibble) {
    std::byte& pair = row[_x / 2u];
    const bool isHigh = _x % 2 == 0;
    pair = isHigh ? std::byte(nibble << 4) | (pair & std::byte(15)) : std::byte(nibble) | (pair & std::byte(0xF0));
    ++_x;
}

}  // namespace orvik::bmp
