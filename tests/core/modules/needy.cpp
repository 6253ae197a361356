// A module whose framework does not exist.
#include "module_exports.h"

ORVIK_TEST_MODULE("net.orvik.test.needy", "net.orvik.nowhere.framework",
                  [](orvik::Publisher&) { return orvik::Result<void>(); })
