#include <unistd.h>

#include "tests/interface/card_test.h"

/** The overlap worker, its seconds taken in milliseconds; one worker serves all tests. */
class Overlap : public CardTest
{
protected:
    void SetUp() override
    {
        CardTest::SetUp();
        Ifsi_set_overlap(0);
        static const std::string banner = Printed([] { EXPECT_EQ(Ifsi_init(), 0); });
        EXPECT_EQ(banner.substr(0, 10), "libifs for");
        // The worker may still be in a sleep that began before this test shortened them.
        Ifsi_set_overlap(1);
        while (hostcard_count(HOSTCARD_STATFS) < 3) {
            usleep(1000 * 1000);
        }
        Ifsi_set_overlap(0);
    }
    void TearDown() override
    {
        Ifsi_set_overlap(0);
        Counts(); // waits for a tick in progress
        gFs_max_file_number = 0;
        CardTest::TearDown();
    }
    /** Let the worker run until ten ticks behind each other have deleted nothing. @return the counts */
    std::string Run()
    {
        Ifsi_set_overlap(1);
        std::string counts = Counts();
        for (unsigned quiet_from = hostcard_count(HOSTCARD_STATFS);
             hostcard_count(HOSTCARD_STATFS) < quiet_from + 10;) {
            usleep(1000 * 1000); // scaled to 1 ms
            const std::string now = Counts();
            quiet_from = now == counts ? quiet_from : hostcard_count(HOSTCARD_STATFS);
            counts = now;
        }
        Ifsi_set_overlap(0);
        return Counts();
    }
    void Record_many(int first, int end, int stream = IFS_STREAM_MAIN)
    {
        for (int i = first; i < end; ++i) {
            Record(At(10, i / 60, i % 60), 1, stream);
        }
    }
};

TEST_F(Overlap, DeletesTheOldestOfBothStreamsWhileSpaceIsShort)
{
    const std::string main[] = {Record(At(10, 0)), Record(At(11, 0))};
    const std::string oldest = Record(At(9, 0), 10, IFS_STREAM_SUB);
    hostcard_set_free(419430400);
    EXPECT_EQ(Run(), "2 1");
    hostcard_set_free(419430400 - 65536);
    Ifsi_set_debug_level(IFS_DEBUG_TRACE | IFS_DEBUG_ERROR);
    const unsigned syncs = hostcard_count(HOSTCARD_SYNC);
    const std::string said = Messages([this] { EXPECT_EQ(Run(), "0 0"); });
    EXPECT_EQ(hostcard_count(HOSTCARD_SYNC), syncs + 3)
        << "a deletion is durable before its space is used again";
    std::string expected;
    for (const std::string& name : {oldest, main[0], main[1]}) {
        expected += "remove file(" + name + ")\nRemove file(" + m_files + "/" + name + ")\n";
    }
    EXPECT_EQ(said.substr(0, said.find("to remove\n")), expected + "No file ");
}

TEST_F(Overlap, NeverDeletesWhatIsPlayedOrWritten)
{
    Record(At(9, 0));
    Record(At(10, 0));
    Record(At(9, 0), 10, IFS_STREAM_SUB);
    const int running = Create(At(8, 0));
    Write_seconds(running, 3);
    std::string name = "Rec_20191012_090000_061_M.mp4";
    const int playing = Ifsi_open_v3(name.data());
    hostcard_set_free(0);
    EXPECT_EQ(Run(), "1 0");
    EXPECT_EQ(Starts(IFS_STREAM_MAIN), "09:00:00 08:00:00"); // the running one behind
    EXPECT_TRUE(Exists(name));
    EXPECT_TRUE(Exists("Rec_20191012_080000_061_M.mp4"));
    hostcard_set_free(-1);
    Ifsi_close(playing, nullptr);
    Ifsi_close(running, nullptr);
}

TEST_F(Overlap, KeepsTheNumberOfFilesBelowTheLimit)
{
    Record_many(0, 20);
    gFs_max_file_number = 20;
    EXPECT_EQ(Run(), "19 0"); // a small limit has no hysteresis
    gFs_max_file_number = 0;
    Record_many(20, 61);
    Record_many(1, 41, IFS_STREAM_SUB);
    gFs_max_file_number = 101;
    EXPECT_EQ(Run(), "60 40");
    gFs_max_file_number = 100;
    EXPECT_EQ(Run(), "49 30"); // on to 20 below the limit and one more, main first at the same second
    gFs_max_file_number = 0xFFFFFFF0;
    hostcard_set_free(0);
    Ifsi_set_debug_level(IFS_DEBUG_DETAIL);
    EXPECT_TRUE(Holds(Messages([this] { Run(); }), "main:49, sub:30, max:-16, free size:0\n"))
        << "as on the camera";
}

TEST_F(Overlap, RewritesTheIndexEvery100Deletions)
{
    Record_many(0, 120);
    gFs_max_file_number = 120;
    const size_t whole = 15 + 120 * 128;
    EXPECT_EQ(File("system_index_main").size(), whole);
    EXPECT_EQ(Run(), "99 0");
    EXPECT_EQ(File("system_index_main").size(), whole);
    Remount();
    EXPECT_EQ(File("system_index_main").size(), 15u + 99 * 128);
    Record(At(11, 0));
    hostcard_set_free(0);
    EXPECT_EQ(Run(), "0 0");
    EXPECT_FALSE(Exists("system_index_main")); // nothing was left at the 100th since the mount
}

TEST_F(Overlap, DropsTheEntryOfAFileThatCannotBeRemoved)
{
    const std::string name = Record(At(9, 0));
    hostcard_fail(HOSTCARD_REMOVE, 1, EIO, 0);
    hostcard_set_free(0);
    EXPECT_EQ(Run(), "0 0");
    EXPECT_TRUE(Exists(name));
    hostcard_fail_none();
    Remount();
    EXPECT_EQ(Counts(), "1 0");
}
