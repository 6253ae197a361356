#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "codec_bench.h"
#include "libpng_direct.h"
#include "test_picture.h"

extern char** environ;

namespace bench {
namespace {

struct ProgramRun {
    bool fine = false;
    double seconds = 0;
    double peakMiB = 0;
};

/// Runs a program with its output thrown away, and measures it.
ProgramRun RunProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    const int failure = posix_spawn(&child, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ProgramRun run;
    if (failure != 0)
        return run;
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return run;
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peakMiB = static_cast<double>(usage.ru_maxrss) / 1024;
    run.fine = true;
    return run;
}

/// Writes the test picture as PNG. In a process of its own: the peak memory that the system reports for a program
/// counts that of the process which started it.
bool WritePicture(const std::string& path) {
    const pid_t child = fork();
    if (child == 0) {
        const std::vector<uint8_t> bytes = EncodeWithLibpng(MakeTestPicture());
        std::FILE* file = std::fopen(path.c_str(), "wb");
        const bool written = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        _exit(file && std::fclose(file) == 0 && written ? 0 : 1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

std::vector<Row> MeasureProgram(const std::string& directory) {
    const std::string program = directory + "/" + ORVIK_PROGRAM;
    std::vector<Row> rows;

    std::vector<double> starts;
    for (int i = 0; i < 21; ++i) {
        const ProgramRun run = RunProgram({program, "--version"});
        if (!run.fine)
            return rows;
        starts.push_back(run.seconds * 1000);
    }
    std::nth_element(starts.begin(), starts.begin() + 10, starts.end());
    rows.push_back({"program.version", starts[10], "ms", 0, ""});

    // What a load takes beyond the pixels: the whole program's peak, and the same less what it takes without a picture.
    const std::string picture = directory + "/bench_picture.png";
    if (!WritePicture(picture))
        return rows;
    const ProgramRun load = RunProgram({program, "convert", picture, directory + "/bench_picture.bmp"});
    const ProgramRun idle = RunProgram({program, "formats"});
    std::remove(picture.c_str());
    std::remove((directory + "/bench_picture.bmp").c_str());
    if (load.fine && idle.fine) {
        const double pixels = static_cast<double>(kPixelBytes) / (1024 * 1024);
        rows.push_back({"program.load.extra", load.peakMiB - pixels, "MiB", 0, ""});
        rows.push_back({"program.load.extra_over_idle", load.peakMiB - idle.peakMiB - pixels, "MiB", 0, ""});
    }
    return rows;
}

}  // namespace bench
