#include "imexport/frame/media_io_chunkedfileio.h"

namespace orvik {

Result<void> EndianWriter::WriteZeros(Int count) {
    static constexpr std::byte kZeros[64]{};
    for (; count > 0; count -= Int(sizeof(kZeros)))
        TRY(_stream->Write(kZeros, static_cast<size_t>(std::min(count, Int(sizeof(kZeros))))));
    return {};
}

Result<void> ChunkedFileIO::PushChunk(Int size) {
    Int end = 0;
    if (size < 0 || __builtin_add_overflow(GetPosition(), size, &end))
        return IllegalArgumentError();
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

}  // namespace orvik
