#pragma once
/// @file
/// Exit statuses, error messages and standard output.

#include <string>
#include <string_view>

#include "orvik/errorbase.h"

namespace orvik::cli {

/// Exit statuses. 128 plus a signal's number stands for an interrupted command, which then ends by that signal.
enum ExitStatus : int { kDone = 0, kFailed = 1, kWrongUsage = 2 };

class Console {
public:
    /// Whether errors are shown with their causes and source locations.
    void SetVerbose(bool verbose) noexcept { _verbose = verbose; }
    /// Shown after unresolved errors, which mean that this module was not found.
    void SetMissingModule(std::string name) { _missingModule = std::move(name); }

    /// Prints "orvik: SUBJECT: MESSAGE" in one line.
    /// @return the exit status: `kFailed`, or that of the signal that interrupted the command
    int Fail(std::string_view subject, const Error& error) const;
    /// @return kWrongUsage
    int FailUsage(std::string_view message) const;
    /// Allocates nothing.
    /// @return kFailed
    static int FailOutOfMemory() noexcept;
    /// Writes to standard output. Nothing is said about a reader that has closed its end.
    int Write(std::string_view text) const;

private:
    bool _verbose = false;
    std::string _missingModule;
};

/// The path that "-" stands for.
inline constexpr std::string_view kStandardInput = "/dev/stdin";

/// The text of an error of `subject` without that name, which stands before it anyway.
std::string Explain(std::string_view subject, const Error& error);

/// The text with control characters as "\x1b" and so on: names come from files and must not steer a terminal.
std::string Printable(std::string_view text);

}  // namespace orvik::cli
