#include "tests/interface/card_test.h"

using SearchTest = CardTest;

TEST_F(SearchTest, MatchesWhatOverlapsTheRangeBoundsIncluded)
{
    Record(At(10, 0, 10), 20);
    std::string found;
    for (const auto& [from_s, to_s] : {std::pair(0, 9), {0, 10}, {15, 16}, {30, 59}, {31, 59}}) {
        found += std::to_string(Search(IFS_STREAM_MAIN, At(10, 0, from_s), At(10, 0, to_s)).size());
    }
    EXPECT_EQ(found, "01110");
    EXPECT_EQ(Search(IFS_STREAM_SUB).size(), 0u);
}

TEST_F(SearchTest, HandsOutItsResultsInPortions)
{
    for (int minute = 11; minute >= 0; --minute) {
        Record(At(10, minute), 2);
    }
    Ifsi_set_debug_level(IFS_DEBUG_TRACE | IFS_DEBUG_ERROR);
    int search = -1;
    EXPECT_EQ(Messages([&] { search = Find(IFS_STREAM_MAIN); }),
              "start time:2019-10-12 00:00:00, end time:2019-10-12 23:59:59, stream type:0, number:12\n");
    _ifs_rec_file_ out[5];
    EXPECT_EQ(Ifsi_find_next(search, 0, out), 0);
    EXPECT_EQ(Ifsi_find_next(search, -3, out), 0);
    EXPECT_EQ(Said(5, [&] { return Ifsi_find_next(search, 5, out); }), "Find Number:5\n");
    EXPECT_EQ(Text(out[0].start_tm), "2019-10-12 10:00:00");
    EXPECT_EQ(Ifsi_find_next(search, 5, out), 5);
    Ifsi_set_debug_level(IFS_DEBUG_DETAIL);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Ifsi_find_next(search, 5, out), 2); }),
              "\tstart time:2019-10-12 10:10:00, end time:2019-10-12 10:10:02, size:" +
                  std::to_string(out[0].file_size) +
                  "\n\tstart time:2019-10-12 10:11:00, end time:2019-10-12 10:11:02, size:" +
                  std::to_string(out[1].file_size) + "\n");
    Ifsi_set_debug_level(IFS_DEBUG_ERROR);
    EXPECT_EQ(Said(0, [&] { return Ifsi_find_next(search, 5, out); }), "Get Over(12)!\n");
    EXPECT_EQ(Ifsi_find_get_count(search), 12);
    EXPECT_EQ(Ifsi_find_close(search), 0);
    EXPECT_EQ(Ifsi_find_close(search), 0);
    EXPECT_EQ(Ifsi_find_get_count(search), 0);
    EXPECT_EQ(Ifsi_find_next(search, 5, out), 0);
}

TEST_F(SearchTest, EightCanBeOpen)
{
    int searches[8];
    for (int& search : searches) {
        search = Find(IFS_STREAM_SUB);
        EXPECT_GT(search, 0);
    }
    EXPECT_EQ(Said(-1, [] { return Find(IFS_STREAM_SUB); }), "There is no free search handle\n");
    for (const int search : searches) {
        Ifsi_find_close(search);
    }
}

TEST_F(SearchTest, BringsRunningRecordingsUpToDateWhenTheyAreFetched)
{
    const int finished_later = Create(At(10, 0));
    const int still_running = Create(At(11, 0));
    const int dropped = Create(At(11, 30));
    const int vanishing = Create(At(12, 0));
    for (const int fd : {finished_later, still_running, vanishing}) {
        Write_seconds(fd, 20);
    }
    const int search = Find(IFS_STREAM_MAIN);
    EXPECT_EQ(Ifsi_find_get_count(search), 4);
    tm end = At(10, 0, 50);
    Ifsi_close(finished_later, &end);
    Ifsi_close(dropped, nullptr);
    Ifsi_close(vanishing, nullptr);
    remove((m_files + "/Rec_20191012_120000_061_M.mp4").c_str());

    _ifs_rec_file_ out[5];
    EXPECT_EQ(Ifsi_find_next(search, 5, out), 2);
    EXPECT_EQ(Text(out[0].start_tm) + Text(out[0].end_tm), "2019-10-12 10:00:002019-10-12 10:00:19");
    EXPECT_EQ(Text(out[1].start_tm), "2019-10-12 11:00:00");
    EXPECT_TRUE(out[0].file_size > 0 && out[1].file_size > 0);
    EXPECT_EQ(Ifsi_find_get_count(search), 2);
    EXPECT_EQ(Ifsi_find_next(search, 5, out), 0);
    Ifsi_find_close(search);
    Ifsi_close(still_running, nullptr);
}

TEST_F(SearchTest, TellsWhenTheLatestRecordingEnds)
{
    tm latest;
    EXPECT_EQ(Ifsi_get_latest_rec_time(&latest), -2);
    Record(At(10, 0), 30);
    Record(At(10, 0), 59, IFS_STREAM_SUB);
    const int running = Create(At(20, 0));
    EXPECT_EQ(Ifsi_get_latest_rec_time(&latest), 0);
    EXPECT_EQ(Text(latest), "2019-10-12 10:00:59");
    Ifsi_close(running, nullptr);
}
