#include "orvik/url.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/stat.h>

#include "orvik/errortypes.h"
#include "orvik/iofile_internal.h"
#include "orvik/iomemory.h"

namespace orvik {

namespace {

bool HasScheme(std::string_view text, std::string_view lowerScheme) noexcept {
    if (text.size() < lowerScheme.size())
        return false;
    for (size_t i = 0; i < lowerScheme.size(); ++i) {
        if ((text[i] | 0x20) != (lowerScheme[i] | 0x20))
            return false;
    }
    return true;
}

int HexDigit(char c) noexcept {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// "%2F" and the like become bytes. What is no escape stays, and so does "%00", which no path can hold.
std::string DecodePercent(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = high >= 0 ? HexDigit(text[i + 2]) : -1;
        if (low >= 0 && high * 16 + low != 0) {
            out.push_back(static_cast<char>(high * 16 + low));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

/// The path without slashes at its end; "/" stays.
std::string_view Trimmed(std::string_view path) noexcept {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

std::string_view NameOf(std::string_view path) noexcept {
    path = Trimmed(path);
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

/// @return the index of the dot that starts the suffix within the name, or npos
size_t FindSuffixDot(std::string_view name) noexcept {
    const size_t dot = name.rfind('.');
    return dot == 0 ? std::string_view::npos : dot;
}

String ToText(std::string_view bytes) {
    Result<String> text = String::FromSystemText(bytes);
    return text ? std::move(text).TakeValue() : String();
}

}  // namespace

Url::Url(std::string_view text) {
    if (HasScheme(text, "memory:")) {
        _memory = true;
        _path = text.substr(7);
    } else if (HasScheme(text, "file://")) {
        text.remove_prefix(7);
        if (HasScheme(text, "localhost/"))
            text.remove_prefix(9);
        _path = DecodePercent(text);
    } else if (HasScheme(text, "file:/")) {
        _path = DecodePercent(text.substr(5));
    } else {
        _path = text;
    }
}

Url Url::FromSystemPath(std::string path) {
    Url url;
    url._path = std::move(path);
    return url;
}

String Url::GetUrl() const { return _memory ? ToText("memory:" + _path) : ToText(_path); }

String Url::GetName() const { return ToText(NameOf(_path)); }

String Url::GetSuffix() const {
    const std::string_view name = NameOf(_path);
    const size_t dot = FindSuffixDot(name);
    return dot == std::string_view::npos ? String() : ToText(name.substr(dot + 1));
}

void Url::SetSuffix(const String& suffix) {
    std::string path(Trimmed(_path));
    const std::string_view name = NameOf(path);
    const size_t dot = FindSuffixDot(name);
    if (dot != std::string_view::npos)
        path.resize(path.size() - name.size() + dot);
    if (!suffix.IsEmpty())
        path.append(".").append(suffix.GetText());
    _path = std::move(path);
}

Url Url::GetDirectory() const {
    const std::string_view path = Trimmed(_path);
    const size_t slash = path.rfind('/');
    Url directory;
    directory._memory = _memory;
    directory._path = slash == std::string_view::npos ? "." : std::string(Trimmed(path.substr(0, slash + 1)));
    return directory;
}

String Url::GetPath() const { return ToText(GetDirectory()._path); }

Result<void> Url::Append(const String& component) {
    try {
        std::string path = _path;
        if (!path.empty() && path.back() != '/')
            path.push_back('/');
        path.append(component.GetText());
        _path = std::move(path);
    } catch (const std::bad_alloc&) {
        return OutOfMemoryError();
    }
    return {};
}

Result<InputStreamRef> Url::OpenInputStream() const {
    if (!_memory)
        return OpenFileInput(*this);
    const MemoryFileRef file = FindMemoryFile(_path);
    if (!file)
        return IoError(*this, "cannot open: @", ErrnoText(ENOENT));
    return OpenMemoryInput(file, *this);
}

Result<OutputStreamRef> Url::OpenOutputStream() const {
    if (!_memory)
        return OpenFileOutput(*this);
    MemoryFileRef file = FindMemoryFile(_path);
    if (!file) {
        file = TRY(CreateMemoryFile());
        TRY(MountMemoryFile(_path, file));
    }
    return OpenMemoryOutput(file, *this);
}

Result<std::pair<InputStreamRef, OutputStreamRef>> Url::OpenInOutputStream() const {
    if (!_memory)
        return OpenFileInOut(*this);
    MemoryFileRef file = FindMemoryFile(_path);
    if (!file) {
        file = TRY(CreateMemoryFile());
        TRY(MountMemoryFile(_path, file));
    }
    return OpenMemoryInOut(file, *this);
}

IODETECT Url::IoDetect() const noexcept {
    if (_memory)
        return FindMemoryFile(_path) ? IODETECT::FILE : IODETECT::NONEXISTENT;
    struct stat status {};
    if (stat(_path.c_str(), &status) != 0)
        return IODETECT::NONEXISTENT;
    return S_ISDIR(status.st_mode) ? IODETECT::DIRECTORY : IODETECT::FILE;
}

Result<void> Url::IoDelete() const {
    if (_memory) {
        if (!FindMemoryFile(_path))
            return IoError(*this, "cannot delete: @", ErrnoText(ENOENT));
        UnmountMemoryFile(_path);
        return {};
    }
    if (std::remove(_path.c_str()) != 0)
        return IoError(*this, "cannot delete: @", ErrnoText(errno));
    return {};
}

Result<std::pair<Int, Int>> Url::GetSizeAndTime() const {
    if (_memory) {
        const MemoryFileRef file = FindMemoryFile(_path);
        if (!file)
            return IoError(*this, "cannot open: @", ErrnoText(ENOENT));
        return std::pair<Int, Int>(file->GetBytes().GetCount(), 0);
    }
    struct stat status {};
    if (stat(_path.c_str(), &status) != 0)
        return IoError(*this, "cannot open: @", ErrnoText(errno));
    return std::pair<Int, Int>(status.st_size, status.st_mtim.tv_sec * Int(1000000000) + status.st_mtim.tv_nsec);
}

uint64_t Url::GetHashCode() const noexcept {
    uint64_t hash = 0xCBF29CE484222325 + _memory;  // FNV-1a
    for (const char c : _path)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return hash;
}

}  // namespace orvik
