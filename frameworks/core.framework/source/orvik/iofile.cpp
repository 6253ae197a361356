#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orvik/iofile_internal.h"
#include "orvik/threadservices.h"

namespace orvik {

const char* ErrnoText(int number) noexcept {
    const char* text = strerrordesc_np(number);
    return text ? text : "Unknown error";
}

namespace {

constexpr Int kWindowSize = Int(64) << 10;

/// An open file. Positions are the caller's, so that streams may share it.
class FileHandle {
public:
    FileHandle() = default;
    FileHandle(FileHandle&& other) noexcept
        : _descriptor(std::exchange(other._descriptor, -1)), _seekable(other._seekable) {}
    FileHandle& operator=(FileHandle&&) = delete;
    ~FileHandle() {
        if (IsOpen())
            close(_descriptor);
    }

    static Result<FileHandle> Open(const Url& url, int flags) {
        const std::string& path = url.GetSystemPath();
        if (path.find('\0') != std::string::npos)
            return IoError(url, "cannot open: @", ErrnoText(EINVAL));
        FileHandle file;
        while ((file._descriptor = open(path.c_str(), flags | O_CLOEXEC, 0666)) < 0 && errno == EINTR)
            TRY(CheckInterrupted());
        struct stat status {};
        if (file._descriptor < 0 || fstat(file._descriptor, &status) != 0)
            return IoError(url, "cannot open: @", ErrnoText(errno));
        if (S_ISDIR(status.st_mode))
            return IoError(url, "cannot open: @", ErrnoText(EISDIR));
        file._seekable = S_ISREG(status.st_mode) || S_ISBLK(status.st_mode);
        return file;
    }

    bool IsOpen() const noexcept { return _descriptor >= 0; }
    bool IsSeekable() const noexcept { return _seekable; }

    Result<Int> GetLength(const Url& url) const {
        if (!IsOpen())
            return ClosedError(url);
        struct stat status {};
        if (fstat(_descriptor, &status) != 0)
            return IoError(url, "cannot read: @", ErrnoText(errno));
        if (S_ISREG(status.st_mode))
            return Int(status.st_size);
        if (_seekable) {  // a block device
            const off_t end = lseek(_descriptor, 0, SEEK_END);
            if (end >= 0)
                return Int(end);
        }
        return IoError(url, "the length of this stream is not known");
    }

    /// Reads once; fewer bytes than asked for do not mean the end, 0 does.
    Result<Int> Read(const Url& url, Int position, Block<std::byte> block) const {
        if (!IsOpen())
            return ClosedError(url);
        ssize_t count = 0;
        while ((count = _seekable ? pread(_descriptor, block.data(), block.size(), position)
                                  : read(_descriptor, block.data(), block.size())) < 0 &&
               errno == EINTR)
            TRY(CheckInterrupted());
        if (count < 0)
            return IoError(url, "cannot read: @", ErrnoText(errno));
        return Int(count);
    }

    /// Writes all of the block.
    Result<void> Write(const Url& url, Int position, Block<const std::byte> block) const {
        if (!IsOpen())
            return ClosedError(url);
        while (!block.empty()) {
            const ssize_t count = _seekable ? pwrite(_descriptor, block.data(), block.size(), position)
                                            : write(_descriptor, block.data(), block.size());
            if (count < 0) {
                if (errno == EINTR) {
                    TRY(CheckInterrupted());
                    continue;
                }
                return IoError(url, "cannot write: @", ErrnoText(errno));
            }
            if (count == 0)
                return IoError(url, "cannot write: @", ErrnoText(ENOSPC));
            position += count;
            block = block.subspan(static_cast<size_t>(count));
        }
        return {};
    }

    Result<void> Close(const Url& url) {
        if (!IsOpen())
            return {};
        // The descriptor is gone even when close was interrupted. Remote file systems report a full disk here.
        if (close(std::exchange(_descriptor, -1)) != 0 && errno != EINTR)
            return IoError(url, "cannot close: @", ErrnoText(errno));
        return {};
    }

    /// A pipe can block forever; a signal that cancels the thread must end the wait.
    static Result<void> CheckInterrupted() {
        if (IsCurrentThreadCancelled())
            return ThreadCancelledError();
        return {};
    }
    static Error ClosedError(const Url& url) { return IoError(url, "the stream is closed"); }

private:
    int _descriptor = -1;
    bool _seekable = false;
};

class FileInputStream : public InputStreamInterface {
public:
    FileInputStream(Url url, FileHandle file) : _url(std::move(url)), _file(std::move(file)) {}
    Result<void> Construct() {
        return _buffer.Resize(kWindowSize, RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED);
    }

    Url GetUrl() const override { return _url; }
    Result<Int> GetStreamLength() override { return _file.GetLength(_url); }
    Bool SeekSupported() const override { return _file.IsSeekable(); }
    Result<void> Close() override {
        SetWindow(GetPosition(), nullptr, 0);
        return _file.Close(_url);
    }

protected:
    Result<void> FillWindow(Int position) override {
        const Int count = TRY(_file.Read(_url, position, _buffer.ToBlock()));
        SetWindow(position, _buffer.GetFirst(), count);
        return {};
    }
    Result<Int> ReadDirect(Int position, Block<std::byte> block) override { return _file.Read(_url, position, block); }

private:
    Url _url;
    FileHandle _file;
    BaseArray<std::byte> _buffer;
};

/// Collects small writes in a buffer. The first failure is final: what was lost cannot be written later.
class FileOutputStream : public OutputStreamInterface {
public:
    FileOutputStream(Url url, FileHandle file) : _url(std::move(url)), _file(std::move(file)) {}
    ~FileOutputStream() override { (void)Close(); }  // a failure here cannot be reported any more
    Result<void> Construct() {
        return _buffer.Resize(kWindowSize, RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED);
    }

