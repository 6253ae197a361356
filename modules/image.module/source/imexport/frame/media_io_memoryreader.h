#pragma once
/// @file
/// Bounds-checked reads from memory.

#include "imexport/frame/media_io_chunkedfileio.h"

#include "orvik/mediasession_base.h"

namespace orvik {

/// Typed reads from a block, all bounds-checked.
class MemoryReader {
public:
    /// @param block    must outlive the reader
    /// @param failure  text of the wrong-type error for a read past the end; may be null
    MemoryReader(Block<const std::byte> block, BYTEORDER order, const char* failure = nullptr)
        : _block(block), _order(order), _failure(failure) {}

    Int GetSize() const { return Int(_block.size()); }
    Int GetPosition() const { return _position; }
    Int Remaining() const { return GetSize() - _position; }
    Result<void> Seek(Int position) {
        if (position < 0 || position > GetSize())
            return Failure();
        _position = position;
        return {};
    }
    Result<void> Skip(Int count) {
        if (count < 0 || count > Remaining())
            return Failure();
        _position += count;
        return {};
    }
    /// The next `count` bytes, not copied.
    Result<Block<const std::byte>> ReadBlock(Int count) {
        const Int start = _position;
        TRY(Skip(count));
        return _block.subspan(size_t(start), size_t(count));
    }
    template <class T>
    Result<T> Read() {
        const Block<const std::byte> bytes = TRY(ReadBlock(Int(sizeof(T))));
        T value;
        std::memcpy(&value, bytes.data(), sizeof(T));
        return SwapToOrder(value, _order);
    }
    Result<uint8_t> ReadU8() { return Read<uint8_t>(); }
    Result<uint16_t> ReadU16() { return Read<uint16_t>(); }
    Result<uint32_t> ReadU32() { return Read<uint32_t>(); }

    Error Failure() const {
        return _failure ? MediaSessionWrongTypeError("@", _failure) : MediaSessionWrongTypeError();
    }

private:
    Block<const std::byte> _block;
    BYTEORDER _order;
    const char* _failure;
    Int _position = 0;
};

}  // namespace orvik
