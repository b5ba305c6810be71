// The unit tests run with the hooks the program installs first thing, so
// that a lower module reaches the error page, the exit work and the trace
// stream as it does in the interpreter.
#include <gtest/gtest.h>

#include "driver/request.h"

namespace {

struct StartUp : testing::Environment {
    void SetUp() override { V_install_hooks(); }
};

testing::Environment *const start_up = testing::AddGlobalTestEnvironment(new StartUp);

}   // namespace
