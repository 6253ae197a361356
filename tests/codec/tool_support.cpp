#include "tool_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace codectest {

std::string SharedDirectory() {
    if (const char* shared = std::getenv("ORVIK_SHARED"))
        return shared;
    std::error_code ignored;  // the program lies in a build directory inside the source tree
    std::filesystem::path root = std::filesystem::read_symlink("/proc/self/exe", ignored);
    while (root.has_relative_path() && !std::filesystem::exists(root / "CMakePresets.json"))
        root = root.parent_path();
    return (root.parent_path() / "shared").string();
}

bool RunShell(const std::string& command, Bytes* output) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return false;
    Bytes all;
    uint8_t block[4096];
    for (size_t count; (count = std::fread(block, 1, sizeof(block), pipe)) > 0;)
        all.insert(all.end(), block, block + count);
    const bool succeeded = pclose(pipe) == 0;
    if (output)
        *output = std::move(all);
    return succeeded;
}

bool HasTool(const std::string& name) { return RunShell("command -v " + name + " > /dev/null"); }

ScratchDirectory::ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvik-test-XXXXXX").string();
    _path = mkdtemp(pattern.data()) ? pattern : std::string();
    EXPECT_FALSE(_path.empty());
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    if (!_path.empty())
        std::filesystem::remove_all(_path, ignored);
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    EXPECT_TRUE(out.good());
}

Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void ExpectReadAlike(const std::string& command, const Bytes& file, const Id& pixelFormat, int tolerance) {
    const ScratchDirectory scratch;
    WriteFile(scratch.Path("file"), file);
    Bytes other;
    ASSERT_TRUE(RunShell(command + " < '" + scratch.Path("file") + "' 2> /dev/null", &other));
    const Bytes own = PixelsOf(FirstImage(Loaded(file)), pixelFormat);
    ASSERT_GE(other.size(), own.size());
    other.erase(other.begin(), other.end() - long(own.size()));
    for (size_t i = 0; i < own.size(); ++i)
        ASSERT_LE(std::abs(own[i] - other[i]), tolerance) << "byte " << i;
}

std::string Sha256(const Bytes& bytes) {
    static const ScratchDirectory scratch;
    const std::string path = scratch.Path("hash");
    WriteFile(path, bytes);
    Bytes text;
    EXPECT_TRUE(RunShell("sha256sum '" + path + "'", &text));
    return std::string(text.begin(), text.begin() + long(std::min(text.size(), size_t(64))));
}

}  // namespace codectest
