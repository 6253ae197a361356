#pragma once
/// @file
/// What the command line says: its exit statuses, its errors and its standard output.

#include <string>
#include <string_view>

#include "orvik/errorbase.h"

namespace orvik::cli {

/// Exit statuses. An interrupted command ends with 128 plus the signal's number.
enum ExitStatus : int { kDone = 0, kFailed = 1, kWrongUsage = 2 };

class Console {
public:
    /// With causes and source locations in every error.
    void SetVerbose(bool verbose) noexcept { _verbose = verbose; }
    /// Shown behind unresolved errors: they mean that this module is not there.
    void SetMissingModule(std::string name) { _missingModule = std::move(name); }

    /// Prints "orvik: SUBJECT: MESSAGE" in one line.
    /// @return the exit status: `kFailed`, or that of the signal that interrupted the command
    int Fail(std::string_view subject, const Error& error) const;
    /// @return kWrongUsage
    int FailUsage(std::string_view message) const;
    /// Writes to standard output. A reader that has closed its end gets no complaint, only the exit status.
    int Write(std::string_view text) const;

private:
    bool _verbose = false;
    std::string _missingModule;
};

/// The text with control characters as "\x1b" and so on: names come from files and must not steer a terminal.
std::string Printable(std::string_view text);

}  // namespace orvik::cli
