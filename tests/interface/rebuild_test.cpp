#include <cstring>

#include "tests/interface/card_test.h"

class Rebuild : public CardTest
{
protected:
    /** What the rebuild of a remount prints under the given bits, without the lines of card and worker. */
    std::string Remount_messages(unsigned level)
    {
        EXPECT_EQ(Ifsi_umount(), 0);
        Ifsi_set_debug_level(level);
        const std::string printed = Messages([this] { Mount(); });
        Ifsi_set_debug_level(IFS_DEBUG_ERROR);
        return printed;
    }
};

TEST_F(Rebuild, TakesIndexedRecordingsUnopened)
{
    Record(At(10, 0));
    Record(At(9, 0));
    Record(At(10, 0), 10, IFS_STREAM_SUB);
    hostcard_fail(HOSTCARD_WRITE, 1, EIO, 0); // the index must not be written, either
    const unsigned opens = hostcard_count(HOSTCARD_OPEN);
    const std::string path = m_files + "/system_index_";
    const std::string expected = "Build record file list start...\n"
                                 "Load over!(0, " +
                                 path + "main, 2)\nLoad over!(1, " + path +
                                 "sub, 1)\n"
                                 "Number of main stream record file:2\nNumber of sub stream record file:1\n"
                                 "Build record file list end!!!\n";
    EXPECT_EQ(Remount_messages(IFS_DEBUG_TRACE | IFS_DEBUG_ERROR), expected);
    EXPECT_EQ(hostcard_count(HOSTCARD_OPEN), opens + 2);
    EXPECT_EQ(Starts(IFS_STREAM_MAIN), "09:00:00 10:00:00");
    Put_file("system_index_sub", "system_index_v1");
    EXPECT_TRUE(Holds(Remount_messages(IFS_DEBUG_ERROR), "Load over!(1, " + path + "sub, 0)\n"));
}

TEST_F(Rebuild, DropsEntriesWithoutAFileAndTakesFilesWithoutAnEntry)
{
    const std::string gone = Record(At(9, 0));
    Record(At(10, 0));
    const std::string copied = File(gone);
    remove((m_files + "/" + gone).c_str());
    EXPECT_TRUE(Holds(Remount_messages(IFS_DEBUG_TRACE), "Rewrite index file(0, 0, 1)\n"));
    EXPECT_EQ(Starts(IFS_STREAM_MAIN), "10:00:00");
    EXPECT_EQ(File("system_index_main").size(), 15u + 128);

    Put_file("Rec_20191012_110000_061_M.mp4", copied);
    EXPECT_TRUE(Holds(Remount_messages(IFS_DEBUG_TRACE), "Rewrite index file(0, 1, 0)\n"));
    EXPECT_EQ(Starts(IFS_STREAM_MAIN), "10:00:00 11:00:00");
    EXPECT_EQ(Text(Search(IFS_STREAM_MAIN).at(1).end_tm), "2019-10-12 11:00:09");
    EXPECT_EQ(File("system_index_main").size(), 15u + 2 * 128);
}

TEST_F(Rebuild, KeepsWhatAPassingFaultHides)
{
    const std::string finished = Record(At(10, 0));
    const int fd = Create(At(11, 0));
    Write_seconds(fd, 20);
    const std::string interrupted = File("Rec_20191012_110000_061_M.mp4");
    Ifsi_close(fd, nullptr);
    for (const hostcard_call call : {HOSTCARD_OPEN, HOSTCARD_READ}) {
        for (unsigned nth = 1; nth <= 40; ++nth) {
            Put_file("Rec_20191012_110000_061_M.mp4", interrupted);
            remove((m_files + "/system_index_main").c_str());
            hostcard_fail(call, nth, call == HOSTCARD_OPEN ? EMFILE : EIO, nth % 2);
            Remount();
            hostcard_fail_none();
            EXPECT_EQ(Starts(IFS_STREAM_MAIN), "10:00:00 11:00:00") << call << " " << nth;
        }
    }
    const int playback = Play(At(11, 0));
    EXPECT_GT(Read(playback).length, 0);
    Ifsi_close(playback, nullptr);
}

TEST_F(Rebuild, DiscardsADamagedIndexWholeAndWritesItAnew)
{
    Record(At(9, 0));
    Record(At(10, 0));
    const std::string index = File("system_index_main");
    const std::string path = m_files + "/system_index_main";
    std::string other_item = index;
    other_item[15 + 128] = 'X';
    std::string largest = index;
    while (largest.size() < 15 + 32768 * 128) {
        largest += index.substr(15, 128);
    }
    const std::pair<std::string, std::string> damages[] = {
        {largest, "Load over!(0, " + path + ", 32768)\n"},
        {largest + index.substr(15, 128), "Index file is too large(" + path + ")(4194447)\n"},
        {"", "Ifsod_read_file read file magic Failed(" + path + ")(0)\n"},
        {index.substr(0, 14), "Ifsod_read_file read file magic Failed(" + path + ")(14)\n"},
        {"S" + index.substr(1), "It's not index file magic(" + path + ")\n"},
        {index + "ITE", "Ifsod_read_file read file magic Failed(" + path + ")(3)\n"},
        {index.substr(0, index.size() - 1), "Ifsod_read_file read item (" + path + ", 1)(123, 124)\n"},
        {index + "ITEM", "Ifsod_read_file read item (" + path + ", 2)(0, 124)\n"},
        {other_item, "It's not item magic(" + path + ")\n"},
    };
    for (const auto& [damaged, message] : damages) {
        Put_file("system_index_main", damaged);
        EXPECT_TRUE(Holds(Remount_messages(IFS_DEBUG_ERROR), message));
        EXPECT_EQ(Starts(IFS_STREAM_MAIN), "09:00:00 10:00:00");
        EXPECT_EQ(File("system_index_main").size(), index.size()) << message;
    }
}

