#pragma once
/// @file
/// `Url`: the name of a resource, with data travelling along.

#include "orvik/datadictionary.h"

namespace orvik {

class InputStreamInterface;
class OutputStreamInterface;
class BrowseIteratorInterface;
using InputStreamRef = Ref<InputStreamInterface>;
using OutputStreamRef = Ref<OutputStreamInterface>;
using BrowseIteratorRef = Ref<BrowseIteratorInterface>;

/// What `Url::IoDetect` finds.
enum class IODETECT : uint8_t { NONEXISTENT = 0, FILE = 1, DIRECTORY = 2 };

/// A file ("file:///tmp/a.png") or a block of memory ("memory:NAME"). Plain paths are file URLs. File paths keep the
/// bytes of the file system, whatever their encoding. Copies carry the dictionary of the original.
class ORVIK_API Url {
public:
    Url() = default;
    /// From "scheme:..." or a path; relative paths stay relative. "file://" URLs are percent-decoded.
    explicit Url(std::string_view text);

    /// A file, by its path in the bytes of the file system, taken as it stands.
    static Url FromSystemPath(std::string path);

    bool IsEmpty() const noexcept { return _path.empty(); }
    /// The scheme in lower case: "file" or "memory".
    std::string_view GetScheme() const noexcept { return _memory ? "memory" : "file"; }
    /// The whole URL as text: the path of a file, "memory:NAME" for memory.
    String GetUrl() const;
    /// The path in the bytes of the file system (the name, for memory).
    const std::string& GetSystemPath() const noexcept { return _path; }
    /// Last component, with its suffix.
    String GetName() const;
    /// Characters after the last dot of the name, without the dot; empty for none. "a.tar.gz" gives "gz". The dot that
    /// begins a name (".profile") starts no suffix.
    String GetSuffix() const;
    /// Replaces or adds the suffix.
    void SetSuffix(const String& suffix);
    /// The directory part as a URL; "." for a bare name.
    Url GetDirectory() const;
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
    Result<BrowseIteratorRef> GetBrowseIterator() const;

    /// Data of the URL: frame rate and frame range of a sequence, for instance.
    DataDictionary& GetData() noexcept { return _data; }
    const DataDictionary& GetData() const noexcept { return _data; }

    /// Compares the resource, not the data.
    friend bool operator==(const Url& a, const Url& b) noexcept { return a._memory == b._memory && a._path == b._path; }
    uint64_t GetHashCode() const noexcept;
    String ToString() const { return GetUrl(); }

private:
    std::string _path;
    bool _memory = false;
    DataDictionary _data;
};

template <>
inline constexpr const char* kDataTypeName<Url> = "orvik::Url";

}  // namespace orvik
