#pragma once
/// @file
/// Wraps libjpeg: turns its long jumps into results.

#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>
#include <type_traits>

#include "orvik/iostreams.h"

namespace orvik {

/// Shared by reading and writing: the library's error manager and the target of its jumps. Must not be moved while in
/// use: the library holds its address.
class JpegLibrary {
public:
    JpegLibrary(const JpegLibrary&) = delete;
    JpegLibrary& operator=(const JpegLibrary&) = delete;

protected:
    /// @param failure  text with "@" for the library's message
    explicit JpegLibrary(LocatedText failure) : _failure(failure) {}
    ~JpegLibrary() = default;

    /// Runs `step()`, which a long jump may leave at any library call, so it must hold nothing with a destructor.
    /// @return the error of the stream that made the library give up, out of memory, or the library's own text
    template <class F>
    Result<void> Call(F step) {
        static_assert(std::is_trivially_destructible_v<F>);
        if (RunGuarded(_return, step))
            return {};
        return TakeError();
    }
    /// The error manager for a library object; it jumps back into the running `Call`.
    jpeg_error_mgr* InitErrors();
    /// Keeps an error raised inside a callback; the first one wins.
    void HoldError(Error error) noexcept;
    [[noreturn]] void Leave() { longjmp(_return, 1); }

    /// An io error with its cause.
    static Error MakeStreamError(const Url& url, LocatedText text, Error cause) noexcept;

private:
    template <class F>
    [[gnu::noinline]] static bool RunGuarded(jmp_buf& target, F& step) {
        if (setjmp(target))
            return false;
        step();
        return true;
    }
    Error TakeError();
    void HoldLibraryError(j_common_ptr info) noexcept;
    [[noreturn]] static void OnError(j_common_ptr info);
    static void OnMessage(j_common_ptr info);

    LocatedText _failure;
    jpeg_error_mgr _errors{};
    jmp_buf _return;
    Error _error;
};

}  // namespace orvik
