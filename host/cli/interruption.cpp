#include "interruption.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace orvik::cli {

namespace {

CancelToken g_token;
std::atomic<int> g_signal{0};
std::atomic<int> g_waiting{0};
bool g_endsByClosedPipe = false;
char g_temporaryFile[PATH_MAX];
std::atomic<bool> g_hasTemporaryFile{false};

void OnSignal(int signal) {
    if (g_signal.exchange(signal) != 0 || g_waiting > 0)
        Interruption::EndBySignal(signal);
    g_token.Cancel();
}

bool IsIgnored(int signal) noexcept {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN;
}

}  // namespace

void Interruption::Install() noexcept {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (IsIgnored(signal))
            continue;
        struct sigaction action {};
        action.sa_handler = OnSignal;
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
    g_endsByClosedPipe = !IsIgnored(SIGPIPE);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

const CancelToken& Interruption::GetToken() noexcept { return g_token; }

int Interruption::GetSignal() noexcept { return g_signal; }

void Interruption::SetTemporaryFile(const std::string& path) noexcept {
    g_hasTemporaryFile = false;
    if (path.empty() || path.size() >= sizeof(g_temporaryFile))
        return;
    std::memcpy(g_temporaryFile, path.c_str(), path.size() + 1);
    g_hasTemporaryFile = true;
}

void Interruption::RemoveTemporaryFile() noexcept {
    if (g_hasTemporaryFile)
        ::unlink(g_temporaryFile);
}

void Interruption::EndBySignal(int signal) noexcept {
    RemoveTemporaryFile();
    std::signal(signal, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);  // within its handler it is blocked
    ::raise(signal);
    ::_exit(128 + signal);
}

void Interruption::EndByClosedPipe() noexcept {
    if (g_endsByClosedPipe)
        EndBySignal(SIGPIPE);
}

// The handler stores the signal before it looks at the count, this counts before it looks for a signal: whichever is
// first, one of the two sees the other.
Interruption::Waiting::Waiting() noexcept {
    ++g_waiting;
    if (const int signal = g_signal; signal != 0)
        EndBySignal(signal);
}

Interruption::Waiting::~Waiting() { --g_waiting; }

}  // namespace orvik::cli
