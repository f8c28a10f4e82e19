#include "util/calendar_time.h"

#include <climits>

#include "tests/support.h"

namespace
{

long long Seconds(const tm& t)
{
    return Ifsm_mktime_abs(&t);
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
        EXPECT_EQ(Seconds(Utc(2020, 1, 1, 0, 0, 0)), 1577836800);
    }
}

TEST(CalendarTime, WrapsAsOnA32BitProcessor)
{
    EXPECT_EQ(Seconds(Utc(2038, 1, 19, 3, 14, 7)), 2147483647LL);
    EXPECT_EQ(Seconds(Utc(2038, 1, 19, 3, 14, 8)), -2147483648LL);
    tm last = Utc(2038, 1, 19, 3, 14, 7);
    Ifsm_utc_time_inc(&last, 1);
    EXPECT_EQ(Text(last), "1901-12-13 20:45:52");
    tm wild{};
    wild.tm_year = wild.tm_mon = wild.tm_mday = wild.tm_hour = wild.tm_min = wild.tm_sec = INT_MAX;
    EXPECT_GE(Seconds(wild), INT_MIN);
    EXPECT_LE(Seconds(wild), INT_MAX);
}

TEST(CalendarTime, CountsFieldsOutOfRangeLinearly)
{
    EXPECT_EQ(Seconds(Utc(2019, 10, 12, 25, 0, 0)), Seconds(Utc(2019, 10, 13, 1, 0, 0)));
    EXPECT_EQ(Seconds(Utc(2019, 10, 32, 0, 0, 0)), Seconds(Utc(2019, 11, 1, 0, 0, 0)));
}

TEST(CalendarTime, MovesAcrossTheYearAndFillsTheDayOfWeek)
{
    tm t = Utc(2019, 12, 31, 23, 59, 30);
    Ifsm_utc_time_inc(&t, 45);
    EXPECT_EQ(Text(t), "2020-01-01 00:00:15");
    EXPECT_EQ(t.tm_wday, 3);
    EXPECT_EQ(t.tm_yday, 0);
    Ifsm_utc_time_inc(&t, -90);
    EXPECT_EQ(Text(t), "2019-12-31 23:58:45");
}

TEST(CalendarTime, ConvertsLocalTimeBothWays)
{
    const Zone set("<+08>-8");
    const tm utc = Utc(2020, 3, 4, 20, 0, 0);
    tm local{};
    tm back{};
    Ifsm_utc_to_local(&utc, &local);
    Ifsm_local_to_utc(&local, &back);
    EXPECT_EQ(Text(local), "2020-03-05 04:00:00");
    EXPECT_EQ(Text(back), "2020-03-04 20:00:00");
    for (const int seconds : {0, -1, 1570900643, INT_MAX, INT_MIN}) {
        EXPECT_EQ(Ifsm_local_to_utc(seconds), seconds);
    }
}

TEST(CalendarTime, ComparesCalendarFieldsOnly)
{
    const auto compare = [](tm a, tm b) { return Ifsm_tm_cmp(&a, &b); };
    tm other_flags = Utc(2020, 3, 5, 1, 2, 3);
    other_flags.tm_wday = 4;
    other_flags.tm_isdst = 1;
    EXPECT_EQ(compare(Utc(2020, 3, 5, 1, 2, 3), other_flags), 0);
    EXPECT_EQ(compare(Utc(2021, 1, 1, 0, 0, 0), Utc(2020, 12, 31, 23, 59, 59)), 1);
    EXPECT_EQ(compare(Utc(2020, 3, 5, 0, 0, 0), Utc(2020, 4, 1, 0, 0, 0)), -1);
    EXPECT_EQ(compare(Utc(2020, 3, 5, 10, 61, 0), Utc(2020, 3, 5, 11, 0, 0)), 1);
    EXPECT_EQ(compare(Utc(2020, 3, 5, 24, 0, 0), Utc(2020, 3, 6, 0, 0, 0)), -1);

    const tm evening = Utc(2020, 3, 5, 23, 59, 59);
    const tm morning = Utc(2020, 3, 5, 0, 0, 0);
    const tm day_before = Utc(2020, 3, 4, 23, 59, 59);
    EXPECT_EQ(Ifsm_cmp_date(&evening, &morning), 0);
    EXPECT_EQ(Ifsm_cmp_date(&morning, &day_before), 1);
}
