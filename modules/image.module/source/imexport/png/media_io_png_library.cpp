#include "imexport/png/media_io_png_library.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "orvik/mediasession_limits.h"

namespace orvik {
namespace {

/// The format's limit. The importer checks whether the file can hold such a picture.
constexpr png_uint_32 kLargestSide = 0x7FFFFFFF;
/// Limit of a chunk and of an inflated profile. A JPEG limits profiles to 255 segments, about the same.
constexpr png_alloc_size_t kLargestChunk = 16 << 20;
/// What the library may hold besides rows: a profile and the inflate state.
constexpr Int kMostWithoutRows = Int(kLargestChunk) + (1 << 20);
/// Rows that the library holds at once: the current one, the previous one, and a spare one for other versions.
constexpr Int kRowsHeld = 3;
constexpr Int kRowSlack = 4096;
constexpr Int kBestDeflate = 1032;  // a match of 258 bytes in two bits

/// Unused chunks that the library would inflate or keep.
constexpr png_byte kUnusedChunks[] = "bKGD\0eXIf\0hIST\0iTXt\0oFFs\0pCAL\0sBIT\0sCAL\0sPLT\0tEXt\0tIME\0zTXt";
constexpr int kUnusedChunkCount = sizeof(kUnusedChunks) / 5;

/// Keeps the size of a block, which is subtracted from the total when it is freed.
struct alignas(std::max_align_t) BlockHeader {
    Int bytes;
};

}  // namespace

Result<void> PngLibrary::OpenForReading(const InputStreamRef& input) {
    Close();
    _input = input;
    const Int fileBytes = input->BytesAvailable();
    if (fileBytes < 0 || __builtin_mul_overflow(fileBytes, kBestDeflate, &_longestRow))
        _longestRow = std::numeric_limits<Int>::max();
    _png = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning, this, OnAllocate, OnFree);
    TRY(CreateInfos());
    return Call([this](png_structp png, png_infop) {
        png_set_read_fn(png, this, OnRead);
        png_set_sig_bytes(png, 0);
        png_set_user_limits(png, kLargestSide, kLargestSide);
        png_set_chunk_malloc_max(png, kLargestChunk);
        png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, kUnusedChunks, kUnusedChunkCount);
    });
}

Result<void> PngLibrary::OpenForWriting(const OutputStreamRef& output) {
    Close();
    _writes = true;
    _output = output;
    _png = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning, this, OnAllocate, OnFree);
    TRY(CreateInfos());
    return Call([this](png_structp png, png_infop) {
        png_set_write_fn(png, this, OnWrite, OnFlush);
        png_set_user_limits(png, kLargestSide, kLargestSide);
    });
}

Result<void> PngLibrary::CreateInfos() {
    if (!_png)
        return OutOfMemoryError();
    TRY(Call([this](png_structp png, png_infop) {
        _info = png_create_info_struct(png);
        _endInfo = png_create_info_struct(png);
    }));
    if (!_info || !_endInfo)
        return OutOfMemoryError();
    return {};
}

void PngLibrary::Close() noexcept {
    if (_png) {
        (void)Call([this](png_structp, png_infop) {  // errors during teardown are irrelevant
            if (_writes) {
                png_destroy_info_struct(_png, &_endInfo);  // the next call does not free it
                png_destroy_write_struct(&_png, &_info);
            } else {
                png_destroy_read_struct(&_png, &_info, &_endInfo);
            }
        });
    }
    _png = nullptr;
    _info = _endInfo = nullptr;
    _writes = false;
    _shortOfMemory = false;
    _error = nullptr;
    _input = nullptr;
    _output = nullptr;
}

Error PngLibrary::TakeError() { return _error ? std::exchange(_error, nullptr) : IllegalStateError(); }

void PngLibrary::HoldError(const char* text) noexcept {
    if (_error)
        return;
    _error = _shortOfMemory ? OutOfMemoryError() : FileFormatError("PNG Error: @", text);
}

bool PngLibrary::ReadInput(void* to, size_t count) noexcept {
    Result<void> read = _input->Read(to, count);
    if (!read && !_error)
        _error = std::move(read).TakeError();
    return !_error;
}

bool PngLibrary::WriteOutput(const void* from, size_t count) noexcept {
    Result<void> written = _output->Write(from, count);
    if (!written && !_error)
        _error = std::move(written).TakeError();
    return !_error;
}

void PngLibrary::OnError(png_structp png, png_const_charp text) {
    static_cast<PngLibrary*>(png_get_error_ptr(png))->HoldError(text);
    png_longjmp(png, 1);
}

void PngLibrary::OnWarning(png_structp, png_const_charp) {}

/// Bound on all that the library holds. Rows are included once their length is known, up to what the file's length can
/// fill and the decoded-buffer limit permits.
Int PngLibrary::GetMemoryBound() const {
    if (_writes)
        return std::numeric_limits<Int>::max();
    const size_t rowBytes = _info ? png_get_rowbytes(_png, _info) : 0;
    if (rowBytes > size_t(std::min(_longestRow, GetDecodeBufferLimit())))
        return kMostWithoutRows;
    return kMostWithoutRows + kRowsHeld * (Int(rowBytes) + kRowSlack);
}

void* PngLibrary::TakeMemory(size_t size) noexcept {
    const Int bound = GetMemoryBound();
    void* const block =
        size <= size_t(std::max(bound - _bytesHeld, Int(0))) ? Allocate(sizeof(BlockHeader) + size) : nullptr;
    if (!block) {
        _shortOfMemory = true;
        return nullptr;
    }
    _bytesHeld += Int(size);
    return new (block) BlockHeader{Int(size)} + 1;
}

void PngLibrary::ReturnMemory(void* memory) noexcept {
    BlockHeader* const block = static_cast<BlockHeader*>(memory) - 1;
    _bytesHeld -= block->bytes;
    Free(block);
}

png_voidp PngLibrary::OnAllocate(png_structp png, png_alloc_size_t size) {
    return static_cast<PngLibrary*>(png_get_mem_ptr(png))->TakeMemory(size);
}

void PngLibrary::OnFree(png_structp png, png_voidp memory) {
    static_cast<PngLibrary*>(png_get_mem_ptr(png))->ReturnMemory(memory);
}

void PngLibrary::OnRead(png_structp png, png_bytep to, size_t count) {
    if (!static_cast<PngLibrary*>(png_get_io_ptr(png))->ReadInput(to, count))
        png_error(png, "Read Error!");
}

void PngLibrary::OnWrite(png_structp png, png_bytep from, size_t count) {
    if (!static_cast<PngLibrary*>(png_get_io_ptr(png))->WriteOutput(from, count))
        png_error(png, "Write Error!");
}

void PngLibrary::OnFlush(png_structp) {}

}  // namespace orvik
