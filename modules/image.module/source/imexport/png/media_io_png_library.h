#pragma once
/// @file
/// Wraps libpng: turns its long jumps into results, and supplies memory and bytes from the framework.

#include <csetjmp>
#include <png.h>
#include <type_traits>

#include "orvik/iostreams.h"

namespace orvik {

/// One run of the library, reading or writing. Must not be moved while open: the library holds its address.
class PngLibrary {
public:
    PngLibrary() = default;
    PngLibrary(const PngLibrary&) = delete;
    PngLibrary& operator=(const PngLibrary&) = delete;
    ~PngLibrary() { Close(); }

    /// Closes an earlier run. The stream must live until `Close`.
    Result<void> OpenForReading(const InputStreamRef& input);
    Result<void> OpenForWriting(const OutputStreamRef& output);
    void Close() noexcept;

    /// Runs `step(png, info)`, which a long jump may leave at any call of the library, so it must hold nothing with a
    /// destructor.
    /// @return the error of the stream or allocator that made the library give up, else its own as "PNG Error: @"
    template <class F>
    Result<void> Call(F step) {
        static_assert(std::is_trivially_destructible_v<F>);
        if (RunGuarded(_png, _info, step))
            return {};
        return TakeError();
    }
    /// True when an allocation failed or would have exceeded the memory bound, even if the library continued without
    /// it.
    bool RanShortOfMemory() const { return _shortOfMemory; }

private:
    template <class F>
    [[gnu::noinline]] static bool RunGuarded(png_structp png, png_infop info, F& step) {
        if (setjmp(*png_set_longjmp_fn(png, longjmp, sizeof(jmp_buf))))
            return false;
        step(png, info);
        return true;
    }
    Result<void> CreateInfos();
    Error TakeError();
    void HoldError(const char* text) noexcept;
    bool ReadInput(void* to, size_t count) noexcept;
    bool WriteOutput(const void* from, size_t count) noexcept;
    Int GetMemoryBound() const;
    void* TakeMemory(size_t size) noexcept;
    void ReturnMemory(void* memory) noexcept;

    [[noreturn]] static void OnError(png_structp png, png_const_charp text);
    static void OnWarning(png_structp png, png_const_charp text);
    static png_voidp OnAllocate(png_structp png, png_alloc_size_t size);
    static void OnFree(png_structp png, png_voidp memory);
    static void OnRead(png_structp png, png_bytep to, size_t count);
    static void OnWrite(png_structp png, png_bytep from, size_t count);
    static void OnFlush(png_structp png);

    png_structp _png = nullptr;
    png_infop _info = nullptr, _endInfo = nullptr;
    bool _writes = false;
    bool _shortOfMemory = false;
    Int _bytesHeld = 0;   ///< allocated by the library
    Int _longestRow = 0;  ///< in bytes, that the file's length can fill
    Error _error;
    InputStreamRef _input;
    OutputStreamRef _output;
};

}  // namespace orvik
