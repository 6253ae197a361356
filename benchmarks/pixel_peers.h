#pragma once
/// @file
/// Other pixel converters, each behind one function.

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Converts `count` pixels from one run into another.
using PixelRun = std::function<void(const void* src, void* dst, int count)>;

struct PixelPeer {
    std::string pair;  ///< name in the benchmark
    std::string name;
    PixelRun run;
};

/// The pairs that the peers found at build time convert with the same meaning.
std::vector<PixelPeer> GetPixelPeers();

}  // namespace bench
