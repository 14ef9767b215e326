#include <gtest/gtest.h>

#include "tavopf.h"

TEST(RuleConfPath, IsThatOfTheRouterTool) {
    EXPECT_STREQ(TAVOPFRuleConfPathGet(), "/usr/tavo/etc/portforward/rule.conf");
}

TEST(RuleConfPath, IsAConstant) {
    EXPECT_EQ(TAVOPFRuleConfPathGet(), TAVOPFRuleConfPathGet());
}
