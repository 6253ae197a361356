#include "console.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "interruption.h"

#include "orvik/errortypes.h"

namespace orvik::cli {

namespace {

/// @return 0, or the error number
int WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return errno;
        if (written > 0)
            text.remove_prefix(static_cast<size_t>(written));
    }
    return 0;
}

void Complain(const std::string& line) { (void)WriteAll(STDERR_FILENO, line); }  // nobody is left to tell

}  // namespace

std::string Printable(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            out += "\\x";
            out += kHex[byte >> 4];
            out += kHex[byte & 15];
        } else {
            out += c;
        }
    }
    return out;
}

int Console::Fail(std::string_view subject, const Error& error) const {
    const int signal = Interruption::GetSignal();
    const bool interrupted = signal != 0 && error->IsKindOf(errorid::kThreadCancelled);
    std::string line = "orvik: " + Printable(subject) + ": ";
    line += interrupted ? "interrupted" : Printable(error->ToString().GetText());
    if (error->IsKindOf(errorid::kUnresolved) && !_missingModule.empty())
        line += " (" + _missingModule + " was not found; ORVIK_MODULE_PATH can name its directory)";
    line += '\n';
    if (_verbose) {
        for (const ErrorInterface* cause = error.Get(); cause; cause = cause->GetCause().Get()) {
            if (cause != error.Get())
                line += "  because: " + Printable(cause->ToString().GetText()) + "\n";
            line += "  " + std::string(cause->GetErrorId().GetText()) + " at " + cause->GetLocation().file_name() +
                    ":" + std::to_string(cause->GetLocation().line()) + "\n";
        }
    }
    Complain(line);
    return interrupted ? 128 + signal : kFailed;
}

int Console::FailUsage(std::string_view message) const {
    Complain("orvik: " + Printable(message) + " (see orvik --help)\n");
    return kWrongUsage;
}

int Console::Write(std::string_view text) const {
    const int failure = WriteAll(STDOUT_FILENO, text);
    if (failure == 0)
        return kDone;
    if (failure != EPIPE)
        Complain("orvik: standard output: " + std::string(std::strerror(failure)) + "\n");
    return kFailed;
}

}  // namespace orvik::cli
