#pragma once
/// @file
/// Typed stream access in a byte order, and a stack of chunk ends.

#include <bit>
#include <type_traits>

#include "orvik/basearray.h"
#include "orvik/iostreams.h"

namespace orvik {

enum class BYTEORDER : uint8_t { BIG = 1, LITTLE = 2 };

/// Converts between a file's byte order and the machine's; its own inverse. Floats are swapped as bits.
template <class T>
T SwapToOrder(T value, BYTEORDER order) {
    static_assert(std::is_arithmetic_v<T>);
    if ((order == BYTEORDER::BIG) == (std::endian::native == std::endian::big))
        return value;
    if constexpr (sizeof(T) == 8)
        return std::bit_cast<T>(__builtin_bswap64(std::bit_cast<uint64_t>(value)));
    else if constexpr (sizeof(T) == 4)
        return std::bit_cast<T>(__builtin_bswap32(std::bit_cast<uint32_t>(value)));
    else if constexpr (sizeof(T) == 2)
        return std::bit_cast<T>(__builtin_bswap16(std::bit_cast<uint16_t>(value)));
    else
        return value;
}

/// Typed reads from a stream. Unbuffered: the stream reads in large blocks. Every failure, including a short read, is
/// the stream's error.
class EndianReader {
public:
    EndianReader() = default;

    /// Replaces an earlier stream.
    void Attach(const InputStreamRef& stream, BYTEORDER order) {
        _stream = stream;
        _url = Url();
        _order = order;
    }
    /// Opens the URL.
    Result<void> Attach(const Url& url, BYTEORDER order) {
        const InputStreamRef stream = TRY(url.OpenInputStream());
        Attach(stream, order);
        _url = url;
        return {};
    }
    const InputStreamRef& GetStream() const { return _stream; }
    /// The URL that was opened; empty after attaching an open stream.
    const Url& GetUrl() const { return _url; }
    BYTEORDER GetByteOrder() const { return _order; }

    template <class T>
    Result<T> Read() {
        T value;
        TRY(_stream->Read(&value, sizeof(T)));
        return SwapToOrder(value, _order);
    }
    template <class T>
    Result<void> Read(T& value) {
        value = TRY(Read<T>());
        return {};
    }
    Result<uint8_t> ReadU8() { return Read<uint8_t>(); }
    Result<uint16_t> ReadU16() { return Read<uint16_t>(); }
    Result<uint32_t> ReadU32() { return Read<uint32_t>(); }
    Result<uint64_t> ReadU64() { return Read<uint64_t>(); }
    Result<int16_t> ReadS16() { return Read<int16_t>(); }
    Result<int32_t> ReadS32() { return Read<int32_t>(); }
    Result<int64_t> ReadS64() { return Read<int64_t>(); }
    Result<float> ReadF32() { return Read<float>(); }
    Result<double> ReadF64() { return Read<double>(); }
    /// Bytes without swapping.
    Result<void> ReadBlock(Block<std::byte> block) { return _stream->Read(block); }
    Result<void> Skip(Int count) { return _stream->Skip(count); }
    Result<void> Seek(Int position) { return _stream->Seek(position); }
    Int GetPosition() const { return _stream->GetPosition(); }

protected:
    InputStreamRef _stream;
    Url _url;
    BYTEORDER _order = BYTEORDER::LITTLE;
};

/// Typed writes to a stream.
class EndianWriter {
public:
    EndianWriter() = default;

    void Attach(const OutputStreamRef& stream, BYTEORDER order) {
        _stream = stream;
        _order = order;
    }
    Result<void> Attach(const Url& url, BYTEORDER order) {
        const OutputStreamRef stream = TRY(url.OpenOutputStream());
        Attach(stream, order);
        return {};
    }
    const OutputStreamRef& GetStream() const { return _stream; }

    template <class T>
    Result<void> Write(T value) {
        const T swapped = SwapToOrder(value, _order);
        return _stream->Write(&swapped, sizeof(T));
    }
    Result<void> WriteU8(uint8_t value) { return Write(value); }
    Result<void> WriteU16(uint16_t value) { return Write(value); }
    Result<void> WriteU32(uint32_t value) { return Write(value); }
    Result<void> WriteU64(uint64_t value) { return Write(value); }
    Result<void> WriteS16(int16_t value) { return Write(value); }
    Result<void> WriteS32(int32_t value) { return Write(value); }
    Result<void> WriteS64(int64_t value) { return Write(value); }
    Result<void> WriteF32(float value) { return Write(value); }
    Result<void> WriteF64(double value) { return Write(value); }
    Result<void> WriteBlock(Block<const std::byte> block) { return _stream->Write(block); }
    /// `count` zero bytes.
    Result<void> WriteZeros(Int count);

private:
    OutputStreamRef _stream;
    BYTEORDER _order = BYTEORDER::LITTLE;
};

/// A reader that tracks the ends of the chunks it is in.
class ChunkedFileIO : public EndianReader {
public:
    /// Replaces an earlier source and forgets its chunks.
    template <class Source>
    auto Attach(const Source& source, BYTEORDER order) {
        ClearChunks();
        return EndianReader::Attach(source, order);
    }
    /// Enters a chunk whose body of `size` bytes starts here. An end past the largest position is clamped to it.
    /// Illegal state for a negative size.
    Result<void> PushChunk(Int size);
    /// Bytes left in the innermost chunk, negative after an overrun; -1 outside all chunks.
    Int Remaining() const;
    /// Leaves the innermost chunk and skips its unread rest; never seeks back. Illegal state outside all chunks and
    /// after an overrun.
    Result<void> PopChunk();
    /// Forgets all chunks, for a new file.
    void ClearChunks() { _ends.Clear(); }

private:
    BaseArray<Int> _ends;  ///< absolute positions, outermost chunk first
};

/// Writes chunks that begin with their length, which is filled in when they end.
class ChunkedWriter : public EndianWriter {
public:
    /// Bytes of a length field.
    enum class LENGTH : uint8_t { BITS16 = 2, BITS32 = 4, BITS64 = 8 };
    /// Whether a length includes the padding.
    enum class PADDING : uint8_t { COUNTED, NOT_COUNTED };

    /// Reserves the length field of a chunk; the body follows.
    Result<void> PushChunk(LENGTH width = LENGTH::BITS32);
    /// Ends the innermost chunk: pads its body with zeros to a multiple of `alignment` and writes its length. Illegal
    /// state outside all chunks and for a length that the field cannot hold.
    Result<void> PopChunk(Int alignment = 1, PADDING padding = PADDING::NOT_COUNTED);

private:
    struct Chunk {
        Int position;  ///< of its length field
        LENGTH width;
    };
    BaseArray<Chunk> _chunks;
};

}  // namespace orvik
