// The exported self-checks.
#include <gtest/gtest.h>

#include "tarvo.h"

TEST(SelfCheck, Factor) { EXPECT_EQ(TRV_test_factor(), TRV_RES_OK); }
