#pragma once
/// @file
/// The commands. Each runs with the host started and returns the exit status.

#include <string>
#include <vector>

#include "console.h"
#include "selection.h"

namespace orvik::cli {

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
    bool headersOnly = false;
    std::string report;  ///< HTML file to write instead of printing; empty for none
};
/// Prints the tree of each picture, or writes a page that shows it.
int RunInfo(const Console& console, const InfoOptions& options);

struct ConvertOptions {
    std::string input;
    std::string output;
    std::string format;                 ///< name, suffix or id; empty goes by the output's suffix
    std::vector<std::string> settings;  ///< "key=value"
    std::string profile;                ///< a file, "srgb" or "linear"; empty keeps the colours
    SelectionOptions selection;
};
/// Loads, converts colours where a profile is named, saves.
int RunConvert(const Console& console, const ConvertOptions& options);

struct PixelsOptions {
    std::string input;
    std::string output;
    std::string pixelFormat = "rgba.u8";  ///< by id or short name
    SelectionOptions selection;
};
/// Writes the rows of one node, or of layers composited, in one pixel format.
int RunPixels(const Console& console, const PixelsOptions& options);

int RunFormats(const Console& console, bool json);
int RunPixelFormats(const Console& console, bool json);

}  // namespace orvik::cli
