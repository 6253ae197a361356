#include "orvik/crashhandler.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <unistd.h>

#include "orvik/crashreport.h"

namespace orvik {

namespace {

/// The handler runs here, so that an overflow of the stack is reported too.
alignas(16) std::byte g_stack[size_t(64) << 10];

void Write(const char* text) noexcept {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

/// What the program did with exceptions before.
std::terminate_handler g_terminate = std::abort;

/// The C library's own name of a signal may be a translation, which takes a lock.
const char* NameOf(int signal) noexcept {
    const char* name = sigabbrev_np(signal);
    return name ? name : "?";
}

void OnFatalSignal(int signal) noexcept {
    Write(program_invocation_short_name);
    Write(": ended by SIG");
    Write(NameOf(signal));
    Write("\n");
    WriteCrashReportProperties(STDERR_FILENO);
    // The signal is blocked while its handler runs; on return it strikes again and has its usual effect.
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    sigaction(signal, &usual, nullptr);
    raise(signal);
}

[[noreturn]] void OnUncaughtException() noexcept {
    try {
        if (std::current_exception())
            throw;
    } catch (const std::bad_alloc&) {
        Write(program_invocation_short_name);
        Write(": Out of memory.\n");
        _exit(1);
    } catch (...) {
        g_terminate();
    }
    g_terminate();
    std::abort();
}

}  // namespace

void InstallCrashHandler() noexcept {
    if (const std::terminate_handler present = std::get_terminate(); present != OnUncaughtException) {
        g_terminate = present;
        std::set_terminate(OnUncaughtException);
    }
    stack_t stack{};
    stack.ss_sp = g_stack;
    stack.ss_size = sizeof(g_stack);
    stack_t before{};
    const bool hasOwnStack = sigaltstack(nullptr, &before) == 0 && !(before.ss_flags & SS_DISABLE);
    if (!hasOwnStack)
        sigaltstack(&stack, nullptr);
    for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS}) {
        struct sigaction present {};
        if (sigaction(signal, nullptr, &present) != 0 || (present.sa_flags & SA_SIGINFO) ||
            present.sa_handler != SIG_DFL)
            continue;
        struct sigaction action {};
        action.sa_handler = OnFatalSignal;
        action.sa_flags = SA_ONSTACK;
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace orvik
