#pragma once
/// @file
/// libjpeg behind a fence: its long jumps end here as results.

#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>
#include <type_traits>

#include "orvik/iostreams.h"

namespace orvik {

/// What reading and writing share: the error manager of the library and the place to which it jumps. Not to be moved
/// while in use: the library knows its address.
class JpegLibrary {
public:
    JpegLibrary(const JpegLibrary&) = delete;
    JpegLibrary& operator=(const JpegLibrary&) = delete;

protected:
    /// @param failure  with "@" for the library's own words
    explicit JpegLibrary(LocatedText failure) : _failure(failure) {}
    ~JpegLibrary() = default;

    /// Runs `step()`, which may be left by a long jump at any call of the library. It holds nothing with a destructor,
    /// for none would run.
    /// @return the error of the stream that made the library give up, out of memory, or the library's own text
    template <class F>
    Result<void> Call(F step) {
        static_assert(std::is_trivially_destructible_v<F>);
        if (RunGuarded(_return, step))
            return {};
        return TakeError();
    }
    /// The error manager, for an object of the library; jumps back into the `Call` that runs.
    jpeg_error_mgr* InitErrors();
    /// Keeps an error that came up inside a callback; the first one stays.
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
