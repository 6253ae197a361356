#include "console.h"

#include <cerrno>
#include <cstring>
#include <optional>
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

/// A failure to write is dropped: there is no other place for it.
void Complain(std::string_view line) {
    std::optional<Interruption::Waiting> waiting;
    if (Interruption::GetSignal() == 0)  // the message about the interruption itself is still written
        waiting.emplace();
    (void)WriteAll(STDERR_FILENO, line);
}

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

std::string Explain(std::string_view subject, const Error& error) {
    std::string text(error->ToString().GetText());
    const std::string name = ' ' + std::string(subject == "-" ? kStandardInput : subject) + ' ';
    if (const size_t at = text.find(name); at != std::string::npos)
        text.erase(at, name.size() - 1);
    return text;
}

int Console::Fail(std::string_view subject, const Error& error) const {
    const int signal = Interruption::GetSignal();
    const bool interrupted = signal != 0 && error->IsKindOf(errorid::kThreadCancelled);
    std::string line = "orvik: " + Printable(subject) + ": ";
    line += interrupted ? "interrupted" : Printable(Explain(subject, error));
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

int Console::FailOutOfMemory() noexcept {
    Complain("orvik: out of memory\n");
    return kFailed;
}

int Console::Write(std::string_view text) const {
    const Interruption::Waiting waiting;
    const int failure = WriteAll(STDOUT_FILENO, text);
    if (failure == 0)
        return kDone;
    if (failure == EPIPE)
        Interruption::EndByClosedPipe();
    else
        Complain("orvik: standard output: " + std::string(std::strerror(failure)) + "\n");
    return kFailed;
}

}  // namespace orvik::cli
