#include "progressline.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "console.h"

namespace orvik::cli {

using namespace std::chrono_literals;

ProgressLine::ProgressLine(const std::string& label, std::string growingFile)
    : _label(Printable(label)), _growingFile(std::move(growingFile)) {
    const char* terminal = std::getenv("TERM");
    if (!isatty(STDERR_FILENO) || !terminal || std::string_view(terminal) == "dumb")
        return;
    try {
        _painter = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        // Without a thread the step runs unseen.
    }
}

ProgressLine::~ProgressLine() {
    if (!_painter.joinable())
        return;
    {
        const std::lock_guard lock(_mutex);
        _ended = true;
    }
    _wake.notify_one();
    _painter.join();
}

ProgressDelegate ProgressLine::GetDelegate() {
    return [this](const MediaSessionProgressRef&, Float fraction, TimeValue, TimeValue) -> Result<void> {
        SetFraction(fraction);
        return {};
    };
}

void ProgressLine::Run() {
    std::unique_lock lock(_mutex);
    if (_wake.wait_for(lock, 250ms, [this] { return _ended; }))
        return;
    do
        Draw();
    while (!_wake.wait_for(lock, 100ms, [this] { return _ended; }));
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
}

void ProgressLine::Draw() const {
    constexpr int kCells = 30;
    const double fraction = _fraction;
    struct stat status {};
    if (fraction >= 0) {
        const int filled = static_cast<int>(std::min(fraction, 1.0) * kCells);
        const std::string bar(static_cast<size_t>(filled), '#');
        std::fprintf(stderr, "\r\x1b[K%s [%-*s] %3d %%", _label.c_str(), kCells, bar.c_str(),
                     static_cast<int>(std::min(fraction, 1.0) * 100));
    } else if (!_growingFile.empty() && stat(_growingFile.c_str(), &status) == 0) {
        std::fprintf(stderr, "\r\x1b[K%s %.1f MB", _label.c_str(), static_cast<double>(status.st_size) / 1e6);
    } else {
        std::fprintf(stderr, "\r\x1b[K%s", _label.c_str());
    }
    std::fflush(stderr);
}

}  // namespace orvik::cli
