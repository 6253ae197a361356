#pragma once
/// @file
/// Another image library to compare with, if installed.

#include <functional>

#include "codec_cases.h"

namespace bench {

/// One direction of a peer; false on failure.
struct CodecPeer {
    const char* name;
    std::function<bool(const std::vector<uint8_t>& file, uint8_t* pixels)> decode;
    std::function<bool()> encode;
};

/// The peers found at build time that know the format of the case.
std::vector<CodecPeer> GetCodecPeers(const CodecCase& codec);

}  // namespace bench
