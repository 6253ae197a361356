#pragma once
/// @file
/// BMP run-length decoding: rows of 8 or 4 bits per pixel as runs, literals and jumps.
///
/// A line is a sequence of two-byte codes. A nonzero first byte counts pixels with the value of the second byte; with 4
/// bits, its two nibbles alternate. After a 0 the second byte is an escape: 0 ends the line, 1 the picture, 2 jumps
/// right and down by the next two bytes, and any other value counts the literal pixels that follow, padded to an even
/// number of bytes.

#include "orvik/basearray.h"
#include "orvik/errortypes.h"

namespace orvik::bmp {

class RunDecoder {
public:
    /// @param input    all of the compressed bytes; must outlive the decoder
    /// @param nibbles  two pixels per byte, high nibble first
    RunDecoder(Block<const std::byte> input, bool nibbles) : _input(input), _nibbles(nibbles) {}

    /// Decodes one line into a zeroed row. Pixels past its end are dropped; the remaining bytes of literals that do not
    /// fit are read as codes.
    /// @param isLast  true for the row at which the picture may end
    /// @return number of lines below this one that a jump skipped
    /// Errors, as a wrong type: "Illegal RLE compression (cropped data).", "Illegal RLE compression (missing data).".
    Result<Int> DecodeLine(Block<std::byte> row, bool isLast);

private:
    enum class Line : uint8_t { Goes, Ends };

    bool HasByte() const { return _next < _input.size(); }
    Result<uint8_t> ReadByte();
    Line WriteRun(Block<std::byte> row, uint8_t count, uint8_t value);
    Result<Line> ReadLiterals(Block<std::byte> row, uint8_t count);
    Result<Line> ReadLiteralBytes(Block<std::byte> row, uint8_t count);
    Result<Line> ReadLiteralNibbles(Block<std::byte> row, uint8_t count);
    void PutNibble(Block<std::byte> row, uint8_t nibble);
    bool IsBeyond(Block<std::byte> row) const { return (_nibbles ? _x / 2u : _x) >= row.size(); }

    Block<const std::byte> _input;
    bool _nibbles;
    size_t _next = 0;
    uint16_t _x = 0;  ///< pixel in the line; wraps after 65535
};

}  // namespace orvik::bmp
