#include <gtest/gtest.h>

#include "protocol/MessageFormat.hpp"

TEST(ProtocolSmoke, HeaderOfTheDaemonsOwnVersionIsAccepted) {
    EXPECT_TRUE(lcfd::checkHeader("LCF2"));
}
