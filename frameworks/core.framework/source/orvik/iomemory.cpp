#include "orvik/iomemory.h"

#include <algorithm>
#include <mutex>
#include <sys/stat.h>

#include "orvik/iofile_internal.h"
#include "orvik/threadservices.h"

namespace orvik {

namespace {

/// The whole block is the window.
class MemoryInputStream : public InputStreamInterface {
public:
    MemoryInputStream(Block<const std::byte> bytes, MemoryFileRef file, Url url)
        : _bytes(bytes), _file(std::move(file)), _url(std::move(url)) {
        SetWindow(0, _bytes.data(), static_cast<Int>(_bytes.size()));
    }

    Url GetUrl() const override { return _url; }
    Result<Int> GetStreamLength() override { return static_cast<Int>(_bytes.size()); }
    Bool SeekSupported() const override { return true; }
    Result<void> Close() override {
        _bytes = {};
        SetWindow(GetPosition(), nullptr, 0);
        _file = nullptr;
        return {};
    }

protected:
    Result<void> FillWindow(Int position) override {
        const size_t start = std::min(static_cast<size_t>(position), _bytes.size());
        SetWindow(position, _bytes.data() + start, static_cast<Int>(_bytes.size() - start));
        return {};
    }

private:
    Block<const std::byte> _bytes;
    MemoryFileRef _file;  ///< keeps the bytes alive, unless they are the caller's
    Url _url;
};

/// Puts a block at a position; a gap before it becomes zeros.
Result<void> WriteAt(BaseArray<std::byte>& bytes, Int position, Block<const std::byte> block) {
    if (block.empty())
        return {};
    Int end = 0;
    if (__builtin_add_overflow(position, static_cast<Int>(block.size()), &end))
        return OutOfMemoryError();
    const Int before = bytes.GetCount();
    if (end > before)
        TRY(bytes.Resize(end, RESIZEFLAGS::UNINITIALIZED));
    if (position > before)
        std::memset(bytes.GetFirst() + before, 0, static_cast<size_t>(position - before));
    std::memcpy(bytes.GetFirst() + position, block.data(), block.size());
    return {};
}

class MemoryOutputStream : public OutputStreamInterface {
public:
    MemoryOutputStream(MemoryFileRef file, Url url) : _file(std::move(file)), _url(std::move(url)) {}

    Url GetUrl() const override { return _url; }
    Result<Int> GetPosition() override { return _position; }
    Result<void> Seek(Int position) override {
        if (position < 0)
            return IoError(_url, "cannot seek to position @", position);
        _position = position;
        return {};
    }
    Result<void> Write(Block<const std::byte> block) override {
        if (!_file)
            return IoError(_url, "the stream is closed");
        TRY(WriteAt(_file->GetBytes(), _position, block));
        _position += static_cast<Int>(block.size());
        return {};
    }
    void Expect(Int bytes) override {
        if (_file && bytes > _file->GetBytes().GetCount())
            (void)_file->GetBytes().Reserve(bytes - _file->GetBytes().GetCount());  // else it grows as it is written
    }
    Result<void> Flush() override { return {}; }
    Result<void> Close() override {
        _file = nullptr;
        return {};
    }

private:
    MemoryFileRef _file;
    Url _url;
    Int _position = 0;
};

/// One position for reading and writing: that of the input side.
class MemoryInOutStream : public InputStreamInterface, public OutputStreamInterface {
public:
    MemoryInOutStream(MemoryFileRef file, Url url) : _file(std::move(file)), _url(std::move(url)) {}

    Url GetUrl() const override { return _url; }
    Result<Int> GetStreamLength() override { return _file->GetBytes().GetCount(); }
    Bool SeekSupported() const override { return true; }
    Result<void> Close() override { return {}; }
    Result<Int> GetPosition() override { return InputStreamInterface::GetPosition(); }
    Result<void> Seek(Int position) override {
        if (position < 0)
            return IoError(_url, "cannot seek to position @", position);
        SetWindow(position, nullptr, 0);
        return {};
    }
    Result<void> Write(Block<const std::byte> block) override {
        const Int position = InputStreamInterface::GetPosition();
        SetWindow(position, nullptr, 0);  // the bytes may move
        TRY(WriteAt(_file->GetBytes(), position, block));
        SetWindow(position + static_cast<Int>(block.size()), nullptr, 0);
        return {};
    }
    Result<void> Flush() override { return {}; }

protected:
    Result<void> FillWindow(Int position) override {
        const BaseArray<std::byte>& bytes = _file->GetBytes();
        const Int start = std::min(position, bytes.GetCount());
        SetWindow(position, bytes.GetFirst() + start, bytes.GetCount() - start);
        return {};
    }

private:
    MemoryFileRef _file;
    Url _url;
};

/// A part of another stream, read through a window of its own.
class SubStream : public InputStreamInterface {
public:
    SubStream(InputStreamRef stream, Int start, Int length)
        : _stream(std::move(stream)), _start(start), _length(length) {}
    Result<void> Construct() {
        constexpr Int kWindowSize = Int(64) << 10;
        return _buffer.Resize(std::clamp(_length, Int(1), kWindowSize),
                              RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED);
    }

