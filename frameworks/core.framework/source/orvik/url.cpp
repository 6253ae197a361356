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

/// "%2F" and the like become bytes. Anything else is kept, and so is "%00", which no path can hold.
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

String ToText(std::string_view bytes) noexcept {
    Result<String> text = String::FromSystemText(bytes);
    return text ? std::move(text).TakeValue() : String();
}

}  // namespace

struct Url::Path : public Object {
    explicit Path(std::string path) : text(std::move(path)) {}
    const std::string text;
};

template <class F>
void Url::SetPath(F&& make) noexcept {
    if (_incomplete)
        return;
    try {
        std::string path = make();
        ObjectRef fresh;
        if (!path.empty()) {
            Result<Ref<Path>> made = NewObj<Path>(std::move(path));
            _incomplete = !made;
            if (made)
                fresh = std::move(made).TakeValue();
        }
        _path = std::move(fresh);
    } catch (const std::bad_alloc&) {
        _path = nullptr;
        _incomplete = true;
    }
    _content = nullptr;
}

Result<void> Url::Check() const {
    if (_incomplete)
        return OutOfMemoryError();
    return {};
}

const std::string& Url::GetSystemPath() const noexcept {
    static const std::string kEmpty;
    const auto* path = static_cast<const Path*>(_path.GetPointer());
    return path ? path->text : kEmpty;
}

Url::Url(std::string_view text) noexcept {
    const auto decode = [&](std::string_view path) { SetPath([path] { return DecodePercent(path); }); };
    if (HasScheme(text, "memory:")) {
        _memory = true;
        SetPath([&] { return std::string(text.substr(7)); });
    } else if (HasScheme(text, "file://")) {
        text.remove_prefix(7);
        decode(HasScheme(text, "localhost/") ? text.substr(9) : text);
    } else if (HasScheme(text, "file:/")) {
        decode(text.substr(5));
    } else {
        SetPath([&] { return std::string(text); });
    }
}

Url Url::FromSystemPath(std::string_view path) noexcept {
    Url url;
    url.SetPath([path] { return std::string(path); });
    return url;
}

String Url::GetUrl() const {
    String path = ToText(GetSystemPath());
    if (!_memory)
        return path;
    String text("memory:");
    if (!text.IsEmpty())  // without memory for the scheme, the name would be that of a file
        (void)text.Append(path);
    return text;
}

String Url::GetName() const { return ToText(NameOf(GetSystemPath())); }

String Url::GetSuffix() const {
    const std::string_view name = NameOf(GetSystemPath());
    const size_t dot = FindSuffixDot(name);
    return dot == std::string_view::npos ? String() : ToText(name.substr(dot + 1));
}

void Url::SetSuffix(const String& suffix) noexcept {
    SetPath([&] {
        std::string path(Trimmed(GetSystemPath()));
        const std::string_view name = NameOf(path);
        const size_t dot = FindSuffixDot(name);
        if (dot != std::string_view::npos)
            path.resize(path.size() - name.size() + dot);
        if (!suffix.IsEmpty())
            path.append(".").append(suffix.GetText());
        return path;
    });
}

Url Url::GetDirectory() const noexcept {
    const std::string_view path = Trimmed(GetSystemPath());
    const size_t slash = path.rfind('/');
    Url directory =
        FromSystemPath(slash == std::string_view::npos ? std::string_view(".") : Trimmed(path.substr(0, slash + 1)));
    directory._memory = _memory;
    return directory;
}

String Url::GetPath() const { return ToText(GetDirectory().GetSystemPath()); }

Result<void> Url::Append(const String& component) {
    TRY(Check());
    Url longer;
    longer.SetPath([&] {
        std::string path = GetSystemPath();
        if (!path.empty() && path.back() != '/')
            path.push_back('/');
        return path.append(component.GetText());
    });
    TRY(longer.Check());
    _path = std::move(longer._path);
    _content = nullptr;
    return {};
}

void Url::SetContent(const Ref<MemoryFile>& content) noexcept { _content = content; }

/// @return the block that is read, or null for a file
Result<MemoryFileRef> Url::FindContent() const {
    TRY(Check());
    if (_content)
        return MemoryFileRef(static_cast<MemoryFile*>(_content.GetPointer()));
    if (!_memory)
        return MemoryFileRef();
    MemoryFileRef file = FindMemoryFile(GetSystemPath());
    if (!file)
        return IoError(*this, "cannot open: @", ErrnoText(ENOENT));
    return file;
}

/// @return the block of this name, a new one if there is none; null for a file
Result<MemoryFileRef> Url::MountContent() const {
    TRY(Check());
    if (!_memory)
        return MemoryFileRef();
    MemoryFileRef file = FindMemoryFile(GetSystemPath());
    if (!file) {
        file = TRY(CreateMemoryFile());
        TRY(MountMemoryFile(GetSystemPath(), file));
    }
    return file;
}

Result<InputStreamRef> Url::OpenInputStream() const {
    const MemoryFileRef file = TRY(FindContent());
    return file ? OpenMemoryInput(file, *this) : OpenFileInput(*this);
}

Result<OutputStreamRef> Url::OpenOutputStream() const {
    const MemoryFileRef file = TRY(MountContent());
    return file ? OpenMemoryOutput(file, *this) : OpenFileOutput(*this);
}

Result<std::pair<InputStreamRef, OutputStreamRef>> Url::OpenInOutputStream() const {
    const MemoryFileRef file = TRY(MountContent());
    return file ? OpenMemoryInOut(file, *this) : OpenFileInOut(*this);
}

IODETECT Url::IoDetect() const noexcept {
    if (_content)
        return IODETECT::FILE;
    if (_memory)
        return FindMemoryFile(GetSystemPath()) ? IODETECT::FILE : IODETECT::NONEXISTENT;
    struct stat status {};
    if (stat(GetSystemPath().c_str(), &status) != 0)
        return IODETECT::NONEXISTENT;
    return S_ISDIR(status.st_mode) ? IODETECT::DIRECTORY : IODETECT::FILE;
}

Result<void> Url::IoDelete() const {
    TRY(Check());
    if (_memory) {
        if (!FindMemoryFile(GetSystemPath()))
            return IoError(*this, "cannot delete: @", ErrnoText(ENOENT));
        UnmountMemoryFile(GetSystemPath());
        return {};
    }
    if (std::remove(GetSystemPath().c_str()) != 0)
        return IoError(*this, "cannot delete: @", ErrnoText(errno));
    return {};
}

Result<std::pair<Int, Int>> Url::GetSizeAndTime() const {
    const MemoryFileRef file = TRY(FindContent());
    if (file)
        return std::pair<Int, Int>(file->GetBytes().GetCount(), 0);
    struct stat status {};
    if (stat(GetSystemPath().c_str(), &status) != 0)
        return IoError(*this, "cannot open: @", ErrnoText(errno));
    return std::pair<Int, Int>(status.st_size, status.st_mtim.tv_sec * Int(1000000000) + status.st_mtim.tv_nsec);
}

uint64_t Url::GetHashCode() const noexcept {
    uint64_t hash = 0xCBF29CE484222325 + _memory;  // FNV-1a
    for (const char c : GetSystemPath())
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return hash;
}

}  // namespace orvik
