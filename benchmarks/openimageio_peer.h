#pragma once
/// @file
/// OpenImageIO as a peer of the codecs, in a library of its own: what it takes of memory at its start would else count
/// in the peak that the system reports for programs which this one starts.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace bench {

struct OpenImageIOPeer {
    /// A picture of the size of the test picture, from a file in memory, as RGB or grey. @param name  tells the format
    /// by its suffix
    bool (*decode)(const std::string& name, bool floats, const std::vector<uint8_t>& file, uint8_t* pixels) = nullptr;
    /// RGB pixels into memory that grows.
    bool (*encode)(const std::string& name, bool floats, int width, int height, const void* pixels,
                   const std::vector<std::pair<std::string, std::string>>& options) = nullptr;
};

}  // namespace bench
