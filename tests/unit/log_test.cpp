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
    IFS_ALWAYS("whatever\n");
}

} // namespace

TEST(Log, PrefixNamesFunctionLineAndClock)
{
    const std::string printed = Printed(Reporting_function);
    const std::regex lines("\\[func:Reporting_function]\\[line:[0-9]+]an error\n"
                           "\\[func:Reporting_function]\\[line:[0-9]+]\\[[0-9]{8,}\\.[0-9]{8}]a step\n"
                           "\\[func:Reporting_function]\\[line:[0-9]+]3 details\n"
                           "\\[func:Reporting_function]\\[line:[0-9]+]whatever\n");
    EXPECT_TRUE(std::regex_match(printed, lines)) << printed;
}

TEST(Log, MaskChoosesTheMessagesAtOnce)
{
    EXPECT_EQ(gIfs_debug_level, 0xFFFFFFFFu);
    Ifsi_set_debug_level(IFS_DEBUG_TRACE);
    EXPECT_EQ(Messages(Reporting_function), "a step\nwhatever\n");
    Ifsi_set_debug_level(0);
    EXPECT_EQ(Messages(Reporting_function), "whatever\n");
    Ifsi_set_debug_level(0xFFFFFFFF);
}