    Url GetUrl() const override { return _url; }
    Result<Int> GetPosition() override { return _start + _used; }
    Result<void> Seek(Int position) override {
        TRY(Flush());
        if (position < 0)
            return IoError(_url, "cannot seek to position @", position);
        if (position != _start && !_file.IsSeekable())
            return IoError(_url, "cannot seek in this stream");
        _start = position;
        return {};
    }
    Result<void> Write(Block<const std::byte> block) override {
        TRY(Check());
        const Int count = static_cast<Int>(block.size());
        if (count > _buffer.GetCount() - _used)
            TRY(Flush());
        if (count >= _buffer.GetCount()) {
            TRY(Put(block));
            return {};
        }
        if (count > 0)
            std::memcpy(_buffer.GetFirst() + _used, block.data(), block.size());
        _used += count;
        return {};
    }
    Result<void> Flush() override {
        TRY(Check());
        TRY(Put(std::as_const(_buffer).ToBlock().first(static_cast<size_t>(_used))));
        _used = 0;
        return {};
    }
    Result<void> Close() override {
        if (!_file.IsOpen())
            return {};
        Result<void> flushed = Flush();
        Result<void> closed = _file.Close(_url);
        return flushed ? std::move(closed) : std::move(flushed);
    }

private:
    Result<void> Check() const {
        if (_failure)
            return _failure;
        return _file.IsOpen() ? Result<void>() : Result<void>(FileHandle::ClosedError(_url));
    }
    Result<void> Put(Block<const std::byte> block) {
        if (Result<void> written = _file.Write(_url, _start, block); !written) {
            _failure = written.GetError();
            return written;
        }
        _start += static_cast<Int>(block.size());
        return {};
    }

    Url _url;
    FileHandle _file;
    BaseArray<std::byte> _buffer;
    Int _start = 0;  ///< position of the buffer's first byte
    Int _used = 0;
    Error _failure;
};

/// One position for reading and writing: that of the input side. Writes go straight to the file.
class FileInOutStream : public InputStreamInterface, public OutputStreamInterface {
public:
    FileInOutStream(Url url, FileHandle file) : _url(std::move(url)), _file(std::move(file)) {}
    Result<void> Construct() {
        return _buffer.Resize(kWindowSize, RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED);
    }

    Url GetUrl() const override { return _url; }
    Result<Int> GetStreamLength() override { return _file.GetLength(_url); }
    Bool SeekSupported() const override { return _file.IsSeekable(); }
    Result<void> Close() override {
        SetWindow(InputStreamInterface::GetPosition(), nullptr, 0);
        return _file.Close(_url);
    }
    Result<Int> GetPosition() override { return InputStreamInterface::GetPosition(); }
    Result<void> Seek(Int position) override {
        if (position < 0)
            return IoError(_url, "cannot seek to position @", position);
        if (!_file.IsSeekable())
            return InputStreamInterface::Seek(position);
        SetWindow(position, nullptr, 0);
        return {};
    }
    Result<void> Write(Block<const std::byte> block) override {
        const Int position = InputStreamInterface::GetPosition();
        TRY(_file.Write(_url, position, block));
        SetWindow(position + static_cast<Int>(block.size()), nullptr, 0);
        return {};
    }
    Result<void> Flush() override {
        return _file.IsOpen() ? Result<void>() : Result<void>(FileHandle::ClosedError(_url));
    }

protected:
    Result<void> FillWindow(Int position) override {
        const Int count = TRY(_file.Read(_url, position, _buffer.ToBlock()));
        SetWindow(position, _buffer.GetFirst(), count);
        return {};
    }
    Result<Int> ReadDirect(Int position, Block<std::byte> block) override { return _file.Read(_url, position, block); }

private:
    Url _url;
    FileHandle _file;
    BaseArray<std::byte> _buffer;
};

}  // namespace

Result<InputStreamRef> OpenFileInput(const Url& url) {
    FileHandle file = TRY(FileHandle::Open(url, O_RDONLY));
    return InputStreamRef(TRY(NewObj<FileInputStream>(url, std::move(file))));
}

Result<OutputStreamRef> OpenFileOutput(const Url& url) {
    FileHandle file = TRY(FileHandle::Open(url, O_WRONLY | O_CREAT | O_TRUNC));
    return OutputStreamRef(TRY(NewObj<FileOutputStream>(url, std::move(file))));
}

Result<std::pair<InputStreamRef, OutputStreamRef>> OpenFileInOut(const Url& url) {
    FileHandle file = TRY(FileHandle::Open(url, O_RDWR | O_CREAT));
    Ref<FileInOutStream> stream = TRY(NewObj<FileInOutStream>(url, std::move(file)));
    return std::pair<InputStreamRef, OutputStreamRef>(stream, stream);
}

}  // namespace orvik
