#pragma once
/// Other programs as judges, the files that are exchanged with them, and the memory that a piece of code takes.

#include <string>

#include "codec_support.h"

namespace codectest {

/// The folder with material that is not part of the repository: ORVIK_SHARED, or beside the source tree.
std::string SharedDirectory();
/// @param name  of a program, or "PIL" for the Python package
bool HasTool(const std::string& name);
/// Runs a shell command. @return true for exit status 0; its standard output goes to `output`
bool RunShell(const std::string& command, Bytes* output = nullptr);
/// A directory that goes with the object.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    std::string Path(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};
/// A test with a directory of its own, which other programs share.
class ToolTest : public CodecTest {
protected:
    /// Skips the test without these; for `SetUp`.
    static void RequireTools(std::initializer_list<const char*> tools);
    std::string Quoted(const std::string& name) const { return "'" + _scratch.Path(name) + "'"; }
    /// Fails the test on an error. @return standard output
    static Bytes Run(const std::string& command);
    ScratchDirectory _scratch;
};
/// Sizes are equal, and no byte is off by more.
void ExpectNear(const Bytes& actual, const Bytes& expected, int tolerance);
void WriteFile(const std::string& path, const Bytes& bytes);
Bytes ReadFile(const std::string& path);
/// In hexadecimal, by the system's sha256sum.
std::string Sha256(const Bytes& bytes);

/// Watches the memory that is taken between its construction and `GetPeakBytes`. Counts only in builds with the address
/// sanitizer; elsewhere the peak is 0. One at a time.
class MemoryWatch {
public:
    MemoryWatch();
    ~MemoryWatch();
    size_t GetPeakBytes() const;
};

}  // namespace codectest
