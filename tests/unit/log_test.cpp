#include "util/log.h"

#include <regex.h>

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
    const char* pattern = "^\\[func:Reporting_function]\\[line:[0-9]+]an error\n"
                          "\\[func:Reporting_function]\\[line:[0-9]+]\\[[0-9]{8,}\\.[0-9]{8}]a step\n"
                          "\\[func:Reporting_function]\\[line:[0-9]+]3 details\n$";
    regex_t lines;
    ASSERT_EQ(regcomp(&lines, pattern, REG_EXTENDED), 0);
    EXPECT_EQ(regexec(&lines, Printed(Reporting_function).c_str(), 0, nullptr, 0), 0);
    regfree(&lines);
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
