#include "imexport/png/media_io_png_library.h"

namespace orvik {
namespace {

/// @{ Bounds while reading. Larger pictures and chunks are no honest files; what a picture may take is tested apart.
constexpr png_uint_32 kMaxReadSide = 1000000;
constexpr png_uint_32 kMaxChunks = 1000;
constexpr png_alloc_size_t kMaxChunkBytes = 8000000;
/// @}
constexpr png_uint_32 kMaxWriteSide = 0x7FFFFFFF;

}  // namespace

Result<void> PngLibrary::OpenForReading(const InputStreamRef& input) {
    Close();
    _input = input;
    _png = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning, this, OnAllocate, OnFree);
    TRY(CreateInfos());
    return Call([this](png_structp png, png_infop) {
        png_set_read_fn(png, this, OnRead);
        png_set_sig_bytes(png, 0);
        png_set_user_limits(png, kMaxReadSide, kMaxReadSide);
        png_set_chunk_cache_max(png, kMaxChunks);
        png_set_chunk_malloc_max(png, kMaxChunkBytes);
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
        png_set_user_limits(png, kMaxWriteSide, kMaxWriteSide);
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
        (void)Call([this](png_structp, png_infop) {  // what fails while everything goes interests nobody
            if (_writes) {
                png_destroy_info_struct(_png, &_endInfo);  // which the next call does not know
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

png_voidp PngLibrary::OnAllocate(png_structp png, png_alloc_size_t size) {
    void* block = Allocate(size);
    if (!block)
        static_cast<PngLibrary*>(png_get_mem_ptr(png))->_shortOfMemory = true;
    return block;
}

void PngLibrary::OnFree(png_structp, png_voidp block) { Free(block); }

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
