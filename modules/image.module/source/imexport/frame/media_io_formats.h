#pragma once
/// @file
/// The table of file formats. Registries, capabilities, the command line, tests and fuzz targets all come from it.

#include "orvik/datadictionary.h"
#include "orvik/fileformat.h"

namespace orvik {

/// Information about a library that a module uses.
namespace moduleinfo {
inline constexpr Key<String> kName{"net.orvik.moduleinfo.name"};
inline constexpr Key<String> kDescription{"net.orvik.moduleinfo.description"};
inline constexpr Key<String> kVersion{"net.orvik.moduleinfo.version"};
}  // namespace moduleinfo

/// An importer's values of the capability keys "net.orvik.media.input.*".
struct ImportCapabilities {
    bool image = false, video = false, audio = false;
};

/// An exporter's values of the capability keys "net.orvik.media.output.*".
struct ExportCapabilities {
    bool image = false, video = false, audio = false;
    bool embedColorProfile = false;
    Int maximalAlphaChannels = 0;
    Int maximalImageResolution = 0;        ///< pixels of the longer side
    Int maximalLayerResolution = 0;        ///< 0 for formats without layers
    Block<const Int> bitDepthsImage = {};  ///< bits per channel
    Block<const Int> bitDepthsLayer = {};
};

/// One file format: its ids, detector, importer and exporter. Adding a format is adding its row in
/// `media_io_formats.cpp` and its files.
struct FileFormatEntry {
    std::string_view name;  ///< short name, for instance "png"
    Id format;
    Id handler;
    Id importer;                             ///< class id
    Id exporter;                             ///< class id; empty for a format that is only read
    Block<const std::string_view> suffixes;  ///< the first is the one to write
    DETECTIONSTRENGTH strength;
    /// Recognises a file by its first bytes; the stream is at position 0.
    Result<Bool> (*detect)(const Url& url, const InputStreamRef& stream);
    CreateFunction makeImporter;
    CreateFunction makeExporter;  ///< null for a format that is only read
    ImportCapabilities input;
    ExportCapabilities output;
    /// Publishes further parts of the format; may be null.
    Result<void> (*publishMore)(Publisher& publisher);
};

/// All formats in the order of registration.
Block<const FileFormatEntry> GetFileFormatTable();
/// The row of a format id, or null.
const FileFormatEntry* FindFileFormatEntry(const Id& format);

/// True when the bytes at the stream's position are exactly `signature`; false for a shorter stream.
Result<Bool> StartsWith(const InputStreamRef& stream, std::string_view signature);

}  // namespace orvik
