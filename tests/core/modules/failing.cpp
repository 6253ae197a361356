// A module that publishes and then fails, with an error whose code lies in the module.
#include "module_exports.h"

ORVIK_TEST_MODULE("net.orvik.test.failing", "net.orvik.core.framework",
                  [](orvik::Publisher& publisher) -> orvik::Result<void> {
                      TRY(orvik::PublishTestRecords(publisher, true));
                      return orvik::UnsupportedOperationError("no start today: @", 17);
                  })