    Url GetUrl() const override { return _stream->GetUrl(); }
    Result<Int> GetStreamLength() override { return _length; }
    Bool SeekSupported() const override { return _stream->SeekSupported(); }
    Result<void> Close() override {  // the other stream stays open: it belongs to the caller
        SetWindow(GetPosition(), nullptr, 0);
        _stream = nullptr;
        return {};
    }

protected:
    Result<void> FillWindow(Int position) override {
        const Int count = TRY(ReadDirect(position, _buffer.ToBlock()));
        SetWindow(position, _buffer.GetFirst(), count);
        return {};
    }
    Result<Int> ReadDirect(Int position, Block<std::byte> block) override {
        const Int count = std::min(static_cast<Int>(block.size()), _length - position);
        if (count <= 0)
            return Int(0);
        TRY(_stream->Seek(_start + position));
        return _stream->ReadEOS(block.first(static_cast<size_t>(count)));
    }

private:
    InputStreamRef _stream;
    Int _start;
    Int _length;
    BaseArray<std::byte> _buffer;
};

/// The named blocks of the process; never destroyed.
struct Mounts {
    std::mutex mutex;
    HashMap<String, MemoryFileRef> files;
};

Mounts& GetMounts() {
    static Immortal<Mounts> mounts;
    return *mounts;
}

}  // namespace

Result<MemoryFileRef> CreateMemoryFile(Block<const std::byte> bytes) {
    MemoryFileRef file = TRY(NewObj<MemoryFile>());
    if (!bytes.empty()) {
        TRY(file->GetBytes().Resize(static_cast<Int>(bytes.size()),
                                    RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED));
        std::memcpy(file->GetBytes().GetFirst(), bytes.data(), bytes.size());
    }
    return file;
}

Result<InputStreamRef> OpenMemoryInput(const MemoryFileRef& file, const Url& url) {
    if (!file)
        return NullptrError();
    const MemoryFile& content = *file;
    return InputStreamRef(TRY(NewObj<MemoryInputStream>(content.GetBytes().ToBlock(), file, url)));
}

Result<InputStreamRef> OpenMemoryInput(Block<const std::byte> bytes, const Url& url) {
    return InputStreamRef(TRY(NewObj<MemoryInputStream>(bytes, nullptr, url)));
}

Result<OutputStreamRef> OpenMemoryOutput(const MemoryFileRef& file, const Url& url) {
    if (!file)
        return NullptrError();
    file->GetBytes().Reset();
    return OutputStreamRef(TRY(NewObj<MemoryOutputStream>(file, url)));
}

Result<std::pair<InputStreamRef, OutputStreamRef>> OpenMemoryInOut(const MemoryFileRef& file, const Url& url) {
    Ref<MemoryInOutStream> stream = TRY(NewObj<MemoryInOutStream>(file, url));
    return std::pair<InputStreamRef, OutputStreamRef>(stream, stream);
}

Result<InputStreamRef> OpenSubStream(const InputStreamRef& stream, Int start, Int length) {
    if (!stream)
        return NullptrError();
    Int end = 0;
    if (start < 0 || length < 0 || __builtin_add_overflow(start, length, &end))
        return IllegalArgumentError("There is no part of @ bytes at @.", length, start);
    if (stream->SeekSupported()) {
        const Int whole = TRY(stream->GetStreamLength());
        if (end > whole)
            return IoError(stream->GetUrl(), "the part of @ bytes at @ lies beyond the end at @", length, start, whole);
    }
    return InputStreamRef(TRY(NewObj<SubStream>(stream, start, length)));
}

Result<Url> MountMemoryFile(std::string_view name, const MemoryFileRef& file) {
    if (!file)
        return NullptrError();
    Mounts& mounts = GetMounts();
    MemoryFileRef replaced;  // dropped after the lock
    const String key = TRY(String::Create(name));
    {
        const std::lock_guard guard(mounts.mutex);
        MemoryFileRef* slot = TRY(mounts.files.FindOrCreate(key));
        replaced = std::exchange(*slot, file);
    }
    String url("memory:");
    TRY(url.Append(key));
    return Url(url.GetText());
}

MemoryFileRef FindMemoryFile(std::string_view name) {
    Mounts& mounts = GetMounts();
    const std::lock_guard guard(mounts.mutex);
    for (const auto& mount : mounts.files) {  // there are few, and making a key could fail
        if (mount.key.GetText() == name)
            return mount.value;
    }
    return nullptr;
}

void UnmountMemoryFile(std::string_view name) {
    Mounts& mounts = GetMounts();
    MemoryFileRef removed;  // dropped after the lock
    const std::lock_guard guard(mounts.mutex);
    for (auto& mount : mounts.files) {
        if (mount.key.GetText() == name) {
            removed = std::move(mount.value);
            const String key = mount.key;
            mounts.files.Erase(key);
            return;
        }
    }
}

Result<Url> ReadUnseekable(const Url& url) {
    constexpr Int kStep = Int(64) << 10;
    struct stat status {};
    if (url.GetScheme() != "file" || url.HasContent() || stat(url.GetSystemPath().c_str(), &status) != 0 ||
        S_ISREG(status.st_mode) || S_ISBLK(status.st_mode) || S_ISDIR(status.st_mode))
        return url;
    const InputStreamRef stream = TRY(url.OpenInputStream());
    const MemoryFileRef file = TRY(CreateMemoryFile());
    BaseArray<std::byte>& bytes = file->GetBytes();
    for (Int count = kStep; count == kStep;) {
        const Int before = bytes.GetCount();
        if (before > kMaxUnseekableBytes)
            return IoError(url, "the stream cannot seek and is longer than @ bytes", kMaxUnseekableBytes);
        if (IsCurrentThreadCancelled())
            return ThreadCancelledError();
        TRY(bytes.Resize(before + kStep, RESIZEFLAGS::UNINITIALIZED));
        count = TRY(stream->ReadEOS(bytes.ToBlock().subspan(static_cast<size_t>(before))));
        TRY(bytes.Resize(before + count));
    }
    Url copied = url;
    copied.SetContent(file);
    return copied;
}

}  // namespace orvik
