#pragma once
/// @file
/// File formats, their handlers, and detection by content.

#include "orvik/datadictionaryobject.h"
#include "orvik/delegate.h"
#include "orvik/iostreams.h"
#include "orvik/registrybase.h"

namespace orvik {

inline constexpr Id kFileFormatRegistry{"net.orvik.registry.fileformats"};
inline constexpr Id kFileFormatHandlerRegistry{"net.orvik.registry.fileformathandlers"};

/// How reliable a format's test is; detection asks the reliable ones first.
enum class DETECTIONSTRENGTH : uint8_t {
    NAME,       ///< by the URL alone, before any open; gets a null stream
    SIGNATURE,  ///< a magic number
    STRUCTURE,  ///< several fields that fit together
    WEAK,       ///< a few plausible numbers; among these the one whose suffix the URL bears goes first
};

/// `FILEFORMAT_PRIORITY`: a larger number is asked first.
enum class FILEFORMAT_PRIORITY : int32_t {
    SHIFT_ONE = 1,
    SHIFT_TEN = 10,
    FALLBACKFORMAT = 10000,
    GENERALFORMAT = 20000,
    NATIVEFORMAT = 30000,
};

/// An object that can claim a file by looking at its bytes.
class FileFormatInterface : public virtual DataDictionaryObjectInterface {
    ORVIK_INTERFACE(FileFormatInterface, "net.orvik.interface.fileformat");

public:
    /// @param stream  open at position 0, or null for a format of strength NAME
    /// @return true when the file is of this format; a file too short to decide is false
    virtual Result<Bool> Detect(const Url& url, const InputStreamRef& stream) const {
        (void)url, (void)stream;
        return Unbound();
    }
    /// File format id, for instance "net.orvik.fileformat.imagepng".
    virtual Id GetFormatId() const { return Unbound(); }
    /// Short name, for instance "png".
    virtual String GetName() const { return Unbound(); }
    /// Suffixes without dots, the first being the one to write.
    virtual Block<const std::string_view> GetSuffixes() const { return Unbound(); }
    virtual DETECTIONSTRENGTH GetDetectionStrength() const { return Unbound(); }
};
using FileFormat = Ref<FileFormatInterface>;

/// An object that can build the importer for a URL.
class FileFormatHandlerInterface : public virtual Object {
    ORVIK_INTERFACE(FileFormatHandlerInterface, "net.orvik.interface.fileformathandler");

public:
    virtual FileFormat GetFileFormat() const { return Unbound(); }
    /// What `CreateHandler` makes; null for an absent handler.
    virtual const DataType* GetHandlerType() const { return Unbound(); }
    virtual Result<ObjectRef> CreateHandler(const Url& url) const {
        (void)url;
        return Unbound();
    }
    virtual FILEFORMAT_PRIORITY GetDependends() const { return Unbound(); }
};
using FileFormatHandler = Ref<FileFormatHandlerInterface>;

/// Answers whether a handler is accepted; true stops the search, an error ends it.
using HandlerDelegate = Delegate<Result<Bool>(const Url& url, const FileFormatHandler& handler)>;

/// The static service of detection.
struct FileFormatDetection {
    /// How deep the test of a format may ask for the format of another file.
    static constexpr int kMaxNesting = 4;

    /// Opens the URL once and asks the registered formats. Those of strength NAME go first, before the open; an
    /// accepted one ends the search without it. The others go by priority, then by strength (SIGNATURE, then STRUCTURE,
    /// then WEAK, but from STRUCTURE on a format with the URL's suffix goes before the rest), then in the order of
    /// registration. Each test starts at position 0; an error of a test counts as "not claimed". A format with several
    /// handlers is tested once. A source that cannot seek is read by `ReadUnseekable` first; the delegate then gets the
    /// URL with that content, which is the one to load from.
    /// @param types   wanted handler types
    /// @return the accepted handlers; errors are those of opening the URL and of the delegate
    ORVIK_API static Result<BaseArray<FileFormatHandler>> DetectAll(const Url& url, Block<const DataType* const> types,
                                                                    const HandlerDelegate& delegate);
};

/// The caching service: by URL, size and time stamp. Blocks of memory have no time stamp and are tested every time.
struct FileFormatDetectionCache {
    /// @return the format of a file, or a null reference when none claims it; a failed open is an error
    ORVIK_API static Result<FileFormat> DetectFile(const Url& url);
    ORVIK_API static void Flush();
};

}  // namespace orvik
