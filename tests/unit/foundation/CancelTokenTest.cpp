// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CancelToken.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::hours;
using Draining = CancelToken::Draining;

TEST(CancelToken, ARequestStaysUntilItIsTakenBack)
{
    CancelToken token;
    EXPECT_FALSE(token.isRequested());
    EXPECT_FALSE(token.shouldStop());
    EXPECT_FALSE(token.consume());
    token.request();
    token.request();
    EXPECT_TRUE(token.isRequested());
    EXPECT_TRUE(token.shouldStop());
    EXPECT_TRUE(token.consume());
    EXPECT_FALSE(token.isRequested());
    EXPECT_FALSE(token.shouldStop());
    EXPECT_FALSE(token.consume());
}

TEST(CancelToken, WhileDrainingTheLimitCounts)
{
    CancelToken token;
    token.request();
    {
        const Draining draining(token, hours(1));
        EXPECT_TRUE(token.isDraining());
        EXPECT_TRUE(token.isRequested());
        EXPECT_FALSE(token.shouldStop());
    }
    EXPECT_FALSE(token.isDraining());
    EXPECT_TRUE(token.shouldStop());
    token.consume();
    {
        const Draining over(token, hours(0));
        EXPECT_TRUE(token.shouldStop());
    }
    EXPECT_FALSE(token.shouldStop());
}

TEST(CancelToken, TheOuterLimitComesBack)
{
    CancelToken token;
    const Draining outer(token, hours(1));
    {
        const Draining inner(token, hours(0));
        EXPECT_TRUE(token.shouldStop());
    }
    EXPECT_TRUE(token.isDraining());
    EXPECT_FALSE(token.shouldStop());
    const Draining last(token, hours(0));
    {
        const Draining inner(token, hours(1));
        EXPECT_FALSE(token.shouldStop());
    }
    EXPECT_TRUE(token.shouldStop());
}

}  // namespace
