// A module that starts.
#include "module_exports.h"

ORVIK_TEST_MODULE("net.orvik.test.good", "net.orvik.core.framework", [](orvik::Publisher& publisher) {
    return orvik::PublishTestRecords(publisher, g_CpuYieldDelegate != nullptr);
})
