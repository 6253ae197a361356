#pragma once
/// @file
/// Ctrl-C and related signals: the first one cancels at the next row, or ends the program at once while it waits for
/// another program; a second one always ends it at once.

#include <string>

#include "orvik/threadservices.h"

namespace orvik::cli {

struct Interruption {
    /// Handles SIGINT, SIGTERM and SIGHUP unless the caller's shell had them ignored. Writes to a closed pipe or over a
    /// file size limit become ordinary errors.
    static void Install() noexcept;
    static const CancelToken& GetToken() noexcept;
    /// The signal that came, or 0.
    static int GetSignal() noexcept;
    /// The file to remove when the program ends early; empty for none.
    static void SetTemporaryFile(const std::string& path) noexcept;
    /// Also for signal handlers.
    static void RemoveTemporaryFile() noexcept;

    /// Removes the temporary file and lets the signal's default action end the program, so that shells see the reason.
    [[noreturn]] static void EndBySignal(int signal) noexcept;
    /// The reader of a pipe has gone. Ends the program by SIGPIPE, which was held back so that nothing is left behind;
    /// returns if the caller's shell had that signal ignored.
    static void EndByClosedPipe() noexcept;

    /// In scope around calls that may block on a pipe: nothing tests for cancellation there.
    class Waiting {
    public:
        Waiting() noexcept;
        ~Waiting();
        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;
    };
};

}  // namespace orvik::cli
