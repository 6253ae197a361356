#include "imexport/frame/media_io_chunkedfileio.h"

#include <limits>

namespace orvik {

Result<void> EndianWriter::WriteZeros(Int count) {
    static constexpr std::byte kZeros[64]{};
    for (; count > 0; count -= Int(sizeof(kZeros)))
        TRY(_stream->Write(kZeros, static_cast<size_t>(std::min(count, Int(sizeof(kZeros))))));
    return {};
}

Result<void> ChunkedFileIO::PushChunk(Int size) {
    if (size < 0)
        return IllegalStateError();
    Int end = 0;
    if (__builtin_add_overflow(GetPosition(), size, &end))
        end = std::numeric_limits<Int>::max();
    return _ends.Append(end);
}

Int ChunkedFileIO::Remaining() const { return _ends.IsEmpty() ? -1 : _ends[_ends.GetCount() - 1] - GetPosition(); }

Result<void> ChunkedFileIO::PopChunk() {
    if (_ends.IsEmpty())
        return IllegalStateError();
    const Int end = _ends[_ends.GetCount() - 1];
    _ends.Pop();
    const Int position = GetPosition();
    if (end < position)
        return IllegalStateError();
    return end == position ? Result<void>() : Skip(end - position);
}

Result<void> ChunkedWriter::PushChunk(LENGTH width) {
    const Int position = TRY(GetStream()->GetPosition());
    TRY(_chunks.Append(Chunk{position, width}));
    return WriteZeros(Int(width));
}

Result<void> ChunkedWriter::PopChunk(Int alignment, PADDING padding) {
    if (_chunks.IsEmpty())
        return IllegalStateError();
    const Chunk chunk = _chunks[_chunks.GetCount() - 1];
    _chunks.Pop();
    const OutputStreamRef& stream = GetStream();
    Int end = TRY(stream->GetPosition());
    Int length = end - chunk.position - Int(chunk.width);
    const Int filler = (alignment - length % alignment) % alignment;
    TRY(WriteZeros(filler));
    end += filler;
    if (padding == PADDING::COUNTED)
        length += filler;
    const Int bits = Int(chunk.width) * 8;
    if (bits < 64 && length >> bits != 0)
        return IllegalStateError("A chunk of @ bytes is too long for its length of @ bits.", length, bits);
    TRY(stream->Seek(chunk.position));
    switch (chunk.width) {
        case LENGTH::BITS16:
            TRY(WriteU16(uint16_t(length)));
            break;
        case LENGTH::BITS32:
            TRY(WriteU32(uint32_t(length)));
            break;
        case LENGTH::BITS64:
            TRY(WriteU64(uint64_t(length)));
            break;
    }
    return stream->Seek(end);
}

}  // namespace orvik
