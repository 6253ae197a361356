#include "interruption.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace orvik::cli {

namespace {

CancelToken g_token;
std::atomic<int> g_signal{0};
char g_temporaryFile[PATH_MAX];
std::atomic<bool> g_hasTemporaryFile{false};

void OnSignal(int signal) {
    if (g_signal.exchange(signal) != 0) {
        if (g_hasTemporaryFile)
            ::unlink(g_temporaryFile);
        ::_exit(128 + signal);
    }
    g_token.Cancel();
}

}  // namespace

void Interruption::Install() noexcept {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        if (sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
            continue;
        struct sigaction action {};
        action.sa_handler = OnSignal;
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
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

}  // namespace orvik::cli
