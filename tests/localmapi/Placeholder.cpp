#include <gtest/gtest.h>
TEST(Placeholder, Runs) { EXPECT_EQ(1, 1); }
