// The main loop driven one tick at a time against the simulated camera.
#include <gtest/gtest.h>

#include "control/control.h"
#include "slewd/loop.h"

TEST(Tick, Placeholder) { EXPECT_EQ(giRunMode.load(), 0); }
