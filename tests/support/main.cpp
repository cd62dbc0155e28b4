// Runs all tests of one executable. A program of our own, because the packaged main of the test
// library has no place for the seed of the random tests.
#include <support/random.h>

#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    std::printf("seed of random tests: %llu (TOV_TEST_SEED sets it)\n", tovtest::seed());
    return RUN_ALL_TESTS();
}
