#pragma once
/// @file
/// Where a command writes: a temporary file that replaces the target in one step, or directly a device or pipe.

#include <string>

#include "orvik/iomemory.h"

namespace orvik::cli {

/// A file is written beside its target as ".orvik-XXXXXX" and replaces it, keeping its permissions, when it is
/// complete; until then, and after any failure, the target is as it was. What cannot be replaced (standard output,
/// devices, pipes) is written directly.
class OutputTarget {
public:
    /// @param name  a path, a file URL, or "-" for standard output
    /// Errors are io errors: a directory, a missing directory, a target or directory that is marked read-only (refused
    /// to the superuser too, whom the system would let through).
    static Result<OutputTarget> Open(const std::string& name);

    OutputTarget(OutputTarget&& other) noexcept;
    OutputTarget& operator=(OutputTarget&&) = delete;
    ~OutputTarget();

    /// Appends. Not to be mixed with `GetUrl`.
    Result<void> Write(Block<const std::byte> bytes);
    /// For writers that open a URL of their own: the temporary file, or a block in memory that `Commit` writes out.
    Result<Url> GetUrl();
    /// Completes the output and replaces the target.
    Result<void> Commit();
    /// The file that grows while this is written; empty when there is none.
    const std::string& GetTemporaryPath() const noexcept { return _temporary; }

private:
    OutputTarget() = default;
    Result<void> OpenBeside(const std::string& path);

    Url _target;         ///< as the caller named it: the subject of errors
    std::string _final;  ///< the file to be replaced, links followed
    std::string _temporary;
    int _descriptor = -1;
    MemoryFileRef _memory;
};

}  // namespace orvik::cli
