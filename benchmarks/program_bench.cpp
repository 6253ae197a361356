#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bare_peers.h"
#include "codec_bench.h"
#include "fresh_memory.h"
#include "test_picture.h"

extern char** environ;

namespace bench {
namespace {

struct ProgramRun {
    bool fine = false;
    double seconds = 0;  ///< processor time of all threads: wall time includes other programs
    double peakMiB = 0;
};

ProgramRun WaitFor(pid_t child) {
    int status = 0;
    rusage usage{};
    if (child <= 0 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return {};
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return {true, seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_maxrss) / 1024};
}

/// Runs and measures a program, discarding its output.
ProgramRun RunProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failure = posix_spawn(&child, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failure == 0 ? WaitFor(child) : ProgramRun();
}

/// Runs and measures a function in a child process, whose memory does not count in the peak that the system reports for
/// later child processes.
ProgramRun RunAside(const std::function<bool()>& run) {
    const pid_t child = fork();
    if (child == 0)
        _exit(run() ? 0 : 1);
    return WaitFor(child);
}

/// A format and the bare library that knows it.
struct BareFormat {
    const char* suffix;
    bool (*decode)(const std::vector<uint8_t>& file, uint8_t* pixels);
    std::vector<uint8_t> (*encode)(const uint8_t* pixels);
};

constexpr int kQuality = 80;  // the default of `orvik`

const BareFormat kPng = {"png", DecodeWithLibpng, EncodeWithLibpng};
const BareFormat kJpeg = {"jpg", DecodeWithLibjpeg,
                          [](const uint8_t* pixels) { return EncodeWithLibjpeg(pixels, kQuality); }};

bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return !bytes.empty() && file.flush();
}

bool ReadFile(const std::string& path, std::vector<uint8_t>& bytes) {
    std::error_code error;
    bytes.resize(std::filesystem::file_size(path, error));
    std::ifstream file(path, std::ios::binary);
    return !error && file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool ConvertBare(const BareFormat& from, const std::string& source, const BareFormat& to, const std::string& target) {
    std::vector<uint8_t> file;
    const FreshMemory pixels(kPixelBytes);
    return pixels.GetFirst() && ReadFile(source, file) && from.decode(file, pixels.GetFirst()) &&
           WriteFile(target, to.encode(pixels.GetFirst()));
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Memory of a load beyond the pixels: the program's peak, and the same minus its peak without a picture.
void MeasureMemory(const std::string& program, const std::string& source, const std::string& target,
                   std::vector<Row>& rows) {
    const ProgramRun load = RunProgram({program, "convert", source, target});
    const ProgramRun idle = RunProgram({program, "formats"});
    if (!load.fine || !idle.fine)
        return;
    const double pixels = static_cast<double>(kPixelBytes) / (1024 * 1024);
    rows.push_back({"program.load.extra", load.peakMiB - pixels, "MiB", 0, ""});
    rows.push_back({"program.load.extra_over_idle", load.peakMiB - idle.peakMiB - pixels, "MiB", 0, ""});
}

/// A measured conversion and its number of rounds.
struct Conversion {
    const BareFormat& from;
    const BareFormat& to;
    int rounds;

    std::string GetName() const { return std::string("program.convert.") + from.suffix + "-" + to.suffix; }
};
const Conversion kConversions[] = {{kJpeg, kJpeg, 21}, {kPng, kJpeg, 11}, {kJpeg, kPng, 3}};

/// `orvik convert` against a process that only decodes and encodes with the bare libraries, file to file, in turns.
void MeasureConversion(const std::string& program, const std::string& directory, const Conversion& conversion,
                       std::vector<Row>& rows) {
    const auto& [from, to, rounds] = conversion;
    const std::string source = directory + "/bench_picture." + from.suffix;
    const std::string target = directory + "/bench_result." + to.suffix;
    std::vector<double> own, bare;
    for (int i = 0; i < rounds; ++i) {
        const ProgramRun ownRun = RunProgram({program, "convert", source, target});
        const ProgramRun bareRun = RunAside([&] { return ConvertBare(from, source, to, target); });
        if (!ownRun.fine || !bareRun.fine) {
            std::fprintf(stderr, "%s: cannot be converted\n", source.c_str());
            return;
        }
        own.push_back(ownRun.seconds);
        bare.push_back(bareRun.seconds);
    }
    rows.push_back({conversion.GetName(), Median(own) * 1000, "ms", Median(bare) / Median(own), "libraries"});
}

}  // namespace

std::vector<Row> MeasureProgram(const std::string& directory, const std::string& filter) {
    const std::regex wanted(filter);
    const auto isWanted = [&wanted](const std::string& name) { return std::regex_search(name, wanted); };
    const std::string program = directory + "/" + ORVIK_PROGRAM;
    std::vector<Row> rows;

    if (isWanted("program.version")) {
        std::vector<double> starts;
        for (int i = 0; i < 21; ++i) {
            const ProgramRun run = RunProgram({program, "--version"});
            if (!run.fine)
                return rows;
            starts.push_back(run.seconds * 1000);
        }
        rows.push_back({"program.version", Median(starts), "ms", 0, ""});
    }

    std::vector<Conversion> conversions;
    std::copy_if(std::begin(kConversions), std::end(kConversions), std::back_inserter(conversions),
                 [&isWanted](const Conversion& conversion) { return isWanted(conversion.GetName()); });
    const bool wantsMemory = isWanted("program.load");
    if (!wantsMemory && conversions.empty())
        return rows;
    const std::string picture = directory + "/bench_picture.";
    const ProgramRun made = RunAside([&picture] {
        const std::vector<uint8_t> pixels = MakeTestPicture();
        return WriteFile(picture + kPng.suffix, kPng.encode(pixels.data())) &&
               WriteFile(picture + kJpeg.suffix, kJpeg.encode(pixels.data()));
    });
    if (made.fine && wantsMemory)
        MeasureMemory(program, picture + kPng.suffix, directory + "/bench_result.bmp", rows);
    for (const Conversion& conversion : conversions) {
        if (made.fine)
            MeasureConversion(program, directory, conversion, rows);
    }
    for (const char* suffix : {kPng.suffix, kJpeg.suffix, "bmp"}) {
        std::remove((picture + suffix).c_str());
        std::remove((directory + "/bench_result." + suffix).c_str());
    }
    return rows;
}

}  // namespace bench
