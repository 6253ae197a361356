#pragma once
/// @file
/// What the codecs read and write numbers with: typed access in a byte order, and a stack of chunk ends.

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

/// Typed reads from a stream. Nothing is buffered here: the stream below reads in large blocks. Every failure, a short
/// read among them, is the stream's error.
class EndianReader {
public:
    EndianReader() = default;

    /// Replaces an earlier stream.
    void Attach(const InputStreamRef& stream, BYTEORDER order) {
        _stream = stream;
        _url = Url();
        _order = order;
    }
    /// Opens the URL itself.
    Result<void> Attach(const Url& url, BYTEORDER order) {
        const InputStreamRef stream = TRY(url.OpenInputStream());
        Attach(stream, order);
        _url = url;
        return {};
    }
    const InputStreamRef& GetStream() const { return _stream; }
    /// The URL that was opened; empty for a stream that came open.
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
    /// Bytes as they are.
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

/// A reader that knows where the chunks end that it is inside of.
class ChunkedFileIO : public EndianReader {
public:
    /// Replaces an earlier source and forgets its chunks.
    template <class Source>
    auto Attach(const Source& source, BYTEORDER order) {
        ClearChunks();
        return EndianReader::Attach(source, order);
    }
    /// Enters a chunk whose body of `size` bytes starts here. An end beyond the last position there can be is that
    /// position. Illegal state for a size below 0.
    Result<void> PushChunk(Int size);
    /// Bytes left in the innermost chunk, below 0 when it was overrun; -1 outside of all chunks.
    Int Remaining() const;
    /// Leaves the innermost chunk and skips what was not read of it; never goes back. Illegal state outside of all
    /// chunks and for a body that was overrun.
    Result<void> PopChunk();
    /// Forgets all chunks, for a new file.
    void ClearChunks() { _ends.Clear(); }

private:
    BaseArray<Int> _ends;  ///< absolute positions, outermost chunk first
};

/// A writer of chunks that begin with their length, which is known only when they end.
class ChunkedWriter : public EndianWriter {
public:
    /// Width of a length, in bytes.
    enum class LENGTH : uint8_t { BITS16 = 2, BITS32 = 4, BITS64 = 8 };
    /// Whether a length counts the zeros that fill a chunk up.
    enum class PADDING : uint8_t { COUNTED, NOT_COUNTED };

    /// Leaves room for the length of a chunk whose body starts behind it.
    Result<void> PushChunk(LENGTH width = LENGTH::BITS32);
    /// Ends the innermost chunk: fills its body with zeros to a multiple of `alignment` and enters its length. Illegal
    /// state outside of all chunks, and for a body whose length the field cannot hold.
    Result<void> PopChunk(Int alignment = 1, PADDING padding = PADDING::NOT_COUNTED);

private:
    struct Chunk {
        Int position;  ///< of its length
        LENGTH width;
    };
    BaseArray<Chunk> _chunks;
};

}  // namespace orvik
