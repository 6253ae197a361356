#pragma once
/// @file
/// Other programs as judges: run them, and read and write the files that they exchange with us.

#include <string>

#include "codec_support.h"

namespace codectest {

/// The folder with material that is not part of the repository: ORVIK_SHARED, or beside the source tree.
std::string SharedDirectory();
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
void WriteFile(const std::string& path, const Bytes& bytes);
Bytes ReadFile(const std::string& path);
/// The command reads the file from its standard input and ends its output with the pixels of our first image.
void ExpectReadAlike(const std::string& command, const Bytes& file, const Id& pixelFormat, int tolerance = 0);
/// In hexadecimal, by the system's sha256sum.
std::string Sha256(const Bytes& bytes);

}  // namespace codectest
