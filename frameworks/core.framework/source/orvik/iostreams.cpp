#include "orvik/iostreams.h"

#include <algorithm>

namespace orvik {

namespace {

/// From this size on a block goes past the window.
constexpr size_t kDirectSize = size_t(64) << 10;

}  // namespace

Result<Int> InputStreamInterface::ReadDirect(Int position, Block<std::byte> block) {
    TRY(FillWindow(position));
    const Int count = std::min(static_cast<Int>(block.size()), static_cast<Int>(_end - _next));
    if (count > 0)
        std::memcpy(block.data(), _next, static_cast<size_t>(count));
    _next += count;
    return count;
}

Result<Int> InputStreamInterface::ReadEOS(Block<std::byte> block) {
    if (IsAbsent())
        return Unbound();
    size_t done = 0;
    while (done < block.size()) {
        Block<std::byte> rest = block.subspan(done);
        if (_next == _end) {
            const Int position = GetPosition();
            if (rest.size() >= kDirectSize) {
                const Int count = TRY(ReadDirect(position, rest));
                if (count == 0)
                    break;
                if (GetPosition() != position + count)  // read past the window
                    SetWindow(position + count, nullptr, 0);
                done += static_cast<size_t>(count);
                continue;
            }
            TRY(FillWindow(position));
            if (_next == _end)
                break;
        }
        const size_t count = std::min(rest.size(), static_cast<size_t>(_end - _next));
        std::memcpy(rest.data(), _next, count);
        _next += count;
        done += count;
    }
    return static_cast<Int>(done);
}

Result<void> InputStreamInterface::ReadBeyondWindow(Block<std::byte> block) {
    if (IsAbsent())
        return Unbound();
    const Int position = GetPosition();
    const Int count = TRY(ReadEOS(block));
    if (count < static_cast<Int>(block.size())) {
        return IoError(GetUrl(), "unexpected end of file: @ bytes wanted at position @, @ are there", block.size(),
                       position, count);
    }
    return {};
}

Result<void> InputStreamInterface::SeekBeyondWindow(Int position) {
    if (IsAbsent())
        return Unbound();
    if (position < 0)
        return IoError(GetUrl(), "cannot seek to position @", position);
    const Int current = GetPosition();
    if (position == current)
        return {};
    if (!SeekSupported()) {
        if (position < current)
            return IoError(GetUrl(), "cannot seek backwards in this stream");
        return SkipBeyondWindow(position - current);
    }
    const Int length = TRY(GetStreamLength());
    if (position > length)
        return IoError(GetUrl(), "cannot seek to position @: the file ends at @", position, length);
    SetWindow(position, nullptr, 0);
    return {};
}

Result<void> InputStreamInterface::SkipBeyondWindow(Int count) {
    if (IsAbsent())
        return Unbound();
    if (count < 0)
        return IoError(GetUrl(), "cannot skip @ bytes", count);
    const Int current = GetPosition();
    if (SeekSupported()) {
        const Int length = TRY(GetStreamLength());
        if (count > length - current)
            return IoError(GetUrl(), "cannot skip @ bytes at position @: the file ends at @", count, current, length);
        SetWindow(current + count, nullptr, 0);
        return {};
    }
    for (Int rest = count; rest > 0;) {
        if (_next == _end) {
            TRY(FillWindow(GetPosition()));
            if (_next == _end)
                return IoError(GetUrl(), "cannot skip @ bytes at position @: the stream ends", count, current);
        }
        const Int step = std::min(rest, static_cast<Int>(_end - _next));
        _next += step;
        rest -= step;
    }
    return {};
}

Int InputStreamInterface::BytesAvailable() {
    const Result<Int> length = GetStreamLength();
    if (!length)
        return IsAbsent() ? 0 : -1;
    return std::max(Int(0), *length - GetPosition());
}

}  // namespace orvik
