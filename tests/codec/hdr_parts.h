#pragma once
/// @file
/// Radiance HDR files put together by hand.

#include "codec_support.h"

namespace codectest {

/// A header with these words as its resolution line.
std::string HdrHeaderText(const std::string& resolution);
inline std::string HdrHeaderText(Int width, Int height) {
    return HdrHeaderText("-Y " + std::to_string(height) + " +X " + std::to_string(width));
}
Bytes HdrFile(const std::string& header, const Bytes& pixels);

/// A row in runs as others write it: everything as literals or runs at random.
/// @param rgbe  four bytes a pixel
Bytes PackHdrRow(const Bytes& rgbe, Noise& noise);

struct HdrPicture {
    Int width = 0, height = 0;
    Bytes rgbe;
    /// What a program gives that takes a mantissa as it is: m * 2^(e - 136).
    std::vector<float> ToFloats() const;
};

}  // namespace codectest
