#pragma once
// What several tests of the host layer need.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "support/faults.h"
#include "support/threads.h"

#include "orvik/iostreams.h"

namespace orvik {

/// A folder of its own that goes with the test.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "orvik-core-XXXXXX").native();
        _path = mkdtemp(pattern.data());
    }
    ~TempFolder() { std::filesystem::remove_all(_path); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& GetPath() const { return _path; }
    Url operator/(const std::string& name) const { return Url::FromSystemPath((_path / name).native()); }
    Url Write(const std::string& name, const std::string& content) const {
        std::ofstream(_path / name, std::ios::binary) << content;
        return *this / name;
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(_path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path _path;
};

inline Block<const std::byte> AsBlock(std::string_view text) {
    return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

/// Bytes that differ from their neighbours over a long distance.
inline std::string PatternBytes(size_t count) {
    std::string bytes(count, 0);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = char(i * 7 + (i >> 8) * 13 + (i >> 16));
    return bytes;
}

/// Runs `action` with the 1st, 2nd, ... allocation failing until a run needs none of them, and returns how many failed.
template <class F>
Int FailEachAllocation(F&& action) {
    AllocationFaults faults;
    while (faults.Next()) {
        const bool succeeded = bool(faults.Run(action));
        EXPECT_EQ(succeeded, faults.IsDone());
    }
    return faults.GetErrorCount();
}

}  // namespace orvik
