// Preloaded by a test: lets one allocation of a program fail, counted from the start of main. ORVIK_FAIL holds the
// numbers to try, separated by spaces. Each has a process of its own, forked where main would begin, and is reported on
// standard output as "NUMBER STATUS COUNT": the status from waitpid, and how many allocations there were.

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);
}

namespace {

using Main = int (*)(int, char**, char**);

long g_number = 0;           // 0 for none
std::atomic<long>* g_count;  // shared with the parent
Main g_main;

bool Fails() {
    if (g_number == 0 || ++*g_count != g_number)
        return false;
    errno = ENOMEM;
    return true;
}

int RunEach(int argc, char** argv, char** environment) {
    void* shared = mmap(nullptr, sizeof(*g_count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_count = new (shared) std::atomic<long>;
    char* rest = std::getenv("ORVIK_FAIL");
    for (long number; rest && (number = std::strtol(rest, &rest, 10)) > 0;) {
        *g_count = 0;
        const pid_t child = fork();
        if (child == 0) {
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
            g_number = number;
            return g_main(argc, argv, environment);
        }
        int status = 0;
        waitpid(child, &status, 0);
        dprintf(STDOUT_FILENO, "%ld %d %ld\n", number, status, g_count->load());
    }
    return 0;
}

}  // namespace

#define EXPORT extern "C" __attribute__((visibility("default")))

EXPORT void* malloc(size_t bytes) { return Fails() ? nullptr : __libc_malloc(bytes); }
EXPORT void* calloc(size_t count, size_t bytes) { return Fails() ? nullptr : __libc_calloc(count, bytes); }
EXPORT void* realloc(void* block, size_t bytes) { return Fails() ? nullptr : __libc_realloc(block, bytes); }
EXPORT void* aligned_alloc(size_t alignment, size_t bytes) {
    return Fails() ? nullptr : __libc_memalign(alignment, bytes);
}
EXPORT int posix_memalign(void** block, size_t alignment, size_t bytes) {
    *block = Fails() ? nullptr : __libc_memalign(alignment, bytes);
    return *block ? 0 : ENOMEM;
}

EXPORT int __libc_start_main(Main main, int argc, char** argv, Main init, void (*fini)(), void (*linkerFini)(),
                             void* stackEnd) {
    using Start = int (*)(Main, int, char**, Main, void (*)(), void (*)(), void*);
    const auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    g_main = main;
    return start(RunEach, argc, argv, init, fini, linkerFini, stackEnd);
}
