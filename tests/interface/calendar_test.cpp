#include "tests/interface/card_test.h"

class Calendar : public CardTest
{
protected:
    const Zone m_zone{"<+08>-8"};

    /** Marked days of October by local time, e.g. "3 6". */
    std::string October()
    {
        tm start = Utc(2019, 9, 30, 16, 0, 0);
        tm end = Utc(2019, 10, 31, 15, 59, 59);
        unsigned char days[31];
        EXPECT_EQ(Ifsi_get_rec_calendar(&start, &end, IFS_STREAM_MAIN, days), 0);
        std::string marked;
        for (int day = 1; day <= 31; ++day) {
            if (days[day - 1] == 1) {
                marked += (marked.empty() ? "" : " ") + std::to_string(day);
            }
        }
        return marked;
    }
};

TEST_F(Calendar, MarksLocalDaysOnWhichARecordingStartsOrEnds)
{
    EXPECT_EQ(October(), "");
    Record_until(Utc(2019, 9, 1, 0, 0, 0), Utc(2019, 11, 20, 0, 0, 0)); // around the whole range
    EXPECT_EQ(October(), "");
    Record_until(Utc(2019, 10, 12, 15, 50, 0), Utc(2019, 10, 12, 16, 10, 0)); // 23:50 to 00:10 local
    EXPECT_EQ(October(), "12 13");
    Record_until(Utc(2019, 10, 3, 1, 0, 0), Utc(2019, 10, 6, 1, 0, 0));
    Record_until(Utc(2019, 9, 29, 0, 0, 0), Utc(2019, 10, 31, 15, 59, 59));
    EXPECT_EQ(October(), "3 6 12 13 31");
}

TEST_F(Calendar, CountsRunningRecordingsAndPrintsEachDay)
{
    const int fd = Create(Utc(2019, 10, 20, 0, 0, 0));
    Write_seconds(fd, 2);
    EXPECT_EQ(October(), "20");
    Ifsi_close(fd, nullptr);
    Ifsi_set_debug_level(IFS_DEBUG_DETAIL);
    const std::string printed = Messages([this] { October(); });
    EXPECT_EQ(printed.substr(0, 89),
              "Calendar(stream type:0)(From 2019-09-30 16:00:00 To 2019-10-31 15:59:59)\n"
              "\tDay[01]:0\n\tDay[");
    EXPECT_TRUE(Holds(printed, "\tDay[20]:1\n"));
}
