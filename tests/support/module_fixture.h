#pragma once
// A test with everything published that the module publishes, without a module being loaded.

#include <gtest/gtest.h>

#include "module/module_start.h"

namespace orvik {

class ModuleFixture : public testing::Test {
protected:
    void SetUp() override {
        const Result<void> started = StartImageModule(_publisher);
        ASSERT_TRUE(started) << started.GetError()->ToString().GetCString();
    }

    /// For what a test publishes itself: undone with the rest.
    Publisher _publisher;
};

}  // namespace orvik
