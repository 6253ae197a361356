#pragma once
/// @file
/// Ctrl-C and its kin: the first one cancels at the next row, a second one ends the program at once.

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
    /// The file to remove when a second signal ends the program; empty for none.
    static void SetTemporaryFile(const std::string& path) noexcept;
};

}  // namespace orvik::cli