TEST_F(Rebuild, SurvivesAnyBytesInAnIndexItem)
{
    const std::string name = Record(At(9, 0));
    std::string index = File("system_index_main");
    index.replace(19 + 44, 80, std::string(80, '\xff'));
    Put_file("system_index_main", index);
    Remount();
    EXPECT_EQ(Counts(), "1 0");
    tm latest;
    unsigned char days[31];
    tm start = At(0, 0);
    tm end = At(23, 0, 0, 31);
    EXPECT_EQ(Ifsi_get_rec_calendar(&start, &end, IFS_STREAM_MAIN, days), 0);
    EXPECT_EQ(Ifsi_get_latest_rec_time(&latest), -2);
    EXPECT_TRUE(Exists(name));
}

TEST_F(Rebuild, DeletesOnlyRecordFilesThatNoContainerCanRead)
{
    const char* kept[] = {"notes.txt", "Rec_2019.mp4", "Rec_20191012_090000_061_M.mp4.bak",
                          "xRec_20191012_090000_061_M.mp4"};
    for (const char* name : kept) {
        Put_file(name, "anything");
    }
    Put_file("Rec_20191012_090000_061_M.mp4", std::string(5000, 'x'));
    Put_file("Rec_20191012_100000_061_S.mp4", "");
    const std::string printed = Remount_messages(IFS_DEBUG_ERROR);
    EXPECT_TRUE(Holds(printed, "Ifsod_open_file Failed(" + m_files + "/system_index_main)\n"));
    EXPECT_TRUE(Holds(printed, "Remove file1(Rec_20191012_090000_061_M.mp4)\n"));
    EXPECT_TRUE(Holds(printed, "Remove file3(Rec_20191012_100000_061_S.mp4)\n"));
    EXPECT_FALSE(Exists("Rec_20191012_090000_061_M.mp4") || Exists("Rec_20191012_100000_061_S.mp4"));
    for (const char* name : kept) {
        EXPECT_TRUE(Exists(name)) << name;
    }
    EXPECT_EQ(Counts(), "0 0");
}

TEST_F(Rebuild, LeavesARunningRecordingAlone)
{
    const int empty_fd = Create(At(9, 0));
    const int fd = Create(At(10, 0));
    Write_seconds(fd, 20);
    Ifsi_set_debug_level(IFS_DEBUG_TRACE);
    EXPECT_TRUE(Holds(Messages([this] { Mount(); }), // again
                      "mount(/dev/hd/sda1) on (" + m_files + ") already mounted\n"));
    Ifsi_set_debug_level(IFS_DEBUG_ERROR);
    EXPECT_EQ(Counts(), "0 0");
    EXPECT_TRUE(Exists("Rec_20191012_090000_061_M.mp4"));
    Write_seconds(empty_fd, 3);
    Ifsi_close(empty_fd, nullptr);
    Ifsi_close(fd, nullptr);
    EXPECT_EQ(Starts(IFS_STREAM_MAIN), "09:00:00 10:00:00");
    Remount();
    EXPECT_EQ(Starts(IFS_STREAM_MAIN), "09:00:00 10:00:00");
}

TEST_F(Rebuild, NoticesACardOfTheOlderNaming)
{
    Put_file("xCH1.data", "");
    Put_file("CH1.dat", "");
    Remount();
    EXPECT_EQ(gCard_fs_version, 2);
    Put_file("CH01_0001.data", "");
    Remount();
    EXPECT_EQ(gCard_fs_version, 1);
    gCard_fs_version = 2;
}

TEST_F(Rebuild, UsesTheDemoIndexWhenAsked)
{
    Ifsi_set_demo_flag();
    Record(At(9, 0));
    EXPECT_TRUE(Exists("system_index_main_demo"));
    EXPECT_FALSE(Exists("system_index_main"));
    gIfs_demo_flag = 0;
}

TEST_F(Rebuild, GoesOnWhenTheDirectoryCannotBeRead)
{
    Record(At(9, 0));
    ASSERT_EQ(Ifsi_umount(), 0);
    hostcard_fail(HOSTCARD_OPENDIR, 2, EIO, 1); // the first is the search for the card
    EXPECT_TRUE(
        Holds(Messages([this] { Mount(); }), "opendir(" + m_files + ") Failed(Input/output error)\n"));
    EXPECT_EQ(Counts(), "0 0");
    EXPECT_FALSE(Exists("system_index_main"));
    Remount();
    EXPECT_EQ(Counts(), "1 0");
}
