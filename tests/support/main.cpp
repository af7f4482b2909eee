// Every test binary boots its own simulated device before the first test,
// and every test starts from a clean device tree.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "Sandbox.h"

namespace {

class CleanDevice : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& info) override {
        if (sim::resetDevice() != 0) {
            fprintf(stderr, "cannot reset the device before %s.%s\n", info.test_suite_name(), info.name());
            abort();
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // The engine logs a great deal; its records are asserted on, not read
    // on the terminal. Set ANDROID_LOG_TAGS to see them echoed.
    setenv("ANDROID_LOG_TAGS", "*:s", 0);
    if (sim::enterSandbox() != 0) return 1;
    testing::UnitTest::GetInstance()->listeners().Append(new CleanDevice);
    return RUN_ALL_TESTS();
}
