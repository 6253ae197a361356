#pragma once
/// @file
/// The run lengths of BMP: rows of 8 or 4 bits a pixel as runs, literals, and jumps.
///
/// A line is a chain of codes of two bytes. A first byte other than 0 counts pixels that all have the value of the
/// second one; with 4 bits, its two halves in turn. After a 0 the second byte is an escape: 0 ends the line, 1 the
/// picture, 2 jumps right and down by the two bytes that follow, and anything else counts pixels that stand in the
/// bytes that follow, filled to an even number.

#include "orvik/basearray.h"
#include "orvik/errortypes.h"

namespace orvik::bmp {

class RunDecoder {
public:
    /// @param input    all of the compressed bytes; must outlive the decoder
    /// @param nibbles  two pixels a byte, the high half first
    RunDecoder(Block<const std::byte> input, bool nibbles) : _input(input), _nibbles(nibbles) {}

    /// Decodes one line into a row of zeros, as far as the row is long. What does not fit is dropped; of literals that
    /// do not fit the rest of the bytes stays and is read as codes.
    /// @param isLast  this is the row at which the picture may end
    /// @return number of lines below this one that were jumped over
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
    uint16_t _x = 0;  ///< pixel of the line; begins anew after 65535
};

}  // namespace orvik::bmp
