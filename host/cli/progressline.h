#pragma once
/// @file
/// One line on the terminal that shows how far a long step is.

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "orvik/mediasession_progress.h"

namespace orvik::cli {

/// Draws on standard error if that is a terminal; appears after a quarter of a second and disappears when the step
/// ends. A step either reports fractions through `GetDelegate` or is followed by the size of the file it writes.
class ProgressLine {
public:
    /// @param growingFile  file whose size is shown while no fraction is known; may be empty
    explicit ProgressLine(const std::string& label, std::string growingFile = {});
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// For a session's progress; this must outlive the session's run.
    ProgressDelegate GetDelegate();
    void SetFraction(double fraction) noexcept { _fraction = fraction; }

private:
    void Run();
    void Draw() const;

    std::string _label;
    std::string _growingFile;
    std::atomic<double> _fraction{-1};
    std::mutex _mutex;
    std::condition_variable _wake;
    bool _ended = false;
    std::thread _painter;
};

}  // namespace orvik::cli
