#include "imexport/frame/media_io_buffer.h"

#include <limits>

#include "storage/decode_limits.h"

#include "orvik/mediasession_base.h"

namespace orvik {

Int GetBytesLeft(const InputStreamRef& stream) {
    const Int left = stream->BytesAvailable();
    return left < 0 ? std::numeric_limits<Int>::max() : left;
}

Result<Int> MultiplySizes(std::initializer_list<Int> factors) {
    Int product = 1;
    for (const Int factor : factors) {
        if (factor < 0 || __builtin_mul_overflow(product, factor, &product))
            return OutOfMemoryError();
    }
    return product;
}

Result<void> RequireContent(const InputStreamRef& stream, Int bytes, Int expansion) {
    if (bytes / expansion > GetBytesLeft(stream))
        return MediaSessionWrongTypeError();
    return {};
}

Result<void> CodecBuffer::Allocate(Int bytes) {
    TRY(CheckDecodeBuffer(bytes));
    return _bytes.Resize(bytes, RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED);
}

Result<void> CodecBuffer::AllocateZeroed(Int bytes) {
    TRY(CheckDecodeBuffer(bytes));
    _bytes.Reset();
    return _bytes.Resize(bytes, RESIZEFLAGS::FIT_TO_SIZE);
}

Result<void> CodecBuffer::AllocateFromFile(Int bytes, const InputStreamRef& stream, Int expansion) {
    TRY(RequireContent(stream, bytes, expansion));
    return Allocate(bytes);
}

Result<void> CodecBuffer::ReadFromFile(Int bytes, const InputStreamRef& stream) {
    TRY(AllocateFromFile(bytes, stream));
    return stream->Read(_bytes.ToBlock());
}

}  // namespace orvik
