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

/// Gives every chunk of a PNG the check sum of its content, so that damage reaches the code behind the check.
void FixChecksums(std::vector<uint8_t>& png);

}  // namespace orvik
