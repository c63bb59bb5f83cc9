#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

/// Runs the tests of one folder. They use the library's fixed keys and paths, so never outside a sandbox.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (std::getenv("TAVREL_SANDBOX") == nullptr) {
        std::fprintf(stderr, "These tests use fixed keys and paths of the machine: run them through ctest or "
                             "tools/sandbox.\n");
        return 2;
    }
    return RUN_ALL_TESTS();
}
