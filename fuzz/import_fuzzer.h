#pragma once
/// @file
/// Shared by the libFuzzer targets and the short run of the test suite.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace orvik {

/// Loads the bytes with the importer of a format (by suffix; empty for detection) and reads all pixels.
/// @return true when there was a picture
bool FuzzImport(const uint8_t* data, size_t size, std::string_view format);

/// Repairs what would keep the damage from reaching the decoder, such as check sums. Most formats need nothing.
void MendDamage(std::string_view format, std::vector<uint8_t>& bytes);

}  // namespace orvik
