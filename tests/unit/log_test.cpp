#include "util/log.h"

#include <regex>

#include "tests/support.h"

namespace
{

void Reporting_function()
{
    IFS_ERROR("an error\n");
    IFS_TRACE_TIMED("a step\n");
    IFS_DETAIL("%d details\n", 3);
}

} // namespace

TEST(Log, PrefixNamesFunctionLineAndClock)
{
    EXPECT_TRUE(
        std::regex_match(Printed(Reporting_function),
                         std::regex(R"(\[func:Reporting_function\]\[line:\d+\]an error\n)"
                                    R"(\[func:Reporting_function\]\[line:\d+\]\[\d{8,}\.\d{8}\]a step\n)"
                                    R"(\[func:Reporting_function\]\[line:\d+\]3 details\n)")));
}

TEST(Log, MaskChoosesTheMessagesAtOnce)
{
    EXPECT_EQ(gIfs_debug_level, 0xFFFFFFFFu);
    Ifsi_set_debug_level(IFS_DEBUG_TRACE);
    EXPECT_EQ(Messages(Reporting_function), "a step\n");
    Ifsi_set_debug_level(0);
    EXPECT_EQ(Printed(Reporting_function), "");
    EXPECT_EQ(Messages([] { IFS_ALWAYS("whatever\n"); }), "whatever\n");
    Ifsi_set_debug_level(0xFFFFFFFF);
}
