// Assertions that a context saved, showing the error when it did not.
#pragma once

#include <gtest/gtest.h>

// Saves and, on failure, shows why.
#define ASSERT_SAVED(context)                                                                      \
    do {                                                                                           \
        auto saved_ = (context)->save();                                                           \
        ASSERT_TRUE(saved_) << saved_.error().message;                                             \
    } while (0)
#define EXPECT_SAVED(context)                                                                      \
    do {                                                                                           \
        auto saved_ = (context)->save();                                                           \
        EXPECT_TRUE(saved_) << saved_.error().message;                                             \
    } while (0)
