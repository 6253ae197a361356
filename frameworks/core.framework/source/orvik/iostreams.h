#pragma once
/// @file
/// Input and output streams. Every failure is an io error that carries the stream's URL.

#include <cstring>

#include "orvik/errortypes.h"

namespace orvik {

/// A byte source. `Read` makes no virtual call for bytes within the stream's window: a two-byte read is a memory
/// access.
class ORVIK_API InputStreamInterface : public virtual Object {
    ORVIK_INTERFACE(InputStreamInterface, "net.orvik.interface.inputstream");

public:
    virtual Url GetUrl() const { return Unbound(); }
    /// Total bytes, or an error for a stream that does not know.
    virtual Result<Int> GetStreamLength() { return Unbound(); }
    virtual Result<void> Close() { return Unbound(); }
    virtual Bool SeekSupported() const { return Unbound(); }

    Int GetPosition() const noexcept { return _windowStart + (_next - _window); }
    /// To an absolute position. A position past the end is an io error.
    Result<void> Seek(Int position) {
        const Int offset = position - _windowStart;
        if (_window && offset >= 0 && offset <= _end - _window) [[likely]] {
            _next = _window + offset;
            return {};
        }
        return SeekBeyondWindow(position);
    }
    /// Forward only. Skipping past the end is an io error.
    Result<void> Skip(Int count) {
        if (count >= 0 && count <= _end - _next) [[likely]] {
            _next += count;
            return {};
        }
        return SkipBeyondWindow(count);
    }
    /// All bytes of the block or an error.
    Result<void> Read(Block<std::byte> block) {
        if (static_cast<Int>(block.size()) <= _end - _next) [[likely]] {
            if (!block.empty())
                std::memcpy(block.data(), _next, block.size());
            _next += block.size();
            return {};
        }
        return ReadBeyondWindow(block);
    }
    Result<void> Read(void* to, size_t count) { return Read({static_cast<std::byte*>(to), count}); }
    /// Up to the block's size; the count is smaller only at the end.
    Result<Int> ReadEOS(Block<std::byte> block);
    /// Bytes between the position and the end, or -1 when the stream does not know.
    Int BytesAvailable();

protected:
    /// Moves the window so that it starts at `position` and holds at least one byte, or none at the end.
    /// The implementation calls `SetWindow`.
    virtual Result<void> FillWindow(Int position) {
        (void)position;
        return Unbound();
    }
    /// Reads straight into the caller's block, past the window; returns the count, 0 at the end. The base uses the
    /// window; streams over a system call override it for large blocks.
    virtual Result<Int> ReadDirect(Int position, Block<std::byte> block);
    void SetWindow(Int start, const std::byte* data, Int count) noexcept {
        _windowStart = start;
        _window = _next = data;
        _end = data + count;
    }

private:
    Result<void> SeekBeyondWindow(Int position);
    Result<void> SkipBeyondWindow(Int count);
    Result<void> ReadBeyondWindow(Block<std::byte> block);

    Int _windowStart = 0;
    const std::byte* _window = nullptr;
    const std::byte* _next = nullptr;
    const std::byte* _end = nullptr;
};

/// A byte sink.
class ORVIK_API OutputStreamInterface : public virtual Object {
    ORVIK_INTERFACE(OutputStreamInterface, "net.orvik.interface.outputstream");

public:
    virtual Url GetUrl() const { return Unbound(); }
    virtual Result<Int> GetPosition() { return Unbound(); }
    /// Seeking past the end is allowed; the gap reads as zeros.
    virtual Result<void> Seek(Int position) {
        (void)position;
        return Unbound();
    }
    virtual Result<void> Write(Block<const std::byte> block) {
        (void)block;
        return Unbound();
    }
    Result<void> Write(const void* from, size_t count) {
        return Write(Block<const std::byte>(static_cast<const std::byte*>(from), count));
    }
    /// Announces about how many bytes the stream will have, counted from its start: memory is then taken once
    /// instead of growing. Only a hint; most streams ignore it.
    virtual void Expect(Int bytes) { (void)bytes; }
    virtual Result<void> Flush() { return Unbound(); }
    /// Flushes and closes. A full disk is reported here at the latest. Closing twice succeeds.
    virtual Result<void> Close() { return Unbound(); }
};

}  // namespace orvik
