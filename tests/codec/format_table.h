#pragma once
/// What the tests that walk over all formats know of each: good files, their limits, other programs. A format has one
/// source `<name>_format.cpp` and one row in `format_table.cpp`.

#include <functional>
#include <string>
#include <vector>

#include "codec_support.h"

namespace codectest {

/// A small good file, for tests that damage files.
struct Sample {
    std::string name;
    std::string_view format;  ///< short name
    Bytes bytes;
};

/// A file of the corpus that differs from all peers for a good reason. One that agrees again fails the test.
struct CorpusDifference {
    const char* file;
    const char* reason;
};

/// A form in which an exporter writes, and what becomes of the pixels in it.
struct ExportVariant {
    std::string name;
    DataDictionary settings = {};
    Bytes (*keeps)(Bytes rgba) = nullptr;  ///< what the file can hold of an RGBA picture; null for all
    int tolerance = 0;                     ///< steps by which a byte may be off
    bool isLossy = false;                  ///< others must read what a load of the file gives
    /// @{ Programs that cannot read this, or not a single pixel of it, by the names of the table of readers.
    std::vector<std::string_view> unreadable = {};
    std::vector<std::string_view> unreadablePixel = {};
    /// @}
};

/// A way in which another program makes a file of this format.
struct ForeignWriter {
    const char* what;
    std::vector<const char*> tools;  ///< programs it takes; "PIL" stands for the Python package
    /// Shell command; %I is a file of RGBA bytes, %W and %H its sides, %O the file to write.
    std::string command;
    Bytes (*keeps)(Bytes rgba) = nullptr;  ///< makes a picture that the file can hold; null when it holds any
    int tolerance = 0;
    bool isLossy = false;  ///< judged by what ImageMagick reads of the file
};

/// Pillow saves an image of a mode in a format, both in its words; options may follow the format, as `name=value`.
ForeignWriter PillowWriter(const char* what, const std::string& mode, const std::string& format,
                           Bytes (*keeps)(Bytes rgba) = nullptr);

struct TestedFormat {
    std::string_view name;                 ///< short name, as in the table of formats
    std::vector<Sample> (*makeSamples)();  ///< one for each variant of the format

    /// @{ Damage.
    size_t mostPicturesOfCutFiles = 0;             ///< prefixes of a sample that may give a picture nevertheless
    void (*mendDamage)(Bytes& file) = nullptr;     ///< restores check sums that would hide damage; null for none
    std::vector<Sample> (*makeBombs)() = nullptr;  ///< small files that ask for gigabytes
    /// @}

    /// @{ Frame.
    size_t detectBytes = 0;  ///< length of a head that is claimed; 0 when that depends on the file
    bool analyzesAgain = true;
    const char* secondInputError = "illegalstate";
    bool announcesLate = false;  ///< adds its job to the progress when it begins with the pixels, not before
    bool hasPictures = true;
    /// @}

    Int largestSide = 0;  ///< that the exporter takes; 0 for a format that is only read

    /// @{ Corpus.
    std::string_view corpusFolder = {};  ///< where it is not the name
    std::vector<CorpusDifference> differences = {};
    int fewestCompared = 0, fewestRefused = 0;
    const char* whyNotCompared = nullptr;  ///< for a format of which no file is compared with a peer
    /// What the peers make of the pixels; null where it is what a load gives.
    Bytes (*peersRgba)(const ImageTextureRef& texture) = nullptr;
    /// Judges a picture whose hash no peer has; null where pixels are exact.
    bool (*agrees)(const std::string& path, const ImageTextureRef& texture) = nullptr;
    /// @}

    /// @{ Other programs.
    std::vector<ExportVariant> (*makeVariants)() = nullptr;
    std::vector<ForeignWriter> (*makeWriters)() = nullptr;
    /// @}
};

/// All formats that are tested.
const std::vector<TestedFormat>& TestedFormats();
const TestedFormat& TestedFormatOf(std::string_view name);
/// The samples of all formats.
std::vector<Sample> MakeSamples();

/// @{ What some files keep of a picture: never an alpha.
Bytes Opaque(Bytes rgba);
Bytes Grey(Bytes rgba);
Bytes BlackAndWhite(Bytes rgba);
Bytes SixteenGreys(Bytes rgba);
Bytes SixteenColors(Bytes rgba);
Bytes SixtyFourColors(Bytes rgba);
/// @}

/// The first byte of each 32-bit number is the highest when `bigEndian`.
void Put32(Bytes& bytes, size_t at, uint32_t value, bool bigEndian);

/// @{ One for each format, in its own source.
TestedFormat TestedBmp();
TestedFormat TestedHdr();
TestedFormat TestedJpeg();
TestedFormat TestedPng();
TestedFormat TestedTga();
/// @}

}  // namespace codectest
