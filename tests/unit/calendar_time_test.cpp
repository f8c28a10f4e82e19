#include "util/calendar_time.h"

#include <climits>

#include "tests/support.h"

namespace
{

long long Seconds(const tm& t)
{
    return Ifsm_mktime_abs(&t);
}

/** A time moved by seconds, with its day of the week and of the year. */
std::string Moved(tm t, int seconds)
{
    Ifsm_utc_time_inc(&t, seconds);
    return Text(t) + " " + std::to_string(t.tm_wday) + " " + std::to_string(t.tm_yday);
}

} // namespace

TEST(CalendarTime, CountsSecondsWithoutAnyZone)
{
    for (const char* zone : {"UTC", "Asia/Shanghai", "America/New_York"}) {
        const Zone set(zone);
        EXPECT_EQ(Seconds(Utc(1970, 1, 1, 0, 0, 0)), 0);
        EXPECT_EQ(Seconds(Utc(1969, 12, 31, 23, 59, 59)), -1);
        EXPECT_EQ(Seconds(Utc(2000, 2, 29, 0, 0, 0)), 951782400);
        EXPECT_EQ(Seconds(Utc(2019, 10, 12, 17, 17, 23)), 1570900643);
        EXPECT_EQ(Seconds(Utc(2019, 10, 11, 42, -43, 23)), 1570900643); // out of range, linearly
        EXPECT_EQ(Seconds(Utc(2019, 9, 42, 17, 17, 23)), 1570900643);
    }
}

TEST(CalendarTime, WrapsAsOnA32BitProcessor)
{
    EXPECT_EQ(Seconds(Utc(2038, 1, 19, 3, 14, 7)), INT_MAX);
    EXPECT_EQ(Seconds(Utc(2038, 1, 19, 3, 14, 8)), INT_MIN);
    EXPECT_EQ(Moved(Utc(2038, 1, 19, 3, 14, 7), 1), "1901-12-13 20:45:52 5 346");
    EXPECT_EQ(Moved(Utc(2019, 12, 31, 23, 59, 30), 45), "2020-01-01 00:00:15 3 0");
    EXPECT_EQ(Moved(Utc(2020, 1, 1, 0, 0, 15), -90), "2019-12-31 23:58:45 2 364");
    tm wild{};
    wild.tm_year = wild.tm_mon = wild.tm_mday = wild.tm_hour = wild.tm_min = wild.tm_sec = INT_MAX;
    EXPECT_TRUE(Seconds(wild) >= INT_MIN && Seconds(wild) <= INT_MAX);
}

TEST(CalendarTime, TurnsLocalTimeIntoUtc)
{
    const Zone set("<+08>-8");
    const tm local = Utc(2020, 3, 5, 4, 0, 0);
    tm utc{};
    Ifsm_local_to_utc(&local, &utc);
    EXPECT_EQ(Text(utc), "2020-03-04 20:00:00");
    EXPECT_EQ(Ifsm_local_to_utc(INT_MIN), INT_MIN); // seconds have no zone
}

TEST(CalendarTime, ComparesCalendarFieldsOnly)
{
    const auto compare = [](tm a, tm b) { return Ifsm_tm_cmp(&a, &b); };
    tm other_flags = Utc(2020, 3, 5, 1, 2, 3);
    other_flags.tm_wday = 4;
    other_flags.tm_isdst = 1;
    EXPECT_EQ(compare(Utc(2020, 3, 5, 1, 2, 3), other_flags), 0);
    EXPECT_EQ(compare(Utc(2021, 1, 1, 0, 0, 0), Utc(2020, 12, 31, 23, 59, 59)), 1);
    EXPECT_EQ(compare(Utc(2020, 3, 5, 10, 61, 0), Utc(2020, 3, 5, 11, 0, 0)), 1);
    EXPECT_EQ(compare(Utc(2020, 3, 5, 24, 0, 0), Utc(2020, 3, 6, 0, 0, 0)), -1);

    const auto compare_dates = [](tm a, tm b) { return Ifsm_cmp_date(&a, &b); };
    EXPECT_EQ(compare_dates(Utc(2020, 3, 5, 23, 59, 59), Utc(2020, 3, 5, 0, 0, 0)), 0);
    EXPECT_EQ(compare_dates(Utc(2020, 3, 5, 0, 0, 0), Utc(2020, 3, 4, 23, 59, 59)), 1);
}
