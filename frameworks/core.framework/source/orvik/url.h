#pragma once
/// @file
/// `Url`: the name of a resource, with data travelling along.

#include "orvik/datadictionary.h"

namespace orvik {

class InputStreamInterface;
class OutputStreamInterface;
class BrowseIteratorInterface;
class MemoryFile;
using InputStreamRef = Ref<InputStreamInterface>;
using OutputStreamRef = Ref<OutputStreamInterface>;
using BrowseIteratorRef = Ref<BrowseIteratorInterface>;

/// What `Url::IoDetect` finds.
enum class IODETECT : uint8_t { NONEXISTENT = 0, FILE = 1, DIRECTORY = 2 };

/// Keys of the data of a URL that names a sequence of numbered files, as in "frame_@{04d}.png".
namespace urldata {
inline constexpr Key<Float> kImageSequenceFps{"net.orvik.url.imagesequence_fps"};
/// @{ Frame numbers; -1 is no bound.
inline constexpr Key<Int> kImageSequenceFirstFrame{"net.orvik.url.imagesequence_firstframe"};
inline constexpr Key<Int> kImageSequenceLastFrame{"net.orvik.url.imagesequence_lastframe"};
/// @}
}  // namespace urldata

/// A file ("file:///tmp/a.png") or a block of memory ("memory:NAME"). Plain paths are file URLs. File paths keep the
/// bytes of the file system, whatever their encoding. Copies carry the data of the original and never fail.
///
/// A URL for whose text there was no memory is empty, and opening it is the out-of-memory error.
class ORVIK_API Url {
public:
    Url() = default;
    /// From "scheme:..." or a path; relative paths stay relative. "file://" URLs are percent-decoded.
    explicit Url(std::string_view text) noexcept;

    /// A file, by its path in the bytes of the file system, taken as it stands.
    static Url FromSystemPath(std::string_view path) noexcept;

    bool IsEmpty() const noexcept { return GetSystemPath().empty(); }
    /// The scheme in lower case: "file" or "memory".
    std::string_view GetScheme() const noexcept { return _memory ? "memory" : "file"; }
    /// The whole URL as text: the path of a file, "memory:NAME" for memory.
    String GetUrl() const;
    /// The path in the bytes of the file system (the name, for memory).
    const std::string& GetSystemPath() const noexcept;
    /// Last component, with its suffix.
    String GetName() const;
    /// Characters after the last dot of the name, without the dot; empty for none. "a.tar.gz" gives "gz". The dot that
    /// begins a name (".profile") starts no suffix.
    String GetSuffix() const;
    /// Replaces or adds the suffix.
    void SetSuffix(const String& suffix) noexcept;
    /// The directory part as a URL, without data; "." for a bare name.
    Url GetDirectory() const noexcept;
    /// The directory part as text.
    String GetPath() const;
    /// Adds one component.
    Result<void> Append(const String& component);

    /// Errors of these are io errors that name this URL. A directory cannot be opened.
    Result<InputStreamRef> OpenInputStream() const;
    /// Truncates or creates.
    Result<OutputStreamRef> OpenOutputStream() const;
    /// Opens for reading and writing and keeps the content; both references share one position.
    Result<std::pair<InputStreamRef, OutputStreamRef>> OpenInOutputStream() const;
    IODETECT IoDetect() const noexcept;
    Result<void> IoDelete() const;
    /// Size in bytes and time stamp in nanoseconds, as one key of a cache; an error for what does not exist.
    Result<std::pair<Int, Int>> GetSizeAndTime() const;
    /// Lists a directory in no particular order; errors are io errors.
    Result<BrowseIteratorRef> IoBrowse() const;

    /// @{ Data of the URL: frame rate and frame range of a sequence, for instance.
    DataDictionary& GetData() noexcept { return _data; }
    const DataDictionary& GetData() const noexcept { return _data; }
    template <class T>
    Result<T> Get(const Key<T>& key, SourceLocation where = SourceLocation::current()) const {
        return _data.Get(key, where);
    }
    template <class T>
    T Get(const Key<T>& key, std::type_identity_t<T> fallback) const {
        return _data.Get(key, std::move(fallback));
    }
    template <class T>
    Result<void> Set(const Key<T>& key, std::type_identity_t<T> value) {
        return _data.Set(key, std::move(value));
    }
    /// @}

    /// A block that is read in place of the resource. Copies of the URL share it; a change of the name drops it.
    void SetContent(const Ref<MemoryFile>& content) noexcept;
    bool HasContent() const noexcept { return static_cast<bool>(_content); }

    /// Compares the resource, not the data or the content.
    friend bool operator==(const Url& a, const Url& b) noexcept {
        return a._memory == b._memory && a.GetSystemPath() == b.GetSystemPath();
    }
    uint64_t GetHashCode() const noexcept;
    String ToString() const { return GetUrl(); }

private:
    struct Path;

    /// Takes the path that `make` returns, or none when memory is short.
    template <class F>
    void SetPath(F&& make) noexcept;
    Result<void> Check() const;
    Result<Ref<MemoryFile>> FindContent() const;
    Result<Ref<MemoryFile>> MountContent() const;

    ObjectRef _path;     ///< a `Path`, shared by copies; null for the empty path
    ObjectRef _content;  ///< a `MemoryFile`
    bool _memory = false;
    bool _incomplete = false;  ///< there was no memory for the path
    DataDictionary _data;
};

template <>
inline constexpr const char* kDataTypeName<Url> = "orvik::Url";

}  // namespace orvik
