#pragma once
/// @file
/// OpenImageIO as a peer of the codecs, in a separate library: otherwise its start-up memory would count in the peak
/// that the system reports for child processes.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace bench {

struct OpenImageIOPeer {
    /// Decodes a file in memory, of the test picture's size, to RGB or grey. @param name  its suffix selects the format
    bool (*decode)(const std::string& name, bool floats, const std::vector<uint8_t>& file, uint8_t* pixels) = nullptr;
    /// Encodes RGB pixels into growing memory.
    bool (*encode)(const std::string& name, bool floats, int width, int height, const void* pixels,
                   const std::vector<std::pair<std::string, std::string>>& options) = nullptr;
};

}  // namespace bench
