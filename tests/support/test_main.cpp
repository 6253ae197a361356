// The main function of every test program.
#include <gmock/gmock.h>

#include "orvik/module.h"

// Tests link the module's objects without its entry, so the slot that the entry defines is defined here.
extern "C" {
void (*g_CpuYieldDelegate)() = nullptr;
}

int main(int argumentCount, char** arguments) {
    testing::InitGoogleMock(&argumentCount, arguments);
    return RUN_ALL_TESTS();
}
