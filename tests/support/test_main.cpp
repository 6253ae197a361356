// The main function of every test program.
#include <gmock/gmock.h>

#include "orvik/module.h"

// Tests link the module's objects without its entry, so the slot that the entry defines is defined here.
extern "C" {
void (*g_CpuYieldDelegate)() = nullptr;
}

// Absurd sizes are refused by the allocator, as outside the sanitizers, instead of ending the program.
extern "C" ORVIK_API const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" ORVIK_API const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }

int main(int argumentCount, char** arguments) {
    testing::InitGoogleMock(&argumentCount, arguments);
    return RUN_ALL_TESTS();
}
