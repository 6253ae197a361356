#include "tool_support.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#ifdef __SANITIZE_ADDRESS__
// Of the sanitizer's run-time library; not every compiler brings its headers.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onAllocate)(const volatile void*, size_t),
                                              void (*onFree)(const volatile void*));
size_t __sanitizer_get_allocated_size(const volatile void* block);
}
#endif

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

bool HasTool(const std::string& name) {
    return RunShell(name == "PIL" ? "/usr/bin/python3 -c 'import PIL' 2> /dev/null"
                                  : "command -v " + name + " > /dev/null");
}

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

void ToolTest::RequireTools(std::initializer_list<const char*> tools) {
    for (const char* tool : tools) {
        if (!HasTool(tool))
            GTEST_SKIP() << tool << " is not installed";
    }
}

Bytes ToolTest::Run(const std::string& command) {
    Bytes output;
    EXPECT_TRUE(RunShell("{ " + command + "; } 2> /dev/null", &output)) << command;
    return output;
}

void ExpectNear(const Bytes& actual, const Bytes& expected, int tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_LE(std::abs(actual[i] - expected[i]), tolerance) << "byte " << i;
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

std::string Sha256(const Bytes& bytes) {
    static const ScratchDirectory scratch;
    const std::string path = scratch.Path("hash");
    WriteFile(path, bytes);
    Bytes text;
    EXPECT_TRUE(RunShell("sha256sum '" + path + "'", &text));
    return std::string(text.begin(), text.begin() + long(std::min(text.size(), size_t(64))));
}

// --- Memory ----------------------------------------------------------------------------------------------------------
namespace {

std::atomic<bool> g_watches{false};
std::atomic<long> g_live{0}, g_peak{0};

#ifdef __SANITIZE_ADDRESS__

void OnAllocate(const volatile void*, size_t bytes) {
    if (!g_watches)
        return;
    const long live = g_live += long(bytes);
    long peak = g_peak;
    while (live > peak && !g_peak.compare_exchange_weak(peak, live)) {
    }
}

void OnFree(const volatile void* block) {
    if (g_watches && block)
        g_live -= long(__sanitizer_get_allocated_size(block));
}

[[maybe_unused]] const bool g_installed = __sanitizer_install_malloc_and_free_hooks(OnAllocate, OnFree) != 0;

#endif

}  // namespace

MemoryWatch::MemoryWatch() {
    g_live = g_peak = 0;
    g_watches = true;
}

MemoryWatch::~MemoryWatch() { g_watches = false; }

size_t MemoryWatch::GetPeakBytes() const { return size_t(std::max(g_peak.load(), 0L)); }

}  // namespace codectest
