#pragma once
/// @file
/// The measured cases of each file format. A format has one source `codec_<name>_bench.cpp` and one row in the table of
/// `codec_bench.cpp`.

#include <functional>
#include <string>
#include <vector>

#include "test_picture.h"

#include "orvik/datadictionary.h"

namespace bench {

/// One codec: the rows "codec.NAME.decode" and "codec.NAME.encode".
struct CodecCase {
    std::string name;
    /// Class id of the exporter; empty for a read-only case.
    orvik::Id exporter = {};
    /// Settings of the exporter.
    std::function<orvik::Result<void>(orvik::DataDictionary& settings)> setUp = nullptr;
    /// The picture is `TestFloats()` instead of `TestPicture()`, and a load includes reading its rows as floats.
    bool floats = false;
    /// The file to read; null for the exporter's output.
    std::function<std::vector<uint8_t>()> makeFile = nullptr;
    size_t filePixelBytes = 1;  ///< of a pixel in the file that `makeFile` makes

    /// Name of the other side in the same process: a library, or "memcpy".
    std::string against = "memcpy";
    /// @{ The other side, with the same settings; false on failure. It decodes into fresh memory. Null: a copy of the
    /// pixels into fresh memory, the minimum cost of any load or save.
    std::function<bool(const std::vector<uint8_t>& file, uint8_t* pixels)> otherDecode = nullptr;
    std::function<bool()> otherEncode = nullptr;
    /// @}

    /// OpenImageIO's suffix for the format; empty to leave it out.
    std::string peerSuffix = {};
    /// Its options, for the same settings.
    std::vector<std::pair<std::string, std::string>> peerOptions = {};
};

/// @{ One for each format, in its own source.
std::vector<CodecCase> MakeBmpCases();
std::vector<CodecCase> MakeHdrCases();
std::vector<CodecCase> MakeJpegCases();
std::vector<CodecCase> MakePngCases();
std::vector<CodecCase> MakeTgaCases();
/// @}

}  // namespace bench
