#pragma once
/// @file
/// What the libFuzzer targets and the short run of the test suite share.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace orvik {

/// Loads the bytes with the importer of a format (by suffix; empty for whichever claims them) and reads all pixels.
/// @return true when there was a picture
bool FuzzImport(const uint8_t* data, size_t size, std::string_view format);

/// Restores what a damaged file of the format must have for the damage to reach the decoder, for instance check sums.
/// Nothing for most formats.
void MendDamage(std::string_view format, std::vector<uint8_t>& bytes);

}  // namespace orvik
